#!/bin/sh
# Builds against a QtCore 4.8 prefix (the panel's Qt) into a build directory of its own and runs
# the whole suite: on this machine, or with --armel for ARMv5TE under qemu-arm with the
# pre-C++11 std::string layout, the closest build to a panel's.
# Usage: scripts/test-qt4.sh [--armel] PREFIX [BUILD_DIR]
#   PREFIX     include/QtCore and lib/libQtCore.so.4 built for that target (see CONTRIBUTING.md)
#   BUILD_DIR  default build-qt4 (build-armel-qt4 with --armel)
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
armel=0
if [ "${1:-}" = "--armel" ]; then
    armel=1
    shift
fi
prefix=$(cd "${1:?usage: test-qt4.sh [--armel] PREFIX [BUILD_DIR]}" && pwd)
if [ $armel = 1 ]; then
    exec "$top/scripts/build-armel.sh" --test --old-abi --qt4 "$prefix" \
        "${2:-"$top/build-armel-qt4"}"
fi
dir=${2:-"$top/build-qt4"}
"$top/scripts/deps.sh"
"$top/scripts/build.sh" "$dir" -DKRV_QT4_DIR="$prefix"
ctest --test-dir "$dir" --output-on-failure -j2
