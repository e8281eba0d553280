/* A timed wait on a condition variable whose clock was never set: it measures by the wall clock,
 * which the ABI check must refuse. */
#include <pthread.h>

int wait_until(pthread_cond_t* cond, pthread_mutex_t* mutex, const struct timespec* until) {
    return pthread_cond_timedwait(cond, mutex, until);
}
