// Runtime services of the simulated panel: directories, tick count, buzzer.
#include <time.h>

#include <atomic>
#include <map>
#include <mutex>

#include "Logger.h"
#include "SimInternal.h"
#include "WexaRuntime.h"

namespace {

std::map<int, std::string> defaultDirectories() {
    return {{1, "/usr/wexa_app/config"}, {2, "/usr/wexa_app"}};
}

struct Directories {
    std::mutex mutex;
    std::map<int, std::string> byKind = defaultDirectories();
};

Directories& directories() {
    static Directories* dirs = new Directories;
    return *dirs;
}

std::atomic<long long> tickOffset{0};

}  // namespace

CString Wexa_GetDirectory(int kind) {
    Directories& d = directories();
    std::lock_guard<std::mutex> lock(d.mutex);
    auto it = d.byKind.find(kind);
    return it == d.byKind.end() ? CString() : CString(it->second.c_str());
}

long long Wexa_GetTickCount() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000 + tickOffset.load();
}

void Wexa_Beep(int frequency, int duration) {
    sim::detail::record("beep", sim::detail::format("Wexa_Beep(%d,%d)", frequency, duration));
}

namespace sim {

void setDirectory(int kind, const std::string& path) {
    Directories& d = directories();
    std::lock_guard<std::mutex> lock(d.mutex);
    d.byKind[kind] = path;
}

void resetDirectories() {
    Directories& d = directories();
    std::lock_guard<std::mutex> lock(d.mutex);
    d.byKind = defaultDirectories();
}

void advanceTicks(long long milliseconds) {
    tickOffset += milliseconds;
}

void reset() {
    watchFiles({});
    journalShellCalls("");
    clearJournal();
    resetDirectories();
    tickOffset = 0;
    setWallClock(-1);
    setLcdResult(0);
    setRtcResult(0);
    setNetworkResult(0);
    setIpAddrResult(0);
    setLogOutput("", LOGGER_LEVEL_INFO);
}

}  // namespace sim
