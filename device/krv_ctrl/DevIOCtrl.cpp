// The command dispatcher: every text command and channel write enters here.
#include <sys/reboot.h>
#include <unistd.h>

#include <string>

#include "DevBas.h"
#include "DevConst.h"
#include "DevServer.h"
#include "Logger.h"
#include "NtpCtrl.h"
#include "devliunxsys.h"
#include "wexa_hal.h"

std::mutex g_halMutex;

namespace {
enum { NTP_CMD_SET_SERVER = 3, NTP_CMD_EXEC = 4, NTP_CMD_COUNT = 5 };

constexpr int kArraySize = 20;
constexpr int kCodeVariable = 4;  // a named variable could not be read or written
constexpr double kCodeHalRefused = 9.0;
constexpr int kNtpServerCount = 4;

// Negative handler results are reported without their sign.
double reported(int r) {
    return r < 0 ? -static_cast<double>(r) : 0.0;
}

CString itemText(const ZU::utils::String& item) {
    return CString(item.c_str());
}

// Splits an argument list; 0 items means the split failed.
std::vector<ZU::utils::String> splitArguments(const CString& arguments) {
    std::vector<ZU::utils::String> items;
    if (!CDevBas::splitString(arguments.GetString(), ',', items))
        items.clear();
    return items;
}

bool setStatus(WEXA_DATA& data, const ZU::utils::String& name, int value) {
    return CDevServer::SvrSetParaValue(data, itemText(name), value) != 0;
}

// ModVncPwd(passwordSource[,statusVariable])
int modVncPwd(WEXA_DATA& data, const CString& arguments) {
    const std::vector<ZU::utils::String> items = splitArguments(arguments);
    if (items.size() != 1 && items.size() != 2)
        return -5;
    const bool hasStatus = items.size() == 2;

    CString password;
    if (!CDevServer::SvrGetParaValue(data, itemText(items[0]), password)) {
        if (hasStatus)
            setStatus(data, items[1], kCodeVariable);
        return -kCodeVariable;
    }
    int r = CDevBas::writeVncPwd(password);
    if (hasStatus && !setStatus(data, items[1], -r))
        r = -kCodeVariable;
    return r;
}

// SetNTPServer(server1,server2,server3,server4[,statusVariable])
int setNtpServers(WEXA_DATA& data, NtpCtrl& ntp, const CString& arguments) {
    const std::vector<ZU::utils::String> items = splitArguments(arguments);
    if (items.size() != kNtpServerCount && items.size() != kNtpServerCount + 1)
        return -5;
    const bool hasStatus = items.size() == kNtpServerCount + 1;

    QString servers[kNtpServerCount];
    for (int i = 0; i < kNtpServerCount; ++i) {
        CString text;
        if (!CDevServer::SvrGetParaValue(data, itemText(items[i]), text)) {
            if (hasStatus)
                setStatus(data, items[kNtpServerCount], kCodeVariable);
            return -kCodeVariable;
        }
        servers[i] = QString::fromLatin1(text.GetString());
    }
    ntp.setNtpServers(servers);
    if (hasStatus && !setStatus(data, items[kNtpServerCount], 0))
        return -kCodeVariable;
    return 0;
}

// ExecNTP([statusVariable]); the synchronisation's own result never reaches element 0.
double execNtp(WEXA_DATA& data, NtpCtrl& ntp, const CString& arguments) {
    const int e = ntp.execNtp();
    if (arguments.IsEmpty())
        return 0.0;
    return CDevServer::SvrSetParaValue(data, arguments, -e) ? 0.0 : kCodeVariable;
}

double ntpCommand(WEXA_DATA& data, int index, const CString& arguments) {
    CDevBas* bas = data.pDevBas;
    // InitDevice always creates both; should either be missing, the command is
    // dropped and reported as done rather than dereferencing a null pointer.
    if (bas == nullptr || bas->m_pNtpCtrl == nullptr)
        return 0.0;
    NtpCtrl& ntp = *bas->m_pNtpCtrl;
    switch (index) {
        case NTP_CMD_SET_SERVER:
            return reported(setNtpServers(data, ntp, arguments));
        case NTP_CMD_EXEC:
            return execNtp(data, ntp, arguments);
        default:
            return reported(bas->execSameCtrl(data, arguments, static_cast<NTP_CTRL_TYPE>(index)));
    }
}

double dispatch(WEXA_DATA& data, CString& command) {
    const int open = command.Find('(');
    const int close = command.Find(')');
    // A command without brackets is reported as done and does nothing.
    if (open < 0 || close < 0)
        return 0.0;

    CString keyword = command.Left(open);
    keyword.Trim();
    keyword.MakeUpper();
    // A ")" ahead of the "(" leaves the argument text empty.
    CString arguments = close > open ? command.Mid(open + 1, close - open - 1) : CString();
    CDevBas* bas = data.pDevBas;

    if (keyword.CompareNoCase(DEV_STR_WEXAWRITE) == 0) {
        if (bas == nullptr)
            return 0.0;  // not initialised: nothing to write through
        const int r = bas->mfDevIOWriteChannel(data, arguments);
        bas->m_refreshDone = 0;
        return reported(r);
    }
    if (keyword.CompareNoCase(DEV_STR_BLON) == 0)
        return hal_set_lcd_status(0) != 0 ? kCodeHalRefused : 0.0;
    if (keyword.CompareNoCase(DEV_STR_BLOFF) == 0)
        return hal_set_lcd_status(1) != 0 ? kCodeHalRefused : 0.0;
    if (keyword.CompareNoCase(DEV_STR_REFLESH) == 0) {
        logger_printf(3, "mfDevIOCtrl", "device/krv_ctrl/DevBas", 544, 0, LOGGER_LEVEL_INFO,
                      "mfDevIOCtrl begin", "strOrder = %s", keyword.GetString());
        if (bas != nullptr)
            bas->m_refreshDone = 0;
        return 0.0;
    }
    if (keyword.CompareNoCase(DEV_STR_REBOOT) == 0) {
        // No sync: the panel's storage is written through on every settings change.
        ::reboot(0x1234567);
        return 0.0;
    }
    if (keyword.CompareNoCase(DEV_MOD_VNC_PWD) == 0)
        return reported(modVncPwd(data, arguments));
    for (int i = 0; i < NTP_CMD_COUNT; ++i)
        if (keyword.CompareNoCase(NTP_CTRL_CMD[i]) == 0)
            return ntpCommand(data, i, arguments);

    if (bas == nullptr || bas->m_pDevManger == nullptr)
        return 0.0;
    return reported(bas->m_pDevManger->DevOpear(data, std::string(command.GetString())));
}
}  // namespace

namespace wexa_device {

int SvrDevIOCtrl(WEXA_DATA& data, CString& command, CArray<double, double>& valueArray,
                 CStringArray& stringArray) {
    if (valueArray.GetSize() == 0)
        return 0;
    // Held on every path; a failure to lock is fatal and is left to terminate.
    std::unique_lock<std::mutex> lock(g_halMutex);
    valueArray.SetSize(kArraySize);
    stringArray.SetSize(kArraySize);
    double outcome = 0.0;
    try {
        outcome = dispatch(data, command);
    } catch (...) {
        // Only an allocation failure can get here; the runtime must not see it.
        outcome = 0.0;
    }
    valueArray[0] = outcome;
    return 0;
}

}  // namespace wexa_device
