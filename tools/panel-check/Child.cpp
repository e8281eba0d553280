#include "Child.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <poll.h>
#include <signal.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "Report.h"

namespace panel_check {

namespace {

// Milliseconds on the wall clock: the oldest panels' C libraries have no monotonic clock in
// libc, and a wait of a few seconds does not mind a clock step.
long long nowMs() {
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    return static_cast<long long>(tv.tv_sec) * 1000 + tv.tv_usec / 1000;
}

void redirect(int target, const char* path, int flags) {
    const int fd = ::open(path, flags);
    if (fd >= 0 && fd != target) {
        ::dup2(fd, target);
        ::close(fd);
    }
}

// Forks; the child runs `start(writeEnd)` and never returns. The parent collects what the child
// writes until it closes the pipe or the time is up, then reaps it.
template <class Start>
ChildResult collect(Start start, int timeoutMs) {
    ChildResult result;
    int fds[2];
    if (::pipe(fds) != 0) {
        result.output = "pipe failed";
        return result;
    }
    std::fflush(nullptr);
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::close(fds[0]);
        start(fds[1]);
        ::_exit(127);
    }
    ::close(fds[1]);
    if (pid < 0) {
        ::close(fds[0]);
        result.output = "fork failed";
        return result;
    }
    const long long end = nowMs() + timeoutMs;
    for (;;) {
        const long long left = end - nowMs();
        if (left <= 0) {
            result.timedOut = true;
            ::kill(pid, SIGKILL);
            break;
        }
        struct pollfd p = {fds[0], POLLIN, 0};
        const int ready = ::poll(&p, 1, static_cast<int>(left));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready < 0)
            break;
        if (ready == 0)
            continue;
        char buffer[4096];
        const ssize_t n = ::read(fds[0], buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        result.output.append(buffer, static_cast<size_t>(n));
    }
    ::close(fds[0]);
    // A child that closed its end but goes on running is stopped at the same time limit.
    int status = 0;
    for (;;) {
        const pid_t done = ::waitpid(pid, &status, result.timedOut ? 0 : WNOHANG);
        if (done == pid || (done < 0 && errno != EINTR))
            break;
        if (done == 0 && nowMs() >= end) {
            result.timedOut = true;
            ::kill(pid, SIGKILL);
        } else if (done == 0) {
            ::usleep(10000);
        }
    }
    result.exited = WIFEXITED(status) && !result.timedOut;
    result.status = result.exited ? WEXITSTATUS(status) : -1;
    result.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    return result;
}

struct ForkedStart {
    void (*work)(int, void*);
    void* context;
    void operator()(int fd) const {
        redirect(STDIN_FILENO, "/dev/null", O_RDONLY);
        redirect(STDOUT_FILENO, "/dev/null", O_WRONLY);
        redirect(STDERR_FILENO, "/dev/null", O_WRONLY);
        work(fd, context);
        ::close(fd);
        ::_exit(0);
    }
};

struct ProgramStart {
    const std::string* path;
    const char* const* argv;
    void operator()(int fd) const {
        redirect(STDIN_FILENO, "/dev/null", O_RDONLY);
        ::dup2(fd, STDOUT_FILENO);
        ::dup2(fd, STDERR_FILENO);
        ::close(fd);
        ::execv(path->c_str(), const_cast<char* const*>(argv));
    }
};

}  // namespace

std::string ChildResult::how() const {
    if (timedOut)
        return "no answer in time";
    if (signal != 0)
        return format("killed by signal %d", signal);
    return format("exit status %d", status);
}

ChildResult runForked(void (*work)(int fd, void* context), void* context, int timeoutMs) {
    ForkedStart start = {work, context};
    return collect(start, timeoutMs);
}

ChildResult runProgram(const std::string& path, const std::vector<std::string>& args,
                       int timeoutMs) {
    std::vector<const char*> argv;
    for (size_t i = 0; i < args.size(); ++i)
        argv.push_back(args[i].c_str());
    argv.push_back(nullptr);
    ProgramStart start = {&path, &argv[0]};
    return collect(start, timeoutMs);
}

std::string searchPath() {
    const char* path = std::getenv("PATH");
    return path ? path : "/bin:/usr/bin";  // the C library's default
}

std::string findOnPath(const std::string& name) {
    const std::string path = searchPath();
    for (size_t start = 0;;) {
        const size_t colon = path.find(':', start);
        std::string dir(path, start,
                        colon == std::string::npos ? std::string::npos : colon - start);
        const std::string file = (dir.empty() ? std::string(".") : dir) + "/" + name;
        struct stat st;
        if (::stat(file.c_str(), &st) == 0 && S_ISREG(st.st_mode) &&
            ::access(file.c_str(), X_OK) == 0)
            return file;
        if (colon == std::string::npos)
            return std::string();
        start = colon + 1;
    }
}

void say(int fd, const std::string& line) {
    const std::string text = line + "\n";
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return;
        done += static_cast<size_t>(n);
    }
}

}  // namespace panel_check
