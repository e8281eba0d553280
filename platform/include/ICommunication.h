// The runtime's communication object: told about each service of a device.
#pragma once

// Slot order is ABI. Only slots 15 and 16 are used by drivers.
class ICommunication {
public:
    virtual int Reserved0() = 0;
    virtual int Reserved1() = 0;
    virtual int Reserved2() = 0;
    virtual int Reserved3() = 0;
    virtual int Reserved4() = 0;
    virtual int Reserved5() = 0;
    virtual int Reserved6() = 0;
    virtual int Reserved7() = 0;
    virtual int Reserved8() = 0;
    virtual int Reserved9() = 0;
    virtual int Reserved10() = 0;
    virtual int Reserved11() = 0;
    virtual int Reserved12() = 0;
    virtual int Reserved13() = 0;
    virtual int Reserved14() = 0;
    // 15: called with the device name before each poll, command and write.
    virtual int OnDeviceService(char* deviceName) = 0;
    // 16: the link state, 1 or 2.
    virtual int GetCommState() = 0;

protected:
    ~ICommunication() = default;
};
