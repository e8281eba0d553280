#include "IniOperator.h"

#include "SettingsFile.h"

#include <QSettings>

namespace {
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
    return KRVCTRL::SettingsFile::write(file, values, utf8);
}

int IniOperator::FileIniReadValue(QString file, QString group, QString key, QString& value,
                                  QString defaultValue) {
    if (file.isEmpty() || group.isEmpty() || key.isEmpty())
        return 0;
    KRVCTRL::SettingsFile guard(file);
    QSettings settings(file, QSettings::IniFormat);
    settings.setIniCodec("UTF-8");
    value = settings.value(keyPath(group, key), defaultValue).toString();
    return 1;
}
