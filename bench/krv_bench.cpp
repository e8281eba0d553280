// Benchmarks of the driver as the runtime drives it (loaded with dlopen through the host), each
// next to a baseline that does only the work the measured call cannot avoid.
//
//   krv_bench [google benchmark options]  wall times, allocations per iteration as a counter
//   krv_bench count                       per-case instruction counts (run under callgrind with
//                                         --collect-atstart=no) and allocations per call
//   krv_bench worker SECONDS              CPU time of the NTP worker at rest
//   krv_bench ntp ROUNDS                  ExecNTP against the peer's NTP server, and a bare
//                                         exchange
//   krv_bench footprint DEVICES           resident memory and threads added per device
//   krv_bench settings ROUNDS DRIVER      a settings write ("WEXA_WRITE(6=..)") of this driver and
//                                         of DRIVER (the same library built at another commit)
//
// Runs only inside the panel sandbox (see run.sh).
#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <malloc.h>
#include <netinet/in.h>
#include <sys/file.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <valgrind/callgrind.h>

#include <benchmark/benchmark.h>

#include <QString>

#include <atomic>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "AllocCounter.h"
#include "Logger.h"
#include "Sandbox.h"
#include "host/ConfigBlob.h"
#include "host/Database.h"
#include "host/Device.h"
#include "host/DriverLibrary.h"
#include "wexa_hal.h"

namespace {
// Log records written by the measuring thread (see logger_printf below).
thread_local std::uint64_t logRecords = 0;
}  // namespace

// The logging library is the panel's, not the driver's: the simulated one formats, prints and
// journals every record, which would swamp what the driver itself costs. The benchmarks count
// the records instead (the executable's definition wins over the runtime library's).
extern "C" int logger_printf(int, const char*, const char*, int, int, int, const char*, const char*,
                             ...) {
    ++logRecords;
    return 0;
}

namespace {

using Clock = std::chrono::steady_clock;

// The runtime's view of the driver's channels 1..19 (runtime channels 0..18); a poll passes 20
// flags, so the 20th index finds no channel and is not pushed.
const std::vector<DATATYPE> kChannelTypes = {
    DATATYPE_STRING, DATATYPE_STRING, DATATYPE_INT,    DATATYPE_INT,    DATATYPE_INT,
    DATATYPE_INT,    DATATYPE_INT,    DATATYPE_STRING, DATATYPE_STRING, DATATYPE_DOUBLE,
    DATATYPE_DOUBLE, DATATYPE_INT,    DATATYPE_INT,    DATATYPE_INT,    DATATYPE_STRING,
    DATATYPE_STRING, DATATYPE_STRING, DATATYPE_STRING, DATATYPE_STRING};
constexpr int kPollFlags = 20;

const char kLockPath[] = "/tmp/wexa_app_conf.lck";
const char kAppCfgPath[] = "/usr/wexa_app/config/wexa_app_conf.ini";
const char kVncPath[] = "/etc/iot_cfg/vncConfig.ini";

// One device on its own database, initialised and polled once. No communication object: the
// host's records every service call and would add its own allocations to the driver's.
class Panel {
public:
    explicit Panel(const char* driver = KRV_DRIVER_PATH) : library_(driver), flags_(kPollFlags, 3) {
        if (!library_.loaded()) {
            std::fprintf(stderr, "cannot load the driver: %s\n", library_.error().c_str());
            std::exit(1);
        }
        database_.defineChannels(kChannelTypes);
        device_ = std::make_unique<host::Device>(library_, "KRVcontrol", &database_);
        device_->init(host::defaultBlob());
        poll();
        // What the first poll pushed is what the baseline pushes.
        for (int i = 0; i < kPollFlags; ++i) {
            auto channel = database_.channel(i);
            values_.push_back(channel ? channel->doubleValue + channel->intValue : 0.0);
            texts_.push_back(channel ? channel->text : std::string());
        }
    }

