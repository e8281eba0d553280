// krv-abi-check: loads the driver the way the panel's runtime does and checks the binary
// interface from the caller's side, with the runtime's own declarations (RuntimeSide.h): if a
// slot moves or a record field shifts, these calls land in the wrong place and the checks fail.
// Usage: krv-abi-check [--preload LIB]... [driver.so]; without a path, the driver of the build
// that made it.
#include <dlfcn.h>

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "RuntimeSide.h"

namespace {

using runtime_side::Array;
using runtime_side::Communication;
using runtime_side::DeviceCtrl;
using runtime_side::Record;
using runtime_side::Text;

constexpr int kBadArgument = static_cast<int>(0x80000001u);
constexpr int kNoDatabase = -3;

typedef DeviceCtrl* (*CreateFn)(const char* name, void* rtdb);
typedef int (*DestroyFn)(DeviceCtrl* dev);

// The device object behind the interface pointer: the interface is its primary base, so the
// record follows the vtable pointer directly.
struct DeviceImage {
    const void* vptr;
    Record record;
    int highest;
    Array<int> status;
    Array<double> values;
    Array<Text> texts;
};

int g_failures = 0;

void check(bool ok, const std::string& what) {
    std::printf("%s: %s\n", ok ? "ok" : "FAIL", what.c_str());
    if (!ok)
        ++g_failures;
}

const DeviceImage& image(DeviceCtrl* dev) {
    return *reinterpret_cast<const DeviceImage*>(dev);
}

bool arraysHold(DeviceCtrl* dev, int highest) {
    const DeviceImage& d = image(dev);
    const std::size_t n = static_cast<std::size_t>(highest) + 1;
    return d.highest == highest && d.status.items.size() == n && d.values.items.size() == n &&
           d.texts.items.size() == n;
}

void checkFreshDevice(DeviceCtrl* dev, void* rtdb) {
    const Record& r = image(dev).record;
    check(r.name.bytes == "abi-probe", "record holds the device name");
    check(r.second.bytes.empty() && r.word0 == 0 && r.word1 == 0, "unused fields start empty");
    check(r.archive == nullptr && r.logic == nullptr, "no archive, no logic object yet");
    check(r.commState == 0 && r.comm == nullptr, "no communication yet");
    check(r.rtdbByName == rtdb && r.rtdb == rtdb, "both database fields hold the database");
    check(r.setParam && r.getParam && r.getType && r.setParam != r.getParam &&
              r.getParam != r.getType && r.setParam != r.getType,
          "three distinct parameter functions");
    check(image(dev).highest == -1 && image(dev).values.items.empty(), "arrays not sized yet");
}

void checkSlots(DeviceCtrl* dev) {
    static const int flags[12] = {};
    static double value = 1.0;
    // Plain function pointers, not std::function: this program goes into the panel bundles and
    // needs no newer C++ runtime than the driver.
    const struct {
        const char* what;
        int (*call)(DeviceCtrl*);
        int expected;
    } cases[] = {
        {"slot 7 SetChannelAddress", [](DeviceCtrl* d) { return d->SetChannelAddress(3, 4); }, 0},
        {"slot 6 ChannelRefChange, count 0",
         [](DeviceCtrl* d) { return d->ChannelRefChange(flags, 0); }, kBadArgument},
        {"slot 6 ChannelRefChange, no flags",
         [](DeviceCtrl* d) { return d->ChannelRefChange(nullptr, 4); }, kBadArgument},
        {"slot 3 DevIOCtrl, no command", [](DeviceCtrl* d) { return d->DevIOCtrl(nullptr); },
         kBadArgument},
        {"slot 4 WriteChannel, channel -1",
         [](DeviceCtrl* d) { return d->WriteChannel(-1, 2, &value); }, kBadArgument},
        {"slot 4 WriteChannel, no value",
         [](DeviceCtrl* d) { return d->WriteChannel(0, 2, nullptr); }, kBadArgument},
        {"slot 5 UpdataCommunication, none",
         [](DeviceCtrl* d) { return d->UpdataCommunication(nullptr); }, kBadArgument},
        {"slot 2 CollectDevData, no flags",
         [](DeviceCtrl* d) { return d->CollectDevData(nullptr, 5); }, 0},
        {"slot 1 CleanupDevice before InitDevice", [](DeviceCtrl* d) { return d->CleanupDevice(); },
         0},
    };
    for (const auto& c : cases) {
        const int got = c.call(dev);
        char line[128];
        std::snprintf(line, sizeof line, "%s -> %d", c.what, got);
        check(got == c.expected, line);
    }

    check(dev->ChannelRefChange(flags, 12) == 0 && arraysHold(dev, 12),
          "slot 6 sizes all three arrays to 13");
    check(dev->ChannelRefChange(flags, 3) == 0 && arraysHold(dev, 9),
          "slot 6 with 3 channels gives the floor of ten entries");

    Communication comm;
    const Record& r = image(dev).record;
    comm.state = 1;
    check(dev->UpdataCommunication(&comm) == 0 && r.commState == 2 && r.comm == &comm,
          "slot 5 stores the object; its state 1 becomes 2");
    comm.state = 2;
    check(dev->UpdataCommunication(&comm) == 0 && r.commState == 1, "state 2 becomes 1");
    comm.state = 7;
    check(dev->UpdataCommunication(&comm) == kBadArgument && r.commState == 1,
          "unknown state refused, state kept");
}

void checkPollWithoutDatabase(CreateFn create, DestroyFn destroy) {
    static const int flags[12] = {};
    Communication comm;
    comm.state = 1;
    DeviceCtrl* dev = create("abi-nodb", nullptr);
    if (!dev) {
        check(false, "CreateDeviceCtrl without a database");
        return;
    }
    dev->UpdataCommunication(&comm);
    check(dev->CollectDevData(flags, 12) == kNoDatabase, "slot 2 without a database gives -3");
    check(arraysHold(dev, 12), "slot 2 sized the arrays first");
    check(comm.served == std::vector<std::string>{"abi-nodb"},
          "slot 15 of the communication object told the device name");
    check(destroy(dev) == 0, "DestroyDeviceCtrl of the second device");
}

const char kUsage[] =
    "usage: krv-abi-check [--preload LIB]... [DRIVER]\n"
    "Loads DRIVER (default: the driver of the build that made this program) as the runtime\n"
    "does and checks its entry points, slot table and device record from the runtime's side.\n"
    "It initialises no device: no file is touched and no command runs.\n"
    "  --preload LIB  load LIB globally first, as the runtime process holds it; give each runtime\n"
    "                 library that defines what the driver takes from the runtime (CString,\n"
    "                 Wexa_*, logger_printf, SplitCsvStr, ZU::utils::String, __gui_*)\n"
    "Ends with \"0 failed\"; exit status 0 when every check passed, 1 otherwise, 2 on bad usage.\n";

}  // namespace

