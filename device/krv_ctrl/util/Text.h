// Small text helpers the driver uses in place of library calls that the oldest panels' C++
// runtime lacks.
#pragma once

#include <string>

namespace KRVCTRL {

// At most `count` bytes of `text` from `pos` on; empty when `pos` lies at or past the end.
// std::string::substr would do the same, but its range check throws through a function that
// only GCC 4.9's C++ runtime (2014) has, so a driver using it does not load on older panels.
inline std::string slice(const std::string& text, std::string::size_type pos,
                         std::string::size_type count = std::string::npos) {
    if (pos >= text.size())
        return std::string();
    const std::string::size_type left = text.size() - pos;
    return std::string(text.data() + pos, count < left ? count : left);
}

}  // namespace KRVCTRL
