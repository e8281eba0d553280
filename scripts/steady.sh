#!/bin/sh
# scripts/steady.sh [ROUNDS] [BUILD_DIR...]
#
# How steady the suite is under load: the suites of the given build trees (default build/ and,
# when it exists, build-qt4/) run at the same time, so each loads the machine for the other, and
# each test runs ROUNDS times in a row (default 20; `ctest --repeat until-fail:ROUNDS`), stopping
# at its first failure. With a single tree a CPU hog on every core stands in for the second
# suite. Prints each tree's outcome and time; the exit status is 0 only when every tree passed.
# The trees must be built (scripts/build.sh, scripts/test-qt4.sh, scripts/build-armel.sh ...).
set -u
top=$(cd "$(dirname "$0")/.." && pwd)
rounds=${1:-20}
[ $# -eq 0 ] || shift
dirs=$*
if [ -z "$dirs" ]; then
    dirs=$top/build
    [ -d "$top/build-qt4" ] && dirs="$dirs $top/build-qt4"
fi
hogs=
if [ "$(echo $dirs | wc -w)" = 1 ]; then
    for _ in $(seq "$(nproc)"); do
        sh -c 'while :; do :; done' &
        hogs="$hogs $!"
    done
fi
start=$(date +%s)
pids=
for d in $dirs; do
    ctest --test-dir "$d" -j2 --repeat until-fail:"$rounds" --output-on-failure \
        >"$d/steady.log" 2>&1 &
    pids="$pids $!"
done
status=0
set -- $dirs
for p in $pids; do
    if wait "$p"; then result=passed; else result=FAILED; status=1; fi
    echo "$1: every test $rounds times in a row under load: $result ($(tail -n 1 "$1/steady.log"))"
    shift
done
[ -z "$hogs" ] || kill $hogs
echo "steady.sh: $(($(date +%s) - start)) s"
exit $status
