// Control and observation of the simulated panel, for tests and the simulator command.
// Never included by the driver: on a real panel these libraries do not exist.
#pragma once

#include <string>
#include <vector>

namespace sim {

// What the simulated runtime, HAL and GUI were asked to do, in order.
struct JournalEntry {
    std::string kind;  // "lcd", "rtc", "gui", "beep", "log", "reboot"
    std::string text;  // e.g. "hal_set_lcd_status(1)", "Wexa_Beep(900,50)"
};

std::vector<JournalEntry> journal();
std::vector<JournalEntry> journal(const std::string& kind);
void clearJournal();

// Runtime directories returned by Wexa_GetDirectory (kind 1 config, kind 2 root).
void setDirectory(int kind, const std::string& path);
void resetDirectories();

// Wexa_GetTickCount is the monotonic clock plus this offset.
void advanceTicks(long long milliseconds);

// Results the simulated HAL gives (0 = success).
void setLcdResult(int result);
void setRtcResult(int result);

// Log records at or below `maxLevel` are printed to `path` (empty: stderr; "-": nowhere).
void setLogOutput(const std::string& path, int maxLevel);

}  // namespace sim
