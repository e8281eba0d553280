// Helpers for tests that run inside the panel sandbox (sandbox/panel-sandbox): files, commands,
// the peer network namespace, fake /proc files, the recording shims, NTP servers.
// Every test binary linking this refuses to run outside the sandbox.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace krv_test {

// Qt 4's QSettings rewrites a file in place, where the driver goes when its directory takes no
// new file; Qt 5's always writes a new file beside it (and a lock file), so it refuses there.
constexpr bool kQtWritesInPlace = KRV_QT_MAJOR == 4;

// The settings files as the driver names them on the panel.
constexpr const char* kAppCfg = "/usr/wexa_app/config/wexa_app_conf.ini";
constexpr const char* kNtpCfg = "/usr/wexa_app/config//ntp_param_cfg.ini";
constexpr const char* kVncCfg = "/etc/iot_cfg/vncConfig.ini";

// True only when running as root of the sandbox's own user namespace.
bool inSandbox();

// Files. writeFile creates missing parent directories; readFile gives "" for a missing file.
bool writeFile(const std::string& path, const std::string& contents);
std::string readFile(const std::string& path);
bool fileExists(const std::string& path);
bool removeFile(const std::string& path);
// "line 0\nline 1\n..." cut to `bytes`: a log whose tails show where they were cut.
std::string numberedLines(std::size_t bytes);
// The text after "key=" up to the line's end in an INI file whose first line is its group;
// "" when the key is missing.
std::string iniValue(const std::string& path, const std::string& key);

// Polls `done` every 20 ms until it holds (true) or `timeoutMs` went by (false).
bool waitFor(int timeoutMs, const std::function<bool()>& done);

// Descriptors this process holds open: a leak shows as a count that grows.
int openDescriptors();

// Shell commands (`sh -c`): exit status (-1 when killed or not started) and standard output.
// Standard error goes to the test's output.
struct CommandResult {
    int status = -1;
    std::string out;
};
CommandResult run(const std::string& command);
// The same command run in the peer namespace, where the panel's LAN hosts live.
CommandResult runInPeer(const std::string& command);

// A panel interface `name` as one end of a veth pair whose other end, `name`+"p", sits in the
// peer namespace. Addresses are CIDR ("10.0.1.2/24"); empty leaves an end without one.
bool addInterface(const std::string& name, const std::string& panelCidr,
                  const std::string& peerCidr);
bool removeInterface(const std::string& name);

// Lines the recording shims wrote, "date [-s] [2026-01-02 03:04:05]", oldest first.
std::vector<std::string> shimCalls();
void clearShimCalls();

// Replaces a file such as /proc/stat or /proc/meminfo with `contents` until destruction.
class BoundFile {
public:
    BoundFile(const std::string& target, const std::string& contents);
    ~BoundFile();
    BoundFile(const BoundFile&) = delete;
    BoundFile& operator=(const BoundFile&) = delete;
    bool ok() const { return bound_; }

private:
    std::string target_;
    bool bound_ = false;
};

// chronyd serving time in the peer namespace (10.0.0.1, 223.5.5.5 and any other peer address),
// never touching a clock. The constructor waits until it answers on port 123. One at a time;
// stopped on destruction.
class NtpServer {
public:
    NtpServer();
    ~NtpServer();
    NtpServer(const NtpServer&) = delete;
    NtpServer& operator=(const NtpServer&) = delete;
    bool ok() const { return ready_; }
    pid_t pid() const { return pid_; }

private:
    pid_t pid_ = -1;
    bool ready_ = false;
};

// An SNTP server at `address`:123, a thread of this process. It answers every request with the
// reply set last (at most 48 bytes; empty: no answer; at first T1 = T2 = T3 = 1970), from
// 127.0.0.2 and another port while `fromElsewhere` is set, and keeps the last request.
class SntpResponder {
public:
    explicit SntpResponder(const char* address = "127.0.0.1");
    ~SntpResponder();
    void setReply(const std::string& bytes);
    // A whole reply whose T1, T2, T3 are these instants, in microseconds since 1970.
    void setTimes(int64_t t1, int64_t t2, int64_t t3);
    std::string lastRequest();
    std::atomic<int> requests{0};
    std::atomic<bool> fromElsewhere{false};

private:
    std::mutex mutex_;  // the client orders the threads only through the socket, unseen by TSan
    std::string reply_, request_;
    std::atomic<bool> stop_{false};
    int fd_, elsewhere_;
    std::thread thread_;
};

}  // namespace krv_test
