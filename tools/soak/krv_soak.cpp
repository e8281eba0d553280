// krv-soak: the driver under a long mixed load, watched for growth.
//
// Loads the built driver through the runtime host (dlopen, CreateDeviceCtrl, slots only) with a
// real NTP server answering on the panel's LAN. Each round moves the runtime's tick count on by
// the NTP period in force and waits for the worker's synchronisation against that server; beside
// it go a few commands and a poll, and every fourth round the whole mix: command texts of every
// family, a write of every channel, a new period, polls with and without "REFLESH()". Every
// fortieth round another process holds both lock files for a while, and a few rounds later the
// NTP server falls silent for three rounds (stopped, so requests go unanswered). Resident
// memory, heap in use and open descriptors are sampled at start, after a warm-up tenth,
// periodically and at the end; the exit status is 1 when any of them grew beyond a small
// allowance after the warm-up, or when no synchronisation reached the clocks.
//
//   krv-soak (--minutes M | --rounds N) [--samples K] [--pause-ms P]
//            [--heap-allowance-kb H] [--rss-allowance-kb R]
//
// Runs only inside the panel sandbox with two interfaces (see scripts/soak.sh).
#include <dirent.h>
#include <fcntl.h>
#include <malloc.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "ChannelTable.h"
#include "Sandbox.h"
#include "host/Runtime.h"
#include "sim/SimPanel.h"

namespace {

using Clock = std::chrono::steady_clock;

// One round in this many sends the whole command mix; the others let the worker run through
// its periods with a few commands and a poll beside it.
constexpr long kMixEvery = 4;
// Trouble, in rounds of each cycle: both lock files held by another process for kHoldMs at round
// kHoldRound, the NTP server silent from kSilentFrom to kSilentTo (exclusive).
constexpr long kTroubleCycle = 40;
constexpr long kHoldRound = 15;
constexpr int kHoldMs = 2000;
constexpr long kSilentFrom = 25;
constexpr long kSilentTo = 28;

struct Options {
    double minutes = 0.0;
    long rounds = 0;  // used when minutes is 0
    int samples = 10;
    int pauseMs = 0;
    long heapAllowanceKb = 512;
    long rssAllowanceKb = 2048;
};

struct Usage {
    long rssKb = 0;
    long heapKb = 0;
    int fds = 0;
};

struct Counts {
    long rounds = 0;
    long periods = 0;
    long syncs = 0;  // clock settings seen by the simulated RTC, worker and ExecNTP together
    long execOk = 0;
    long missed = 0;  // rounds whose period passed without a synchronisation
    long commands = 0;
    long writes = 0;
    long polls = 0;
    long unexpected = 0;  // results that a healthy driver does not give
    long held = 0;        // rounds with the lock files held
    long silent = 0;      // rounds with the NTP server silent
};

struct Sample {
    std::string label;
    double seconds;
    Counts counts;
    Usage usage;
};

long vmRssKb() {
    std::ifstream in("/proc/self/status");
    std::string line;
    while (std::getline(in, line))
        if (line.rfind("VmRSS:", 0) == 0)
            return std::atol(line.c_str() + 6);
    return -1;
}

int openFds() {
    int count = 0;
    if (DIR* dir = opendir("/proc/self/fd")) {
        while (dirent* entry = readdir(dir))
            if (entry->d_name[0] != '.')
                ++count;
        closedir(dir);
        --count;  // the directory's own descriptor
    }
    return count;
}

long heapInUseKb() {
    const struct mallinfo2 info = mallinfo2();
    return static_cast<long>((info.uordblks + info.hblkhd) / 1024);
}

// The NTP worker runs beside the sampling thread and holds a socket, a pipe or a child's
// descriptors for the length of a synchronisation: the smallest of a few readings is the
// steady count. A leak raises the smallest as well.
Usage measure() {
    Usage usage;
    usage.fds = openFds();
    for (int i = 0; i < 4; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(60));
        usage.fds = std::min(usage.fds, openFds());
    }
    usage.rssKb = vmRssKb();
    usage.heapKb = heapInUseKb();
    return usage;
}

