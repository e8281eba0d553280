#include "ResultCodes.h"

#include "IDeviceCtrl.h"

namespace krv_sim {

namespace {

struct Meaning {
    int code;
    const char* label;  // how the table writes the code
    const char* brief;  // what the simulator prints after a result
    const char* when;
    const char* whatToDo;
};

// Commands report their failures as positive numbers; the slots' own codes are negative.
constexpr Meaning kMeanings[] = {
    {0, "0", "done",
     "done; also a command without brackets, an unknown operation, a write to channel 0 or "
     "above 19, a write dropped because \"/tmp\" is unusable, and every EnableNTP, SetNTPMode, "
     "SetNTPFreq and ExecNTP, whose outcome only a status variable receives",
     "give the NTP commands a status variable and read it"},
    {1, "1", "not writable",
     "the write had no \"=\", the channel is read-only (10, 11), or GetCpuUse or GetMemUse "
     "could not read /proc",
     "write a writable channel"},
    {3, "3", "kernel log capture failed",
     "ReadSysLog could not capture the live kernel log (dmesg failed, or a name stands at "
     "/tmp/dmesg.log); its status variable keeps its value",
     "check that dmesg works on the panel and that nothing stands at /tmp/dmesg.log"},
    {4, "4", "bad value or variable",
     "a value out of range, an invalid address or mask, a password of bad length, a variable "
     "named in the command that could not be read, or a status variable of ModVncPwd or of an "
     "NTP command that could not be written (the log commands ignore theirs)",
     "check the value's range and the variable's name and type"},
    {5, "5", "wrong arguments",
     "wrong number of arguments, or a malformed operation command; no status variable is "
     "written",
     "fix the argument list"},
    {6, "6", "interfaces unreadable", "the panel's network interfaces could not be listed",
     "panel HAL problem"},
    {7, "7", "HAL refused the address or mask",
     "the panel's HAL refused the new address or mask (the driver checks only the numbers' "
     "ranges)",
     "check the address; the interface keeps its old one"},
    {8, "8", "no such interface", "a second address or mask on a panel with one interface",
     "write channels 8 and 9 only on two-interface panels"},
    {9, "9", "HAL refused the backlight change", "the panel's HAL refused the backlight change",
     "panel HAL problem"},
    {10, "10", "NTP failure",
     "NTP synchronisation failed (only ever in the status variable of ExecNTP)",
     "[troubleshooting](troubleshooting.md), [time sync](ntp.md)"},
    {-3, "-3", "no database", "a poll without the runtime's variable database", "runtime problem"},
    {DEVCTRL_BAD_ARGUMENT, "0x80000001", "bad argument",
     "a bad argument to the driver interface itself, such as a write to runtime channel -1 "
     "(`write 0` in krv-sim)",
     "runtime problem"},
};

}  // namespace

std::string resultMeaning(int code) {
    for (const Meaning& m : kMeanings) {
        if (m.code == code) {
            return m.brief;
        }
    }
    return "unknown code";
}

void printResultCodeTable(std::ostream& out) {
    out << "| Code | krv-sim says | When | What to do |\n|---|---|---|---|\n";
    for (const Meaning& m : kMeanings) {
        out << "| " << m.label << " | " << m.brief << " | " << m.when << " | " << m.whatToDo
            << " |\n";
    }
}

}  // namespace krv_sim
