// "/proc/stat" and "/proc/meminfo" texts, read by the CPU and memory operations and by the
// channel refresh. Both files are bound over /proc once (inside the sandbox's own mount
// namespace); each input rewrites them in place.
//
// Input: the /proc/stat text, a zero byte, the /proc/meminfo text.
#include <cstdlib>
#include <cstring>

#include "FuzzPanel.h"
#include "Sandbox.h"

namespace {

void bindProcFiles() {
    static krv_test::BoundFile stat("/proc/stat", "cpu  1 0 1 10 0 0 0 0 0 0\n");
    static krv_test::BoundFile meminfo("/proc/meminfo", "MemTotal: 1000 kB\nMemFree: 500 kB\n");
    if (!stat.ok() || !meminfo.ok())
        std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    host::Runtime& rt = krv_fuzz::panel();
    static const bool bound = (bindProcFiles(), true);
    (void)bound;
    const std::uint8_t* zero = static_cast<const std::uint8_t*>(std::memchr(data, 0, size));
    const std::size_t statSize = zero ? static_cast<std::size_t>(zero - data) : size;
    krv_fuzz::overwrite("/proc/stat", krv_fuzz::text(data, statSize));
    krv_fuzz::overwrite("/proc/meminfo", zero ? krv_fuzz::text(zero + 1, size - statSize - 1) : "");

    host::Device& device = rt.device();
    device.command("GetCpuUse(D,St)");
    device.command("GetMemUse(D,St)");
    device.command("GetMemUse(I)");
    device.command("REFLESH()");
    int flags[3] = {0, 0, 0};
    device.collect(flags, 3);
    krv_fuzz::resetVariables(rt.database());
    return 0;
}
