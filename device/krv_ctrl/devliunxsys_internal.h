// Shared by the system-operation sources only.
#pragma once

#include "Logger.h"

// Every record of the system operations names the same source file.
#define DEVSYS_LOG(level, title, ...)                                                        \
    logger_printf(3, __func__, "device/krv_ctrl/devliunxsys", __LINE__, 0, (level), (title), \
                  __VA_ARGS__)
#define DEVSYS_INFO(title, ...) DEVSYS_LOG(LOGGER_LEVEL_INFO, title, __VA_ARGS__)
#define DEVSYS_ERROR(title, ...) DEVSYS_LOG(LOGGER_LEVEL_ERROR, title, __VA_ARGS__)

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <string>

#include "devliunxsys.h"

// The int nearest to `value`.
inline int DevSaturate(long long value) {
    if (value > INT_MAX)
        return INT_MAX;
    if (value < INT_MIN)
        return INT_MIN;
    return static_cast<int>(value);
}

// Decimal operand as the panel's 32-bit strtol reads it: leading blanks skipped,
// conversion stops at the first non-digit, out-of-range values saturate. Clamping
// keeps a 64-bit host from truncating where the panel saturates.
inline int DevStrToInt(const std::string& text) {
    return DevSaturate(std::strtol(text.c_str(), nullptr, 10));
}

// Writes an outcome code into a numeric status variable; the result is not examined.
inline void DevSetStatus(DevLinuxOpearDb& db, WEXA_DATA& data, const std::string& name,
                         double code) {
    db.DevSetParaValue(data, name, code);
}
