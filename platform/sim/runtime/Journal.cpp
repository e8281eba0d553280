// The simulated panel's journal: every call the runtime, HAL and GUI were asked to make.
#include <sys/stat.h>

#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <deque>
#include <fstream>
#include <mutex>
#include <optional>
#include <sstream>
#include <utility>

#include "SimInternal.h"

namespace sim {
namespace {

struct Item {
    JournalEntry entry;
    std::optional<LogRecord> log;  // only for kind "log"
};

struct Journal {
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Item> items;
    // Watched files and their contents at the last look (none: missing); guarded by the mutex.
    std::vector<std::pair<std::string, std::optional<std::string>>> watched;
    // The shims' record of shell commands and how much of it is journaled; guarded by the mutex.
    std::string shellCalls;
    std::streamoff shellRead = 0;
};

// Only a regular file is read: a FIFO planted at a watched name must not block the journal.
std::optional<std::string> contents(const std::string& path) {
    struct stat st;
    if (stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode))
        return std::nullopt;
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// Never destroyed: threads of the driver may still log while the process exits.
Journal& theJournal() {
    static Journal* journal = new Journal;
    return *journal;
}

// The commands the shims recorded since the last look, each as a "shell" entry. Called with the
// mutex held, before every entry and every reading, so a command keeps its place among the calls
// that followed it. Only whole lines: a shim may be writing one.
void importShellCalls(Journal& j) {
    if (j.shellCalls.empty())
        return;
    std::ifstream in(j.shellCalls, std::ios::binary);
    in.seekg(j.shellRead);
    for (std::string line; std::getline(in, line) && !in.eof();) {
        j.shellRead += static_cast<std::streamoff>(line.size() + 1);
        j.items.push_back(Item{JournalEntry{"shell", line}, std::nullopt});
    }
}

void append(Item item) {
    Journal& j = theJournal();
    {
        std::lock_guard<std::mutex> lock(j.mutex);
        importShellCalls(j);
        for (auto& file : j.watched) {
            std::optional<std::string> now = contents(file.first);
            if (now == file.second)
                continue;
            file.second = std::move(now);
            j.items.push_back(Item{JournalEntry{"file", file.first}, std::nullopt});
        }
        j.items.push_back(std::move(item));
        while (j.items.size() > journalCapacity)
            j.items.pop_front();
    }
    j.changed.notify_all();
}

std::size_t countOf(const std::deque<Item>& items, const std::string& kind) {
    std::size_t n = 0;
    for (const Item& item : items)
        n += item.entry.kind == kind ? 1 : 0;
    return n;
}

}  // namespace

namespace detail {

void record(const char* kind, std::string text) {
    append(Item{JournalEntry{kind, std::move(text)}, std::nullopt});
}

void recordLog(LogRecord log, std::string text) {
    append(Item{JournalEntry{"log", std::move(text)}, std::move(log)});
}

std::string vformat(const char* fmt, va_list args) {
    va_list copy;
    va_copy(copy, args);
    int needed = vsnprintf(nullptr, 0, fmt, copy);
    va_end(copy);
    std::string out;
    if (needed > 0) {
        out.resize(static_cast<size_t>(needed) + 1);
        vsnprintf(&out[0], out.size(), fmt, args);
        out.resize(static_cast<size_t>(needed));
    }
    return out;
}

std::string format(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    std::string out = vformat(fmt, args);
    va_end(args);
    return out;
}

}  // namespace detail

std::vector<JournalEntry> journal() {
    Journal& j = theJournal();
    std::lock_guard<std::mutex> lock(j.mutex);
    importShellCalls(j);
    std::vector<JournalEntry> out;
    out.reserve(j.items.size());
    for (const Item& item : j.items)
        out.push_back(item.entry);
    return out;
}

std::vector<JournalEntry> journal(const std::string& kind) {
    Journal& j = theJournal();
    std::lock_guard<std::mutex> lock(j.mutex);
    importShellCalls(j);
    std::vector<JournalEntry> out;
    for (const Item& item : j.items) {
        if (item.entry.kind == kind)
            out.push_back(item.entry);
    }
    return out;
}

std::vector<LogRecord> logRecords() {
    Journal& j = theJournal();
    std::lock_guard<std::mutex> lock(j.mutex);
    std::vector<LogRecord> out;
    for (const Item& item : j.items) {
        if (item.log)
            out.push_back(*item.log);
    }
    return out;
}

void clearJournal() {
    Journal& j = theJournal();
    std::lock_guard<std::mutex> lock(j.mutex);
    importShellCalls(j);
    j.items.clear();
    for (auto& file : j.watched)
        file.second = contents(file.first);
}

void watchFiles(const std::vector<std::string>& paths) {
    Journal& j = theJournal();
    std::lock_guard<std::mutex> lock(j.mutex);
    j.watched.clear();
    for (const std::string& path : paths)
        j.watched.emplace_back(path, contents(path));
}

void journalShellCalls(const std::string& path) {
    Journal& j = theJournal();
    std::lock_guard<std::mutex> lock(j.mutex);
    j.shellCalls = path;
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    j.shellRead = in ? static_cast<std::streamoff>(in.tellg()) : 0;
}

bool waitForJournal(const std::string& kind, std::size_t count, int timeoutMs) {
    Journal& j = theJournal();
    std::unique_lock<std::mutex> lock(j.mutex);
    return j.changed.wait_for(lock, std::chrono::milliseconds(timeoutMs > 0 ? timeoutMs : 0),
                              [&] { return countOf(j.items, kind) >= count; });
}

}  // namespace sim
