// Single values in INI files (UTF-8), each write followed by sync().
#pragma once

#include <QString>
#include <utility>
#include <vector>

class IniOperator {
public:
    // 0 on success, -1 when the file path, group or key is empty.
    static int FileIniWriteValue(QString file, QString group, QString key, QString value);
    // Sets each "/group/key" path to its text through QSettings, then sync() (see
    // KRVCTRL::SettingsFile::write). False when the file was left as it was. The UTF-8 codec
    // unless `utf8` is false (files of other programs that use the default).
    static bool FileIniWriteValues(const QString& file,
                                   const std::vector<std::pair<QString, QString>>& values,
                                   bool utf8 = true);
    // 1 when read (value set, or the default when the key is absent), 0 when the
    // file path, group or key is empty (value untouched).
    static int FileIniReadValue(QString file, QString group, QString key, QString& value,
                                QString defaultValue);
};
