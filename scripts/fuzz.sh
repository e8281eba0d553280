#!/bin/sh
# scripts/fuzz.sh [seconds] [target...]
#
# Builds the libFuzzer targets of fuzz/ with clang (AddressSanitizer, UBSan and LeakSanitizer
# included) into build-fuzz and runs each for `seconds` (default 60) inside its own panel
# sandbox, starting from the seed corpus fuzz/corpus/<target>/. New inputs are kept in
# build-fuzz/fuzz-corpus/; a crash, leak, time-out (hang) or memory blow-up stops the target
# with its input in build-fuzz/fuzz-artifacts/ and fails the script. A summary line per target
# gives the executions and the coverage reached.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-60}
[ $# -eq 0 ] || shift
jobs=${KRV_JOBS:-2}
dir=$top/build-fuzz

command -v clang++ >/dev/null || { echo "fuzz.sh: clang++ is needed (apt-get install clang libclang-rt-dev)" >&2; exit 2; }
cmake -S "$top" -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKRV_FUZZ=ON \
    -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ >/dev/null
cmake --build "$dir" -j"$jobs" --target krv_fuzz

targets=$*
if [ -z "$targets" ]; then
    targets=$(cd "$top/fuzz" && ls *_fuzz.cpp | sed 's/_fuzz\.cpp$//')
fi

mkdir -p "$dir/fuzz-artifacts" "$dir/fuzz-logs"
for t in $targets; do mkdir -p "$dir/fuzz-corpus/$t"; done
# Started as root, the sandbox runs the targets as uid 100000, which must be able to keep the
# inputs it finds and a failing one.
if [ "$(id -u)" = 0 ]; then
    chown -R 100000:100000 "$dir/fuzz-artifacts" "$dir/fuzz-corpus"
fi
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
export ASAN_OPTIONS="detect_leaks=1:strict_string_checks=1"
failed=
summary=
for t in $targets; do
    work=$dir/fuzz-corpus/$t
    dict=
    [ -f "$top/fuzz/$t.dict" ] && dict=-dict=$top/fuzz/$t.dict
    log=$dir/fuzz-logs/$t.log
    echo "== fuzz_$t for ${seconds}s"
    # -timeout: one input taking longer is a hang; -rss_limit_mb also caps single allocations.
    if "$top/sandbox/panel-sandbox" --bind "$top" --bind "$dir" -- \
        "$dir/bin/fuzz_$t" -max_total_time="$seconds" -timeout=15 -rss_limit_mb=2048 \
        -print_final_stats=1 -artifact_prefix="$dir/fuzz-artifacts/$t-" $dict \
        "$work" "$top/fuzz/corpus/$t" >"$log" 2>&1; then
        result=ok
    else
        result=FAILED
        failed="$failed $t"
        tail -n 60 "$log"
    fi
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
    cov=$(grep -o 'cov: [0-9]* ft: [0-9]*' "$log" | tail -n 1)
    line="fuzz_$t: $result, ${runs:-?} executions in ${seconds}s, ${cov:-no coverage line}"
    echo "$line"
    summary="$summary$line
"
done
printf '\n%s' "$summary"
if [ -n "$failed" ]; then
    echo "fuzz.sh: failed:$failed (inputs in $dir/fuzz-artifacts, logs in $dir/fuzz-logs)" >&2
    exit 1
fi
