// The common tools library: field splitting and white-space trimming.
#include "CommonTools.h"

int SplitCsvStr(const std::string& text, char separator, std::vector<std::string>& fields) {
    size_t start = 0;
    for (;;) {
        size_t pos = text.find(separator, start);
        if (pos == std::string::npos) {
            fields.push_back(text.substr(start));
            break;
        }
        fields.push_back(text.substr(start, pos - start));
        start = pos + 1;
    }
    return static_cast<int>(fields.size());
}

namespace ZU {
namespace utils {

std::string String::trim(const std::string& text) {
    static const char* const blanks = " \t\r\n\f\v";
    size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos)
        return std::string();
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

String& String::trim() {
    assign(trim(static_cast<const std::string&>(*this)));
    return *this;
}

}  // namespace utils
}  // namespace ZU