// Another process takes both lock files and keeps them for `ms` milliseconds; its pid.
pid_t holdLocks(int ms) {
    int ready[2];
    if (pipe(ready) != 0)
        return -1;
    const pid_t pid = fork();
    if (pid == 0) {
        for (const char* lock : {"/tmp/wexa_app_conf.lck", "/tmp/dns_access_lock.lck"})
            flock(open(lock, O_RDONLY | O_CREAT, 0666), LOCK_EX);
        if (write(ready[1], "", 1) == 1)
            usleep(static_cast<useconds_t>(ms) * 1000u);
        _exit(0);
    }
    char byte;
    if (pid > 0 && read(ready[0], &byte, 1) != 1)
        std::fprintf(stderr, "soak: the lock holder did not start\n");
    close(ready[0]);
    close(ready[1]);
    return pid;
}

class Soak {
public:
    Soak(host::Runtime& runtime, FILE* report, pid_t ntpServer)
        : rt_(runtime), report_(report), ntpServer_(ntpServer) {}
    // The NTP server is never left stopped.
    ~Soak() { silence(false); }

    bool setUp();
    void round();
    const Counts& counts() const { return counts_; }

private:
    void command(const std::string& text, bool mayFail = false);
    void expectStatus(int wanted, const char* what);
    void writeChannels();
    void poll();
    void commandMix();
    void silence(bool silent);

    int periodHours_ = 1;  // the NTP period in force
    long mixes_ = 0;       // command mixes sent

    host::Runtime& rt_;
    FILE* report_;
    Counts counts_;
    pid_t ntpServer_;
    bool silent_ = false;
    std::vector<std::string> addresses_;  // runtime channels 0, 1, 7, 8 as first polled
};

// Result checks count, never stop the soak: growth is what it is after. The first few are
// printed so a misconfigured run is visible.
void Soak::command(const std::string& text, bool mayFail) {
    const int result = rt_.device().command(text);
    ++counts_.commands;
    if (result != 0 && !mayFail && counts_.unexpected++ < 10)
        std::fprintf(report_, "note: %s -> %d\n", text.c_str(), result);
}

void Soak::expectStatus(int wanted, const char* what) {
    auto st = rt_.database().variable("st");
    if ((!st || st->intValue != wanted) && counts_.unexpected++ < 10)
        std::fprintf(report_, "note: status of %s is %d, not %d\n", what, st ? st->intValue : -1,
                     wanted);
}

void Soak::poll() {
    static const std::vector<int> all(krv_sim::kChannelCount, 3);
    rt_.device().collect(all);
    ++counts_.polls;
}

bool Soak::setUp() {
    host::Database& db = rt_.database();
    db.defineChannels(krv_sim::runtimeChannelTypes());
    db.defineInt("st");
    db.defineText("txt");
    db.defineText("pwd", "soak-pass-1");
    if (rt_.start() != 0)
        return false;
    poll();
    for (int channel : {0, 1, 7, 8}) {
        auto c = db.channel(channel);
        addresses_.push_back(c ? c->text : std::string());
    }
    if (addresses_[0].empty() || addresses_[2].empty()) {
        std::fprintf(report_, "soak: the panel needs two interfaces with addresses\n");
        return false;
    }
    // Logs to read: a restart log longer than the tails asked for, a short signal log.
    std::string restart;
    for (int i = 0; restart.size() < 6000; ++i)
        restart += "restart " + std::to_string(i) + " \xe9\x87\x8d\xe5\x90\xaf\n";
    krv_test::writeFile("/storage/log/restart.log", restart);
    krv_test::writeFile("/storage/log/signal_recieved.log", "signal 11\n");
    command("SetNTPServer(10.0.0.1,ntp.panel.test,,)");
    command("SetNTPFreq(" + std::to_string(periodHours_) + ")");
    command("SetNTPMode(1)");
    command("EnableNTP(1)");
    return true;
}

