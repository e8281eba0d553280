#!/bin/bash
# Builds the driver and the benchmarks in release mode, runs every benchmark inside the panel
# sandbox and prints one table: each figure as a ratio against its baseline from the same run,
# with instruction counts (callgrind) as the stable companion and times for context.
#
#   bench/run.sh [BUILD_DIR]     (default: build-bench next to this directory)
# The settings write is measured against the panel's Qt 4 as well when a QtCore 4.8 prefix is at
# $KRV_QT4_HOST (default /opt/qt4-host), in BUILD_DIR-qt4; its baseline is the driver at
# $KRV_BENCH_SETTINGS_BASE (a git commit), built in BUILD_DIR/settings-base.
set -eu

SRC=$(realpath "$(dirname "$0")/..")
BUILD=${1:-$SRC/build-bench}
SANDBOX=$SRC/sandbox/panel-sandbox
OUT=$BUILD/bench-out
JOBS=2

cmake -S "$SRC" -B "$BUILD" -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS=-g \
    -DKRV_BUILD_TESTS=ON -DKRV_BUILD_BENCH=ON >/dev/null
cmake --build "$BUILD" -j"$JOBS" --target krv_bench krvcontrol_armv5 >/dev/null
BIN=$BUILD/bin/krv_bench
rm -rf "$OUT" && mkdir -p "$OUT"
# Written from inside the sandbox, whose root is uid 100000 on the host.
chown 100000 "$OUT"

box() { "$SANDBOX" --bind "$SRC" --bind "$BUILD" -- "$@"; }

echo "running wall-time benchmarks..." >&2
box "$BIN" --benchmark_format=json --benchmark_out="$OUT/wall.json" \
    --benchmark_out_format=json --benchmark_min_time=0.3 >/dev/null 2>"$OUT/wall.err"

echo "counting instructions (callgrind)..." >&2
box valgrind --tool=callgrind --collect-atstart=no \
    --callgrind-out-file="$OUT/cg.%p" "$BIN" count >"$OUT/count.txt" 2>"$OUT/count.err"

echo "measuring the worker at rest..." >&2
box "$BIN" worker 10 >"$OUT/worker.txt" 2>"$OUT/worker.err"
box valgrind --tool=callgrind --collect-atstart=no --toggle-collect='NtpCtrl::ThreadOfExecNtp*' \
    --callgrind-out-file="$OUT/worker-cg.%p" "$BIN" worker 4 >"$OUT/worker-cg.txt" 2>"$OUT/worker-cg.err"

echo "timing NTP against the peer's server..." >&2
box "$BIN" ntp 10 >"$OUT/ntp.txt" 2>"$OUT/ntp.err"
# Where an ExecNTP goes: system calls with time stamps, one run per server form.
box strace -f -ttt -o "$OUT/ntp.strace" -e trace=execve,sendto,recvfrom,exit_group,openat \
    "$BIN" ntp 1 >/dev/null 2>&1 || true

echo "settings writes..." >&2
# Row 8 against the driver as it was at $KRV_BENCH_SETTINGS_BASE (default: the commit before settings
# writes went through a new file renamed over the old one), built in BUILD_DIR/settings-base.
BASE_REF=${KRV_BENCH_SETTINGS_BASE:-f1eaebb}
baseline() { # baseline BUILD_DIR [CMAKE_ARG...]: builds it, prints the driver's path
    local dir=$1/settings-base rev
    shift
    rev=$(git -C "$SRC" rev-parse --verify -q "$BASE_REF^{commit}") || return 1
    if [ "$(cat "$dir/src.rev" 2>/dev/null)" != "$rev" ]; then
        rm -rf "$dir" && mkdir -p "$dir/src" && git -C "$SRC" archive "$rev" | tar -x -C "$dir/src" &&
            echo "$rev" >"$dir/src.rev" || return 1
    fi
    cmake -S "$dir/src" -B "$dir/build" -DCMAKE_BUILD_TYPE=Release -DKRV_BUILD_TESTS=OFF "$@" \
        >/dev/null && cmake --build "$dir/build" -j"$JOBS" --target krvcontrol_armv5 >/dev/null &&
        echo "$dir/build/lib/libkrvcontrol_armv5.so.1"
}
settings() { # settings BUILD_DIR [CMAKE_ARG...]: row 8 on that build
    local base
    base=$(baseline "$@") || { echo "no baseline driver at $BASE_REF: row 8 skipped" >&2; return; }
    "$SANDBOX" --bind "$SRC" --bind "$1" -- "$1/bin/krv_bench" settings 200 "$base" \
        >>"$OUT/settings.txt" 2>>"$OUT/settings.err"
}
settings "$BUILD"
QT4=${KRV_QT4_HOST:-/opt/qt4-host}
if [ -f "$QT4/lib/libQtCore.so.4" ]; then
    cmake -S "$SRC" -B "$BUILD-qt4" -DCMAKE_BUILD_TYPE=Release -DKRV_BUILD_TESTS=ON \
        -DKRV_BUILD_BENCH=ON -DKRV_QT4_DIR="$QT4" >/dev/null
    cmake --build "$BUILD-qt4" -j"$JOBS" --target krv_bench krvcontrol_armv5 >/dev/null
    settings "$BUILD-qt4" -DKRV_QT4_DIR="$QT4"
fi

echo "footprint..." >&2
box "$BIN" footprint 10 >"$OUT/footprint.txt" 2>"$OUT/footprint.err"
# Free chunks in glibc's per-thread caches would count as in use.
box env GLIBC_TUNABLES=glibc.malloc.tcache_count=0 "$BIN" churn 2000 >"$OUT/churn.txt" 2>"$OUT/churn.err"
DRIVER=$(ls "$BUILD"/lib/libkrvcontrol_armv5.so.1)
strip --strip-all -o "$OUT/driver-host.so" "$DRIVER"
ARMEL=
for cand in "$SRC"/build-armel/lib/libkrvcontrol_armv5.so.1; do
    if [ -f "$cand" ] && command -v arm-linux-gnueabi-strip >/dev/null; then
        arm-linux-gnueabi-strip --strip-all -o "$OUT/driver-armel.so" "$cand" && ARMEL=$cand && break
    fi
done

python3 "$SRC/bench/report.py" "$OUT" "$ARMEL"
