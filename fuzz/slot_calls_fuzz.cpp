// Programs of slot calls, as a misbehaving runtime might make them: devices created and
// destroyed through the driver's exports, every IDeviceCtrl slot in any order and repetition, with
// any values (clean-up before initialisation, twice, initialisation again after clean-up, polls
// before and after sizing, counts down to INT_MIN). Oracles besides libFuzzer's (crash, sanitizer
// report, hang): every result is one its slot may give (docs/result-codes.md), and after each
// program a new device's refresh and poll of every channel returns 0 and shows what the settings
// files hold.
//
// Input: calls one after another, each an opcode byte and its operands (missing bytes read 0):
//   0 CreateDeviceCtrl (when none)      1 CleanupDevice, then DestroyDeviceCtrl
//   2 UpdataCommunication: state byte (4 and up: null)
//   3 InitDevice: length int16, any sign, at most the bytes that follow; then the blob bytes
//   4 CollectDevData, 5 ChannelRefChange: count int32 (above 32 taken modulo 33), flags bytes
//   6 SetChannelAddress: two int32   7 DevIOCtrl: length byte, then the text
//   8 WriteChannel: channel int32, type int32, then the value of the type it claims (int32,
//     double, or a length byte and a text; any other type: eight bytes)
//   9 CleanupDevice                   10 CollectDevData with null flags
#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>

#include "FuzzPanel.h"
#include "Sandbox.h"

