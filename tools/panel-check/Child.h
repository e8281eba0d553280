// Work that may crash or hang (loading libraries, calling the HAL) or another program, run in a
// child process with a time limit; what it says comes back as text.
#pragma once

#include <string>
#include <vector>

namespace panel_check {

struct ChildResult {
    std::string output;
    bool exited = false;  // exited on its own; then `status` is its exit status
    int status = -1;
    int signal = 0;  // the signal that ended it, SIGKILL after the time limit
    bool timedOut = false;
    // "exit status N", "killed by signal N", "no answer within N s"
    std::string how() const;
};

// Runs `work(fd)` in a forked child whose standard output and error go nowhere; what it writes
// to `fd` is the output.
ChildResult runForked(void (*work)(int fd, void* context), void* context, int timeoutMs);

// Runs the program at `path` with `args` (args[0] its name), standard output and error as the
// output, standard input empty.
ChildResult runProgram(const std::string& path, const std::vector<std::string>& args,
                       int timeoutMs);

// The PATH programs are looked up on, and where `name` is found on it (empty: nowhere).
std::string searchPath();
std::string findOnPath(const std::string& name);

// Writes `line` and a line break to `fd`.
void say(int fd, const std::string& line);

}  // namespace panel_check
