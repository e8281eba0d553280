#include "AppCfgStore.h"

#include <fcntl.h>
#include <unistd.h>

#include "IniOperator.h"
#include "WexaRuntime.h"
#include "wexa_gui.h"

QString appCfgLckPath = "/tmp/wexa_app_conf.lck";

const char* const AppCfgStore::kSection = "DEVICE";
const char* const AppCfgStore::kBuzzDuration = "buzz_duration";
const char* const AppCfgStore::kBacklightStatus = "backlight_status";
const char* const AppCfgStore::kBacklightDuration = "backlight_duration";

namespace {
constexpr unsigned int kMaxBuzzDurationMs = 6500;
constexpr int kBuzzOnDurationMs = 30;  // switching the buzzer on always restores 30 ms
constexpr unsigned int kMinBacklightTimeoutS = 15;
constexpr unsigned int kMaxBacklightTimeoutS = 1800;
constexpr int kBeepWaitFallbackMs = 30;
constexpr int kBeepFrequency = 900;

// Range tests compare unsigned, so negative values fall out.
bool inRange(int value, unsigned int low, unsigned int high) {
    return static_cast<unsigned int>(value) - low <= high - low;
}

// What one write stores and which GUI calls follow it.
struct SettingWrite {
    const char* key;
    QString text;
    void (*notify)();
};

void notifyBuzzer() {
    __gui_get_buzzing_time(1);
    __gui_get_buzzing_time(0);
}
void notifyBacklightStatus() {
    __gui_get_lcdlight_status(1);
    __gui_reset_lcdlight_timer();
}
void notifyBacklightTime() {
    __gui_get_lcdlight_time(1);
    __gui_reset_lcdlight_timer();
}

// False when the value is out of range for the channel.
bool prepare(DEV_CHNLNAME channel, int value, SettingWrite& out) {
    switch (channel) {
        case DEV_CHL_BUZZ_SWITCH:
            if (!inRange(value, 0, 1))
                return false;
            out = {AppCfgStore::kBuzzDuration, QString::number(value ? kBuzzOnDurationMs : 0),
                   notifyBuzzer};
            return true;
        case DEV_CHL_BUZZ_DURATION:
            if (!inRange(value, 0, kMaxBuzzDurationMs))
                return false;
            out = {AppCfgStore::kBuzzDuration, QString::number(value), notifyBuzzer};
            return true;
        case DEV_CHL_BACKLIGHT_SWITCH:
            if (!inRange(value, 0, 1))
                return false;
            out = {AppCfgStore::kBacklightStatus, QString::number(value), notifyBacklightStatus};
            return true;
        case DEV_CHL_BACKLIGHT_TIMEOUT:
            if (!inRange(value, kMinBacklightTimeoutS, kMaxBacklightTimeoutS))
                return false;
            out = {AppCfgStore::kBacklightDuration, QString::number(value * 1000),
                   notifyBacklightTime};
            return true;
        default:
            return false;
    }
}
}  // namespace

AppCfgStore::AppCfgStore() : m_filePath(configDirectory() + "/wexa_app_conf.ini") {
    m_open = m_lock.file().open(appCfgLckPath.toLatin1().constData(), O_CREAT);
}

QString AppCfgStore::configDirectory() {
    QString dir = QString::fromUtf8(Wexa_GetDirectory(1).GetString());
    return dir.isEmpty() ? QString("/usr/wexa_app/config") : dir;
}

int AppCfgStore::read(const QString& key, QString& value) {
    KRVCTRL::FileLocker hold(m_lock);
    return IniOperator::FileIniReadValue(m_filePath, kSection, key, value, "");
}

int AppCfgStore::write(const QString& key, const QString& value) {
    KRVCTRL::FileLocker hold(m_lock);
    return IniOperator::FileIniWriteValue(m_filePath, kSection, key, value);
}

int AppCfgStore::writeSetting(DEV_CHNLNAME channel, int value) {
    SettingWrite setting;
    if (!prepare(channel, value, setting))
        return -4;
    const int result = write(setting.key, setting.text);
    // The GUI rereads the file, so it is told only once the lock is free again.
    setting.notify();
    return result;
}

int AppCfgStore::beepTest(int value) {
    if (value < 0)
        return -4;
    QString stored;
    const int wasRead = read(kBuzzDuration, stored);
    const int duration = stored.toInt();
    const bool usable = wasRead && inRange(duration, 0, kMaxBuzzDurationMs);
    ::usleep(static_cast<useconds_t>(usable ? duration : kBeepWaitFallbackMs) * 1000u);
    Wexa_Beep(kBeepFrequency, value);
    return 0;
}
