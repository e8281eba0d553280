// The driver interface the runtime calls, and the two exported entry points.
#pragma once

#include "DataType.h"
#include "ICommunication.h"
#include "IRtdb.h"

// Slot order is ABI: 0..7 as declared, then the destructors (8, 9).
class IDeviceCtrl {
public:
    virtual int InitDevice(const unsigned char* cfg, int len) = 0;          // 0
    virtual int CleanupDevice() = 0;                                        // 1
    virtual int CollectDevData(const int* flags, int count) = 0;            // 2
    virtual int DevIOCtrl(const char* cmd) = 0;                             // 3
    virtual int WriteChannel(int channel, DATATYPE type, void* value) = 0;  // 4
    virtual int UpdataCommunication(ICommunication* comm) = 0;              // 5
    virtual int ChannelRefChange(const int* flags, int count) = 0;          // 6
    virtual int SetChannelAddress(int a, int b) = 0;                        // 7
    virtual ~IDeviceCtrl() {}                                               // 8, 9
};

// Slot result codes.
constexpr int DEVCTRL_OK = 0;
constexpr int DEVCTRL_BAD_ARGUMENT = static_cast<int>(0x80000001u);
constexpr int DEVCTRL_NO_DATABASE = static_cast<int>(0x80000000u);

extern "C" {
typedef IDeviceCtrl* (*CreateDeviceCtrlFn)(const char* name, IRtdb* rtdb);
typedef int (*DestroyDeviceCtrlFn)(IDeviceCtrl* dev);
}
