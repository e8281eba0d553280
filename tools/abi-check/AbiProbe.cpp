#include "AbiProbe.h"

#include <dlfcn.h>

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

#include "RuntimeSide.h"

namespace abi_probe {

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

// Where the checks of the probe running now report.
struct Outcomes {
    Sink sink;
    void* context;
    int failures;
};
Outcomes* g_outcomes = nullptr;

void check(bool ok, const std::string& what) {
    g_outcomes->sink(ok, what, g_outcomes->context);
    if (!ok)
        ++g_outcomes->failures;
}

std::string decimal(int value) {
    char text[16];
    std::snprintf(text, sizeof text, "%d", value);
    return text;
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
    // Plain function pointers, not std::function: the programs built on this go into the panel
    // bundles and need no newer C++ runtime than the driver.
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
        check(got == c.expected, std::string(c.what) + " -> " + decimal(got));
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

}  // namespace

void* loadDriver(const std::vector<std::string>& preloads, const char* driver, std::string& error) {
    for (size_t i = 0; i < preloads.size(); ++i) {
        if (!dlopen(preloads[i].c_str(), RTLD_NOW | RTLD_GLOBAL)) {
            error = dlerror();
            return nullptr;
        }
    }
    void* lib = dlopen(driver, RTLD_NOW | RTLD_LOCAL);
    if (!lib)
        error = dlerror();
    return lib;
}

int probe(void* driver, Sink sink, void* context) {
    Outcomes outcomes = {sink, context, 0};
    g_outcomes = &outcomes;
    auto create = reinterpret_cast<CreateFn>(dlsym(driver, "CreateDeviceCtrl"));
    auto destroy = reinterpret_cast<DestroyFn>(dlsym(driver, "DestroyDeviceCtrl"));
    check(create && destroy, "the driver exports CreateDeviceCtrl and DestroyDeviceCtrl");
    if (create && destroy) {
        check(destroy(nullptr) == 1, "DestroyDeviceCtrl(null) gives 1");
        char database[64] = {};  // never called: no slot here reaches the database
        DeviceCtrl* dev = create("abi-probe", database);
        check(dev != nullptr, "CreateDeviceCtrl returns a device");
        if (dev) {
            checkFreshDevice(dev, database);
            checkSlots(dev);
            check(destroy(dev) == 0, "DestroyDeviceCtrl gives 0");
            checkPollWithoutDatabase(create, destroy);
        }
    }
    g_outcomes = nullptr;
    return outcomes.failures;
}

}  // namespace abi_probe