    int poll() { return device_->collect(flags_); }
    int command(const char* text) { return device_->command(text); }
    host::Database& database() { return database_; }
    const host::DriverLibrary& library() const { return library_; }

    // The pushes a poll cannot avoid: the same type queries and pushes into the same database.
    void pushBaseline() {
        for (int i = 0; i < kPollFlags; ++i) {
            DATATYPE type = DATATYPE_NONE;
            if (database_.GetChannelType(i, &type) != 0)
                continue;
            switch (type) {
                case DATATYPE_DOUBLE:
                    database_.SetChannelDouble(i, values_[i]);
                    break;
                case DATATYPE_STRING: {
                    std::string text(texts_[i].data(), texts_[i].size());
                    database_.SetChannelString(i, &text);
                    break;
                }
                case DATATYPE_INT:
                    database_.SetChannelInt(i, static_cast<int>(values_[i]));
                    break;
                default:
                    break;
            }
        }
    }

private:
    host::DriverLibrary library_;
    host::Database database_;
    std::unique_ptr<host::Device> device_;
    std::vector<int> flags_;
    std::vector<double> values_;
    std::vector<std::string> texts_;
};

Panel& panel() {
    static Panel instance;
    return instance;
}

void readWhole(const char* path, bool firstBlockOnly = false) {
    int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return;
    char buffer[4096];
    while (::read(fd, buffer, sizeof buffer) > 0 && !firstBlockOnly) {
    }
    ::close(fd);
}

std::mutex settingsMutex;

// What a refresh must do whatever the code around it: ask the HAL for the interfaces, hold the
// configuration lock once per key while reading the file, read the two /proc files, copy the
// NTP settings under a mutex, look for and read the remote-view file, and push every channel.
void refreshFloor(Panel& p) {
    unsigned int count = 0;
    if (hal_get_network_count(&count) == 0) {
        hal_network_info info;
        for (unsigned int i = 0; i < count; ++i)
            hal_get_network(i, &info);
    }
    int lock = ::open(kLockPath, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (lock >= 0) {
        for (int key = 0; key < 3; ++key) {
            ::flock(lock, LOCK_EX);
            readWhole(kAppCfgPath);
            ::flock(lock, LOCK_UN);
        }
        ::close(lock);
    }
    readWhole("/proc/stat", true);
    readWhole("/proc/meminfo");
    { std::lock_guard<std::mutex> hold(settingsMutex); }
    struct stat info;
    if (::stat(kVncPath, &info) == 0)
        readWhole(kVncPath);
    p.pushBaseline();
}

// ---- wall times (Google Benchmark) ----

template <class Body>
void timed(benchmark::State& state, Body body) {
    std::uint64_t allocations = 0;
    const std::uint64_t records = logRecords;
    for (auto _ : state) {
        krv_bench::startCounting();
        body();
        allocations += krv_bench::stopCounting();
    }
    state.counters["allocs"] =
        benchmark::Counter(static_cast<double>(allocations), benchmark::Counter::kAvgIterations);
    state.counters["logs"] = benchmark::Counter(static_cast<double>(logRecords - records),
                                                benchmark::Counter::kAvgIterations);
}

void BM_PollBaseline(benchmark::State& state) {
    timed(state, [] { panel().pushBaseline(); });
}
void BM_Poll(benchmark::State& state) {
    timed(state, [] { panel().poll(); });
}

void BM_RefreshFloor(benchmark::State& state) {
    timed(state, [] { refreshFloor(panel()); });
}
void BM_Refresh(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        panel().command("REFLESH()");
        state.ResumeTiming();
        panel().poll();
    }
}

void BM_Command(benchmark::State& state, const char* text) {
    timed(state, [text] { panel().command(text); });
}

// Create, initialise, first poll (a full refresh), clean up and destroy: the worker thread is
// started and joined inside.
void BM_LifeCycle(benchmark::State& state) {
    host::Database database;
    database.defineChannels(kChannelTypes);
    std::vector<int> flags(kPollFlags, 3);
    for (auto _ : state) {
        host::Device device(panel().library(), "KRVcontrol", &database);
        device.init(host::defaultBlob());
        device.collect(flags);
        device.destroy();
    }
}

BENCHMARK(BM_PollBaseline);
BENCHMARK(BM_Poll);
BENCHMARK(BM_RefreshFloor);
BENCHMARK(BM_Refresh);
BENCHMARK_CAPTURE(BM_Command, backlight_on, "BACKLIGHTON()");
BENCHMARK_CAPTURE(BM_Command, write_buzzer, "WEXA_WRITE(3=1)");
BENCHMARK_CAPTURE(BM_Command, mem_use, "GetMemUse(11)");
BENCHMARK(BM_LifeCycle)->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(50);

// ---- instruction counts (callgrind client requests) and allocations per call ----

// Runs `body` `rounds` times with collection on only inside it, then dumps the counts under
// `name` (one callgrind output file per case); prints the allocations per call.
void counted(const char* name, int rounds, const std::function<void()>& before,
             const std::function<void()>& body) {
    before();
    body();  // warm: first-call costs are not the steady state
    std::uint64_t allocations = 0;
    std::uint64_t records = 0;
    for (int i = 0; i < rounds; ++i) {
        before();
        const std::uint64_t recordsBefore = logRecords;
        krv_bench::startCounting();
        CALLGRIND_TOGGLE_COLLECT;
        body();
        CALLGRIND_TOGGLE_COLLECT;
        allocations += krv_bench::stopCounting();
        records += logRecords - recordsBefore;
    }
    CALLGRIND_DUMP_STATS_AT(name);
    std::printf("count %s rounds=%d allocs_per_call=%.2f logs_per_call=%.2f\n", name, rounds,
                static_cast<double>(allocations) / rounds, static_cast<double>(records) / rounds);
}

int countMode() {
    Panel& p = panel();
    const auto nothing = [] {};
    const int rounds = 50;
    counted("poll_baseline", rounds, nothing, [&] { p.pushBaseline(); });
    counted("poll", rounds, nothing, [&] { p.poll(); });
    counted("refresh_floor", rounds, nothing, [&] { refreshFloor(p); });
    counted(
        "refresh", rounds, [&] { p.command("REFLESH()"); }, [&] { p.poll(); });
    counted("cmd_backlight_on", rounds, nothing, [&] { p.command("BACKLIGHTON()"); });
    counted("cmd_write_buzzer", rounds, nothing, [&] { p.command("WEXA_WRITE(3=1)"); });
    counted("cmd_mem_use", rounds, nothing, [&] { p.command("GetMemUse(11)"); });
    return 0;
}

// ---- the worker at rest ----

std::set<std::string> taskIds() {
    std::set<std::string> ids;
    if (DIR* dir = opendir("/proc/self/task")) {
        while (dirent* entry = readdir(dir))
            if (entry->d_name[0] != '.')
                ids.insert(entry->d_name);
        closedir(dir);
    }
    return ids;
}

// CPU time of a task in nanoseconds (first field of schedstat).
long long taskCpuNs(const std::string& id) {
    std::ifstream in("/proc/self/task/" + id + "/schedstat");
    long long ns = -1;
    in >> ns;
    return ns;
}

std::string readStatusField(const char* field) {
    std::ifstream in("/proc/self/status");
    std::string line;
    while (std::getline(in, line))
        if (line.rfind(field, 0) == 0)
            return line.substr(std::strlen(field));
    return "";
}

int workerMode(double seconds) {
    host::DriverLibrary library(KRV_DRIVER_PATH);
    host::Database database;
    database.defineChannels(kChannelTypes);
    const std::set<std::string> before = taskIds();
    host::Device device(library, "KRVcontrol", &database);
    device.init(host::defaultBlob());
    std::string worker;
    int added = 0;
    for (const std::string& id : taskIds()) {
        if (!before.count(id)) {
            worker = id;
            ++added;
        }
    }
    if (added != 1) {
        std::fprintf(stderr, "expected one new thread, found %d\n", added);
        return 1;
    }
    if (worker.empty()) {
        std::fprintf(stderr, "no worker thread found\n");
        return 1;
    }
    // Baseline: a thread that does nothing but the same 200 ms sleeps.
    std::atomic<bool> stop{false};
    std::string bareId;
    std::mutex idMutex;
    std::thread bare([&] {
        {
            std::lock_guard<std::mutex> hold(idMutex);
            bareId = std::to_string(gettid());
        }
        while (!stop)
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
    });
    // Let the first pass (settings seen for the first time) go by.
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    std::string bareTask;
    {
        std::lock_guard<std::mutex> hold(idMutex);
        bareTask = bareId;
    }
    const long long cpu0 = taskCpuNs(worker);
    const long long bare0 = taskCpuNs(bareTask);
    const auto t0 = Clock::now();
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    const long long cpu1 = taskCpuNs(worker);
    const long long bare1 = taskCpuNs(bareTask);
    const double wall = std::chrono::duration<double>(Clock::now() - t0).count();
    stop = true;
    bare.join();
    const auto t1 = Clock::now();
    device.destroy();
    const double joinMs = std::chrono::duration<double, std::milli>(Clock::now() - t1).count();
    std::printf(
        "worker wall_s=%.3f cpu_ns=%lld bare_cpu_ns=%lld passes=%.1f share_pct=%.5f "
        "bare_share_pct=%.5f join_ms=%.3f\n",
        wall, cpu1 - cpu0, bare1 - bare0, wall / 0.2, 100.0 * (cpu1 - cpu0) / (wall * 1e9),
        100.0 * (bare1 - bare0) / (wall * 1e9), joinMs);
    return 0;
}

// ---- NTP ----

// One SNTP client request and its 48-byte reply: the floor of any synchronisation.
bool bareExchange(const char* address) {
    int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return false;
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(123);
    inet_pton(AF_INET, address, &peer.sin_addr);
    unsigned char packet[48] = {0x1b};
    bool ok = ::sendto(fd, packet, sizeof packet, 0, reinterpret_cast<sockaddr*>(&peer),
                       sizeof peer) == static_cast<ssize_t>(sizeof packet);
    if (ok) {
        fd_set read;
        FD_ZERO(&read);
        FD_SET(fd, &read);
        timeval wait{5, 0};
        ok = ::select(fd + 1, &read, nullptr, nullptr, &wait) == 1 &&
             ::recv(fd, packet, sizeof packet, 0) == static_cast<ssize_t>(sizeof packet);
    }
    ::close(fd);
    return ok;
}

template <class Body>
double medianMs(int rounds, Body body) {
    std::vector<double> times;
    for (int i = 0; i < rounds; ++i) {
        const auto t0 = Clock::now();
        body();
        times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - t0).count());
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

int ntpMode(int rounds) {
    krv_test::NtpServer server;
    if (!server.ok()) {
        std::fprintf(stderr, "the NTP server did not start\n");
        return 1;
    }
    Panel& p = panel();
    p.database().defineInt("st");
    p.command("SetNTPMode(0)");  // manual first: the worker must not synchronise beside us
    p.command("EnableNTP(1)");
    int failures = 0;
    const double bare = medianMs(rounds, [&] { failures += !bareExchange("10.0.0.1"); });
    std::printf("ntp bare_ms=%.3f failures=%d\n", bare, failures);
    for (const char* servers : {"SetNTPServer(10.0.0.1,,,)", "SetNTPServer(ntp.panel.test,,,)"}) {
        p.command(servers);
        failures = 0;
        const double exec = medianMs(rounds, [&] {
            p.command("ExecNTP(st)");
            failures += p.database().variable("st")->intValue != 0;
        });
        std::printf("ntp servers=%s exec_ms=%.3f failures=%d\n", servers, exec, failures);
    }
    return 0;
}

// ---- footprint ----

long statusKb(const char* field) {
    return std::atol(readStatusField(field).c_str());
}

int footprintMode(int devices) {
    host::DriverLibrary library(KRV_DRIVER_PATH);
    host::Database database;
    database.defineChannels(kChannelTypes);
    std::vector<int> flags(kPollFlags, 3);
    std::vector<std::unique_ptr<host::Device>> all;
    // One device first, so that what the library loads once is not counted per device.
    auto add = [&] {
        all.push_back(std::make_unique<host::Device>(library, "KRVcontrol", &database));
        all.back()->init(host::defaultBlob());
        all.back()->collect(flags);
    };
    const long rssLoaded = statusKb("VmRSS:");
    const long threads0 = statusKb("Threads:");
    add();
    const long rss1 = statusKb("VmRSS:");
    const long threads1 = statusKb("Threads:");
    for (int i = 1; i < devices; ++i)
        add();
    const long rssN = statusKb("VmRSS:");
    std::printf("footprint first_device_kb=%ld per_more_device_kb=%.1f threads_per_device=%ld\n",
                rss1 - rssLoaded, static_cast<double>(rssN - rss1) / (devices - 1),
                threads1 - threads0);
    return 0;
}

// Devices created, initialised, polled, cleaned up and destroyed one after another, as a runtime
// that reloads its project does: the heap in use (mallinfo2, per-thread caches off in run.sh) and
// the resident size after a warm-up and after `rounds` more. Growth per device is what a runtime
// that keeps reloading would lose.
int churnMode(int rounds) {
    host::DriverLibrary library(KRV_DRIVER_PATH);
    host::Database database;
    database.defineChannels(kChannelTypes);
    std::vector<int> flags(kPollFlags, 3);
    auto cycle = [&](int n) {
        for (int i = 0; i < n; ++i) {
            host::Device device(library, "KRVcontrol", &database);
            device.init(host::defaultBlob());
            device.collect(flags);
        }
    };
    cycle(200);
    const long heap0 = static_cast<long>(mallinfo2().uordblks), rss0 = statusKb("VmRSS:");
    cycle(rounds);
    const long heap1 = static_cast<long>(mallinfo2().uordblks), rss1 = statusKb("VmRSS:");
    std::printf("churn devices=%d heap_growth_bytes_per_device=%.1f rss_growth_kb=%ld\n", rounds,
                static_cast<double>(heap1 - heap0) / rounds, rss1 - rss0);
    return 0;
}

// ---- settings writes ----

// Same-length values in turn, through this driver and through `baseline` loaded beside it in the
// same process, the two interleaved so that both meet the same medium and the same file.
int settingsMode(int rounds, const char* baseline) {
    Panel& p = panel();
    Panel base(baseline);
    std::vector<double> before, now;
    for (int i = 0; i < rounds; ++i) {
        before.push_back(
            medianMs(1, [&] { base.command(i % 2 ? "WEXA_WRITE(6=61)" : "WEXA_WRITE(6=62)"); }));
        now.push_back(
            medianMs(1, [&] { p.command(i % 2 ? "WEXA_WRITE(6=62)" : "WEXA_WRITE(6=61)"); }));
    }
    std::sort(before.begin(), before.end());
    std::sort(now.begin(), now.end());
    std::printf("settings qt=%d rounds=%d base_ms=%.3f driver_ms=%.3f\n", QT_VERSION >> 16, rounds,
                before[before.size() / 2], now[now.size() / 2]);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "count")
        return countMode();
    if (mode == "worker")
        return workerMode(argc > 2 ? std::atof(argv[2]) : 10.0);
    if (mode == "ntp")
        return ntpMode(argc > 2 ? std::atoi(argv[2]) : 20);
    if (mode == "footprint")
        return footprintMode(argc > 2 ? std::atoi(argv[2]) : 10);
    if (mode == "churn")
        return churnMode(argc > 2 ? std::max(1, std::atoi(argv[2])) : 2000);
    if (mode == "settings" && argc > 3)
        return settingsMode(std::max(1, std::atoi(argv[2])), argv[3]);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
