#!/bin/bash
# Builds the driver and the benchmarks in release mode, runs every benchmark inside the panel
# sandbox and prints one table: each figure as a ratio against its baseline from the same run,
# with instruction counts (callgrind) as the stable companion and times for context.
#
#   bench/run.sh [BUILD_DIR]     (default: build-bench next to this directory)
# The settings write is measured against the panel's Qt 4 as well when a QtCore 4.8 prefix is at
# $KRV_QT4_HOST (default /opt/qt4-host), in BUILD_DIR-qt4.
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
box "$BIN" settings 200 >"$OUT/settings.txt" 2>"$OUT/settings.err"
QT4=${KRV_QT4_HOST:-/opt/qt4-host}
if [ -f "$QT4/lib/libQtCore.so.4" ]; then
    cmake -S "$SRC" -B "$BUILD-qt4" -DCMAKE_BUILD_TYPE=Release -DKRV_BUILD_TESTS=ON \
        -DKRV_BUILD_BENCH=ON -DKRV_QT4_DIR="$QT4" >/dev/null
    cmake --build "$BUILD-qt4" -j"$JOBS" --target krv_bench krvcontrol_armv5 >/dev/null
    "$SANDBOX" --bind "$SRC" --bind "$BUILD-qt4" -- "$BUILD-qt4/bin/krv_bench" settings 200 \
        >>"$OUT/settings.txt" 2>"$OUT/settings-qt4.err"
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
