// Write commands: one value to one channel, and the shared NTP controls.
#include <QString>

#include "AppCfgStore.h"
#include "DevBas.h"
#include "DevServer.h"
#include "NtpCtrl.h"

namespace {

// Write type of each channel: 1 switch or integer, 2 number, 3 text.
constexpr int DEV_LONG_CHLTYPE[DEV_CHL_COUNT] = {1, 3, 3, 1, 2, 1, 2, 2, 3, 3,
                                                 2, 1, 1, 1, 1, 3, 3, 3, 3, 3};

// A value text converted and truncated toward zero.
int truncatedNumber(const CString& text) {
    return truncateToInt(CDevServer::SvrStr2Double(text, text.GetLength(), 0, 0));
}

// NTP number channels take the text as a plain base-10 integer; anything else is 0.
int plainInteger(const CString& text) {
    bool ok = false;
    const int value = QString::fromLatin1(text.GetString()).toInt(&ok, 10);
    return ok ? value : 0;
}

int ntpSetter(NtpCtrl& ntp, int type, int value) {
    switch (type) {
        case NTP_CTRL_ENABLE:
            return ntp.enableNtp(value);
        case NTP_CTRL_MODE:
            return ntp.setNtpMode(value);
        default:
            return ntp.setNtpFreq(value);
    }
}

}  // namespace

int CDevBas::mfDevIOWriteChannel(WEXA_DATA& data, CString& argumentText) {
    (void)data;
    const int equals = argumentText.Find('=');
    if (equals < 0)
        return -1;
    CString channelText = argumentText.Left(equals);
    CString valueText = argumentText.Mid(equals + 1);
    channelText.Trim();
    valueText.Trim();

    const int channel = truncatedNumber(channelText);
    // Channel 0 and unknown channels are accepted and ignored.
    if (channel < DEV_CHL_IP1 || channel > DEV_CHL_VNC_PWD)
        return 0;
    const int value = DEV_LONG_CHLTYPE[channel] == 3 ? 0 : truncatedNumber(valueText);

    AppCfgStore store;
    // Without the lock file every write is dropped silently, whatever the channel.
    if (!store.isOpen())
        return 0;

    switch (channel) {
        case DEV_CHL_IP1:
        case DEV_CHL_MASK1:
        case DEV_CHL_IP2:
        case DEV_CHL_MASK2:
            return changeAddress(channel, valueText);
        case DEV_CHL_BUZZ_SWITCH:
        case DEV_CHL_BUZZ_DURATION:
        case DEV_CHL_BACKLIGHT_SWITCH:
        case DEV_CHL_BACKLIGHT_TIMEOUT:
            return store.writeSetting(static_cast<DEV_CHNLNAME>(channel), value);
        case DEV_CHL_BEEP:
            return store.beepTest(value);
        case DEV_CHL_CPU:
        case DEV_CHL_MEM:
            return -1;  // read-only
        default:
            break;
    }

    // NTP and password channels. The NTP controller always exists after InitDevice;
    // a missing one makes the write a no-op.
    if (channel == DEV_CHL_VNC_PWD)
        return writeVncPwd(valueText);
    if (m_pNtpCtrl == nullptr)
        return 0;
    if (channel <= DEV_CHL_NTP_FREQ)
        return ntpSetter(*m_pNtpCtrl, channel - DEV_CHL_NTP_ENABLE, plainInteger(valueText));
    m_pNtpCtrl->setNtpServer(channel - DEV_CHL_NTP_SERVER1,
                             QString::fromLatin1(valueText.GetString()));
    return 0;
}

int CDevBas::execSameCtrl(WEXA_DATA& data, const CString& argumentText, NTP_CTRL_TYPE type) {
    std::vector<ZU::utils::String> items;
    if (!splitString(argumentText.GetString(), ',', items) || items.empty() || items.size() > 2)
        return -5;
    const bool hasStatus = items.size() == 2;
    const CString statusName = hasStatus ? CString(items[1].c_str()) : CString();

    int value = 0;
    if (!CDevServer::SvrGetParaValue(data, CString(items[0].c_str()), value)) {
        if (hasStatus)
            CDevServer::SvrSetParaValue(data, statusName, 4);
        return -4;
    }
    // A guard for a controller that is missing (never the case after InitDevice).
    const int result = m_pNtpCtrl ? ntpSetter(*m_pNtpCtrl, type, value) : 0;
    // Without a status variable a refused value reaches no one, by design.
    if (!hasStatus)
        return 0;
    return CDevServer::SvrSetParaValue(data, statusName, -result) ? 0 : -4;
}
