#include "IniOperator.h"

#include "SettingsFile.h"

#include <unistd.h>

#include <QSettings>
#include <memory>

namespace {
std::unique_ptr<QSettings> openIni(const QString& file, bool utf8 = true) {
    std::unique_ptr<QSettings> settings(new QSettings(file, QSettings::IniFormat));
    if (utf8)
        settings->setIniCodec("UTF-8");
    return settings;
}

// Built in one allocation: every INI read and write of the driver passes here.
QString keyPath(const QString& group, const QString& key) {
    QString path;
    path.reserve(group.size() + key.size() + 2);
    path += QLatin1Char('/');
    path += group;
    path += QLatin1Char('/');
    path += key;
    return path;
}
}  // namespace

int IniOperator::FileIniWriteValue(QString file, QString group, QString key, QString value) {
    if (file.isEmpty() || group.isEmpty() || key.isEmpty())
        return -1;
    // A failed write is not reported: the caller's result stays 0.
    (void)FileIniWriteValues(file, {{keyPath(group, key), value}});
    return 0;
}

bool IniOperator::FileIniWriteValues(const QString& file,
                                     const std::vector<std::pair<QString, QString>>& values,
                                     bool utf8) {
    bool written;
    KRVCTRL::SettingsFile guard(file, KRVCTRL::SettingsFile::Write);
    {
        std::unique_ptr<QSettings> settings = openIni(file, utf8);
        for (const auto& value : values)
            settings->setValue(value.first, value.second);
        settings->sync();
        written = settings->status() == QSettings::NoError;
    }
    guard.written();
    // The panel may lose power at any moment.
    ::sync();
    return written;
}

int IniOperator::FileIniReadValue(QString file, QString group, QString key, QString& value,
                                  QString defaultValue) {
    if (file.isEmpty() || group.isEmpty() || key.isEmpty())
        return 0;
    KRVCTRL::SettingsFile guard(file, KRVCTRL::SettingsFile::Read);
    std::unique_ptr<QSettings> settings = openIni(file);
    value = settings->value(keyPath(group, key), defaultValue).toString();
    return 1;
}