namespace {

const int kFlags = 32;
const int kMaxCalls = 48;

class Program {
public:
    Program(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
    bool done() const { return at_ >= size_; }
    std::size_t left() const { return size_ - at_; }
    const std::uint8_t* here() const { return data_ + at_; }
    void skip(std::size_t n) { at_ += n < left() ? n : left(); }
    template <typename T>
    T take() {
        T value{};
        std::memcpy(&value, here(), sizeof value < left() ? sizeof value : left());
        skip(sizeof value);
        return value;
    }
    std::string text() {
        const std::size_t length = take<std::uint8_t>();
        const std::string value(reinterpret_cast<const char*>(here()),
                                length < left() ? length : left());
        skip(length);
        return value;
    }

private:
    const std::uint8_t* data_;
    std::size_t size_;
    std::size_t at_ = 0;
};

// A result its slot may not give ends the run as a crash, with the input kept.
void expect(bool allowed, const char* slot, int result) {
    if (!allowed) {
        std::fprintf(stderr, "slot calls: %s answered %d\n", slot, result);
        std::abort();
    }
}

bool oneOf(int result, std::initializer_list<int> codes) {
    for (int code : codes)
        if (result == code)
            return true;
    return false;
}

// What commands, writes and polls report: the dispatcher's codes (docs/result-codes.md).
bool commandCode(int result) {
    return oneOf(result, {0, 1, 3, 4, 5, 6, 7, 8, 9, 10, DEVCTRL_BAD_ARGUMENT});
}

void call(Program& p, host::Runtime& rt, std::unique_ptr<host::Device>& device) {
    static host::Communication states[4] = {host::Communication(0), host::Communication(1),
                                            host::Communication(2), host::Communication(3)};
    const int op = p.take<std::uint8_t>() % 11;
    if (op == 0 && !device)
        device.reset(new host::Device(rt.library(), "KRVcontrol", &rt.database()));
    if (!device)
        return;
    host::Device& d = *device;
    switch (op) {
        case 1:
            expect(d.destroy() == 0, "DestroyDeviceCtrl", 0);
            device.reset();
            break;
        case 2: {
            const int state = p.take<std::uint8_t>();
            const int r = d.updateCommunication(state < 4 ? &states[state] : nullptr);
            expect(oneOf(r, {0, DEVCTRL_BAD_ARGUMENT}), "UpdataCommunication", r);
            break;
        }
        case 3: {
            const int length = p.take<std::int16_t>();
            const int r =
                d.init(p.here(),
                       length < static_cast<int>(p.left()) ? length : static_cast<int>(p.left()));
            p.skip(length > 0 ? static_cast<std::size_t>(length) : 0);
            expect(oneOf(r, {0, DEVCTRL_BAD_ARGUMENT}), "InitDevice", r);
            break;
        }
        case 4:
        case 5: {
            int count = p.take<std::int32_t>();
            if (count > kFlags)
                count %= kFlags + 1;
            int flags[kFlags];
            for (int& f : flags)
                f = p.take<std::uint8_t>() % 5;
            if (op == 4) {
                const int r = d.collect(flags, count);
                expect(commandCode(r) || r == -3, "CollectDevData", r);
            } else {
                const int r = d.channelRefChange(flags, count);
                expect(oneOf(r, {0, DEVCTRL_BAD_ARGUMENT}), "ChannelRefChange", r);
            }
            break;
        }
        case 6: {
            const int a = p.take<std::int32_t>(), b = p.take<std::int32_t>();
            const int r = d.setChannelAddress(a, b);
            expect(r == 0, "SetChannelAddress", r);
            break;
        }
        case 7: {
            const int r = d.command(p.text());
            expect(commandCode(r), "DevIOCtrl", r);
            break;
        }
        case 8: {
            const int channel = p.take<std::int32_t>();
            const int type = p.take<std::int32_t>();
            int r;
            if (type == DATATYPE_INT) {
                r = d.writeInt(channel, p.take<std::int32_t>());
            } else if (type == DATATYPE_DOUBLE) {
                r = d.writeDouble(channel, p.take<double>());
            } else if (type == DATATYPE_STRING) {
                r = d.writeText(channel, p.text());
            } else {
                long long raw = p.take<long long>();
                r = d.write(channel, static_cast<DATATYPE>(type), &raw);
            }
            expect(commandCode(r), "WriteChannel", r);
            break;
        }
        case 9: {
            const int r = d.cleanup();
            expect(r == 0, "CleanupDevice", r);
            break;
        }
        case 10: {
            const int r = d.collect(nullptr, p.take<std::int32_t>());
            expect(r == 0, "CollectDevData(null)", r);
            break;
        }
        default:
            break;
    }
}

// A device made as the runtime makes it refreshes, pushes every channel with 0, and shows the
// settings files as they are.
void healthCheck(host::Runtime& rt) {
    static const bool defined = [&] {
        std::vector<DATATYPE> types(19, DATATYPE_DOUBLE);
        types[18] = DATATYPE_STRING;
        rt.database().defineChannels(types);
        return true;
    }();
    (void)defined;
    host::Device d(rt.library(), "KRVcontrol", &rt.database());
    const std::vector<int> idle(19, 0);
    rt.database().resetPushes();
    if (d.init(host::defaultBlob()) != 0 || d.command("REFLESH()") != 0 || d.collect(idle) != 0)
        expect(false, "health check", -1);
    const auto shown = [&](int element) { return rt.database().channel(element - 1)->toString(); };
    const std::string buzz = krv_test::iniValue(krv_test::kAppCfg, "buzz_duration");
    std::string password = krv_test::iniValue(krv_test::kVncCfg, "passwd");
    // QSettings quotes and escapes other characters in the file: only plain ones compare.
    if (!std::all_of(password.begin(), password.end(),
                     [](char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; }))
        password = shown(19);
    if (rt.database().totalPushes() != 19 || shown(4) != (buzz.empty() ? std::string("0") : buzz) ||
        shown(19) != password) {
        std::fprintf(stderr,
                     "health check: %d pushes, buzzer %s (file %s), password %s (file %s)\n",
                     rt.database().totalPushes(), shown(4).c_str(), buzz.c_str(), shown(19).c_str(),
                     password.c_str());
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    host::Runtime& rt = krv_fuzz::panel();
    Program program(data, size);
    {
        std::unique_ptr<host::Device> device;
        for (int calls = 0; !program.done() && calls < kMaxCalls; ++calls)
            call(program, rt, device);
    }
    healthCheck(rt);
    krv_fuzz::resetVariables(rt.database());
    return 0;
}
