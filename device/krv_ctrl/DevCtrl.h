// The device object the runtime drives through IDeviceCtrl, and the two exports.
#pragma once

#include "CArray.h"
#include "CString.h"
#include "IDeviceCtrl.h"
#include "WexaData.h"

class CDevCtrl : public virtual IDeviceCtrl {
public:
    CDevCtrl(const char* name, IRtdb* rtdb);
    ~CDevCtrl() override;
    CDevCtrl(const CDevCtrl&) = delete;
    CDevCtrl& operator=(const CDevCtrl&) = delete;

    int InitDevice(const unsigned char* cfg, int len) override;
    int CleanupDevice() override;
    int CollectDevData(const int* flags, int count) override;
    int DevIOCtrl(const char* cmd) override;
    int WriteChannel(int channel, DATATYPE type, void* value) override;
    int UpdataCommunication(ICommunication* comm) override;
    int ChannelRefChange(const int* flags, int count) override;
    int SetChannelAddress(int a, int b) override;

    // Access to project variables by name, reached through the record's fields.
    static int SetParamValue_Fun(WEXA_DATA& data, CString name, DATATYPE type, void* value);
    static int GetParamValue_Fun(WEXA_DATA& data, CString name, DATATYPE type, void* out);
    static int GetParamType_Fun(WEXA_DATA& data, CString name, DATATYPE& type);

    // Read-only views for diagnostics.
    const WEXA_DATA& GetRecord() const { return m_data; }
    int GetMaxChannel() const { return m_nMaxChannel; }
    const CArray<int, int>& GetStatusArray() const { return m_statusArray; }
    const CArray<double, double>& GetValueArray() const { return m_valueArray; }
    const CStringArray& GetStringArray() const { return m_stringArray; }

private:
    int doInitDevice(const unsigned char* cfg, int len);
    int doCollectDevData(const int* flags, int count);
    void _InitValueArray(int count);
    void notifyCommunication();
    // Sizes the arrays, runs `command` through the dispatcher and returns element 0.
    int runCommand(CString& command);
    int resultValue() const;
    void pushChannels();

    WEXA_DATA m_data;
    int m_nMaxChannel;
    CArray<int, int> m_statusArray;
    CArray<double, double> m_valueArray;
    CStringArray m_stringArray;
};

#define KRV_EXPORT __attribute__((visibility("default")))

extern "C" {
KRV_EXPORT IDeviceCtrl* CreateDeviceCtrl(const char* name, IRtdb* rtdb);
KRV_EXPORT int DestroyDeviceCtrl(IDeviceCtrl* dev);
}
