// Channel refresh: gathers the panel's state into the device object's arrays.
#include <arpa/inet.h>
#include <netinet/in.h>

#include <QSettings>
#include <QString>

#include "AppCfgStore.h"
#include "DevBas.h"
#include "devliunxsys.h"
#include "ntpCfgParam.h"
#include "NtpCtrl.h"
#include "SettingsFile.h"
#include "wexa_hal.h"

namespace {

// Dotted-decimal text of an address word in network byte order. inet_ntop writes the
// same text as inet_ntoa without its shared static buffer (the NTP worker runs beside us).
CString dotted(uint32_t networkOrder) {
    char text[INET_ADDRSTRLEN] = {0};
    struct in_addr addr;
    addr.s_addr = networkOrder;
    inet_ntop(AF_INET, &addr, text, sizeof text);
    return CString(text);
}

void refreshNetwork(CStringArray& texts) {
    unsigned int count = 0;
    if (hal_get_network_count(&count) != 0 || count == 0)
        return;
    hal_network_info info[2];
    hal_network_info beyond;  // records past the second are read but never shown
    for (unsigned int i = 0; i < count; ++i) {
        if (hal_get_network(i, i < 2 ? &info[i] : &beyond) != 0)
            return;
    }
    // Three or more interfaces leave the address channels alone.
    if (count > 2)
        return;
    CDevBas::setArrayValue(texts, DEV_CHL_IP1, dotted(info[0].param.addr));
    CDevBas::setArrayValue(texts, DEV_CHL_MASK1, dotted(info[0].param.mask));
    CDevBas::setArrayValue(texts, DEV_CHL_IP2, count == 2 ? dotted(info[1].param.addr) : CString());
    CDevBas::setArrayValue(texts, DEV_CHL_MASK2,
                           count == 2 ? dotted(info[1].param.mask) : CString());
}

// Base-10 integer of a stored text; 0 when it is not a number.
int storedInt(const QString& text) {
    bool ok = false;
    int value = text.toInt(&ok, 10);
    return ok ? value : 0;
}

void refreshPanelSettings(AppCfgStore& store, CArray<double, double>& values) {
    QString text;
    if (store.read(AppCfgStore::kBuzzDuration, text)) {
        const int duration = storedInt(text);
        CDevBas::setArrayValue(values, DEV_CHL_BUZZ_DURATION, duration);
        CDevBas::setArrayValue(values, DEV_CHL_BUZZ_SWITCH,
                               (duration != 0 && text != "false") ? 1.0 : 0.0);
    }
    text.clear();
    if (store.read(AppCfgStore::kBacklightStatus, text)) {
        // Exact, case-sensitive texts only; anything else keeps the previous value.
        if (text == "0" || text == "false")
            CDevBas::setArrayValue(values, DEV_CHL_BACKLIGHT_SWITCH, 0.0);
        else if (text == "1" || text == "true")
            CDevBas::setArrayValue(values, DEV_CHL_BACKLIGHT_SWITCH, 1.0);
    }
    text.clear();
    if (store.read(AppCfgStore::kBacklightDuration, text)) {
        // The file holds milliseconds, the channel shows whole seconds.
        CDevBas::setArrayValue(values, DEV_CHL_BACKLIGHT_TIMEOUT, storedInt(text) / 1000);
    }
}

void refreshOperation(WEXA_DATA& data, CDevBas& bas, const char* name, DEV_CHNLNAME channel,
                      const double& result, CArray<double, double>& values) {
    if (bas.m_pDevManger == nullptr)
        return;
    CString command;
    command.Format("%s(%d)", name, static_cast<int>(channel));
    bas.m_pDevManger->DevOpear(data, std::string(command.GetString()));
    CDevBas::setArrayValue(values, channel, result);
}

void refreshNtp(CDevBas& bas, CArray<double, double>& values, CStringArray& texts) {
    if (bas.m_pNtpCtrl == nullptr)
        return;
    const ntpCfgParam param = bas.m_pNtpCtrl->getParam();
    CDevBas::setArrayValue(values, DEV_CHL_NTP_ENABLE, param.m_ntpSwitch);
    CDevBas::setArrayValue(values, DEV_CHL_NTP_MODE, param.m_ntpMode);
    CDevBas::setArrayValue(values, DEV_CHL_NTP_FREQ, param.m_ntpFreq);
    for (int i = 0; i < 4; ++i) {
        CDevBas::setArrayValue(texts, static_cast<DEV_CHNLNAME>(DEV_CHL_NTP_SERVER1 + i),
                               CDevBas::QS2CS(param.m_ntpServer[i]));
    }
}

void refreshVncPassword(CStringArray& texts) {
    bool exists = false;
    const QString path = vncCfgFilePath(exists);
    CString password;
    if (exists) {
        KRVCTRL::SettingsFile guard(path);
        QSettings settings(path, QSettings::IniFormat);
        password = CDevBas::QS2CS(settings.value("/VNCCONFIG/passwd").toString());
    }
    CDevBas::setArrayValue(texts, DEV_CHL_VNC_PWD, password);
}

}  // namespace

void CDevBas::setArrayValue(CStringArray& stringArray, DEV_CHNLNAME index, CString value) {
    if (index >= 0 && index < stringArray.GetSize())
        stringArray[index] = value;
}

void CDevBas::setArrayValue(CArray<double, double>& valueArray, DEV_CHNLNAME index, double value) {
    if (index >= 0 && index < valueArray.GetSize())
        valueArray[index] = value;
}

int CDevBas::refleshData(WEXA_DATA& data, CArray<double, double>& valueArray,
                         CStringArray& stringArray) {
    refreshNetwork(stringArray);

    AppCfgStore store;
    // Without the lock file the panel settings, load, NTP and password channels keep
    // their previous values.
    if (!store.isOpen())
        return 1;
    refreshPanelSettings(store, valueArray);

    refreshOperation(data, *this, "GetCpuUse", DEV_CHL_CPU, m_cpuUse, valueArray);
    refreshOperation(data, *this, "GetMemUse", DEV_CHL_MEM, m_memUse, valueArray);
    refreshNtp(*this, valueArray, stringArray);
    refreshVncPassword(stringArray);
    return 1;
}
