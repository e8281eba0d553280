// krv-abi-check: loads the driver the way the panel's runtime does and checks the binary
// interface from the caller's side, with the runtime's own declarations (RuntimeSide.h): if a
// slot moves or a record field shifts, these calls land in the wrong place and the checks fail.
// Usage: krv-abi-check [--preload LIB]... [driver.so]; without a path, the driver of the build
// that made it.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "AbiProbe.h"

namespace {

const char kUsage[] =
    "usage: krv-abi-check [--preload LIB]... [DRIVER]\n"
    "Loads DRIVER (default: the driver of the build that made this program) as the runtime\n"
    "does and checks its entry points, slot table and device record from the runtime's side.\n"
    "It initialises no device: no file is touched and no command runs.\n"
    "  --preload LIB  load LIB globally first, as the runtime process holds it; give each runtime\n"
    "                 library that defines what the driver takes from the runtime (CString,\n"
    "                 Wexa_*, logger_printf, SplitCsvStr, ZU::utils::String, __gui_*)\n"
    "Ends with \"0 failed\"; exit status 0 when every check passed, 1 otherwise, 2 on bad usage.\n";

void print(bool ok, const std::string& what, void*) {
    std::printf("%s: %s\n", ok ? "ok" : "FAIL", what.c_str());
}

}  // namespace

// Without arguments the built driver; a path checks another build of it (on a panel, say). The
// driver leaves the runtime's own symbols to the process, so the runtime's libraries come first:
// each --preload LIB is loaded globally before the driver, as the runtime holds them.
int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IONBF, 0);  // keep every line should a slot crash
    std::vector<std::string> preloads;
    const char* driver = KRV_DRIVER_PATH;
    for (int arg = 1; arg < argc; ++arg) {
        const bool preload = std::strcmp(argv[arg], "--preload") == 0;
        if (std::strcmp(argv[arg], "--help") == 0 || std::strcmp(argv[arg], "-h") == 0) {
            std::fputs(kUsage, stdout);
            return 0;
        } else if (preload && arg + 1 < argc) {
            preloads.push_back(argv[++arg]);
        } else if (preload || argv[arg][0] == '-' || arg + 1 != argc) {
            std::fputs(kUsage, stderr);
            return 2;
        } else {
            driver = argv[arg];
        }
    }
    std::string error;
    void* lib = abi_probe::loadDriver(preloads, driver, error);
    if (!lib) {
        std::printf("FAIL: dlopen: %s\n", error.c_str());
        if (error.find("undefined symbol") != std::string::npos)
            std::printf("(a runtime library not preloaded, or another std::string layout)\n");
        return 1;
    }
    const int failures = abi_probe::probe(lib, print, nullptr);
    std::printf("%d failed\n", failures);
    return failures == 0 ? 0 : 1;
}
