#include "File.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace KRVCTRL {

namespace {
// Lock files are shared with processes running under other users.
constexpr mode_t kCreateMode = 0777;
// One byte of the scratch buffer stays unused.
constexpr size_t kScratchSize = 1024;

}  // namespace

// No child of the driver (the shell commands, the probe script and its ping) may keep a lock
// file or a /proc file open for its own life. A kernel before 2.6.23 ignores O_CLOEXEC, so the
// flag is set once more through ioctl (fcntl would need glibc 2.28 where files are 64-bit).
void closeOnExec(int fd) {
    if (fd >= 0)
        (void)::ioctl(fd, FIOCLEX);
}

namespace {

int openCloseOnExec(const std::string& path, int flags, mode_t mode) {
    const int fd = ::open64(path.c_str(), flags | O_CLOEXEC, mode);
    closeOnExec(fd);
    return fd;
}

}  // namespace

File::~File() {
    if (m_fd >= 0)
        ::close(m_fd);
}

bool File::open(const std::string& path, int flags) {
    if (m_fd >= 0) {
        ::close(m_fd);
        m_fd = -1;
    }
    if (!(flags & O_CREAT)) {
        m_fd = openCloseOnExec(path, flags, 0);
        return m_fd >= 0;
    }
    // The files the driver creates are lock files in the world-writable /tmp, where anyone may
    // plant a name first. A link must not make it create or lock a file elsewhere, and a FIFO
    // must not make the open wait for a writer: the open never follows a link nor blocks, and
    // anything but a regular file is refused, as if the lock file could not be opened.
    m_fd = openCloseOnExec(path, flags | O_NOFOLLOW | O_NONBLOCK, kCreateMode);
    struct stat st;
    if (m_fd >= 0 && (::fstat(m_fd, &st) != 0 || !S_ISREG(st.st_mode))) {
        ::close(m_fd);
        m_fd = -1;
    }
    return m_fd >= 0;
}

bool File::seek(unsigned int offset) {
    if (::lseek64(m_fd, static_cast<off64_t>(offset), SEEK_SET) == -1) {
        m_lastError = errno;
        return false;
    }
    return true;
}

std::string File::readAll() {
    // Files beyond 4 GiB are not read through here; the low half is enough.
    const unsigned int position = static_cast<unsigned int>(::lseek64(m_fd, 0, SEEK_CUR));
    seek(0);

    std::string result;
    std::string scratch;
    for (;;) {
        scratch.resize(kScratchSize);
        // /proc files report size 0: only a zero-length read ends the loop.
        const ssize_t got = ::read(m_fd, &scratch[0], kScratchSize - 1);
        if (got == -1) {
            if (errno == EINTR)
                continue;
            m_lastError = errno;
            break;
        }
        if (got == 0)
            break;
        result.append(scratch.data(), static_cast<size_t>(got));
    }
    seek(position);
    return result;
}

bool File::is_file_exist(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

FileLock::FileLock() : m_file(new File) {}

FileLock::~FileLock() {
    delete m_file;
}

FileLocker::FileLocker(FileLock& lock) : m_lock(lock) {
    const int fd = m_lock.file().descriptor();
    if (fd < 0)
        return;
    // A signal caught while waiting (Qt 4's SIGCHLD handler, for one, has no SA_RESTART) ends
    // the wait early: waiting again is the only way the guarded access keeps its lock. Any
    // other failure (the kernel out of lock records) is ignored, as the lock protocol has it:
    // the access goes ahead.
    while (::flock(fd, LOCK_EX) != 0 && errno == EINTR) {
    }
}

FileLocker::~FileLocker() {
    if (m_lock.file().descriptor() >= 0)
        (void)::flock(m_lock.file().descriptor(), LOCK_UN);
}

}  // namespace KRVCTRL