void Soak::writeChannels() {
    host::Device& dev = rt_.device();
    const long r = mixes_;
    auto counted = [this](int result, bool ok) {
        ++counts_.writes;
        if (!ok && counts_.unexpected++ < 10)
            std::fprintf(report_, "note: channel write -> %d\n", result);
    };
    // The addresses as polled: the HAL applies them, the kernel keeps them as they are.
    counted(dev.writeText(0, addresses_[0]), true);
    counted(dev.writeText(1, addresses_[1]), true);
    counted(dev.writeText(7, addresses_[2]), true);
    counted(dev.writeText(8, addresses_[3]), true);
    int res = dev.writeText(0, "0.1.2.3");  // refused
    counted(res, res == 4);
    res = dev.writeInt(2, static_cast<int>(r % 2));
    counted(res, res == 0);
    res = dev.writeDouble(3, static_cast<double>(r % 100));
    counted(res, res == 0);
    res = dev.writeInt(4, static_cast<int>((r + 1) % 2));
    counted(res, res == 0);
    res = dev.writeDouble(5, 15.0 + static_cast<double>(r % 60));
    counted(res, res == 0);
    res = dev.writeDouble(6, 5.0);  // test beep
    counted(res, res == 0);
    res = dev.writeDouble(9, 0.5);  // read-only
    counted(res, res == 1);
    res = dev.writeInt(13, periodHours_);
    counted(res, res == 0);
    res = dev.writeText(17, r % 2 ? "ntp.panel.test" : "");
    counted(res, res == 0);
    res = dev.writeText(18, r % 2 ? "soak-pass-2" : "soak-pass-3");
    counted(res, res == 0);
}

// Every command family, every channel, polls with and without a refresh, and a change of the
// NTP period (which makes the worker synchronise at once as well).
void Soak::commandMix() {
    const long r = mixes_++;
    periodHours_ = 1 + static_cast<int>(r % 24);
    switch (r % 3) {
        case 0:
            command("SetNTPServer(10.0.0.1,ntp.panel.test,,,st)");
            break;
        case 1:
            command("SetNTPServer(10.0.0.1,10.0.0.1,10.0.0.1,10.0.0.1)");
            break;
        default:
            command("SetNTPServer(ntp.panel.test,,,,st)");
            break;
    }
    command("SetNTPFreq(" + std::to_string(periodHours_) + ",st)");
    command("BACKLIGHTON()");
    command("backlightoff()");
    command("BACKLIGHTOFF");   // malformed: does nothing
    command("getcpuuse(10)");  // unknown operation
    command("GetCpuUse(10)");
    command("GetMemUse(11)");
    command("ReadAppLog(" + std::to_string(r % 3) + "," + std::to_string(1 + r % 8) + ",txt,st)");
    expectStatus(0, "ReadAppLog");
    command("ReadSysLog(0,4,txt,st)");
    expectStatus(0, "ReadSysLog");
    command("ReadAppLog(0,-1,txt,st)", true);
    command("ModVncPwd(pwd,st)");
    command("ModVncPwd(12345,st)", true);  // too short
    command("EnableNTP(5,st)");            // refused, result 0
    expectStatus(4, "EnableNTP(5)");
    command("SetNTPMode(1,st)");
    command("EnableNTP(1,st)");
    if (r % 10 == 0) {
        command("ExecNTP(st)");
        auto st = rt_.database().variable("st");
        counts_.execOk += st && st->intValue == 0;
    }
    if (r % 100 == 50)
        command("REBOOT()");  // the simulated runtime only journals it
    writeChannels();
    poll();
    command("REFLESH()");
    poll();
}

