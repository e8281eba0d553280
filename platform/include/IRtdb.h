// The runtime's variable and channel database, as a driver sees it.
#pragma once

#include <string>

#include "DataType.h"

// Slot order is ABI: never reorder, insert or remove a virtual here.
class IRtdb {
public:
    // By variable name (0..6); every call returns 0 on success.
    virtual int GetValueType(const char* name, DATATYPE* type) = 0;        // 0
    virtual int GetIntValue(const char* name, int* value) = 0;             // 1
    virtual int GetDoubleValue(const char* name, double* value) = 0;       // 2
    virtual int GetStringValue(const char* name, std::string* value) = 0;  // 3
    virtual int SetIntValue(const char* name, int value) = 0;              // 4
    virtual int SetDoubleValue(const char* name, double value) = 0;        // 5
    virtual int SetStringValue(const char* name, std::string* value) = 0;  // 6
    // By 0-based runtime channel index.
    virtual int GetChannelType(int channel, DATATYPE* type) = 0;        // 7
    virtual int Reserved8() = 0;                                        // 8
    virtual int Reserved9() = 0;                                        // 9
    virtual int Reserved10() = 0;                                       // 10
    virtual int SetChannelInt(int channel, int value) = 0;              // 11
    virtual int SetChannelDouble(int channel, double value) = 0;        // 12
    virtual int SetChannelString(int channel, std::string* value) = 0;  // 13

protected:
    ~IRtdb() = default;  // never deleted through the interface
};
