#!/bin/sh
# Installs what the panel build needs, prepares the armel sysroot inside BUILD_DIR, builds
# everything (driver, simulated panel libraries, runtime host, simulator, tests) for ARMv5TE
# soft-float and makes the release bundle (BUILD_DIR/package/krvcontrol-VERSION-armel.tar.gz).
# Usage: scripts/build-armel.sh [--old-abi] [BUILD_DIR]
#   --old-abi  pre-C++11 std::string layout, for runtimes built with an older compiler
#   BUILD_DIR  default build-armel (build-armel-oldabi with --old-abi)
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
old_abi=OFF
if [ "${1:-}" = "--old-abi" ]; then
    old_abi=ON
    shift
fi
if [ $old_abi = ON ]; then
    dir=${1:-"$top/build-armel-oldabi"}
else
    dir=${1:-"$top/build-armel"}
fi
mkdir -p "$dir"
dir=$(cd "$dir" && pwd)
"$top/scripts/armel-deps.sh"
"$top/scripts/armel-sysroot.sh" "$dir/armel-sysroot"
cmake -S "$top" -B "$dir" \
    -DCMAKE_TOOLCHAIN_FILE="$top/cmake/toolchain-armel.cmake" \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DKRV_OLD_STRING_ABI=$old_abi >/dev/null
cmake --build "$dir" -j2
cmake --build "$dir" --target package >/dev/null
ls "$dir"/package/*.tar.gz
