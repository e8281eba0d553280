// Text commands through DevIOCtrl and channel writes through WriteChannel, on one device that
// lives for the whole run (as under the runtime), with a poll after each input. The NTP commands
// are sent like any other: ExecNTP probes and exchanges on this thread while the worker, once a
// command or the switch channel has turned NTP on, synchronises beside it.
//
// Input: first byte even: the rest is a command text. Odd: a channel write, byte 1 the runtime
// channel (-2..21, so both ends are overstepped), byte 2 the type (0..4, 1-3 valid), the rest
// the value (int, double or text as the type says). The first byte's upper bits also give the
// poll's channel count (3 for the seeds, 0 to 24 in all).
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

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
        device.command(command);
    } else {
        if (size < 3)
            return 0;
        const int channel = data[1] % 24 - 2;
        const int type = data[2] % 5;
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
    const std::vector<int> flags(static_cast<std::size_t>((data[0] / 2 + 3) % 25), 3);
    device.collect(flags.data(), static_cast<int>(flags.size()));
    krv_fuzz::resetVariables(rt.database());
    return 0;
}
