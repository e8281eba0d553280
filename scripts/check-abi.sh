#!/bin/sh
# Checks the driver's ELF interface: SONAME, exactly the two exported entry points, the NODELETE
# flag (QtCore's SIGCHLD handler must outlive the runtime's dlclose), NEEDED limited to the given
# libraries (the panel's HAL and QtCore) and the C/C++ runtime, every undefined symbol provided by
# one of those or declared as the runtime's own interface, and timed waits that follow the
# monotonic clock. Prints the highest GLIBC_, GLIBCXX_, CXXABI_, CXXABI_ARM_ (ARM EABI only) and
# GCC_ symbol versions the driver needs (the "needs:" line), then "all checks passed" or how many
# failed.
# Usage: check-abi.sh [--readelf R] [--nm N] [--cxx C] [--lib LIB]... [--runtime LIB]... [--interface DIR]
#                     [--armv5-soft] [--installed] [--program] [--max-versions LIST] FILE
#   --readelf, --nm  the binary tools for FILE's architecture; c++filt must sit beside nm
#                    (arm-linux-gnueabi-nm: arm-linux-gnueabi-c++filt)
#   --cxx C          the compiler whose C/C++ runtime libraries FILE was linked with
#   --lib LIB        a library FILE may need (the HAL, QtCore); repeat for each
#   --runtime LIB    a library of the runtime that defines what the driver takes from the runtime
#   --interface DIR  process (CString, Wexa_*, logger_printf, SplitCsvStr, ZU::utils, __gui_*):
#                    its symbols count when the headers in DIR declare them (a class, namespace
#                    or function of that name); repeat --runtime for each such library
#   --armv5-soft     also require an ARM EABI5 soft-float ARMv5TE object without VFP attributes
#   --installed      also require the SONAME link next to FILE (the .so link) and no RUNPATH/RPATH
#   --program        FILE is a program of the bundle (krv-abi-check), not the driver: no SONAME,
#                    exports or NODELETE to check
#   --max-versions LIST  the newest symbol version of each kind the panels have, e.g.
#                    GLIBC_2.6,GLIBCXX_3.4.11,CXXABI_1.3,CXXABI_ARM_1.3.3,GCC_3.5: fail on each
#                    symbol needing a newer C/C++ runtime version, or one of a kind not in LIST
#                    (QtCore's and the HAL's own versions are not limited)
set -eu
readelf=readelf
nm=nm
cxx=c++
libs=""
runtime=""
interface=""
armv5=0
installed=0
program=0
max_versions=""
while [ $# -gt 1 ]; do
    case $1 in
        --readelf) readelf=$2; shift 2 ;;
        --nm) nm=$2; shift 2 ;;
        --cxx) cxx=$2; shift 2 ;;
        --lib) libs="$libs $2"; shift 2 ;;
        --runtime) runtime="$runtime $2"; shift 2 ;;
        --interface) interface=$2; shift 2 ;;
        --armv5-soft) armv5=1; shift ;;
        --installed) installed=1; shift ;;
        --program) program=1; shift ;;
        --max-versions) max_versions=$2; shift 2 ;;
        *) break ;;
    esac
done
lib=${1:?usage: check-abi.sh [options] FILE}
soname=libkrvcontrol_armv5.so.1
failures=0
pass() { echo "ok: $*"; }
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
expect() {  # expect DESCRIPTION WANTED GOT
    if [ "$2" = "$3" ]; then pass "$1: $3"; else fail "$1: wanted '$2', got '$3'"; fi
}

[ -f "$lib" ] || { echo "FAIL: no such file: $lib"; exit 1; }
# Without its tools a check would pass unchecked: the symbol names are compared demangled.
cxxfilt=${nm%nm}c++filt
for tool in "$readelf" "$nm" "$cxxfilt"; do
    command -v "$tool" >/dev/null || { echo "FAIL: no $tool (see --readelf, --nm)"; exit 1; }
done
dynamic=$("$readelf" -d "$lib")

if [ $program = 0 ]; then
    expect SONAME "$soname" "$(echo "$dynamic" | sed -n 's/.*(SONAME).*\[\(.*\)\].*/\1/p')"

    case $(echo "$dynamic" | sed -n 's/.*(FLAGS_1) *//p') in
        *NODELETE*) pass "FLAGS_1 NODELETE" ;;
        *) fail "FLAGS_1 lacks NODELETE: unloading would leave QtCore's SIGCHLD handler dangling" ;;
    esac

    exports=$("$nm" -D --defined-only "$lib" | awk '{print $NF}' | sort | tr '\n' ' ')
    expect exports "CreateDeviceCtrl DestroyDeviceCtrl " "$exports"
fi

crt="libstdc++.so.6 libgcc_s.so.1 libm.so.6 libc.so.6 libpthread.so.0 libdl.so.2 librt.so.1
     ld-linux.so.3 ld-linux-x86-64.so.2"
sonames=""
for l in $libs; do
    sonames="$sonames $("$readelf" -d "$l" | sed -n 's/.*(SONAME).*\[\(.*\)\].*/\1/p')"
done
providers=$libs
for needed in $(echo "$dynamic" | sed -n 's/.*(NEEDED).*\[\(.*\)\].*/\1/p'); do
    if echo " $sonames " | grep -q " $needed "; then
        pass "NEEDED $needed"
    elif echo " $crt " | grep -q "[[:space:]]$needed[[:space:]]"; then
        pass "NEEDED $needed (C/C++ runtime)"
        file=$("$cxx" -print-file-name="$needed")
        [ -f "$file" ] && providers="$providers $file"
    else
        fail "NEEDED $needed is not a library the panel provides"
    fi
