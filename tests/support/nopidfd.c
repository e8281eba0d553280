/* Makes Qt 5.15's QProcess start children the way it does on the panel, whose kernel has no
 * pidfds: failing the waitid(P_PIDFD) probe sends it down its plain fork path with a SIGCHLD
 * handler. Preloaded into the host tests for that fidelity, and into the armel tests because
 * qemu-user 7.2 hands the probe to the host kernel but refuses clone(CLONE_PIDFD), so Qt would
 * trust a pidfd it never received and later close whatever descriptor has that number. Never
 * part of the driver. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <stdarg.h>
#include <stdlib.h>
#include <sys/syscall.h>

#ifndef P_PIDFD
#define P_PIDFD 3
#endif

/* Programs the test starts (sh, ping, ...) run as they are; an armel copy could not even load. */
__attribute__((constructor)) static void krv_forget_preload(void) {
    unsetenv("LD_PRELOAD");
}

long syscall(long number, ...) {
    typedef long (*syscall_fn)(long, ...);
    static syscall_fn next;
    long arg[6];
    va_list ap;
    va_start(ap, number);
    for (int i = 0; i < 6; ++i)
        arg[i] = va_arg(ap, long);
    va_end(ap);
    if (number == SYS_waitid && arg[0] == P_PIDFD) {
        errno = EINVAL;
        return -1;
    }
    if (!next)
        next = (syscall_fn)dlsym(RTLD_NEXT, "syscall");
    return next(number, arg[0], arg[1], arg[2], arg[3], arg[4], arg[5]);
}
