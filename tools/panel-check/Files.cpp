// Files: the settings directory and files, the lock files, the resolver file, the time zone, the
// logs and the /proc files, each looked at as the driver uses it. Nothing is created or changed.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "Checks.h"
#include "Child.h"
#include "Ini.h"
#include "Rules.h"

namespace panel_check {

namespace {

const char kArea[] = "files";
const char kVncPath[] = "/etc/iot_cfg/vncConfig.ini";
const char kResolver[] = "/etc/resolv.conf";
const char kResolverTmp[] = "/etc/resolv.conf.tmp";
const char kLogDir[] = "/storage/log";
// Room for a settings file written anew beside the old one, and the copy kept during a write.
const unsigned long long kRoomBytes = 16 * 1024;
const int kLockWatchMs = 2000;
const char* const kNtpDefaults[] = {"0.pool.ntp.org", "1.pool.ntp.org", "2.pool.ntp.org",
                                    "3.pool.ntp.org"};

bool exists(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0;
}

std::string directoryOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == 0 ? "/" : std::string(path, 0, slash);
}

// The whole file, also from /proc where the size says 0.
bool readText(const std::string& path, std::string& text) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return false;
    char buffer[4096];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            ::close(fd);
            return n == 0;
        }
        text.append(buffer, static_cast<size_t>(n));
    }
}

// What keeps new files from being made in `dir`; empty when nothing does.
std::string creationProblem(const std::string& dir, bool& readOnly) {
    readOnly = false;
    struct stat st;
    if (::stat(dir.c_str(), &st) != 0)
        return "the directory " + dir + " is missing";
    if (!S_ISDIR(st.st_mode))
        return dir + " is not a directory";
    struct statvfs fs;
    const bool known = ::statvfs(dir.c_str(), &fs) == 0;
    if (known && (fs.f_flag & ST_RDONLY)) {
        readOnly = true;
        return dir + " is on a read-only file system";
    }
    if (::access(dir.c_str(), W_OK | X_OK) != 0)
        return dir + " is not writable for this user";
    if (known && static_cast<unsigned long long>(fs.f_bavail) * fs.f_frsize < kRoomBytes)
        return format("%s has %llu bytes free", dir.c_str(),
                      static_cast<unsigned long long>(fs.f_bavail) * fs.f_frsize);
    if (known && fs.f_files > 0 && fs.f_favail < 2)
        return dir + " has no free inodes";
    return std::string();
}

// One settings file as the driver reads and writes it.
struct SettingsFile {
    std::string path, group, what;
    const char* const* keys;
    int keyCount;
    Status ifMissing;
    std::string missingEffect, missingFix;
    // Empty when the driver takes the value as it is meant; else what it makes of it.
    std::string (*valueProblem)(const std::string& key, const IniValue& value);
};

std::string integerProblem(const IniValue& value, int low, int high) {
    bool number = false;
    const int n = iniInt(value.text, number);
    if (!number)
        return "not a whole number, read as 0";
    if (n < low || n > high)
        return format("%d is out of the range %d to %d", n, low, high);
    return std::string();
}

std::string appValue(const std::string& key, const IniValue& value) {
    if (key == "backlight_status")
        return value.text == "0" || value.text == "1" || value.text == "true" ||
                       value.text == "false"
                   ? std::string()
                   : "neither 0, 1, true nor false: channel 5 is left as it was";
    return integerProblem(value, -2147483647 - 1, 2147483647);
}

std::string ntpValue(const std::string& key, const IniValue& value) {
    if (key == "ntp_freq")
        return integerProblem(value, 1, 24);
    if (key == "ntp_switch" || key == "ntp_mode")
        return integerProblem(value, 0, 1);
    return std::string();  // a server: any text
}

std::string anyValue(const std::string&, const IniValue&) {
    return std::string();
}

const char* const kAppKeys[] = {"buzz_duration", "backlight_status", "backlight_duration"};
const char* const kNtpKeys[] = {"ntp_switch",  "ntp_mode",    "ntp_freq",   "ntp_server1",
                                "ntp_server2", "ntp_server3", "ntp_server4"};
const char* const kVncKeys[] = {"passwd"};

