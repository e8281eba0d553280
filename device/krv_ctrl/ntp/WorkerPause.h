// The NTP worker's pause: a wait that a stopping controller cuts short, timed on the monotonic
// clock. A wait timed on the wall clock would last as much longer as the clock is set back while
// it waits (a synchronisation, the panel's own time settings, another device's worker), so a date
// corrected back by a year would stop automatic synchronisation for a year.
#pragma once

#include <pthread.h>

class WorkerPause {
public:
    WorkerPause();
    ~WorkerPause();
    WorkerPause(const WorkerPause&) = delete;
    WorkerPause& operator=(const WorkerPause&) = delete;

    // Waits `ms` milliseconds, or returns as soon as stop() has been called (at once if it
    // was called before).
    void wait(int ms);
    // Ends every wait, now and later.
    void stop();

private:
    pthread_mutex_t m_mutex;
    pthread_cond_t m_cond;
    bool m_stopped;
};
