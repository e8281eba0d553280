/* Records the file-system calls this process makes on the files of some directories, as a trace
 * from which CrashStates.cpp builds the states a power cut could leave. Linked into a program
 * whose symbols are exported: its definitions then come before the C library's for every library
 * the program loads (the driver and QtCore included), under qemu-user as well. Every call is
 * passed on. Files are named in the trace by a number of their own, since inode numbers of two
 * file systems may be the same. Never part of the driver. */
#define _GNU_SOURCE
#include "FsRecord.h"

#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#define MAX_DIRS 4
#define MAX_FILES 512

static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
static int traceFd = -1;
static char dirs[MAX_DIRS][PATH_MAX];
static int dirCount;
static struct {
    dev_t dev;
    ino64_t ino;
} files[MAX_FILES];
static int fileCount;
static char failOp[16];
static int failNth, failErrno, failed;

#define NEXT(name)                        \
    static __typeof__(name)* next_##name; \
    if (!next_##name)                     \
    next_##name = (__typeof__(name)*)dlsym(RTLD_NEXT, #name)

/* The absolute path with doubled slashes made single; 0 when it is none. */
static int normal(const char* path, char* out) {
    size_t n = 0;
    if (path == NULL || path[0] != '/' || strlen(path) >= PATH_MAX)
        return 0;
    for (; *path; ++path)
        if (!(*path == '/' && n > 0 && out[n - 1] == '/'))
            out[n++] = *path;
    out[n] = '\0';
    return 1;
}

/* Whether a recording runs and `path` names an entry of a watched directory (or, `self`, the
 * directory itself); `out` receives the path as the trace names it. */
static int watched(const char* path, char* out, int self) {
    char* slash;
    if (traceFd < 0 || !normal(path, out))
        return 0;
    slash = strrchr(out, '/');
    for (int i = 0; i < dirCount; ++i) {
        const size_t n = strlen(dirs[i]);
        if (self ? strcmp(out, dirs[i]) == 0
                 : (size_t)(slash - out) == n && strncmp(out, dirs[i], n) == 0)
            return 1;
    }
    return 0;
}

static int fileOf(const struct stat64* st) {
    for (int i = fileCount - 1; i >= 0; --i)
        if (files[i].dev == st->st_dev && files[i].ino == st->st_ino)
            return i;
    return -1;
}

/* A new file: a later file with the same inode number is another one. */
static int newFile(const struct stat64* st) {
    if (fileCount == MAX_FILES)
        abort();
    files[fileCount].dev = st->st_dev;
    files[fileCount].ino = st->st_ino;
    return fileCount++;
}

/* The number of the recorded file open at `fd`, or -1. */
static int fdFile(int fd) {
    struct stat64 st;
    return traceFd >= 0 && fstat64(fd, &st) == 0 ? fileOf(&st) : -1;
}

static void emit(const char* format, ...) {
    va_list ap;
    va_start(ap, format);
    vdprintf(traceFd, format, ap);
    va_end(ap);
}

static void emitHex(const void* data, size_t size) {
    static const char digits[] = "0123456789abcdef";
    char chunk[512];
    size_t n = 0;
    for (size_t i = 0; i < size; ++i) {
        chunk[n++] = digits[((const unsigned char*)data)[i] >> 4];
        chunk[n++] = digits[((const unsigned char*)data)[i] & 15];
        if (n == sizeof chunk || i + 1 == size) {
            if (syscall(SYS_write, traceFd, chunk, n) < 0)
                abort();
            n = 0;
        }
    }
    emit("-\n");
}

static int nextOpenat(int dirfd, const char* path, int flags, ...);

/* True, with errno set, when the call is the one chosen to fail. */
static int failing(const char* op) {
    if (strcmp(op, failOp) != 0 || --failNth != 0)
        return 0;
    failOp[0] = '\0';
    failed = 1;
    errno = failErrno;
    return 1;
}

int krv_fsrecord_start(const char* trace, const char* dirList) {
    char copy[PATH_MAX], path[PATH_MAX * 2];
    pthread_mutex_lock(&mutex);
    const int fd = nextOpenat(AT_FDCWD, trace, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    snprintf(copy, sizeof copy, "%s", dirList);
    dirCount = fileCount = 0;
    for (char* dir = strtok(copy, ":"); dir && dirCount < MAX_DIRS; dir = strtok(NULL, ":"))
        if (!normal(dir, dirs[dirCount++]))
            --dirCount;
    traceFd = fd;
    for (int i = 0; fd >= 0 && i < dirCount; ++i) {
        DIR* listing = opendir(dirs[i]);
        for (struct dirent* entry; listing && (entry = readdir(listing));) {
            struct stat64 st;
            char bytes[65536];
            const int file =
                snprintf(path, sizeof path, "%s/%s", dirs[i], entry->d_name) >= (int)sizeof path
                    ? -1
                    : nextOpenat(AT_FDCWD, path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
            const ssize_t size = file < 0 ? -1 : read(file, bytes, sizeof bytes);
            if (file >= 0 && fstat64(file, &st) == 0 && S_ISREG(st.st_mode) && size >= 0) {
                emit("init %s %d %o %ld %ld ", path, newFile(&st), st.st_mode & 07777,
                     (long)st.st_uid, (long)st.st_gid);
                emitHex(bytes, (size_t)size);
            }
            if (file >= 0)
                close(file);
        }
        if (listing)
            closedir(listing);
    }
    pthread_mutex_unlock(&mutex);
    return fd >= 0;
}

void krv_fsrecord_mark(void) {
    pthread_mutex_lock(&mutex);
    emit("mark\n");
    pthread_mutex_unlock(&mutex);
}

void krv_fsrecord_fail(const char* op, int nth, int error) {
    pthread_mutex_lock(&mutex);
    snprintf(failOp, sizeof failOp, "%s", op);
    failNth = nth;
    failErrno = error;
    failed = 0;
    pthread_mutex_unlock(&mutex);
}

int krv_fsrecord_failed(void) {
    pthread_mutex_lock(&mutex);
    const int made = failed;
    pthread_mutex_unlock(&mutex);
    return made;
}

/* ---- opening ---- */

static int opened(int dirfd, const char* path, int flags, mode_t mode,
                  int (*next)(int, const char*, int, ...)) {
    char name[PATH_MAX];
    struct stat64 st;
    const int tmp = (flags & O_TMPFILE) == O_TMPFILE;
    pthread_mutex_lock(&mutex);
    const int seen = (dirfd == AT_FDCWD || path[0] == '/') && watched(path, name, tmp);
    const int existed = seen && !tmp && lstat64(name, &st) == 0;
    int fd;
    if (seen && !existed && (flags & O_CREAT) && failing("create"))
        fd = -1;
    else
        fd = next(dirfd, path, flags, mode);
    if (fd >= 0 && seen && fstat64(fd, &st) == 0) {
        if (tmp || (!existed && (flags & O_CREAT)))
            emit("create %s %d %o\n", tmp ? "-" : name, newFile(&st), st.st_mode & 07777);
        else if ((flags & O_TRUNC) && (flags & O_ACCMODE) != O_RDONLY && fileOf(&st) >= 0)
            emit("trunc %d 0\n", fileOf(&st));
    }
    pthread_mutex_unlock(&mutex);
    return fd;
}

#define MODE_ARG(flags)                                          \
    mode_t mode = 0;                                             \
    if (((flags)&O_CREAT) || ((flags)&O_TMPFILE) == O_TMPFILE) { \
        va_list ap;                                              \
        va_start(ap, flags);                                     \
        mode = va_arg(ap, mode_t);                               \
        va_end(ap);                                              \
    }

static int nextOpenat(int dirfd, const char* path, int flags, ...) {
    NEXT(openat);
    MODE_ARG(flags);
    return next_openat(dirfd, path, flags, mode);
}

static int nextOpenat64(int dirfd, const char* path, int flags, ...) {
    NEXT(openat64);
    MODE_ARG(flags);
    return next_openat64(dirfd, path, flags, mode);
}

int open(const char* path, int flags, ...) {
    MODE_ARG(flags);
    return opened(AT_FDCWD, path, flags, mode, nextOpenat);
}

int open64(const char* path, int flags, ...) {
    MODE_ARG(flags);
    return opened(AT_FDCWD, path, flags, mode, nextOpenat64);
}

int openat(int dirfd, const char* path, int flags, ...) {
    MODE_ARG(flags);
    return opened(dirfd, path, flags, mode, nextOpenat);
}

int openat64(int dirfd, const char* path, int flags, ...) {
    MODE_ARG(flags);
    return opened(dirfd, path, flags, mode, nextOpenat64);
}

int __open_2(const char* path, int flags) {
    return opened(AT_FDCWD, path, flags, 0, nextOpenat);
}

int __open64_2(const char* path, int flags) {
    return opened(AT_FDCWD, path, flags, 0, nextOpenat64);
}

/* ---- data ---- */

static ssize_t written(int fd, const void* data, size_t size, off64_t at,
                       ssize_t (*next)(int, const void*, size_t, off64_t)) {
    pthread_mutex_lock(&mutex);
    const int file = fdFile(fd);
    struct stat64 st;
    ssize_t n;
    if (file >= 0 && at < 0)
        at = (fcntl(fd, F_GETFL) & O_APPEND) && fstat64(fd, &st) == 0 ? st.st_size
                                                                      : lseek64(fd, 0, SEEK_CUR);
    if (file >= 0 && failing("write"))
        n = -1;
    else
        n = next(fd, data, size, at);
    if (file >= 0 && n > 0) {
        emit("write %d %lld ", file, (long long)at);
        emitHex(data, (size_t)n);
    }
    pthread_mutex_unlock(&mutex);
    return n;
}

static ssize_t nextWrite(int fd, const void* data, size_t size, off64_t at) {
    NEXT(write);
    return at < 0 || lseek64(fd, at, SEEK_SET) == at ? next_write(fd, data, size) : -1;
}

static ssize_t nextPwrite(int fd, const void* data, size_t size, off64_t at) {
    NEXT(pwrite64);
    return next_pwrite64(fd, data, size, at);
}

ssize_t write(int fd, const void* data, size_t size) {
    NEXT(write);
    if (traceFd < 0)
        return next_write(fd, data, size);
    return written(fd, data, size, -1, nextWrite);
}

ssize_t pwrite(int fd, const void* data, size_t size, off_t at) {
    return written(fd, data, size, at, nextPwrite);
}

ssize_t pwrite64(int fd, const void* data, size_t size, off64_t at) {
    return written(fd, data, size, at, nextPwrite);
}

static int truncated(int fd, off64_t size, int (*next)(int, off64_t)) {
    pthread_mutex_lock(&mutex);
    const int file = fdFile(fd);
    const int r = file >= 0 && failing("trunc") ? -1 : next(fd, size);
    if (file >= 0 && r == 0)
        emit("trunc %d %lld\n", file, (long long)size);
    pthread_mutex_unlock(&mutex);
    return r;
}

static int nextFtruncate64(int fd, off64_t size) {
    NEXT(ftruncate64);
    return next_ftruncate64(fd, size);
}

int ftruncate(int fd, off_t size) {
    return truncated(fd, size, nextFtruncate64);
}

int ftruncate64(int fd, off64_t size) {
    return truncated(fd, size, nextFtruncate64);
}

/* ---- flushes ---- */

static int flushed(int fd, int (*next)(int)) {
    char name[PATH_MAX];
    pthread_mutex_lock(&mutex);
    const int file = fdFile(fd);
    const int r = file >= 0 && failing("fsync") ? -1 : next(fd);
    snprintf(name, sizeof name, "/proc/self/fd/%d", fd);
    char dir[PATH_MAX] = "";
    const ssize_t n = traceFd < 0 ? -1 : readlink(name, dir, sizeof dir - 1);
    if (r == 0 && file >= 0)
        emit("fsync %d\n", file);
    else if (r == 0 && n > 0 && (dir[n] = '\0', watched(dir, name, 1)))
        emit("fsyncdir %s\n", name);
    pthread_mutex_unlock(&mutex);
    return r;
}

int fsync(int fd) {
    NEXT(fsync);
    return flushed(fd, next_fsync);
}

int fdatasync(int fd) {
    NEXT(fdatasync);
    return flushed(fd, next_fdatasync);
}

void sync(void) {
    NEXT(sync);
    next_sync();
    pthread_mutex_lock(&mutex);
    if (traceFd >= 0)
        emit("sync\n");
    pthread_mutex_unlock(&mutex);
}

/* ---- names ---- */

int renameat2(int olddir, const char* from, int newdir, const char* to, unsigned int flags) {
    char a[PATH_MAX], b[PATH_MAX];
    pthread_mutex_lock(&mutex);
    const int seen =
        olddir == AT_FDCWD && newdir == AT_FDCWD && (watched(from, a, 0) | watched(to, b, 0));
    const int r = seen && failing("rename")
                      ? -1
                      : (int)syscall(SYS_renameat2, olddir, from, newdir, to, flags);
    if (seen && r == 0)
        emit("rename %s %s\n", a, b);
    pthread_mutex_unlock(&mutex);
    return r;
}

int renameat(int olddir, const char* from, int newdir, const char* to) {
    return renameat2(olddir, from, newdir, to, 0);
}

int rename(const char* from, const char* to) {
    return renameat2(AT_FDCWD, from, AT_FDCWD, to, 0);
}

int unlinkat(int dir, const char* path, int flags) {
    char name[PATH_MAX];
    pthread_mutex_lock(&mutex);
    const int seen = dir == AT_FDCWD && !(flags & AT_REMOVEDIR) && watched(path, name, 0);
    const int r = (int)syscall(SYS_unlinkat, dir, path, flags);
    if (seen && r == 0)
        emit("unlink %s\n", name);
    pthread_mutex_unlock(&mutex);
    return r;
}

int unlink(const char* path) {
    return unlinkat(AT_FDCWD, path, 0);
}

/* Qt's unnamed temporary files get their name this way. */
int linkat(int olddir, const char* from, int newdir, const char* to, int flags) {
    char name[PATH_MAX];
    struct stat64 st;
    pthread_mutex_lock(&mutex);
    const int seen =
        newdir == AT_FDCWD && watched(to, name, 0) &&
        fstatat64(olddir, from, &st,
                  flags & (AT_EMPTY_PATH | AT_SYMLINK_FOLLOW) ? flags & AT_EMPTY_PATH
                                                              : AT_SYMLINK_NOFOLLOW) == 0 &&
        fileOf(&st) >= 0;
    const int r = (int)syscall(SYS_linkat, olddir, from, newdir, to, flags);
    if (seen && r == 0)
        emit("link %d %s\n", fileOf(&st), name);
    pthread_mutex_unlock(&mutex);
    return r;
}

int link(const char* from, const char* to) {
    return linkat(AT_FDCWD, from, AT_FDCWD, to, 0);
}

/* ---- owner and mode ---- */

int fchmod(int fd, mode_t mode) {
    pthread_mutex_lock(&mutex);
    const int file = fdFile(fd);
    const int r = file >= 0 && failing("fchmod") ? -1 : (int)syscall(SYS_fchmod, fd, mode);
    if (file >= 0 && r == 0)
        emit("chmod %d %o\n", file, mode & 07777);
    pthread_mutex_unlock(&mutex);
    return r;
}

int fchown(int fd, uid_t uid, gid_t gid) {
    NEXT(fchown);
    pthread_mutex_lock(&mutex);
    const int file = fdFile(fd);
    const int r = file >= 0 && failing("fchown") ? -1 : next_fchown(fd, uid, gid);
    if (file >= 0 && r == 0)
        emit("chown %d %ld %ld\n", file, (long)uid, (long)gid);
    pthread_mutex_unlock(&mutex);
    return r;
}
