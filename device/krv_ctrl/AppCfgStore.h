// The application configuration file shared with the panel's runtime and GUI:
// buzzer and backlight settings in section "DEVICE", each key read or written
// under its own exclusive hold of the lock file in `appCfgLckPath`.
#pragma once

#include <QString>

#include "DevBas.h"
#include "File.h"

// "/tmp/wexa_app_conf.lck", set at load time.
extern QString appCfgLckPath;

// One routine's access to the store. Construct it once per routine (refresh or
// write command): it computes the file path afresh and opens the lock file.
// When isOpen() is false the caller touches nothing: the refresh keeps its
// previous values and a write command ends with 0.
class AppCfgStore {
public:
    static const char* const kSection;            // "DEVICE"
    static const char* const kBuzzDuration;       // "buzz_duration"
    static const char* const kBacklightStatus;    // "backlight_status"
    static const char* const kBacklightDuration;  // "backlight_duration"

    AppCfgStore();
    AppCfgStore(const AppCfgStore&) = delete;
    AppCfgStore& operator=(const AppCfgStore&) = delete;

    bool isOpen() const { return m_open; }
    const QString& filePath() const { return m_filePath; }

    // One key under its own lock hold. A missing key reads as the empty text.
    // Returns 1 when read, 0 when not (value untouched).
    int read(const QString& key, QString& value);

    // Channels 3 to 6: validates `value`, writes the one key under its lock,
    // then (lock released) tells the GUI. -4 out of range (nothing written),
    // otherwise the INI writer's result. Any other channel gives -4.
    int writeSetting(DEV_CHNLNAME channel, int value);

    // Channel 7: waits the stored buzzer duration (30 ms when unreadable or out
    // of range), then sounds the buzzer for `value`. -4 when `value` < 0, else 0.
    int beepTest(int value);

    // The runtime's configuration directory, or "/usr/wexa_app/config" when the
    // runtime reports none. Computed afresh on every call.
    static QString configDirectory();

private:
    int write(const QString& key, const QString& value);

    QString m_filePath;
    KRVCTRL::FileLock m_lock;
    bool m_open;
};
