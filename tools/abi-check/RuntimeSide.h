// The runtime's side of the driver's binary interface, declared again here without any of the
// driver's or platform's headers: the slot tables and the per-device record as the runtime lays
// them out. Shared by krv-abi-check and the build's compile-time comparison with the headers.
#pragma once

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

}  // namespace runtime_side
