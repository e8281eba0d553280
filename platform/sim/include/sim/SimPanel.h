// Control and observation of the simulated panel, for tests and the simulator command.
// Never included by the driver: on a real panel these libraries do not exist.
// Every function here is thread-safe.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace sim {

// What the simulated runtime, HAL and GUI were asked to do, in order.
struct JournalEntry {
    // "lcd", "rtc", "net", "gui", "beep", "wait", "log", "reboot", "sync", "file", "shell"
    std::string kind;
    // The call as written, e.g. "hal_set_lcd_status(1)", "Wexa_Beep(900,50)",
    // "hal_set_rtc_time(2026-11-21 28:30:05)" (refused: "hal_set_rtc_time(...) = -1"),
    // "reboot(0x1234567)",
    // "hal_set_ip_addr(eth0,192.168.1.10,255.255.255.0)", "__gui_reset_lcdlight_timer()", every
    // pause as "usleep(30000)", every "sync()"; a log record as "[level] title: message
    // (file:line)"; for a watched file that changed, its path (see watchFiles); a shell command
    // as its shim recorded it, "date [-s] [2026-11-25 24:0:5]" (see journalShellCalls).
    std::string text;
};

// Only the most recent entries are kept (see journalCapacity).
std::vector<JournalEntry> journal();
std::vector<JournalEntry> journal(const std::string& kind);
void clearJournal();
constexpr std::size_t journalCapacity = 10000;

// Waits until at least `count` entries of `kind` are in the journal (another thread, such as
// the NTP worker, may be making them). True when they are there within `timeoutMs`.
bool waitForJournal(const std::string& kind, std::size_t count, int timeoutMs);

// Before each entry is journaled, every file named here whose contents changed since the last
// look (the last entry or clearJournal; being created or removed included) gets an entry of kind
// "file" first. So a settings write shows up in order among the calls around it: before the
// sync() that makes it durable, before the GUI call that makes the GUI reread it. An empty list
// watches nothing.
void watchFiles(const std::vector<std::string>& paths);

// From now on, every line appended to `path`, the record the sandbox's date, dmesg and ping shims
// keep (/sbx/calls.log), is journaled as kind "shell" in its place among the other entries. An
// empty path stops it. Off after reset.
void journalShellCalls(const std::string& path);

// One logger_printf call with its arguments as given; the message is already formatted.
struct LogRecord {
    int module = 0;
    std::string function;
    std::string file;
    int line = 0;
    int flags = 0;
    int level = 0;
    std::string title;
    std::string message;
};

// The log records still in the journal, oldest first.
std::vector<LogRecord> logRecords();

// Runtime directories returned by Wexa_GetDirectory (kind 1 config, kind 2 root).
// An empty path makes Wexa_GetDirectory return the empty text for that kind.
void setDirectory(int kind, const std::string& path);
void resetDirectories();

// Wexa_GetTickCount is the monotonic clock plus this offset (cumulative).
void advanceTicks(long long milliseconds);

// gettimeofday stands still at this instant (microseconds since 1970), or follows the real clock
// again when it is negative.
void setWallClock(long long microseconds);

// Results the simulated HAL gives (0 = success).
void setLcdResult(int result);
void setRtcResult(int result);
// Non-zero: the interface listing calls fail with it.
void setNetworkResult(int result);
// Non-zero: hal_set_ip_addr refuses with it and leaves the interface alone.
void setIpAddrResult(int result);

// Log records at or below `maxLevel` are printed to `path` (empty: stderr; "-": nowhere).
// Default: stderr, every level up to information (4).
void setLogOutput(const std::string& path, int maxLevel);

// True when `reboot` as the process resolves it is the simulated runtime's journaling one,
// not the C library's.
bool rebootIsInterposed();

// Back to the start state: journal empty, no file watched, default directories, no tick offset, the
// real wall clock, every HAL call succeeding, log output to stderr.
void reset();

}  // namespace sim
