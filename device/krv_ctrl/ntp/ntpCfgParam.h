// The NTP settings record and its INI file.
#pragma once

#include <QString>

class ntpCfgParam {
public:
    ntpCfgParam();
    ~ntpCfgParam();

    // Fills all seven fields; absent keys take their defaults.
    void readCfg(QString const& path);
    // Writes all seven fields, creating the directory first; ends with sync().
    void writeCfg(QString const& path);

    bool operator==(const ntpCfgParam& other) const;
    bool operator!=(const ntpCfgParam& other) const { return !(*this == other); }

    int m_ntpSwitch;
    int m_ntpMode;
    int m_ntpFreq;
    QString m_ntpServer[4];
};
