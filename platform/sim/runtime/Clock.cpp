// The simulated panel's pauses, wall clock and flushes to storage, interposed like `reboot` (see
// Reboot.cpp). Every usleep is journaled and then carried out, so a test sees how long the driver
// chose to wait without timing it; so is every sync, so a test sees that a write was made durable.
// gettimeofday can be stopped at a set instant, so that a test knows the exact times the driver
// reads; the other clocks run on.
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

#include "SimInternal.h"

namespace {
std::atomic<long long> stoppedAt{-1};  // microseconds since 1970; negative: the real clock
}

extern "C" __attribute__((visibility("default"))) int usleep(useconds_t microseconds) {
    sim::detail::record("wait",
                        sim::detail::format("usleep(%u)", static_cast<unsigned>(microseconds)));
    timespec pause{static_cast<time_t>(microseconds / 1000000),
                   static_cast<long>(microseconds % 1000000) * 1000};
    return nanosleep(&pause, nullptr);
}

extern "C" __attribute__((visibility("default"))) void sync(void) __THROW {
    sim::detail::record("sync", "sync()");
    ::syscall(SYS_sync);
}

extern "C" __attribute__((visibility("default"))) int gettimeofday(struct timeval* __restrict now,
                                                                   void* __restrict) __THROW {
    const long long stopped = stoppedAt.load();
    if (stopped >= 0) {
        now->tv_sec = static_cast<time_t>(stopped / 1000000);
        now->tv_usec = static_cast<suseconds_t>(stopped % 1000000);
        return 0;
    }
    timespec real{};
    clock_gettime(CLOCK_REALTIME, &real);
    now->tv_sec = real.tv_sec;
    now->tv_usec = static_cast<suseconds_t>(real.tv_nsec / 1000);
    return 0;
}

namespace sim {

void setWallClock(long long microseconds) {
    stoppedAt = microseconds;
}

}  // namespace sim
