// krv-sim: a simulated panel with the driver loaded, driven by commands from the arguments or
// from standard input. Outside the panel sandbox it restarts itself inside one, since driver
// commands change addresses, the clock and system files.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "ResultCodes.h"
#include "Simulator.h"
#include "host/Runtime.h"
#include "sim/SimPanel.h"

namespace {

void printUsage(std::ostream& out) {
    out << "usage: krv-sim [--driver PATH] [--echo] [COMMAND]...\n"
           "       krv-sim --codes\n"
           "Starts a simulated panel with two network interfaces, creates the device with the\n"
           "default configuration and runs each COMMAND argument in turn; without any, reads\n"
           "commands from standard input, one per line, after printing the channel table.\n"
           "--echo prints each command as \"> COMMAND\" before its output, and no table first:\n"
           "the output is a session as docs/ writes them down. --codes prints the table of\n"
           "result codes of docs/result-codes.md.\n\n";
    krv_sim::Simulator::printHelp(out);
}

std::string selfPath() {
    std::vector<char> buffer(4096);
    ssize_t n = readlink("/proc/self/exe", buffer.data(), buffer.size() - 1);
    return n > 0 ? std::string(buffer.data(), static_cast<std::size_t>(n)) : std::string();
}

// Replaces this process with the same command inside the sandbox; returns only on failure.
int reexecInSandbox(char** argv) {
    std::string self = selfPath();
    if (self.empty()) {
        std::cerr << "krv-sim: cannot find my own executable\n";
        return 127;
    }
    std::vector<std::string> args = {KRV_SANDBOX, "--ifaces",     "2",  "--bind", KRV_SOURCE_DIR,
                                     "--bind",    KRV_BINARY_DIR, "--", self};
    for (char** a = argv + 1; *a != nullptr; ++a) {
        args.emplace_back(*a);
    }
    std::vector<char*> raw;
    for (std::string& a : args) {
        raw.push_back(a.data());
    }
    raw.push_back(nullptr);
    execv(raw[0], raw.data());
    std::cerr << "krv-sim: cannot start the sandbox " << KRV_SANDBOX << ": " << std::strerror(errno)
              << "\n";
    return 127;
}

bool inSandbox() {
    const char* flag = std::getenv("KRV_IN_SANDBOX");
    return flag != nullptr && std::strcmp(flag, "1") == 0;
}

}  // namespace

int main(int argc, char** argv) {
    std::string driverPath = KRV_DRIVER_PATH;
    bool echo = false;
    int first = 1;
    for (; first < argc && std::strncmp(argv[first], "--", 2) == 0; ++first) {
        const std::string option = argv[first];
        if (option == "--driver" && first + 1 < argc) {
            driverPath = argv[++first];
        } else if (option == "--echo") {
            echo = true;
        } else if (option == "--codes") {
            krv_sim::printResultCodeTable(std::cout);
            return 0;
        } else {
            printUsage(option == "--help" ? std::cout : std::cerr);
            return option == "--help" ? 0 : 2;
        }
    }
    if (first < argc && std::strcmp(argv[first], "-h") == 0) {
        printUsage(std::cout);
        return 0;
    }
    if (!inSandbox()) {
        return reexecInSandbox(argv);
    }
    // Line by line, so that the driver's own printf lines keep their place among the
    // simulator's and the shell commands' lines also when the output is a pipe.
    setvbuf(stdout, nullptr, _IOLBF, 0);

    // The sandbox keeps the host safe; this makes sure a REBOOT() only reaches the journal.
    if (!sim::rebootIsInterposed()) {
        std::cerr << "krv-sim: reboot() is not the simulated runtime's; not loading the driver\n";
        return 3;
    }
    // An NTP server on the panel's LAN, so ExecNTP has a real peer: 10.0.0.1 (ntp.panel.test).
    if (std::system("/run/krv/panel-net ntp-server >/dev/null 2>&1") != 0) {
        std::cerr << "krv-sim: no NTP server on the panel's LAN (is chrony installed?)\n";
    }
    // Errors of the driver's log on stderr; its information records would drown the output.
    sim::setLogOutput("", 1);
    // The clock setting and the probes run through the sandbox's recording shims.
    sim::journalShellCalls("/sbx/calls.log");
    host::Runtime runtime(driverPath);
    if (!runtime.ok()) {
        std::cerr << "krv-sim: " << runtime.error() << "\n";
        return 2;
    }
    // Written-down sessions show the simulator's own complaints in their place.
    krv_sim::Simulator simulator(runtime, std::cout, echo ? std::cout : std::cerr);
    simulator.setEcho(echo);
    int init = runtime.start();
    if (init != 0) {
        std::cerr << "krv-sim: InitDevice returned " << init << "\n";
        return 2;
    }

    if (first < argc) {
        for (int i = first; i < argc && simulator.execute(argv[i]); ++i) {
        }
    } else {
        bool interactive = isatty(STDIN_FILENO) != 0;
        if (!echo) {
            simulator.execute("poll");
        }
        std::string line;
        for (;;) {
            if (interactive) {
                std::cout << "krv-sim> " << std::flush;
            }
            if (!std::getline(std::cin, line) || !simulator.execute(line)) {
                break;
            }
        }
    }
    return simulator.hadErrors() ? 1 : 0;
}
