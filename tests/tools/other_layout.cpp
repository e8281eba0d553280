// A runtime library built with the std::string layout the driver of this build does not use.
#undef _GLIBCXX_USE_CXX11_ABI
#define _GLIBCXX_USE_CXX11_ABI KRV_OTHER_LAYOUT
#include <string>

std::string krvOtherLayout(const std::string& text) {
    return text + text;
}
