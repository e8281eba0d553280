// Loads the driver the way the panel's runtime does and checks the binary interface from the
// caller's side. Everything the runtime knows about a device is declared here again, from the
// runtime's point of view, without any of the driver's or platform's headers: if a slot moves or
// a record field shifts, these calls land in the wrong place and the checks fail.
#include <dlfcn.h>

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

// Not in an anonymous namespace: there the compiler would see every class derived from
// DeviceCtrl (none) and turn the slot calls into calls of the pure virtual.
namespace runtime_side {

class Communication {
public:
    virtual int slot0() { return 0; }
    virtual int slot1() { return 0; }
    virtual int slot2() { return 0; }
    virtual int slot3() { return 0; }
    virtual int slot4() { return 0; }
    virtual int slot5() { return 0; }
    virtual int slot6() { return 0; }
    virtual int slot7() { return 0; }
    virtual int slot8() { return 0; }
    virtual int slot9() { return 0; }
    virtual int slot10() { return 0; }
    virtual int slot11() { return 0; }
    virtual int slot12() { return 0; }
    virtual int slot13() { return 0; }
    virtual int slot14() { return 0; }
    virtual int OnDeviceService(char* name) {  // 15
        served.push_back(name ? name : "(null)");
        return 0;
    }
    virtual int GetCommState() { return state; }  // 16
    virtual ~Communication() = default;

    int state = 0;
    std::vector<std::string> served;
};

class DeviceCtrl {
public:
    virtual int InitDevice(const unsigned char* cfg, int len) = 0;     // 0
    virtual int CleanupDevice() = 0;                                   // 1
    virtual int CollectDevData(const int* flags, int count) = 0;       // 2
    virtual int DevIOCtrl(const char* cmd) = 0;                        // 3
    virtual int WriteChannel(int channel, int type, void* value) = 0;  // 4
    virtual int UpdataCommunication(Communication* comm) = 0;          // 5
    virtual int ChannelRefChange(const int* flags, int count) = 0;     // 6
    virtual int SetChannelAddress(int a, int b) = 0;                   // 7
    virtual ~DeviceCtrl() = default;                                   // 8, 9
};

}  // namespace runtime_side

namespace {

using runtime_side::Communication;
using runtime_side::DeviceCtrl;

constexpr int kBadArgument = static_cast<int>(0x80000001u);
constexpr int kNoDatabase = -3;

typedef DeviceCtrl* (*CreateFn)(const char* name, void* rtdb);
typedef int (*DestroyFn)(DeviceCtrl* dev);
typedef void (*AnyFn)();

// The runtime's text class wraps one std::string; its arrays are a vtable and a vector.
struct Text {
    std::string bytes;
};
template <class T>
struct Array {
    const void* vptr;
    std::vector<T> items;
};

struct Record {
    Text name;
    Text second;
    int word0;
    void* archive;
    void* logic;
    int commState;
    Communication* comm;
    void* rtdbByName;
    int word1;
    AnyFn setParam;
    AnyFn getParam;
    AnyFn getType;
    void* rtdb;
};

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

}  // namespace

extern "C" const std::size_t* krv_header_record_layout();

namespace {

void checkRecordLayout() {
    static const struct {
        const char* field;
        std::size_t offset;
    } mine[] = {
        {"device name", offsetof(Record, name)},
        {"second text", offsetof(Record, second)},
        {"first word", offsetof(Record, word0)},
        {"archive", offsetof(Record, archive)},
        {"logic object", offsetof(Record, logic)},
        {"communication state", offsetof(Record, commState)},
        {"communication object", offsetof(Record, comm)},
        {"database by name", offsetof(Record, rtdbByName)},
        {"second word", offsetof(Record, word1)},
        {"SetParamValue_Fun", offsetof(Record, setParam)},
        {"GetParamValue_Fun", offsetof(Record, getParam)},
        {"GetParamType_Fun", offsetof(Record, getType)},
        {"database", offsetof(Record, rtdb)},
        {"record size", sizeof(Record)},
    };
    const std::size_t* header = krv_header_record_layout();
    for (std::size_t i = 0; i < sizeof mine / sizeof mine[0]; ++i) {
        check(mine[i].offset == header[i], std::string("record layout: ") + mine[i].field + " at " +
                                               std::to_string(mine[i].offset) + ", header says " +
                                               std::to_string(header[i]));
    }
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
    double value = 1.0;
    const struct {
        const char* what;
        std::function<int()> call;
        int expected;
    } cases[] = {
        {"slot 7 SetChannelAddress", [&] { return dev->SetChannelAddress(3, 4); }, 0},
        {"slot 6 ChannelRefChange, count 0", [&] { return dev->ChannelRefChange(flags, 0); },
         kBadArgument},
        {"slot 6 ChannelRefChange, no flags", [&] { return dev->ChannelRefChange(nullptr, 4); },
         kBadArgument},
        {"slot 3 DevIOCtrl, no command", [&] { return dev->DevIOCtrl(nullptr); }, kBadArgument},
        {"slot 4 WriteChannel, channel -1", [&] { return dev->WriteChannel(-1, 2, &value); },
         kBadArgument},
        {"slot 4 WriteChannel, no value", [&] { return dev->WriteChannel(0, 2, nullptr); },
         kBadArgument},
        {"slot 5 UpdataCommunication, none", [&] { return dev->UpdataCommunication(nullptr); },
         kBadArgument},
        {"slot 2 CollectDevData, no flags", [&] { return dev->CollectDevData(nullptr, 5); }, 0},
        {"slot 1 CleanupDevice before InitDevice", [&] { return dev->CleanupDevice(); }, 0},
    };
    for (const auto& c : cases) {
        const int got = c.call();
        check(got == c.expected, std::string(c.what) + " -> " + std::to_string(got));
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

// Without arguments the built driver; a path checks another build of it (on a panel, say).
int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IONBF, 0);  // keep every line should a slot crash
    void* lib = dlopen(argc > 1 ? argv[1] : KRV_DRIVER_PATH, RTLD_NOW | RTLD_LOCAL);
    if (!lib) {
        std::printf("FAIL: dlopen: %s\n", dlerror());
        return 1;
    }
    auto create = reinterpret_cast<CreateFn>(dlsym(lib, "CreateDeviceCtrl"));
    auto destroy = reinterpret_cast<DestroyFn>(dlsym(lib, "DestroyDeviceCtrl"));
    if (!create || !destroy) {
        std::printf("FAIL: the driver does not export CreateDeviceCtrl and DestroyDeviceCtrl\n");
        return 1;
    }

    checkRecordLayout();
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
