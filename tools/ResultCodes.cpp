#include "ResultCodes.h"

#include "IDeviceCtrl.h"

namespace krv_sim {

namespace {

struct Meaning {
    int code;
    const char* text;
};

// Commands report their failures as positive numbers; the slots' own codes are negative.
constexpr Meaning kMeanings[] = {
    {0, "done"},
    {1, "no \"=\" in the write, read-only channel, or source file unreadable"},
    {3, "kernel log capture failed"},
    {4, "bad value, or a variable could not be read or written"},
    {5, "wrong number of items"},
    {6, "network interfaces unreadable"},
    {7, "HAL refused the address or mask"},
    {8, "no such interface"},
    {9, "HAL refused the backlight change"},
    {10, "NTP failure"},
    {-3, "no database"},
    {DEVCTRL_BAD_ARGUMENT, "bad argument"},
    {DEVCTRL_NO_DATABASE, "no database"},
};

}  // namespace

std::string resultMeaning(int code) {
    for (const Meaning& m : kMeanings) {
        if (m.code == code) {
            return m.text;
        }
    }
    return "unknown code";
}

}  // namespace krv_sim
