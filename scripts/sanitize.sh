#!/bin/sh
# scripts/sanitize.sh [asan|tsan] [ctest arguments...]
#
# Builds the whole project with a sanitizer into its own build directory (build-asan, build-tsan)
# and runs the tests under it, each test in its panel sandbox as usual. Any report fails the run.
#   asan  AddressSanitizer + LeakSanitizer + UndefinedBehaviorSanitizer, the whole suite
#   tsan  ThreadSanitizer, the suites where the NTP worker runs next to the command thread
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
kind=${1:-asan}
[ $# -eq 0 ] || shift
jobs=${KRV_JOBS:-2}
supp=$top/scripts/sanitizers

case "$kind" in
asan)
    dir=$top/build-asan
    flags=address,undefined
    # detect_leaks: LeakSanitizer runs at exit of every test program (it works inside the
    # sandbox's user namespace). The driver stays mapped until exit, so its frames symbolize.
    export ASAN_OPTIONS="detect_leaks=1:abort_on_error=0:detect_stack_use_after_return=1:strict_string_checks=1:check_initialization_order=1"
    export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1:suppressions=$supp/ubsan.supp"
    export LSAN_OPTIONS="suppressions=$supp/lsan.supp:print_suppressions=0"
    ;;
tsan)
    dir=$top/build-tsan
    flags=thread
    export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:suppressions=$supp/tsan.supp:print_suppressions=0"
    # Only the programs in which the worker thread and the command thread both run.
    [ $# -gt 0 ] || set -- -R 'ntp|dispatch|device_entry|sysops|device_config'
    ;;
*)
    echo "usage: ${0##*/} [asan|tsan] [ctest arguments...]" >&2
    exit 2
    ;;
esac

cmake -S "$top" -B "$dir" -DCMAKE_BUILD_TYPE=Debug -DKRV_SANITIZE=$flags >/dev/null
cmake --build "$dir" -j"$jobs"

if [ "$kind" = tsan ]; then
    # ThreadSanitizer maps its shadow memory at fixed addresses; where the kernel randomises
    # mmap with more than 28 bits (vm.mmap_rnd_bits = 32 on some distributions' 6.x kernels) a
    # library can land inside that range and the program dies with "unexpected memory mapping".
    # Running without address-space randomisation (a per-process personality, inherited by the
    # sandbox, its user namespace and every test) avoids that without touching the host's
    # sysctl. On the 6.18 development host (28 bits) the runs pass with and without it.
    setarch "$(uname -m)" -R sh -c 'ctest --test-dir "$0" --output-on-failure -j"$1" "$@"' "$dir" "$jobs" "$@"
else
    ctest --test-dir "$dir" --output-on-failure -j"$jobs" "$@"
fi