void checkSettingsFile(Context& ctx, const SettingsFile& file, bool directoryReadOnly,
                       IniFile& ini) {
    const std::string check = file.what + " " + file.path;
    struct stat st;
    if (::stat(file.path.c_str(), &st) != 0) {
        ctx.report.add(file.ifMissing, kArea, check, "missing: " + file.missingEffect,
                       file.missingFix);
        return;
    }
    if (!S_ISREG(st.st_mode)) {
        ctx.report.add(kFail, kArea, check, "not a regular file", "put the settings file there");
        return;
    }
    if (::access(file.path.c_str(), R_OK) != 0 || !ini.read(file.path)) {
        ctx.report.add(kFail, kArea, check, "not readable by this user: the driver sees no keys",
                       "give the runtime's user read and write access");
        return;
    }
    // A read-only directory is the directory check's FAIL.
    if (::access(file.path.c_str(), W_OK) != 0 && !(errno == EROFS && directoryReadOnly)) {
        ctx.report.add(kFail, kArea, check, "not writable: settings written are lost",
                       "give the runtime's user read and write access");
        return;
    }
    std::vector<std::string> problems;
    for (size_t i = 0; i < ini.malformedLines().size(); ++i)
        problems.push_back(
            format("line %d is neither [group] nor key=value (dropped at the "
                   "driver's next write)",
                   ini.malformedLines()[i]));
    for (int k = 0; k < file.keyCount; ++k) {
        IniValue value;
        std::string problem;
        if (!ini.find(file.group, file.keys[k], value))
            problem = "missing";
        else if (value.list)
            problem = "a list (a comma outside quotes), read as empty";
        else
            problem = file.valueProblem(file.keys[k], value);
        if (!problem.empty())
            problems.push_back("[" + file.group + "] " + file.keys[k] + ": " + problem);
    }
    if (problems.empty()) {
        ctx.report.add(kPass, kArea, check, "readable, writable, every key the driver reads");
        return;
    }
    std::string found;
    for (size_t i = 0; i < problems.size(); ++i)
        found += (i ? "; " : "") + problems[i];
    ctx.report.add(kWarn, kArea, check, found, "write the keys as the driver reads them");
}

void checkSettings(Context& ctx) {
    const std::string dir = ctx.options.configDir;
    const std::string vnc = exists(kVncPath) ? std::string(kVncPath) : dir + "/vncConfig.ini";
    std::vector<std::string> dirs(1, dir);
    if (directoryOf(vnc) != dir)
        dirs.push_back(directoryOf(vnc));
    bool readOnly[2] = {false, false};
    for (size_t i = 0; i < dirs.size(); ++i) {
        const std::string problem = creationProblem(dirs[i], readOnly[i]);
        if (problem.empty())
            ctx.report.add(kPass, kArea, "settings directory " + dirs[i],
                           "takes a settings file written anew beside the old one");
        else
            ctx.report.add(kFail, kArea, "settings directory " + dirs[i],
                           problem + ": settings written there are lost",
                           "the driver writes each settings file anew beside the old one: give "
                           "the runtime's user a writable directory with room");
    }
    const SettingsFile files[] = {
        {dir + "/wexa_app_conf.ini", "DEVICE", "panel settings", kAppKeys, 3, kWarn,
         "channels 3 to 6 show nothing until a channel write creates it",
         "write the panel's buzzer and backlight settings there", appValue},
        {dir + "/ntp_param_cfg.ini", "NTP_PARAM", "NTP settings", kNtpKeys, 7, kWarn,
         "NTP stays off with the defaults until a setting is written",
         "set NTP up from the project, or write the file", ntpValue},
        {vnc, "VNCCONFIG", "remote-view settings", kVncKeys, 1, kFail,
         "the driver never creates it, so a new password is accepted and dropped",
         std::string("create ") + kVncPath + " with [VNCCONFIG] and passwd=", anyValue},
    };
    for (int i = 0; i < 3; ++i) {
        IniFile ini(ctx.qtMajor >= 5);  // panels run Qt 4: unknown counts as Qt 4
        checkSettingsFile(ctx, files[i], readOnly[directoryOf(files[i].path) == dir ? 0 : 1], ini);
        if (i != 1)
            continue;
        // The servers the driver would use, the defaults where a key is missing.
        for (int k = 0; k < 4; ++k) {
            IniValue value;
            ctx.ntpServers.push_back(ini.find("NTP_PARAM", kNtpKeys[3 + k], value)
                                         ? value.text
                                         : std::string(kNtpDefaults[k]));
        }
    }
}

