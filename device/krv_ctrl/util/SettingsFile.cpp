#include "SettingsFile.h"

#include "File.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QSettings>
#include <QStringList>
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>

namespace KRVCTRL {

namespace {

// Settings files hold a few hundred bytes; a larger one is neither copied nor compared.
const off_t kMaxBytes = 1 << 20;
// "<file>.krvnew-<pid>-<n>": the new file of a write by process <pid>.
const char kNewMark[] = ".krvnew-";
// The copy an earlier version of the driver filled before each write, in place of new files.
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

// The start of `step` as a modification time, the access time left alone.
void timesOf(long long step, struct timespec times[2]) {
    const long long ns = step * kStepNs;
    times[0].tv_sec = 0;
    times[0].tv_nsec = UTIME_OMIT;
    times[1].tv_sec = static_cast<time_t>(ns / 1000000000LL);
    times[1].tv_nsec = static_cast<long>(ns % 1000000000LL);
}

void setStep(const std::string& path, long long step) {
    struct timespec times[2];
    timesOf(step, times);
    (void)::utimensat(AT_FDCWD, path.c_str(), times, 0);
}

struct Snapshot {
    bool exists = false, missing = false;
    off_t size = 0;
    long long step = 0;
    uid_t uid = 0;
    gid_t gid = 0;
    mode_t mode = 0;
    std::string bytes;
};

// A regular file read whole; `exists` false when missing (then `missing`), not regular or too
// large.
Snapshot snapshot(const std::string& path, int flags = 0) {
    Snapshot shot;
    File file;
    struct stat st;
    if (!file.open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | flags)) {
        shot.missing = errno == ENOENT;
        return shot;
    }
    if (::fstat(file.descriptor(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_size > kMaxBytes)
        return shot;
    // Read here rather than with File::readAll: every refresh passes here four times.
    char buffer[4096];
    shot.bytes.reserve(static_cast<size_t>(st.st_size));
    for (ssize_t n; (n = ::read(file.descriptor(), buffer, sizeof buffer)) != 0;) {
        if (n < 0 && errno != EINTR)
            return shot;
        shot.bytes.append(buffer, n > 0 ? static_cast<size_t>(n) : 0);
    }
    shot.exists = true;
    shot.size = st.st_size;
    shot.step = stepOf(st.st_mtim);
    shot.uid = st.st_uid;
    shot.gid = st.st_gid;
    shot.mode = st.st_mode & 07777;
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
    return true;
}

std::string directoryOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string("./")
                                      : std::string(path.begin(), path.begin() + slash + 1);
}

std::string baseOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : std::string(path.begin() + slash + 1, path.end());
}

// Qt ends every line it writes: an empty file, a last line without its end or zero bytes from
// blocks not written yet are what a kill or a power cut leaves.
bool cutShort(const std::string& bytes) {
    return bytes.empty() || bytes[bytes.size() - 1] != '\n' ||
           bytes.find('\0') != std::string::npos;
}

std::string trimmed(std::string::const_iterator begin, std::string::const_iterator end) {
    const char* const blank = " \t\r";
    while (begin != end && std::strchr(blank, *begin))
        ++begin;
    while (begin != end && std::strchr(blank, *(end - 1)))
        --end;
    return std::string(begin, end);
}

// "[group/key\n" of every key line.
std::string keysOf(const std::string& bytes) {
    std::string keys, group;
    for (std::string::const_iterator at = bytes.begin(); at != bytes.end();) {
        const std::string::const_iterator end = std::find(at, bytes.end(), '\n');
        const std::string line = trimmed(at, end);
        at = end == bytes.end() ? end : end + 1;
        const size_t equals = line.find('=');
        if (!line.empty() && line[0] == '[')
            group = trimmed(line.begin(), std::find(line.begin(), line.end(), ']'));
        else if (!line.empty() && line[0] != ';' && equals != std::string::npos)
            keys += group + '/' + trimmed(line.begin(), line.begin() + equals) + '\n';
    }
    return keys;
}

// A file cut at a line end still lacks keys of the complete copy.
bool damaged(const std::string& file, const std::string& copy) {
    if (cutShort(file))
        return true;
    const std::string present = "\n" + keysOf(file), wanted = keysOf(copy);
    for (size_t at = 0, end; at < wanted.size(); at = end + 1) {
        end = wanted.find('\n', at);
        if (present.find("\n" + std::string(wanted.data() + at, end - at + 1)) == std::string::npos)
            return true;
    }
    return false;
}

// Qt puts every key on a line of its own: a file it wrote whole with `keys` keys.
bool writtenWhole(const std::string& bytes, int keys) {
    int lines = 0;
    for (std::string::const_iterator at = bytes.begin(); at != bytes.end(); ++at) {
        const std::string::const_iterator end = std::find(at, bytes.end(), '\n');
        lines += std::find(at, end, '=') != end;
        at = end == bytes.end() ? end - 1 : end;
    }
    return !cutShort(bytes) && lines == keys;
}

// The new file of a killed write: "<base>.krvnew-<pid>-..." (Qt 5's lock and temporary files for
// it included) of a process that is gone. A name with this process's id is from an earlier
// process (a panel's processes get the same ids at every boot): this process's writes are
// serialised, and none is under way while it looks.
bool killedWrite(const char* name, const std::string& base) {
    const std::string prefix = base + kNewMark;
    if (std::strncmp(name, prefix.c_str(), prefix.size()) != 0)
        return false;
    char* end = nullptr;
    const long pid = std::strtol(name + prefix.size(), &end, 10);
    if (end == name + prefix.size() || *end != '-' || pid <= 0 || pid > 0x7fffffffL)
        return false;
    return pid == ::getpid() || (::kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH);
}

void dropKilledWrites(const std::string& path) {
    const std::string dir = directoryOf(path), base = baseOf(path);
    DIR* listing = ::opendir(dir.c_str());
    if (listing == nullptr)
        return;
    closeOnExec(::dirfd(listing));
    struct stat st;
    while (const struct dirent* entry = ::readdir(listing)) {
        const std::string name = dir + entry->d_name;
        if (killedWrite(entry->d_name, base) && ::lstat(name.c_str(), &st) == 0 &&
            S_ISREG(st.st_mode))
            (void)::unlink(name.c_str());
    }
    ::closedir(listing);
}

std::mutex& accessMutex() {
    static std::mutex mutex;
    return mutex;
}
// What this process's QSettings last parsed of each file.
std::map<std::string, Snapshot>& seen() {
    static std::map<std::string, Snapshot> files;
    return files;
}
// Files whose leftovers this process has dealt with.
std::set<std::string>& settled() {
    static std::set<std::string> files;
    return files;
}

enum Target { Refused, InPlace, NewFile };

// Replaces a file by way of a new file beside it, never in place.
class Replacement {
public:
    Replacement(const std::string& file, const Snapshot& before) : m_file(file), m_before(before) {
        static unsigned long count = 0;
        char suffix[48];
        std::snprintf(suffix, sizeof suffix, "%s%ld-%lu", kNewMark, static_cast<long>(::getpid()),
                      ++count);
        m_path = file + suffix;
    }
    ~Replacement() {
        if (m_made && !m_renamed)
            (void)::unlink(m_path.c_str());
    }
    const std::string& path() const { return m_path; }

