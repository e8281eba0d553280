// Placeholder runtime services until the simulated panel is complete.
#include <chrono>
#include <cstdarg>
#include <cstdio>

#include "CommonTools.h"
#include "Logger.h"
#include "WexaRuntime.h"
#include "wexa_gui.h"

CString Wexa_GetDirectory(int kind) { return kind == 1 ? "/usr/wexa_app/config" : "/usr/wexa_app"; }
long long Wexa_GetTickCount() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}
void Wexa_Beep(int, int) {}

extern "C" int logger_printf(int, const char*, const char*, int, int, int, const char*,
                             const char*, ...) {
    return 0;
}

int SplitCsvStr(const std::string& text, char separator, std::vector<std::string>& fields) {
    size_t start = 0;
    for (;;) {
        size_t pos = text.find(separator, start);
        fields.push_back(text.substr(start, pos == std::string::npos ? pos : pos - start));
        if (pos == std::string::npos) break;
        start = pos + 1;
    }
    return static_cast<int>(fields.size());
}

namespace ZU {
namespace utils {
std::string String::trim(const std::string& text) {
    const char* blanks = " \t\r\n\f\v";
    size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos) return std::string();
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}
String& String::trim() {
    assign(trim(static_cast<const std::string&>(*this)));
    return *this;
}
}  // namespace utils
}  // namespace ZU

extern "C" {
int __gui_get_buzzing_time(int) { return 0; }
int __gui_get_lcdlight_status(int) { return 0; }
int __gui_get_lcdlight_time(int) { return 0; }
int __gui_reset_lcdlight_timer(void) { return 0; }
}
