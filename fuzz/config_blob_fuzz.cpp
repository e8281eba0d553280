// Configuration blobs through InitDevice. The device is cleaned up before each input, so every
// blob builds the logic object afresh (CleanupDevice joins the NTP worker, which bounds the
// rate to a few inputs a second), and the poll afterwards uses what it built.
#include "FuzzPanel.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    host::Device& device = krv_fuzz::panel().device();
    device.cleanup();
    device.init(data, static_cast<int>(size));
    int flags[3] = {0, 0, 0};
    device.collect(flags, 3);
    return 0;
}