    // Makes the new file holding `bytes`: private while it may hold the old contents of a file
    // that has an owner and mode of its own, else as Qt makes a new file. InPlace when the
    // directory takes no new file (read-only), Refused on any other failure.
    Target make(const std::string& bytes) {
        const int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
        const mode_t mode = m_before.exists ? 0600 : 0666;
        int fd = ::open(m_path.c_str(), flags, mode);
        if (fd < 0 && errno == ENOENT &&
            QDir().mkpath(QString::fromLocal8Bit(directoryOf(m_path).c_str())))
            fd = ::open(m_path.c_str(), flags, mode);
        if (fd < 0)
            return errno == EACCES || errno == EPERM || errno == EROFS ? InPlace : Refused;
        closeOnExec(fd);
        m_made = true;
        const bool written = writeAll(fd, bytes);
        return ::close(fd) == 0 && written ? NewFile : Refused;
    }

    // Checks the new file whole (`keys` >= 0: QSettings wrote it with that many keys), gives it
    // the file's owner and mode and a later time step than `step` and the file's, puts it on the
    // medium and renames it over the file.
    bool install(int keys, long long step) {
        File file;
        struct stat st;
        if (!file.open(m_path, O_RDONLY | O_NOFOLLOW | O_CLOEXEC) ||
            ::fstat(file.descriptor(), &st) != 0)
            return false;
        const int fd = file.descriptor();
        const std::string bytes = file.readAll();
        if (file.lastError() != 0 || (keys >= 0 && !writtenWhole(bytes, keys)))
            return false;
        // A settings file of another user that this process cannot give back is left alone.
        if (m_before.exists &&
            (::fchown(fd, m_before.uid, m_before.gid) != 0 || ::fchmod(fd, m_before.mode) != 0))
            return false;
        const long long later = std::max(step, m_before.step) + 1;
        struct timespec times[2];
        timesOf(later, times);
        if (stepOf(st.st_mtim) < later)
            (void)::futimens(fd, times);
        if (::fsync(fd) != 0 || ::rename(m_path.c_str(), m_file.c_str()) != 0)
            return false;
        m_renamed = true;
        return true;
    }

private:
    std::string m_file, m_path;
    const Snapshot& m_before;
    bool m_made = false, m_renamed = false;
};

// The file a write replaces: the target of a link, so that the link stays.
std::string resolved(const std::string& path) {
    char* real = ::realpath(path.c_str(), nullptr);
    const std::string file = real != nullptr ? real : path;
    ::free(real);
    return file;
}

// A filled copy means a write of an earlier driver that did not finish: a file it left damaged
// gets the copy back. Anything but a regular file at the copy's name is not ours.
void takeOverCopy(const std::string& path) {
    const std::string copy = path + kCopySuffix;
    const Snapshot left = snapshot(copy, O_NOFOLLOW);
    if (left.bytes.empty())
        return;
    const Snapshot now = snapshot(path);
    if (now.exists && damaged(now.bytes, left.bytes)) {
        Replacement back(path, now);
        if (back.make(left.bytes) != NewFile || !back.install(-1, now.step))
            return;  // kept for the next process
        ::sync();
    }
    // A file removed since belongs to whoever removed it.
    (void)::unlink(copy.c_str());
}

}  // namespace

