// One device created by a driver, driven only through its IDeviceCtrl slots.
#pragma once

#include <string>
#include <vector>

#include "DriverLibrary.h"
#include "IDeviceCtrl.h"

namespace host {

class Device {
public:
    // Creates the device; the library must outlive it. Check valid().
    Device(const DriverLibrary& library, const std::string& name, IRtdb* database);
    // Cleans up and destroys the device unless destroy() ran already.
    ~Device();
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    bool valid() const { return device_ != nullptr; }
    IDeviceCtrl* get() const { return device_; }
    const std::string& name() const { return name_; }

    // The slots; each answers DEVCTRL_BAD_ARGUMENT when there is no device.
    int init(const std::vector<unsigned char>& blob);
    int init(const unsigned char* blob, int length);
    int cleanup();
    int collect(const std::vector<int>& flags);
    int collect(const int* flags, int count);
    int command(const std::string& text);
    int command(const char* text);
    int write(int channel, DATATYPE type, void* value);
    int writeInt(int channel, int value);
    int writeDouble(int channel, double value);
    int writeText(int channel, const std::string& value);
    int updateCommunication(ICommunication* communication);
    int channelRefChange(const std::vector<int>& flags);
    int channelRefChange(const int* flags, int count);
    int setChannelAddress(int a, int b);

    // CleanupDevice, then DestroyDeviceCtrl; returns the latter's result. The driver does not
    // release its logic object (and stop its worker thread) on destruction alone, hence the
    // clean-up first. A second call answers DEVCTRL_BAD_ARGUMENT.
    int destroy();

private:
    std::string name_;
    DestroyDeviceCtrlFn destroyFunction_ = nullptr;
    IDeviceCtrl* device_ = nullptr;
};

}  // namespace host