// The pids holding a flock on the file of (device, inode), from /proc/locks.
std::vector<long> lockHolders(const struct stat& st) {
    std::vector<long> pids;
    std::string text;
    if (!readText("/proc/locks", text))
        return pids;
    const std::string id = format("%02x:%02x:%lu", major(st.st_dev), minor(st.st_dev),
                                  static_cast<unsigned long>(st.st_ino));
    size_t start = 0;
    for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
        const std::string line(text, start, end - start);
        const size_t at = line.find(" " + id + " ");
        if (at == std::string::npos || line.find("->") != std::string::npos)
            continue;  // another file, or a waiter
        const size_t pid = line.rfind(' ', at - 1);
        pids.push_back(std::atol(line.c_str() + (pid == std::string::npos ? 0 : pid + 1)));
    }
    return pids;
}

std::string processName(long pid) {
    std::string name;
    readText(format("/proc/%ld/comm", pid), name);
    return name.empty() ? std::string("?") : std::string(name, 0, name.find('\n'));
}

void checkLockFile(Context& ctx, const std::string& path, const std::string& refused) {
    const std::string check = "lock file " + path;
    const std::string remove = "remove it (rm " + path + "); the driver creates it itself";
    struct stat st;
    if (::lstat(path.c_str(), &st) != 0) {
        bool readOnly = false;
        const std::string problem = creationProblem(directoryOf(path), readOnly);
        if (problem.empty())
            ctx.report.add(kPass, kArea, check, "not there yet; the driver can create it");
        else
            ctx.report.add(kFail, kArea, check, "cannot be created: " + problem + ": " + refused,
                           "let every user create files in " + directoryOf(path));
        return;
    }
    const char* kind = S_ISLNK(st.st_mode)    ? "a symbolic link"
                       : S_ISFIFO(st.st_mode) ? "a FIFO"
                       : S_ISDIR(st.st_mode)  ? "a directory"
                       : !S_ISREG(st.st_mode) ? "not a regular file"
                                              : nullptr;
    if (kind) {
        ctx.report.add(kFail, kArea, check,
                       std::string(kind) + ", which the driver refuses: " + refused, remove);
        return;
    }
    const int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        ctx.report.add(kFail, kArea, check, "cannot be opened by this user: " + refused,
                       "make it readable for every user (chmod 0666), or " + remove);
        return;
    }
    // The driver takes it exclusively: a shared lock that cannot be had means someone holds it,
    // held for good if still so a while later. Taken, it is let go at once.
    bool held = true;
    for (int waited = 0; held && waited <= kLockWatchMs; waited += 100) {
        if (waited > 0)
            ::usleep(100 * 1000);
        held = ::flock(fd, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    }
    ::close(fd);
    if (!held) {
        ctx.report.add(kPass, kArea, check, "a regular file that opens, not held");
        return;
    }
    // /proc/locks names the process that took the lock, while that process lives.
    const std::vector<long> holders = lockHolders(st);
    ctx.report.add(kFail, kArea, check,
                   (holders.empty() ? std::string("held by another process")
                                    : format("held by pid %ld (%s)", holders[0],
                                             processName(holders[0]).c_str())) +
                       format(" for over %d s: the driver waits for it, without a time-out",
                              kLockWatchMs / 1000),
                   "find out why that process keeps the lock");
}

void checkResolver(Context& ctx) {
    // Only servers given by name need the resolver file's name server.
    bool byName = false;
    for (size_t i = 0; i < ctx.ntpServers.size(); ++i)
        byName = byName || (!ctx.ntpServers[i].empty() && !isDottedAddress(ctx.ntpServers[i]));
    const Status bad = byName ? kFail : kWarn;
    const std::string effect = byName ? "every NTP synchronisation by host name fails"
                                      : "unused while every NTP server is an address";
    const std::string fix = "write one line: \"nameserver\", one blank, a dotted address";
    std::string path = kResolver, text, note;
    struct stat st;
    if (::stat(kResolver, &st) != 0 || !S_ISREG(st.st_mode)) {
        if (::stat(kResolverTmp, &st) != 0 || !S_ISREG(st.st_mode)) {
            ctx.report.add(bad, kArea, "resolver file " + path, "missing: " + effect, fix);
            return;
        }
        path = kResolverTmp;
        note = " (in " + path + ", which the driver renames into place at its next probe)";
    }
    if (!readText(path, text)) {
        ctx.report.add(bad, kArea, "resolver file " + path, "cannot be read: " + effect,
                       "make it readable for every user");
        return;
    }
    const NameServers found = readNameServers(text);
    if (found.badLine != 0)
        ctx.report.add(bad, kArea, "resolver file " + path,
                       format("line %d: ", found.badLine) + found.why + ": " + effect, fix);
    else if (found.servers.empty())
        ctx.report.add(bad, kArea, "resolver file " + path, "no name server: " + effect, fix);
    else
        ctx.report.add(kPass, kArea, "resolver file " + path,
                       "probes by host name go to " + found.servers[0] + note);
    ctx.nameServers = found.servers;
}