void Soak::silence(bool silent) {
    if (silent != silent_)
        kill(ntpServer_, silent ? SIGSTOP : SIGCONT);
    silent_ = silent;
}

void Soak::round() {
    const long r = counts_.rounds;
    const long trouble = r % kTroubleCycle;
    silence(trouble >= kSilentFrom && trouble < kSilentTo);
    counts_.silent += silent_;
    // The round's commands, writes and polls wait for the holder, as does the worker.
    const pid_t holder = trouble == kHoldRound ? holdLocks(kHoldMs) : -1;
    counts_.held += holder > 0;
    // One period in force passes: the worker's next pass synchronises.
    sim::advanceTicks(static_cast<long long>(periodHours_) * 3600 * 1000 + 1);
    ++counts_.periods;
    if (r % kMixEvery == 0) {
        commandMix();
    } else {
        command("BACKLIGHTON()");
        command("GetMemUse(11)");
        poll();
    }
    // That period's synchronisation ends before the next period starts. The worker restarts
    // its period just after setting the clocks; a new period begun before that restart is
    // absorbed by it, and the round ends without a synchronisation (counted as missed).
    if (sim::waitForJournal("rtc", 1, 3000))
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
    else
        ++counts_.missed;
    if (holder > 0)
        waitpid(holder, nullptr, 0);

    // What the host and the simulated panel record must not be mistaken for the driver's
    // growth: count and forget it each round.
    counts_.syncs += static_cast<long>(sim::journal("rtc").size());
    sim::clearJournal();
    rt_.communication().clear();
    if (r % 50 == 0)
        krv_test::clearShimCalls();
    ++counts_.rounds;
}

void printHeader(FILE* out) {
    std::fprintf(out, "%-9s %8s %7s %8s %6s %8s %8s %8s %9s %8s %5s\n", "sample", "seconds",
                 "rounds", "periods", "syncs", "commands", "writes", "polls", "rss_kb", "heap_kb",
                 "fds");
}

void printRow(FILE* out, const Sample& s) {
    std::fprintf(out, "%-9s %8.1f %7ld %8ld %6ld %8ld %8ld %8ld %9ld %8ld %5d\n", s.label.c_str(),
                 s.seconds, s.counts.rounds, s.counts.periods, s.counts.syncs, s.counts.commands,
                 s.counts.writes, s.counts.polls, s.usage.rssKb, s.usage.heapKb, s.usage.fds);
}

