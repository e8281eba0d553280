#include "File.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

namespace KRVCTRL {

namespace {
// Lock files are shared with processes running under other users.
constexpr mode_t kCreateMode = 0777;
// One byte of the scratch buffer stays unused.
constexpr size_t kScratchSize = 1024;
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
        m_fd = ::open64(path.c_str(), flags);
        return m_fd >= 0;
    }
    // The files the driver creates are lock files in the world-writable /tmp, where anyone may
    // plant a name first. A link must not make it create or lock a file elsewhere, and a FIFO
    // must not make the open wait for a writer: the open never follows a link nor blocks, and
    // anything but a regular file is refused, as if the lock file could not be opened.
    m_fd = ::open64(path.c_str(), flags | O_NOFOLLOW | O_NONBLOCK, kCreateMode);
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
    // A failed flock (EINTR included) leaves the access unguarded; callers have
    // no way to act on it, so it is not retried.
    if (m_lock.file().descriptor() >= 0)
        (void)::flock(m_lock.file().descriptor(), LOCK_EX);
}

FileLocker::~FileLocker() {
    if (m_lock.file().descriptor() >= 0)
        (void)::flock(m_lock.file().descriptor(), LOCK_UN);
}

namespace {
// Creates the missing directories above `path`, as the INI writer does for a new file.
void makeParents(const std::string& path) {
    for (size_t slash = path.find('/', 1); slash != std::string::npos;
         slash = path.find('/', slash + 1))
        (void)::mkdir(path.substr(0, slash).c_str(), kCreateMode);
}

bool writeAll(int fd, const std::string& data) {
    size_t done = 0;
    while (done < data.size()) {
        const ssize_t n = ::write(fd, data.data() + done, data.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

// Copies named "<file>.<pid>-<thread>-<serial>.tmp" that a writer killed before its rename left
// behind, and the INI writer's own lock and scratch files named after them, are removed once
// their process is gone, so that power cuts do not fill the directory over the years.
void removeStaleCopies(const std::string& dir, const std::string& prefix) {
    DIR* entries = ::opendir(dir.c_str());
    if (entries == nullptr)
        return;
    while (const struct dirent* entry = ::readdir(entries)) {
        const std::string name = entry->d_name;
        char* end = nullptr;
        const long pid = name.compare(0, prefix.size(), prefix) == 0
                             ? ::strtol(name.c_str() + prefix.size(), &end, 10)
                             : 0;
        if (pid > 0 && pid != ::getpid() && *end == '-' && name.find(".tmp") != std::string::npos &&
            ::kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH)
            (void)::unlinkat(::dirfd(entries), entry->d_name, 0);
    }
    ::closedir(entries);
}

bool syncPath(const std::string& path, int flags) {
    const int fd = ::open(path.c_str(), flags);
    if (fd < 0)
        return false;
    const bool synced = ::fsync(fd) == 0;
    ::close(fd);
    return synced;
}
}  // namespace

FileReplacer::FileReplacer(const std::string& target) : m_target(target) {
    // A symbolic link stays a link: its target is what gets replaced.
    char resolved[PATH_MAX];
    if (::realpath(target.c_str(), resolved) != nullptr)
        m_target = resolved;
    File current;
    struct stat st;
    const bool exists = current.open(m_target, O_RDONLY) && ::fstat(current.descriptor(), &st) == 0;
    if (!exists && errno != ENOENT)
        return;  // unreadable: a copy would lose what is there
    const std::string contents = exists ? current.readAll() : std::string();
    if (current.lastError() != 0)
        return;

    const size_t slash = m_target.rfind('/');
    const std::string dir = slash == std::string::npos ? "." : m_target.substr(0, slash + 1);
    removeStaleCopies(dir, m_target.substr(slash + 1) + ".");

    // Unique per write: the INI reader caches files by name, size and time.
    static thread_local unsigned serial = 0;
    const std::string stem = m_target + "." + std::to_string(::getpid()) + "-" +
                             std::to_string(::syscall(SYS_gettid)) + "-";
    int fd = -1;
    for (int attempt = 0; attempt < 2 && fd < 0; ++attempt) {
        m_path = stem + std::to_string(++serial) + ".tmp";
        fd = ::open(m_path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd < 0 && errno == ENOENT && attempt == 0)
            makeParents(m_target);
    }
    if (fd < 0) {
        m_path = errno == EACCES ? m_target : std::string();
        return;
    }
    m_copy = true;
    bool copied = writeAll(fd, contents);
    if (copied && exists) {
        copied = ::fchmod(fd, st.st_mode & 07777) == 0;
        (void)!::fchown(fd, st.st_uid, st.st_gid);  // only root may give files away
    }
    ::close(fd);
    if (!copied) {
        ::unlink(m_path.c_str());
        m_path.clear();
        m_copy = false;
    }
}

FileReplacer::~FileReplacer() {
    if (m_copy)
        ::unlink(m_path.c_str());
}

bool FileReplacer::commit() {
    if (!m_copy)
        return ok();
    // The copy's contents must be on the medium before its name replaces the file's.
    if (!syncPath(m_path, O_RDONLY) || ::rename(m_path.c_str(), m_target.c_str()) != 0)
        return false;
    m_copy = false;
    const size_t slash = m_target.rfind('/');
    (void)syncPath(slash == std::string::npos ? "." : m_target.substr(0, slash + 1),
                   O_RDONLY | O_DIRECTORY);
    return true;
}

}  // namespace KRVCTRL
