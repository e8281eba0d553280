// Shared inside the simulated panel's libraries: the journal writer and the HAL's settings.
// Not part of the control interface (sim/SimPanel.h).
#pragma once

#include <cstdarg>
#include <string>

#include "sim/SimPanel.h"

namespace sim {
namespace detail {

// Appends one entry; the oldest entry goes once the journal is full.
void record(const char* kind, std::string text);
void recordLog(LogRecord log, std::string text);

// printf into a std::string; empty on a format error.
std::string vformat(const char* fmt, va_list args);
std::string format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

enum class HalCall { Lcd, Rtc, Network, IpAddr };
// The result the simulated HAL is told to give for `call` (0 = carry it out).
int halResult(HalCall call);

}  // namespace detail
}  // namespace sim