bool parseOptions(int argc, char** argv, Options& o) {
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string name = argv[i];
        const char* value = argv[i + 1];
        if (name == "--minutes")
            o.minutes = std::atof(value);
        else if (name == "--rounds")
            o.rounds = std::atol(value);
        else if (name == "--samples")
            o.samples = std::max(1, std::atoi(value));
        else if (name == "--pause-ms")
            o.pauseMs = std::max(0, std::atoi(value));
        else if (name == "--heap-allowance-kb")
            o.heapAllowanceKb = std::atol(value);
        else if (name == "--rss-allowance-kb")
            o.rssAllowanceKb = std::atol(value);
        else
            return false;
    }
    return argc % 2 == 1 && (o.minutes > 0 || o.rounds > 0);
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!parseOptions(argc, argv, options)) {
        std::fprintf(stderr,
                     "usage: krv-soak (--minutes M | --rounds N) [--samples K] [--pause-ms P]\n"
                     "                [--heap-allowance-kb H] [--rss-allowance-kb R]\n");
        return 2;
    }
    // The exchange prints its progress and Qt its traces on every synchronisation; the report
    // goes to a copy of the original standard output.
    FILE* report = fdopen(dup(STDOUT_FILENO), "w");
    const int quiet = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (report == nullptr || quiet < 0) {
        std::perror("krv-soak");
        return 2;
    }
    std::setvbuf(report, nullptr, _IOLBF, 0);
    dup2(quiet, STDOUT_FILENO);
    dup2(quiet, STDERR_FILENO);
    close(quiet);

    if (!sim::rebootIsInterposed()) {
        std::fprintf(report, "soak: reboot() is not the simulated runtime's\n");
        return 2;
    }
    krv_test::NtpServer chrony;
    if (!chrony.ok()) {
        std::fprintf(report, "soak: no NTP server on the panel's LAN (is chrony installed?)\n");
        return 2;
    }
    sim::reset();
    sim::setLogOutput("-", 0);

    std::vector<Sample> samples;
    const auto t0 = Clock::now();
    auto elapsed = [&] { return std::chrono::duration<double>(Clock::now() - t0).count(); };
    // Each row is printed as it is taken, so a long run shows its trend while it goes.
    auto take = [&](const char* label, const Counts& counts) {
        samples.push_back({label, elapsed(), counts, measure()});
        printRow(report, samples.back());
    };
    printHeader(report);
    take("loaded", Counts());

    int status = 0;
    {
        host::Runtime runtime(KRV_DRIVER_PATH);
        if (!runtime.ok()) {
            std::fprintf(report, "soak: %s\n", runtime.error().c_str());
            return 2;
        }
        Soak soak(runtime, report, chrony.pid());
        if (!soak.setUp()) {
            std::fprintf(report, "soak: the device did not start\n");
            return 2;
        }
        take("start", soak.counts());

        const double seconds = options.minutes * 60.0;
        auto done = [&](double fraction) {
            return options.rounds > 0 ? soak.counts().rounds >= options.rounds * fraction
                                      : elapsed() >= seconds * fraction;
        };
        // The first tenth warms up: caches, the resolver, Qt's one-time allocations, arenas.
        while (!done(0.1)) {
            soak.round();
            std::this_thread::sleep_for(std::chrono::milliseconds(options.pauseMs));
        }
        take("warm", soak.counts());
        for (int k = 1; k <= options.samples; ++k) {
            while (!done(0.1 + 0.9 * k / options.samples)) {
                soak.round();
                std::this_thread::sleep_for(std::chrono::milliseconds(options.pauseMs));
            }
            take(k == options.samples ? "end" : "run", soak.counts());
        }
        const Usage& warm = samples[2].usage;
        const Usage& end = samples.back().usage;
        const Counts& c = soak.counts();
        std::fprintf(report,
                     "totals: %.1f min, %ld rounds, %ld NTP periods, %ld clock settings "
                     "(%ld of them ExecNTP), %ld periods without one, %ld commands, %ld channel "
                     "writes, %ld polls, %ld unexpected results, %ld rounds with the lock files "
                     "held, %ld with the NTP server silent\n",
                     elapsed() / 60.0, c.rounds, c.periods, c.syncs, c.execOk, c.missed, c.commands,
                     c.writes, c.polls, c.unexpected, c.held, c.silent);
        std::fprintf(report, "growth after warm-up: rss %+ld kB, heap %+ld kB, fds %+d\n",
                     end.rssKb - warm.rssKb, end.heapKb - warm.heapKb, end.fds - warm.fds);
        if (end.heapKb - warm.heapKb > options.heapAllowanceKb ||
            end.rssKb - warm.rssKb > options.rssAllowanceKb || end.fds > warm.fds) {
            std::fprintf(report, "FAIL: not flat (allowance: heap %ld kB, rss %ld kB, fds 0)\n",
                         options.heapAllowanceKb, options.rssAllowanceKb);
            status = 1;
        }
        if (c.syncs == 0) {
            std::fprintf(report, "FAIL: no synchronisation reached the clocks\n");
            status = 1;
        }
    }
    const Usage after = measure();
    std::fprintf(report, "after clean-up: rss %ld kB, heap %ld kB, fds %d (loaded: fds %d)\n",
                 after.rssKb, after.heapKb, after.fds, samples[0].usage.fds);
    if (status == 0)
        std::fprintf(report, "PASS: flat\n");
    return status;
}
