// The logging library.
#pragma once

// Levels used by drivers.
constexpr int LOGGER_LEVEL_ERROR = 1;
constexpr int LOGGER_LEVEL_INFO = 4;

extern "C" int logger_printf(int module, const char* function, const char* file, int line,
                             int flags, int level, const char* title, const char* format, ...)
    __attribute__((format(printf, 8, 9)));
