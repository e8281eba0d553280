#include "IniOperator.h"

#include <unistd.h>

#include <QSettings>
#include <memory>

namespace {
std::unique_ptr<QSettings> openIni(const QString& file) {
    std::unique_ptr<QSettings> settings(new QSettings(file, QSettings::IniFormat));
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
    std::unique_ptr<QSettings> settings = openIni(file);
    settings->setValue(keyPath(group, key), value);
    // Destroying the settings object writes the file; sync() then pushes it to
    // the medium, since the panel may lose power at any moment.
    settings.reset();
    ::sync();
    return 0;
}

int IniOperator::FileIniReadValue(QString file, QString group, QString key, QString& value,
                                  QString defaultValue) {
    if (file.isEmpty() || group.isEmpty() || key.isEmpty())
        return 0;
    std::unique_ptr<QSettings> settings = openIni(file);
    value = settings->value(keyPath(group, key), defaultValue).toString();
    return 1;
}
