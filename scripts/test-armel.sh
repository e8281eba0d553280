#!/bin/sh
# Builds the panel build (see build-armel.sh) and runs the whole suite under qemu-arm, each test
# in its own panel sandbox.
# Usage: scripts/test-armel.sh [--old-abi] [BUILD_DIR]
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/build-armel.sh" "$@"
if [ "${1:-}" = "--old-abi" ]; then
    shift
    dir=${1:-"$top/build-armel-oldabi"}
else
    dir=${1:-"$top/build-armel"}
fi
ctest --test-dir "$dir" --output-on-failure -j2
