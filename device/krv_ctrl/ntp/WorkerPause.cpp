#include "WorkerPause.h"

#include <errno.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace {

// The clock both the condition variable and the deadlines follow.
const clockid_t kPauseClock = CLOCK_MONOTONIC;

// Read through the system call: the C library's clock_gettime moved out of librt only in
// glibc 2.17, and the oldest panels' C library predates that.
timespec now() {
    timespec t = {0, 0};
    static_assert(sizeof(t.tv_sec) == sizeof(long),
                  "the system call fills the C library's timespec");
    (void)::syscall(SYS_clock_gettime, kPauseClock, &t);
    return t;
}

}  // namespace

WorkerPause::WorkerPause() : m_stopped(false) {
    pthread_mutex_init(&m_mutex, nullptr);
    pthread_condattr_t attr;
    pthread_condattr_init(&attr);
    pthread_condattr_setclock(&attr, kPauseClock);
    pthread_cond_init(&m_cond, &attr);
    pthread_condattr_destroy(&attr);
}

WorkerPause::~WorkerPause() {
    pthread_cond_destroy(&m_cond);
    pthread_mutex_destroy(&m_mutex);
}

void WorkerPause::wait(int ms) {
    timespec deadline = now();
    deadline.tv_sec += ms / 1000;
    deadline.tv_nsec += static_cast<long>(ms % 1000) * 1000000L;
    if (deadline.tv_nsec >= 1000000000L) {
        deadline.tv_sec += 1;
        deadline.tv_nsec -= 1000000000L;
    }
    pthread_mutex_lock(&m_mutex);
    // Woken without stop() (spuriously): wait out the rest.
    int result = 0;
    while (!m_stopped && result == 0)
        result = pthread_cond_timedwait(&m_cond, &m_mutex, &deadline);
    pthread_mutex_unlock(&m_mutex);
    // A wait that failed at once must not turn the worker's passes into a spin.
    if (result != 0 && result != ETIMEDOUT)
        ::usleep(static_cast<useconds_t>(ms) * 1000u);
}

void WorkerPause::stop() {
    pthread_mutex_lock(&m_mutex);
    m_stopped = true;
    pthread_cond_broadcast(&m_cond);
    pthread_mutex_unlock(&m_mutex);
}
