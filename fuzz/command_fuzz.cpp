// Text commands through DevIOCtrl and channel writes through WriteChannel, on one device that
// lives for the whole run (as under the runtime), with a poll after each input.
//
// Input: first byte even: the rest is a command text. Odd: a channel write, byte 1 the runtime
// channel (-2..21, so both ends are overstepped), byte 2 the type (0..4, 1-3 valid), the rest
// the value (int, double or text as the type says).
//
// Left out on purpose: ExecNTP runs a whole synchronisation with probes and time-outs (seconds
// per input), and switching NTP on (EnableNTP, the switch channel) sets the worker syncing in
// the background for the rest of the run. Both are covered by the NTP tests.
#include <algorithm>
#include <cstring>
#include <string>

#include "FuzzPanel.h"

namespace {

template <typename T>
T take(const std::uint8_t* data, std::size_t size) {
    T value{};
    std::memcpy(&value, data, std::min(size, sizeof value));
    return value;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    host::Runtime& rt = krv_fuzz::panel();
    if (size < 1)
        return 0;
    host::Device& device = rt.device();
    if (data[0] % 2 == 0) {
        const std::string command = krv_fuzz::text(data + 1, size - 1);
        if (krv_fuzz::startsNtp(command))
            return 0;
        device.command(command);
    } else {
        if (size < 3)
            return 0;
        const int channel = data[1] % 24 - 2;
        const int type = data[2] % 5;
        if (channel == krv_fuzz::kNtpSwitchChannel - 1)
            return 0;
        const std::uint8_t* value = data + 3;
        const std::size_t length = size - 3;
        switch (type) {
            case DATATYPE_INT:
                device.writeInt(channel, take<int>(value, length));
                break;
            case DATATYPE_DOUBLE:
                device.writeDouble(channel, take<double>(value, length));
                break;
            case DATATYPE_STRING:
                device.writeText(channel, krv_fuzz::text(value, length));
                break;
            default: {
                int raw = take<int>(value, length);
                device.write(channel, static_cast<DATATYPE>(type), &raw);
                break;
            }
        }
    }
    int flags[3] = {0, 0, 0};
    device.collect(flags, 3);
    krv_fuzz::resetVariables(rt.database());
    return 0;
}