struct SettingsFile::State {
    std::string path;
    std::lock_guard<std::mutex> hold;
    Snapshot before;

    explicit State(const QString& file)
        : path(file.toLocal8Bit().constData()), hold(accessMutex()) {
        if (settled().insert(path).second) {
            const std::string real = resolved(path);
            takeOverCopy(real);
            dropKilledWrites(real);
        }
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

    // A write in place: a reader compares size and time step only, and may hold any earlier
    // contents of the same size, so the write gets a later step than the one before it.
    void writtenInPlace() {
        Snapshot after = snapshot(path);
        const long long parsed = after.step;
        if (after.exists && before.exists && after.step <= before.step)
            setStep(path, before.step + 1);
        // QSettings keeps the step it saw right after its write.
        after.step = parsed;
        seen()[path] = after;
    }
};

SettingsFile::SettingsFile(const QString& path) : m_state(new State(path)) {
    m_state->revealChanges();
}

SettingsFile::~SettingsFile() {
    // What QSettings has just parsed (or found unchanged).
    seen()[m_state->path] = std::move(m_state->before);
}

bool SettingsFile::write(const QString& path,
                         const std::vector<std::pair<QString, QString>>& values, bool utf8) {
    State s(path);
    const std::string file = resolved(s.path);
    s.before = snapshot(file);
    Replacement next(file, s.before);
    // A file that cannot be copied whole (not a regular file, too large) is not written.
    Target target = s.before.exists || s.before.missing ? next.make(s.before.bytes) : Refused;
    // In place only where QSettings can open the file: values of a write it refused would stay
    // in its parsed copy, and any later access of the process would write them. Qt 5 refuses
    // every write in place.
    File inPlace;
    if (target == InPlace && (QT_VERSION >= 0x050000 || !s.before.exists ||
                              !inPlace.open(file, O_RDWR | O_NONBLOCK | O_CLOEXEC)))
        target = Refused;
    if (target == InPlace)
        s.revealChanges();
    bool written = false;
    if (target != Refused) {
        QSettings settings(target == NewFile ? QString::fromLocal8Bit(next.path().c_str()) : path,
                           QSettings::IniFormat);
        if (utf8)
            settings.setIniCodec("UTF-8");
        for (size_t i = 0; i < values.size(); ++i)
            settings.setValue(values[i].first, values[i].second);
        settings.sync();
        written = settings.status() == QSettings::NoError;
        if (target == NewFile) {
            std::map<std::string, Snapshot>::const_iterator last = seen().find(s.path);
            written = written && next.install(settings.allKeys().size(),
                                              last == seen().end() ? 0 : last->second.step);
            // Its name gone, QSettings finds the new file empty and keeps nothing of it.
            if (written)
                settings.sync();
        }
    }
    if (target == InPlace)
        s.writtenInPlace();
    // The panel may lose power at any moment.
    ::sync();
    return written;
}

}  // namespace KRVCTRL
