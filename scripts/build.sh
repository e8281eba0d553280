#!/bin/sh
# Configures and builds the host build in BUILD_DIR (default: build); further arguments go to
# cmake (e.g. -DKRV_QT4_DIR=PREFIX).
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
dir=${1:-"$top/build"}
[ $# -gt 0 ] && shift
cmake -S "$top" -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
cmake --build "$dir" -j"$(nproc)"
