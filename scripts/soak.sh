#!/bin/sh
# scripts/soak.sh [MINUTES | ROUNDSr] [krv-soak options...]
#
# Builds the driver and krv-soak in BUILD_DIR (default: build) and runs the soak inside the panel
# sandbox with two interfaces and the NTP server in the peer: every round one NTP period passes
# on the runtime's tick count and the worker synchronises; commands of every family and every
# channel write go in beside it, and the device is polled; every fortieth round another process
# holds the lock files for two seconds, and a few rounds later the NTP server is silent for three
# rounds. Prints resident memory, heap in use and open descriptors at start, after the warm-up,
# periodically and at the end; fails when any of them grew after the warm-up.
#   scripts/soak.sh 20      twenty minutes
#   scripts/soak.sh 120r    a hundred and twenty rounds (about a minute)
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
dir=${BUILD_DIR:-$top/build}
length=${1:-20}
[ $# -eq 0 ] || shift
case "$length" in
*r) set -- --rounds "${length%r}" "$@" ;;
*) set -- --minutes "$length" "$@" ;;
esac

[ -f "$dir/CMakeCache.txt" ] || cmake -S "$top" -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$dir" -j"${KRV_JOBS:-2}" --target krv-soak krvcontrol_armv5 >/dev/null
# Free chunks parked in glibc's per-thread caches count as in use for mallinfo2, and the NTP
# worker's cache fills slowly over the first hours; without the caches the heap figure is what
# the process really holds.
exec "$top/sandbox/panel-sandbox" --ifaces 2 --bind "$top" --bind "$dir" -- \
    env GLIBC_TUNABLES=glibc.malloc.tcache_count=0 "$dir/bin/krv-soak" "$@"
