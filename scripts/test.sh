#!/bin/sh
# Installs dependencies, builds, and runs the whole test suite (each test binary in its own
# panel sandbox).
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/deps.sh"
"$top/scripts/build.sh" "$top/build"
ctest --test-dir "$top/build" --output-on-failure -j2
