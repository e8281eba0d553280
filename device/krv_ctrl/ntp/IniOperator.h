// Single values in INI files (UTF-8), each write followed by sync().
#pragma once

#include <QString>

class IniOperator {
public:
    // 0 on success, -1 when the file path, group or key is empty.
    static int FileIniWriteValue(QString file, QString group, QString key, QString value);
    // 1 when read (value set, or the default when the key is absent), 0 when the
    // file path, group or key is empty (value untouched).
    static int FileIniReadValue(QString file, QString group, QString key, QString& value,
                                QString defaultValue);
};
