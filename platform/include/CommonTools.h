// The common tools library: text splitting and trimming.
#pragma once

#include <string>
#include <vector>

// Splits `text` at every `separator`; empty fields are kept. Returns the field count.
int SplitCsvStr(const std::string& text, char separator, std::vector<std::string>& fields);

namespace ZU {
namespace utils {

class String : public std::string {
public:
    String() = default;
    String(const std::string& text) : std::string(text) {}  // NOLINT: implicit by design
    String(const char* text) : std::string(text) {}         // NOLINT
    String(const char* text, size_t length) : std::string(text, length) {}

    // Removes surrounding white space in place.
    String& trim();
    static std::string trim(const std::string& text);
};

}  // namespace utils
}  // namespace ZU
