#!/bin/sh
# Installs what the panel build needs, builds everything (driver, simulated panel libraries,
# runtime host, simulator, tests) for ARMv5TE soft-float and makes the release bundle
# (BUILD_DIR/package/krvcontrol-VERSION-armel-qtN-LAYOUT.tar.gz).
# Usage: scripts/build-armel.sh [--test] [--old-abi] [--qt4 PREFIX] [BUILD_DIR]
#   --test      then run the whole suite under qemu-arm, each test in its own panel sandbox
#   --old-abi   pre-C++11 std::string layout, for runtimes built with an older compiler
#   --qt4 PREFIX  QtCore 4.8 built for armel in PREFIX; without it Debian's armel Qt 5, unpacked
#               into a sysroot inside BUILD_DIR
#   BUILD_DIR   default build-armel (build-armel-oldabi with --old-abi)
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
test=0
old_abi=OFF
qt4=""
while [ $# -gt 0 ]; do
    case $1 in
        --test) test=1; shift ;;
        --old-abi) old_abi=ON; shift ;;
        --qt4) qt4=$(cd "$2" && pwd); shift 2 ;;
        *) break ;;
    esac
done
if [ $old_abi = ON ]; then
    dir=${1:-"$top/build-armel-oldabi"}
else
    dir=${1:-"$top/build-armel"}
fi
mkdir -p "$dir"
dir=$(cd "$dir" && pwd)
"$top/scripts/armel-deps.sh"
[ -n "$qt4" ] || "$top/scripts/armel-sysroot.sh" "$dir/armel-sysroot"
cmake -S "$top" -B "$dir" \
    -DCMAKE_TOOLCHAIN_FILE="$top/cmake/toolchain-armel.cmake" \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DKRV_OLD_STRING_ABI=$old_abi -DKRV_QT4_DIR="$qt4" >/dev/null
cmake --build "$dir" -j2
cmake --build "$dir" --target package >/dev/null
ls "$dir"/package/*.tar.gz
[ $test = 0 ] || ctest --test-dir "$dir" --output-on-failure -j2
