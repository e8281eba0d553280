// The device logic object: channel refresh, write commands, network and
// remote-view settings, and the command dispatcher's entry.
#pragma once

#include <mutex>
#include <vector>

#include <QString>

#include "CArray.h"
#include "CString.h"
#include "CommonTools.h"
#include "IRtdb.h"
#include "WexaData.h"

class DevManger;
class NtpCtrl;

// Channel index space shared by the value and text arrays.
enum DEV_CHNLNAME : int {
    DEV_CHL_COMM = 0,
    DEV_CHL_IP1 = 1,
    DEV_CHL_MASK1 = 2,
    DEV_CHL_BUZZ_SWITCH = 3,
    DEV_CHL_BUZZ_DURATION = 4,
    DEV_CHL_BACKLIGHT_SWITCH = 5,
    DEV_CHL_BACKLIGHT_TIMEOUT = 6,
    DEV_CHL_BEEP = 7,
    DEV_CHL_IP2 = 8,
    DEV_CHL_MASK2 = 9,
    DEV_CHL_CPU = 10,
    DEV_CHL_MEM = 11,
    DEV_CHL_NTP_ENABLE = 12,
    DEV_CHL_NTP_MODE = 13,
    DEV_CHL_NTP_FREQ = 14,
    DEV_CHL_NTP_SERVER1 = 15,
    DEV_CHL_NTP_SERVER2 = 16,
    DEV_CHL_NTP_SERVER3 = 17,
    DEV_CHL_NTP_SERVER4 = 18,
    DEV_CHL_VNC_PWD = 19,
    DEV_CHL_COUNT = 20,
};

// Selects the NTP setter of execSameCtrl.
enum NTP_CTRL_TYPE : int {
    NTP_CTRL_ENABLE = 0,
    NTP_CTRL_MODE = 1,
    NTP_CTRL_FREQ = 2,
};

// Serialises whole text commands across every device of the process.
extern std::mutex g_halMutex;

// Preferred remote-view configuration file, "/etc/iot_cfg/vncConfig.ini".
extern QString vncCfgPath;
// vncCfgPath when that file exists, else the runtime's configuration directory
// (or "/usr/wexa_app/config") followed by "/vncConfig.ini". `exists` tells whether that
// file exists, so that callers need not look a second time.
QString vncCfgFilePath(bool& exists);

class CDevBas {
public:
    CDevBas();
    ~CDevBas();
    CDevBas(const CDevBas&) = delete;
    CDevBas& operator=(const CDevBas&) = delete;

    // --- configuration blob (device parameters) ---
    // Most parameters a blob may give (256 KiB); a larger count is read as this many.
    static const int kMaxParamCount = 65536;
    int mfDeserializeFromOld(WEXA_DATA& data);

    // --- channel refresh ---
    int refleshData(WEXA_DATA& data, CArray<double, double>& valueArray, CStringArray& stringArray);
    static void setArrayValue(CStringArray& stringArray, DEV_CHNLNAME index, CString value);
    static void setArrayValue(CArray<double, double>& valueArray, DEV_CHNLNAME index, double value);

    // --- write commands ---
    int mfDevIOWriteChannel(WEXA_DATA& data, CString& argumentText);
    int execSameCtrl(WEXA_DATA& data, const CString& argumentText, NTP_CTRL_TYPE type);

    // --- network and remote-view settings ---
    static int IsAvailableIPAddr(const char* text);
    static int IsAvailableMaskAddr(const char* text);
    static int getLocalcount_name(unsigned int& count, std::vector<QString>& names);
    static int setLocalIp(QString& value, int kind, QString& ifname);
    static int writeVncPwd(const CString& password);
    static int splitString(const char* text, char separator, std::vector<ZU::utils::String>& items);
    static CString QS2CS(QString text);
    // Write of address channel 1, 2, 8 or 9: 0 applied, -4 invalid text,
    // -6 interfaces cannot be listed, -8 no such interface, -7 HAL refused.
    static int changeAddress(int channel, const CString& text);

    // Parameters from the configuration blob; the first member.
    CArray<int, int> m_params;
    // 0 makes the next poll refresh every channel.
    int m_refreshDone = 0;
    // Cleared only by InitDevice.
    int m_initRefreshDone = 0;
    // Refresh bookkeeping reset by InitDevice.
    int m_stateFlag = 1;
    int m_stateWords[3] = {0, 0, 0};
    CString m_text;
    double m_stateValue = -1.0;
    int m_stateWords2[2] = {0, 0};
    long long m_stateTimes[2] = {0, 0};

    // Filled by the "GetCpuUse" and "GetMemUse" operations.
    double m_cpuUse = 0.0;
    double m_memUse = 0.0;

    // Owned; deleted by CDevCtrl::CleanupDevice.
    DevManger* m_pDevManger = nullptr;
    NtpCtrl* m_pNtpCtrl = nullptr;

    IRtdb* m_pLocalRtdb = nullptr;
    static IRtdb* m_pRtdb;
};

namespace wexa_device {
// Every text command and channel write passes through here; the outcome lands,
// without its sign, in element 0 of `valueArray`. Always returns 0.
int SvrDevIOCtrl(WEXA_DATA& data, CString& command, CArray<double, double>& valueArray,
                 CStringArray& stringArray);
}  // namespace wexa_device
