// Helpers for tests that run inside the panel sandbox (sandbox/panel-sandbox): files, commands,
// the peer network namespace, fake /proc files, the recording shims and an NTP server.
// Every test binary linking this refuses to run outside the sandbox.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace krv_test {

// Qt 4's QSettings rewrites a settings file in place; Qt 5's writes a new copy and renames it
// over the file (and needs a lock file beside it).
constexpr bool kQtWritesInPlace = KRV_QT_MAJOR == 4;

// True only when running as root of the sandbox's own user namespace.
bool inSandbox();

// Files. writeFile creates missing parent directories; readFile gives "" for a missing file.
bool writeFile(const std::string& path, const std::string& contents);
std::string readFile(const std::string& path);
bool fileExists(const std::string& path);
bool removeFile(const std::string& path);
// The text after "key=" up to the line's end in an INI file whose first line is its group;
// "" when the key is missing.
std::string iniValue(const std::string& path, const std::string& key);

// Shell commands (`sh -c`): exit status (-1 when killed or not started) and standard output.
// Standard error goes to the test's output.
struct CommandResult {
    int status = -1;
    std::string out;
};
CommandResult run(const std::string& command);
// The same command run in the peer namespace, where the panel's LAN hosts live.
CommandResult runInPeer(const std::string& command);
std::string shellQuote(const std::string& text);
pid_t peerPid();

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

// Sends one SNTP client request to `address`:`port` and waits for a 48-byte reply.
bool ntpAnswers(const std::string& address, int timeoutMs = 1000, int port = 123);

// chronyd serving time in the peer namespace (10.0.0.1, 223.5.5.5 and any other peer address),
// never touching a clock. The constructor waits until it answers on port 123; `extraConfig` lines
// are appended to the configuration. One at a time; stopped on destruction.
class NtpServer {
public:
    explicit NtpServer(const std::string& extraConfig = "");
    ~NtpServer();
    NtpServer(const NtpServer&) = delete;
    NtpServer& operator=(const NtpServer&) = delete;
    bool ok() const { return ready_; }
    pid_t pid() const { return pid_; }

private:
    pid_t pid_ = -1;
    bool ready_ = false;
};

}  // namespace krv_test
