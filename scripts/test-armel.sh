#!/bin/sh
# Builds the panel build (see build-armel.sh) and runs the whole suite under qemu-arm, each test
# in its own panel sandbox.
# Usage: scripts/test-armel.sh [--old-abi] [--qt4 PREFIX] [BUILD_DIR]
set -eu
exec "$(dirname "$0")/build-armel.sh" --test "$@"
