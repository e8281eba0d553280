#!/bin/sh
# Checks the driver's ELF interface: SONAME, exactly the two exported entry points, NEEDED
# limited to QtCore, the panel's HAL and runtime libraries and the C/C++ runtimes, and the
# NODELETE flag (QtCore's SIGCHLD handler must outlive the runtime's dlclose).
# Usage: check-abi.sh [--readelf R] [--nm N] [--armv5-soft] [--installed] DRIVER
#   --armv5-soft  also require an ARM EABI5 soft-float ARMv5TE object without VFP attributes
#   --installed   also require the SONAME link next to DRIVER (the .so link) and no RUNPATH/RPATH
set -eu
readelf=readelf
nm=nm
armv5=0
installed=0
while [ $# -gt 1 ]; do
    case $1 in
        --readelf) readelf=$2; shift 2 ;;
        --nm) nm=$2; shift 2 ;;
        --armv5-soft) armv5=1; shift ;;
        --installed) installed=1; shift ;;
        *) break ;;
    esac
done
lib=${1:?usage: check-abi.sh [--readelf R] [--nm N] [--armv5-soft] [--installed] DRIVER}
soname=libkrvcontrol_armv5.so.1
failures=0
pass() { echo "ok: $*"; }
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
expect() {  # expect DESCRIPTION WANTED GOT
    if [ "$2" = "$3" ]; then pass "$1: $3"; else fail "$1: wanted '$2', got '$3'"; fi
}

[ -f "$lib" ] || { echo "FAIL: no such file: $lib"; exit 1; }
dynamic=$("$readelf" -d "$lib")

expect SONAME "$soname" "$(echo "$dynamic" | sed -n 's/.*(SONAME).*\[\(.*\)\].*/\1/p')"

case $(echo "$dynamic" | sed -n 's/.*(FLAGS_1) *//p') in
    *NODELETE*) pass "FLAGS_1 NODELETE" ;;
    *) fail "FLAGS_1 lacks NODELETE: unloading would leave QtCore's SIGCHLD handler dangling" ;;
esac

exports=$("$nm" -D --defined-only "$lib" | awk '{print $NF}' | sort | tr '\n' ' ')
expect exports "CreateDeviceCtrl DestroyDeviceCtrl " "$exports"

for needed in $(echo "$dynamic" | sed -n 's/.*(NEEDED).*\[\(.*\)\].*/\1/p'); do
    case $needed in
        libQt5Core.so.5 | libwexa-hal.so | libwexa-runtime.so) pass "NEEDED $needed" ;;
        libstdc++.so.6 | libgcc_s.so.1 | libm.so.6 | libc.so.6 | libpthread.so.0 | libdl.so.2 | \
            librt.so.1 | ld-linux.so.3 | ld-linux-x86-64.so.2) pass "NEEDED $needed (C/C++ runtime)" ;;
        *) fail "NEEDED $needed is not a library the panel provides" ;;
    esac
done

if [ $armv5 = 1 ]; then
    header=$("$readelf" -h "$lib")
    attributes=$("$readelf" -A "$lib")
    expect class ELF32 "$(echo "$header" | sed -n 's/^ *Class: *//p')"
    expect machine ARM "$(echo "$header" | sed -n 's/^ *Machine: *//p')"
    expect flags "Version5 EABI, soft-float ABI" \
        "$(echo "$header" | sed -n 's/^ *Flags: *0x[0-9a-f]*, *//p')"
    expect Tag_CPU_arch v5TE "$(echo "$attributes" | sed -n 's/^ *Tag_CPU_arch: *//p')"
    vfp=$(echo "$attributes" | grep -E 'VFP|Tag_FP_arch|Tag_Advanced_SIMD_arch|HardFP|NEON' || true)
    if [ -z "$vfp" ]; then pass "no VFP/NEON attributes"; else fail "VFP/NEON attributes: $vfp"; fi
fi

if [ $installed = 1 ]; then
    dir=$(dirname "$lib")
    expect "SONAME file" "$soname" "$(basename "$(readlink -f "$lib")")"
    [ -f "$dir/$soname" ] && [ ! -L "$dir/$soname" ] && pass "$soname is the file" ||
        fail "$soname missing or a link"
    paths=$(echo "$dynamic" | grep -E '\((RUNPATH|RPATH)\)' || true)
    if [ -z "$paths" ]; then pass "no RUNPATH/RPATH"; else fail "search path left in: $paths"; fi
fi

[ $failures = 0 ] && echo "all checks passed" || echo "$failures check(s) failed"
[ $failures = 0 ]
