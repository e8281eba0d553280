#include "SettingsFile.h"

#include "File.h"
#include "Text.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <map>
#include <mutex>
#include <string>

namespace KRVCTRL {

namespace {

// Settings files hold a few hundred bytes; a larger file is left to Qt alone.
const off_t kMaxBytes = 1 << 20;
// Longer than Qt 5's temporary names ("<file>.XXXXXX"), which are removed as leftovers.
const char kCopySuffix[] = ".krvcopy";

// The resolution at which QSettings compares modification times.
#if QT_VERSION < 0x050000
const long long kStepNs = 1000000000LL;
#else
const long long kStepNs = 1000000LL;
#endif

long long stepOf(const struct timespec& time) {
    const long long ns = time.tv_sec * 1000000000LL + time.tv_nsec;
    return ns >= 0 ? ns / kStepNs : (ns - kStepNs + 1) / kStepNs;
}

struct Snapshot {
    bool exists = false;
    off_t size = 0;
    long long step = 0;
    std::string bytes;
};

// A regular file read whole; `exists` false when missing, not regular or too large.
Snapshot snapshot(const std::string& path, int flags = 0) {
    Snapshot shot;
    File file;
    struct stat st;
    if (!file.open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | flags) ||
        ::fstat(file.descriptor(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_size > kMaxBytes)
        return shot;
    shot.bytes = file.readAll();
    if (file.lastError() != 0)
        return shot;
    shot.exists = true;
    shot.size = st.st_size;
    shot.step = stepOf(st.st_mtim);
    return shot;
}

bool writeAll(int fd, const std::string& bytes) {
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += static_cast<size_t>(n);
    }
    return ::fsync(fd) == 0;
}

// Sets the modification time to the start of `step`, so that it differs from `step` - 1.
void setStep(const std::string& path, long long step) {
    const long long ns = step * kStepNs;
    struct timespec times[2];
    times[0].tv_sec = 0;
    times[0].tv_nsec = UTIME_OMIT;
    times[1].tv_sec = static_cast<time_t>(ns / 1000000000LL);
    times[1].tv_nsec = static_cast<long>(ns % 1000000000LL);
    (void)::utimensat(AT_FDCWD, path.c_str(), times, 0);
}

std::string trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(" \t\r");
    return first == std::string::npos
               ? std::string()
               : slice(text, first, text.find_last_not_of(" \t\r") + 1 - first);
}

// "[group/key" of every key line, one a line.
std::string keysOf(const std::string& bytes) {
    std::string keys, group;
    size_t start = 0;
    while (start < bytes.size()) {
        size_t end = bytes.find('\n', start);
        if (end == std::string::npos)
            end = bytes.size();
        const std::string line = trimmed(slice(bytes, start, end - start));
        start = end + 1;
        if (!line.empty() && line[0] == '[')
            group = trimmed(slice(line, 0, line.find(']')));
        else if (!line.empty() && line[0] != ';' && line.find('=') != std::string::npos)
            keys += group + '/' + trimmed(slice(line, 0, line.find('='))) + '\n';
    }
    return keys;
}

// Qt ends every line it writes: an empty file, a last line without its end or zero bytes from
// blocks the file system had not written yet are what a kill or a power cut leaves.
bool cutShort(const std::string& file) {
    return file.empty() || file[file.size() - 1] != '\n' || file.find('\0') != std::string::npos;
}

// A file cut at a line end still lacks keys of the complete copy.
bool damaged(const std::string& file, const std::string& copy) {
    if (file.empty())
        return !copy.empty();
    if (cutShort(file))
        return true;
    const std::string present = keysOf(file);
    const std::string wanted = keysOf(copy);
    for (size_t at = 0, end; at < wanted.size(); at = end + 1) {
        end = wanted.find('\n', at);
        const std::string key = slice(wanted, at, end - at + 1);
        if (("\n" + present).find("\n" + key) == std::string::npos)
            return true;
    }
    return false;
}

void syncDirectoryOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    File dir;
    if (dir.open(slash == std::string::npos ? std::string(".") : slice(path, 0, slash + 1),
                 O_RDONLY | O_DIRECTORY | O_CLOEXEC))
        (void)::fsync(dir.descriptor());
}

bool isTemporaryName(const std::string& name, const std::string& base) {
    if (name.size() != base.size() + 7 || name.compare(0, base.size() + 1, base + ".") != 0)
        return false;
    for (size_t i = base.size() + 1; i < name.size(); ++i)
        if (!isalnum(static_cast<unsigned char>(name[i])))
            return false;
    return true;
}

