// krv-abi-check: loads the driver the way the panel's runtime does and checks the binary
// interface from the caller's side, with the runtime's own declarations (RuntimeSide.h): if a
// slot moves or a record field shifts, these calls land in the wrong place and the checks fail.
// Usage: krv-abi-check [--preload LIB]... [driver.so]; without a path, the driver of this build.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "AbiProbe.h"

namespace {

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
    int arg = 1;
    for (; arg + 1 < argc && std::strcmp(argv[arg], "--preload") == 0; arg += 2)
        preloads.push_back(argv[arg + 1]);
    std::string error;
    void* lib = abi_probe::loadDriver(preloads, arg < argc ? argv[arg] : KRV_DRIVER_PATH, error);
    if (!lib) {
        std::printf("FAIL: dlopen: %s\n", error.c_str());
        return 1;
    }
    const int failures = abi_probe::probe(lib, print, nullptr);
    std::printf("%d failed\n", failures);
    return failures == 0 ? 0 : 1;
}
