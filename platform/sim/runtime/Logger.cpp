// The logging library of the simulated panel. Every record is journaled whatever the output
// level, so that tests see exactly what the driver logged.
#include "Logger.h"

#include <cstdio>
#include <mutex>
#include <string>

#include "SimInternal.h"

namespace {

struct Output {
    std::mutex mutex;
    FILE* file = stderr;  // null: nowhere
    bool ownsFile = false;
    int maxLevel = LOGGER_LEVEL_INFO;

    void close() {
        if (ownsFile && file)
            fclose(file);
        file = nullptr;
        ownsFile = false;
    }
};

Output& output() {
    static Output* out = new Output;
    return *out;
}

std::string text(const char* s) {
    return s ? s : "";
}

void print(int level, const std::string& line) {
    Output& out = output();
    std::lock_guard<std::mutex> lock(out.mutex);
    if (!out.file || level > out.maxLevel)
        return;
    fprintf(out.file, "%s\n", line.c_str());
    fflush(out.file);
}

}  // namespace

extern "C" int logger_printf(int module, const char* function, const char* file, int line,
                             int flags, int level, const char* title, const char* format, ...) {
    sim::LogRecord log;
    log.module = module;
    log.function = text(function);
    log.file = text(file);
    log.line = line;
    log.flags = flags;
    log.level = level;
    log.title = text(title);
    if (format) {
        va_list args;
        va_start(args, format);
        log.message = sim::detail::vformat(format, args);
        va_end(args);
    }
    std::string lineText = sim::detail::format("[%d] %s: %s (%s:%d)", level, log.title.c_str(),
                                               log.message.c_str(), log.file.c_str(), line);
    print(level, lineText);
    sim::detail::recordLog(std::move(log), std::move(lineText));
    return 0;
}

namespace sim {

void setLogOutput(const std::string& path, int maxLevel) {
    Output& out = output();
    std::lock_guard<std::mutex> lock(out.mutex);
    out.close();
    out.maxLevel = maxLevel;
    if (path.empty()) {
        out.file = stderr;
    } else if (path != "-") {
        out.file = fopen(path.c_str(), "a");
        out.ownsFile = out.file != nullptr;
    }
}

}  // namespace sim
