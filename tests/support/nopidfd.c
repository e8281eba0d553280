/* Preloaded into the test programs of the armel build when they run under qemu-user: qemu 7.2
 * hands waitid(P_PIDFD) to the host kernel, which answers like a pidfd-capable kernel, but
 * refuses clone(CLONE_PIDFD); Qt 5.15's QProcess then trusts a pidfd it never received and
 * later closes whatever descriptor has that number. Failing the probe sends Qt down its plain
 * fork path, as the panel's older kernel does. Never part of the driver. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <stdarg.h>
#include <stdlib.h>
#include <sys/syscall.h>

#ifndef P_PIDFD
#define P_PIDFD 3
#endif

/* Host programs started by the test (sh, ping, ...) must not try to load this armel file. */
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