// Without arguments the built driver; a path checks another build of it (on a panel, say). The
// driver leaves the runtime's own symbols to the process, so the runtime's libraries come first:
// each --preload LIB is loaded globally before the driver, as the runtime holds them.
int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IONBF, 0);  // keep every line should a slot crash
    const char* driver = KRV_DRIVER_PATH;
    for (int arg = 1; arg < argc; ++arg) {
        const bool preload = std::strcmp(argv[arg], "--preload") == 0;
        if (std::strcmp(argv[arg], "--help") == 0 || std::strcmp(argv[arg], "-h") == 0) {
            std::fputs(kUsage, stdout);
            return 0;
        } else if (preload && arg + 1 < argc) {
            if (!dlopen(argv[++arg], RTLD_NOW | RTLD_GLOBAL)) {
                std::printf("FAIL: dlopen: %s\n", dlerror());
                return 1;
            }
        } else if (preload || argv[arg][0] == '-' || arg + 1 != argc) {
            std::fputs(kUsage, stderr);
            return 2;
        } else {
            driver = argv[arg];
        }
    }
    void* lib = dlopen(driver, RTLD_NOW | RTLD_LOCAL);
    if (!lib) {
        const char* error = dlerror();
        std::printf("FAIL: dlopen: %s\n", error);
        if (std::strstr(error, "undefined symbol"))
            std::printf("(a runtime library not preloaded, or another std::string layout)\n");
        return 1;
    }
    auto create = reinterpret_cast<CreateFn>(dlsym(lib, "CreateDeviceCtrl"));
    auto destroy = reinterpret_cast<DestroyFn>(dlsym(lib, "DestroyDeviceCtrl"));
    if (!create || !destroy) {
        std::printf("FAIL: the driver does not export CreateDeviceCtrl and DestroyDeviceCtrl\n");
        return 1;
    }

    check(destroy(nullptr) == 1, "DestroyDeviceCtrl(null) gives 1");

    char database[64] = {};  // never called: no slot here reaches the database
    DeviceCtrl* dev = create("abi-probe", database);
    if (!dev) {
        std::printf("FAIL: CreateDeviceCtrl returned null\n");
        return 1;
    }
    checkFreshDevice(dev, database);
    checkSlots(dev);
    check(destroy(dev) == 0, "DestroyDeviceCtrl gives 0");
    checkPollWithoutDatabase(create, destroy);

    dlclose(lib);
    std::printf("%d failed\n", g_failures);
    return g_failures == 0 ? 0 : 1;
}
