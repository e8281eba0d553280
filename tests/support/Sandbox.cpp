#include "Sandbox.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>

// Named on the test executables' link line (--undefined) so that the sandbox guard below is linked
// into every test, even one that uses none of these helpers.
extern "C" const int krv_test_sandbox_guard = 1;

namespace krv_test {
namespace {

const char kPanelNet[] = "/run/krv/panel-net";
const char kCallLog[] = "/sbx/calls.log";

// Tests change /etc, interfaces and clocks: on the host that would be damage, so a test binary
// stops before main() unless it runs in the sandbox (listing its tests is harmless anywhere).
bool onlyListingTests() {
    std::string args = readFile("/proc/self/cmdline");
    return args.find("--gtest_list_tests") != std::string::npos;
}

struct SandboxGuard {
    SandboxGuard() {
        if (inSandbox() || onlyListingTests())
            return;
        std::fprintf(stderr,
                     "\n*** Runs only inside the panel sandbox: sandbox/panel-sandbox "
                     "--bind <source> --bind <build> -- <test>\n\n");
        std::_Exit(2);
    }
};
const SandboxGuard guard;

bool makeParents(const std::string& path) {
    for (size_t slash = path.find('/', 1); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
        if (mkdir(path.substr(0, slash).c_str(), 0755) != 0 && errno != EEXIST)
            return false;
    }
    return true;
}

// Waits for `pid` for up to `timeoutMs`; true once it is reaped.
bool reap(pid_t pid, int timeoutMs) {
    return waitFor(timeoutMs, [pid] {
        int status = 0;
        pid_t r = waitpid(pid, &status, WNOHANG);
        return r == pid || (r < 0 && errno == ECHILD);
    });
}

std::string shellQuote(const std::string& text) {
    std::string quoted = "'";
    for (char c : text)
        quoted += (c == '\'') ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

pid_t peerPid() {
    return static_cast<pid_t>(std::atoi(readFile("/run/krv/peer.pid").c_str()));
}

// Sends one SNTP client request to `address`:123 and waits up to `timeoutMs` for a reply.
bool ntpAnswers(const std::string& address, int timeoutMs) {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(123);
    if (inet_pton(AF_INET, address.c_str(), &to.sin_addr) != 1)
        return false;
    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return false;
    unsigned char packet[48] = {0x23};  // version 4, client mode
    bool answered = false;
    if (sendto(fd, packet, sizeof packet, 0, reinterpret_cast<sockaddr*>(&to), sizeof to) ==
        static_cast<ssize_t>(sizeof packet)) {
        pollfd pfd{fd, POLLIN, 0};
        unsigned char reply[512];
        if (poll(&pfd, 1, timeoutMs) == 1) {
            ssize_t n = recv(fd, reply, sizeof reply, 0);
            answered = n == 48 && (reply[0] & 0x07) == 4;  // server mode
        }
    }
    close(fd);
    return answered;
}

}  // namespace

bool waitFor(int timeoutMs, const std::function<bool()>& done) {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!done()) {
        if (Clock::now() >= end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

bool inSandbox() {
    const char* flag = std::getenv("KRV_IN_SANDBOX");
    if (flag == nullptr || std::strcmp(flag, "1") != 0 || geteuid() != 0)
        return false;
    // The initial user namespace maps every id to itself; the sandbox maps root to one host uid.
    std::istringstream map(readFile("/proc/self/uid_map"));
    unsigned long inside = 0, outside = 0, count = 0;
    map >> inside >> outside >> count;
    return map && !(outside == 0 && count == 4294967295UL);
}

bool writeFile(const std::string& path, const std::string& contents) {
    if (!makeParents(path))
        return false;
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << contents;
    out.close();
    return !out.fail();
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

bool fileExists(const std::string& path) {
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}

bool removeFile(const std::string& path) {
    return unlink(path.c_str()) == 0 || errno == ENOENT;
}

std::string numberedLines(std::size_t bytes) {
    std::string text;
    for (int i = 0; text.size() < bytes; ++i)
        text += "line " + std::to_string(i) + "\n";
    return text.substr(0, bytes);
}

std::string iniValue(const std::string& path, const std::string& key) {
    const std::string text = readFile(path);
    const size_t at = text.find("\n" + key + "=");
    if (at == std::string::npos)
        return "";
    const size_t start = at + key.size() + 2;
    return text.substr(start, text.find('\n', start) - start);
}

int openDescriptors() {
    int count = 0;
    if (DIR* dir = opendir("/proc/self/fd")) {
        while (readdir(dir))
            ++count;
        closedir(dir);
    }
    return count;
}

CommandResult run(const std::string& command) {
    CommandResult result;
    std::fflush(nullptr);
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr)
        return result;
    char buffer[4096];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0)
        result.out.append(buffer, n);
    int status = pclose(pipe);
    result.status = (status != -1 && WIFEXITED(status)) ? WEXITSTATUS(status) : -1;
    return result;
}

CommandResult runInPeer(const std::string& command) {
    return run(std::string(kPanelNet) + " peer sh -c " + shellQuote(command));
}

bool addInterface(const std::string& name, const std::string& panelCidr,
                  const std::string& peerCidr) {
    return run(std::string(kPanelNet) + " add " + shellQuote(name) + " " + shellQuote(panelCidr) +
               " " + shellQuote(peerCidr))
               .status == 0;
}

bool removeInterface(const std::string& name) {
    return run(std::string(kPanelNet) + " del " + shellQuote(name)).status == 0;
}

std::vector<std::string> shimCalls() {
    std::vector<std::string> lines;
    std::istringstream log(readFile(kCallLog));
    for (std::string line; std::getline(log, line);)
        lines.push_back(line);
    return lines;
}

void clearShimCalls() {
    removeFile(kCallLog);
}

BoundFile::BoundFile(const std::string& target, const std::string& contents) : target_(target) {
    char source[] = "/tmp/krv-bound-XXXXXX";
    int fd = mkstemp(source);
    if (fd < 0)
        return;
    bool written = fchmod(fd, 0644) == 0 && write(fd, contents.data(), contents.size()) ==
                                                static_cast<ssize_t>(contents.size());
    close(fd);
    // The mount keeps the file alive; its name is not needed afterwards.
    bound_ = written && mount(source, target.c_str(), nullptr, MS_BIND, nullptr) == 0;
    unlink(source);
}

BoundFile::~BoundFile() {
    if (bound_ && umount2(target_.c_str(), 0) != 0)
        umount2(target_.c_str(), MNT_DETACH);
}

NtpServer::NtpServer() {
    static int serial = 0;
    const std::string dir =
        "/tmp/krv-chrony-" + std::to_string(getpid()) + "-" + std::to_string(++serial);
    const std::string conf = dir + "/chrony.conf";
    const std::string log = dir + "/chronyd.log";
    // A server only: no command sockets, no clock control (-x), no privilege drop (-u root: the
    // sandbox may not change groups).
    if (!writeFile(conf,
                   "local stratum 8\nallow all\nport 123\ncmdport 0\nbindcmdaddress /\n"
                   "pidfile " +
                       dir + "/chronyd.pid\n")) {
        return;
    }
    const std::string net = "--net=/proc/" + std::to_string(peerPid()) + "/ns/net";
    std::fflush(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
        int fd = open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (fd >= 0) {
            dup2(fd, STDOUT_FILENO);
            dup2(fd, STDERR_FILENO);
        }
        execlp("nsenter", "nsenter", net.c_str(), "chronyd", "-x", "-d", "-u", "root", "-f",
               conf.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    if (pid_ < 0)
        return;
    bool exited = false;
    ready_ = waitFor(5000,
                     [this, &exited] {
                         exited = waitpid(pid_, nullptr, WNOHANG) != 0;
                         return exited || ntpAnswers("10.0.0.1", 100);
                     }) &&
             !exited;
    if (exited)
        pid_ = -1;
    if (!ready_)
        std::fprintf(stderr, "chronyd did not come up:\n%s\n", readFile(log).c_str());
}

NtpServer::~NtpServer() {
    if (pid_ <= 0)
        return;
    kill(pid_, SIGTERM);
    if (!reap(pid_, 3000)) {
        kill(pid_, SIGKILL);
        reap(pid_, 3000);
    }
}

SntpResponder::SntpResponder(const char* address)
    : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)),
      elsewhere_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    setTimes(0, 0, 0);
    sockaddr_in at{};
    at.sin_family = AF_INET;
    at.sin_port = htons(123);
    inet_pton(AF_INET, address, &at.sin_addr);
    if (bind(fd_, reinterpret_cast<sockaddr*>(&at), sizeof at) != 0)
        std::fprintf(stderr, "SNTP responder: cannot bind %s:123\n", address);
    at.sin_port = 0;
    inet_pton(AF_INET, "127.0.0.2", &at.sin_addr);
    bind(elsewhere_, reinterpret_cast<sockaddr*>(&at), sizeof at);
    thread_ = std::thread([this] {
        char packet[48];
        for (pollfd p = {fd_, POLLIN, 0}; !stop_;) {
            if (poll(&p, 1, 50) != 1)
                continue;
            sockaddr_in from{};
            socklen_t length = sizeof from;
            const ssize_t n =
                recvfrom(fd_, packet, 48, 0, reinterpret_cast<sockaddr*>(&from), &length);
            std::lock_guard<std::mutex> lock(mutex_);
            request_.assign(packet, n > 0 ? n : 0);
            ++requests;
            if (!reply_.empty())
                sendto(fromElsewhere ? elsewhere_ : fd_, reply_.data(), reply_.size(), 0,
                       reinterpret_cast<sockaddr*>(&from), length);
        }
    });
}

SntpResponder::~SntpResponder() {
    stop_ = true;
    thread_.join();
    close(fd_);
    close(elsewhere_);
}

void SntpResponder::setReply(const std::string& bytes) {
    std::lock_guard<std::mutex> lock(mutex_);
    reply_ = bytes.substr(0, 48);
}

void SntpResponder::setTimes(int64_t t1, int64_t t2, int64_t t3) {
    std::string packet(48, '\0');
    const int64_t times[3] = {t1, t2, t3};
    for (int i = 0; i < 3; ++i) {
        const uint64_t us = static_cast<uint64_t>(times[i]);
        const uint32_t words[2] = {htonl(uint32_t(us / 1000000 + 2208988800u)),
                                   htonl(uint32_t(((us % 1000000) << 32) / 1000000))};
        std::memcpy(&packet[24 + 8 * i], words, 8);
    }
    setReply(packet);
}

std::string SntpResponder::lastRequest() {
    std::lock_guard<std::mutex> lock(mutex_);
    return request_;
}

}  // namespace krv_test
