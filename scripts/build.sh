#!/bin/sh
# Configures and builds the host build in BUILD_DIR (default: build).
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
dir=${1:-"$top/build"}
cmake -S "$top" -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$dir" -j"$(nproc)"