done

# Symbols as nm prints them, "name@VERSION" for versioned ones ("@@" marks a default version).
defined() { "$nm" -D --defined-only "$@" | awk 'NF == 3 {sub("@@", "@", $3); print $3}'; }
undefined=$("$nm" -D --undefined-only "$lib" | awk '$1 == "U" {print $2}')
# Weak references may stay unresolved, but their versions are required all the same, and a weak
# pthread function is still called when the C library has it.
references=$("$nm" -D --undefined-only "$lib" | awk '$1 == "U" || $1 == "w" {print $2}')
missing=$({ for p in $providers; do defined "$p"; done; echo "=="; echo "$undefined"; } |
    awk '$0 == "==" {refs = 1; next}
         !refs {have[$0]; sub("@.*", ""); have[$0]; next}
         !($0 in have) && !seen[$0]++')
# What is left must be the runtime's: defined by its library and declared in its headers.
from_runtime=0
if [ -n "$missing" ] && [ -n "$runtime" ]; then
    runtime_defs=$(defined $runtime)
    for sym in $missing; do
        plain=$(echo "$sym" | "$cxxfilt" | sed 's/(.*//')
        case $plain in
            *::*) name=${plain%%::*}; pattern="(class|struct|namespace) $name\b" ;;
            *) name=$plain; pattern="\b$name *\(" ;;
        esac
        if echo "$runtime_defs" | grep -qxF "$sym" && grep -sqE "$pattern" "$interface"/*.h; then
            from_runtime=$((from_runtime + 1))
            missing=$(echo "$missing" | grep -vxF "$sym" || true)
        fi
    done
fi
if [ -z "$missing" ]; then
    pass "undefined symbols: $(echo "$undefined" | wc -l), $from_runtime of them the runtime's own"
else
    for sym in $missing; do
        fail "undefined symbol $(echo "$sym" | "$cxxfilt") is neither the runtime's nor in a needed library"
    done
    [ -n "$runtime" ] || echo "   (no --runtime given: name each runtime library that defines such symbols)"
fi

# Timed waits follow the monotonic clock, so that a clock set back or forward changes nothing of
# their length. pthread_cond_timedwait measures against the wall clock unless the condition
# variable's clock was set, so it needs pthread_condattr_setclock beside it. pthread_cond_clockwait
# names its clock at each call and passes: libstdc++ calls it for steady_clock waits only, and a C
# library without it (before glibc 2.30, every old panel's) makes a ceiling refuse it anyway. The
# others have no clock to choose: always the wall clock.
imports() { echo "$references" | grep -q "^$1\(@\|\$\)"; }
for wait in pthread_cond_timedwait sem_timedwait pthread_mutex_timedlock pthread_rwlock_timedrdlock \
    pthread_rwlock_timedwrlock pthread_timedjoin_np mq_timedreceive mq_timedsend; do
    if ! imports $wait; then
        continue
    elif [ $wait = pthread_cond_timedwait ] && imports pthread_condattr_setclock; then
        pass "$wait with pthread_condattr_setclock"
    else
        fail "$wait waits by the wall clock: a clock set back stretches the wait by as much"
    fi
done
needs=""
# The C/C++ runtime's kinds of symbol version.
kinds="GLIBC GLIBCXX CXXABI CXXABI_ARM GCC"
for prefix in $kinds; do
    newest=$(echo "$references" | sed -n "s/.*@\($prefix\)_\([0-9.]*\)\$/\1_\2/p" | sort -V | tail -n 1)
    [ -z "$newest" ] || needs="$needs $newest"
done
echo "needs:$needs"
if [ -n "$max_versions" ]; then
    # Versions compared number by number: 3.4.9 comes before 3.4.21.
    over=$(echo "$references" | awk -v max="$max_versions" -v kinds="$kinds" '
        function kind(v) { sub(/_[0-9.]*$/, "", v); return v }
        function number(v) { return substr(v, length(kind(v)) + 2) }
        function newer(a, b,   x, y, i, n, k) {
            n = split(a, x, "."); k = split(b, y, "."); if (k > n) n = k
            for (i = 1; i <= n; i++) if (x[i] + 0 != y[i] + 0) return x[i] + 0 > y[i] + 0
            return 0
        }
        BEGIN { n = split(max, m, ","); for (i = 1; i <= n; i++) limit[kind(m[i])] = number(m[i])
                n = split(kinds, r, " "); for (i = 1; i <= n; i++) runtime[r[i]] = 1 }
        /@/ { v = $0; sub(/.*@/, "", v); k = kind(v)
              if ((k in runtime) && (!(k in limit) || newer(number(v), limit[k]))) print $0 }')
    if [ -z "$over" ]; then
        pass "symbol versions at most $max_versions"
    else
        for sym in $over; do
            fail "$(echo "${sym%@*}" | "$cxxfilt") needs ${sym#*@}, above $max_versions"
        done
    fi
fi

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

if [ $installed = 1 ] && [ $program = 0 ]; then
    dir=$(dirname "$lib")
    expect "SONAME file" "$soname" "$(basename "$(readlink -f "$lib")")"
    [ -f "$dir/$soname" ] && [ ! -L "$dir/$soname" ] && pass "$soname is the file" ||
        fail "$soname missing or a link"
    paths=$(echo "$dynamic" | grep -E '\((RUNPATH|RPATH)\)' || true)
    if [ -z "$paths" ]; then pass "no RUNPATH/RPATH"; else fail "search path left in: $paths"; fi
fi

[ $failures = 0 ] && echo "all checks passed" || echo "$failures check(s) failed"
[ $failures = 0 ]
