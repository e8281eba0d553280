#!/bin/sh
# scripts/memcheck.sh [--soak ROUNDS]
#
# Runs the simulator under valgrind memcheck inside the panel sandbox, with the NTP server in the
# peer and scripts/memcheck/commands.txt as input (every command family, channel writes, NTP
# synchronisations, refreshes and polls; under a minute). With --soak, runs krv-soak for that
# many rounds under memcheck instead (its growth check is off there: valgrind owns the heap).
# Fails on any memory error and on any definite leak.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
dir=${BUILD_DIR:-$top/build}
rounds=
if [ "${1:-}" = --soak ]; then
    rounds=${2:?usage: ${0##*/} [--soak ROUNDS]}
fi

[ -f "$dir/CMakeCache.txt" ] || cmake -S "$top" -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$dir" -j"${KRV_JOBS:-2}" --target krv-sim krv-soak krvcontrol_armv5 >/dev/null

set -- valgrind --tool=memcheck --leak-check=full --errors-for-leak-kinds=definite \
    --show-leak-kinds=definite --track-origins=yes --num-callers=30 --keep-debuginfo=yes \
    --error-exitcode=99 --suppressions="$top/scripts/memcheck/valgrind.supp"
box() { "$top/sandbox/panel-sandbox" --ifaces 2 --bind "$top" --bind "$dir" -- "$@"; }
if [ -n "$rounds" ]; then
    box "$@" "$dir/bin/krv-soak" --rounds "$rounds" --samples 2 --pause-ms 0 \
        --heap-allowance-kb 10000000 --rss-allowance-kb 10000000
else
    # Inside the sandbox the simulator runs in place instead of re-executing into one.
    box "$@" "$dir/bin/krv-sim" <"$top/scripts/memcheck/commands.txt"
fi