void checkTimeZone(Context& ctx) {
    for (const char* file : {"/etc/localtime", "/etc/timezone"}) {
        if (exists(file)) {
            ctx.report.add(kPass, kArea, "time zone",
                           std::string(file) + " is there: NTP sets the local time");
            return;
        }
    }
    struct stat st;
    const bool dangling = ::lstat("/etc/localtime", &st) == 0;
    ctx.report.add(kFail, kArea, "time zone",
                   std::string("neither /etc/localtime nor /etc/timezone") +
                       (dangling ? " (/etc/localtime links to a missing file)" : "") +
                       ": NTP sets the clock as UTC+8, with hours past 23 in the evening",
                   "install the panel's zone file as /etc/localtime");
}

void checkLogs(Context& ctx) {
    const char* const logs[] = {"restart.log", "dmesg.log", "signal_recieved.log"};
    struct stat st;
    if (::stat(kLogDir, &st) != 0 || !S_ISDIR(st.st_mode)) {
        ctx.report.add(kWarn, kArea, std::string("logs in ") + kLogDir,
                       "no such directory: ReadAppLog delivers empty texts",
                       "check where this panel keeps its logs");
        return;
    }
    for (int mode = 0; mode < 3; ++mode) {
        const std::string path = std::string(kLogDir) + "/" + logs[mode];
        const std::string check = "log " + path;
        if (::stat(path.c_str(), &st) != 0)
            ctx.report.add(kWarn, kArea, check,
                           format("missing: ReadAppLog mode %d delivers an empty text", mode),
                           "expected once the panel has written it");
        else if (::access(path.c_str(), R_OK) != 0)
            ctx.report.add(kFail, kArea, check,
                           format("not readable: ReadAppLog mode %d delivers an empty text", mode),
                           "make it readable for the runtime's user");
        else
            ctx.report.add(kPass, kArea, check,
                           format("%lld bytes", static_cast<long long>(st.st_size)));
    }
}

void checkProc(Context& ctx) {
    std::string stat, meminfo;
    const std::string statProblem =
        readText("/proc/stat", stat) ? statLayoutProblem(stat) : "cannot be read";
    if (statProblem.empty())
        ctx.report.add(kPass, kArea, "/proc/stat", "CPU counts in the layout the driver reads");
    else
        ctx.report.add(kFail, kArea, "/proc/stat",
                       statProblem + ": the CPU load (channel 10) is wrong or never updated",
                       "report this kernel's /proc/stat to the driver's developers");
    bool fallback = false;
    const long kib = readText("/proc/meminfo", meminfo) ? meminfoKib(meminfo, fallback) : -1;
    if (kib < 0)
        ctx.report.add(kFail, kArea, "/proc/meminfo",
                       "neither MemAvailable nor MemFree, Buffers and Cached as the driver reads "
                       "them: free memory (channel 11) is never updated",
                       "report this kernel's /proc/meminfo to the driver's developers");
    else
        ctx.report.add(kPass, kArea, "/proc/meminfo",
                       format("%ld MiB available%s", kib / 1024,
                              fallback ? " (MemFree + Buffers + Cached: no MemAvailable)" : ""));
}

}  // namespace

void checkFiles(Context& ctx) {
    checkSettings(ctx);
    checkLockFile(ctx, "/tmp/wexa_app_conf.lck",
                  "the refresh keeps old panel settings and channel writes are dropped");
    checkLockFile(ctx, "/tmp/dns_access_lock.lck", "every NTP synchronisation by host name fails");
    checkResolver(ctx);
    checkTimeZone(ctx);
    checkLogs(ctx);
    checkProc(ctx);
}

}  // namespace panel_check