// Qt 5 writes "<file>.XXXXXX" and renames it over the file while it holds a flock on
// "<file>.lock"; a writer killed in between leaves its file behind for good. With the lock free
// no writer is at work, so the leftovers go. (A writer that takes the lock over between the test
// and the removal could lose its file: the window is a directory scan long.)
void dropKilledTemporaries(const std::string& path) {
    File lock;
    if (lock.open(path + ".lock", O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC) &&
        ::flock(lock.descriptor(), LOCK_EX | LOCK_NB) != 0)
        return;
    const size_t slash = path.rfind('/');
    const std::string dir = slash == std::string::npos ? "." : slice(path, 0, slash + 1);
    const std::string base = slice(path, slash == std::string::npos ? 0 : slash + 1);
    DIR* listing = ::opendir(dir.c_str());
    if (listing == nullptr)
        return;
    struct stat st;
    while (const struct dirent* entry = ::readdir(listing)) {
        const std::string name = entry->d_name;
        if (isTemporaryName(name, base) && ::lstat((dir + name).c_str(), &st) == 0 &&
            S_ISREG(st.st_mode))
            ::unlink((dir + name).c_str());
    }
    ::closedir(listing);
}

// What this process last saw of each file through QSettings.
std::mutex& accessMutex() {
    static std::mutex mutex;
    return mutex;
}
std::map<std::string, Snapshot>& seen() {
    static std::map<std::string, Snapshot> files;
    return files;
}

}  // namespace

struct SettingsFile::State {
    std::string path, copy;
    std::unique_lock<std::mutex> hold;
    Snapshot before, after;
    bool copyExists = false, copied = false, writing = false;
    // The time step QSettings saw right after its write, before it was moved on.
    long long writtenStep = 0;

    explicit State(const QString& file)
        : path(file.toLocal8Bit().constData()), copy(path + kCopySuffix), hold(accessMutex()) {}

    // The copy stays in place, emptied, once the write is on the medium: the next write then
    // needs no flush of the directory.
    void emptyCopy() {
        File file;
        (void)file.open(copy, O_WRONLY | O_TRUNC | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    }

    // A copy with contents means a write of this or another driver process did not finish.
    // Anything but a regular file at its name is not ours: it is neither read nor changed.
    void takeOverCopy() {
        const Snapshot left = snapshot(copy, O_NOFOLLOW);
        copyExists = left.exists;
        if (left.bytes.empty())
            return;
        const Snapshot now = snapshot(path);
        if (now.exists && damaged(now.bytes, left.bytes)) {
            File file;
            if (!file.open(path, O_WRONLY | O_TRUNC | O_CLOEXEC) ||
                !writeAll(file.descriptor(), left.bytes))
                return;  // kept for the next access
        }
        // A file removed since belongs to whoever removed it.
        emptyCopy();
    }

    // Another process may have changed the file without changing its size or its time step;
    // the parsed copies would then go on serving the old contents.
    void revealChanges() {
        before = snapshot(path);
        std::map<std::string, Snapshot>::iterator last = seen().find(path);
        if (last == seen().end() || !before.exists || !last->second.exists)
            return;
        if (last->second.size == before.size && last->second.step == before.step &&
            last->second.bytes != before.bytes) {
            setStep(path, before.step + 1);
            before.step += 1;
        }
    }

    // Without room for the copy (read-only or full directory) the write goes on unprotected.
    void copyBeforeWrite() {
        if (!before.exists || before.bytes.empty())
            return;  // Qt writes a new file whole: nothing to protect
        File file;
        if (!file.open(copy, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC))
            return;  // no room, or something planted at the name
        copied =
            ::fchmod(file.descriptor(), 0600) == 0 && writeAll(file.descriptor(), before.bytes);
        if (!copied)
            (void)::ftruncate(file.descriptor(), 0);
        else if (!copyExists)
            syncDirectoryOf(copy);
    }
};

SettingsFile::SettingsFile(const QString& path, Access access) : m_state(new State(path)) {
    if (access == Write || seen().find(m_state->path) == seen().end())
        dropKilledTemporaries(m_state->path);
    m_state->takeOverCopy();
    m_state->revealChanges();
    m_state->writing = access == Write;
    if (m_state->writing)
        m_state->copyBeforeWrite();
}

void SettingsFile::written() {
    // A reader compares size and time step only, and may hold any earlier contents of the same
    // size: every write gets a later step than the one before it. A burst of writes within one
    // step moves the time ahead of the clock by up to one step each.
    State& s = *m_state;
    s.after = snapshot(s.path);
    s.writtenStep = s.after.step;
    if (s.after.exists && s.before.exists && s.after.step <= s.before.step) {
        setStep(s.path, s.before.step + 1);
        s.after.step = s.before.step + 1;
    }
}

SettingsFile::~SettingsFile() {
    State& s = *m_state;
    if (!s.writing) {
        // What QSettings has just parsed (or found unchanged).
        seen()[s.path] = s.before;
        return;
    }
    // After the system-wide sync(): a complete file is on the medium and the copy can go. Keys
    // are not compared here: QSettings may have rewritten a hand-made file's key lines.
    if (s.copied && s.after.exists && !cutShort(s.after.bytes)) {
        s.emptyCopy();
    } else if (s.copied) {
        s.takeOverCopy();
        s.after = snapshot(s.path);
    }
    // QSettings keeps the time step it saw after writing: a later change that brings the file
    // back to that step and size must still be noticed.
    Snapshot& last = seen()[s.path];
    last = s.after;
    last.step = s.writtenStep;
}

}  // namespace KRVCTRL
