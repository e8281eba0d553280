// The NTP settings record and its INI file.
#include "ntpCfgParam.h"

#include "IniOperator.h"
#include "SettingsFile.h"

#include <unistd.h>

#include <QDir>
#include <QSettings>
#include <QVariant>

namespace {

const char ntpCfgSection[] = "NTP_PARAM";
const int ntpCfgCount = 7;
// Key names and, in the same order, the values taken when a key is absent (strings even
// for the integers, converted like a value read from the file). The four servers are
// the public NTP pool, so a panel without the file can synchronise once switched on.
const char* const ntpCfgNode[ntpCfgCount] = {"ntp_switch",  "ntp_mode",    "ntp_freq",
                                             "ntp_server1", "ntp_server2", "ntp_server3",
                                             "ntp_server4"};
const char* const ntpDefCfg[ntpCfgCount] = {
    "0", "1", "2", "0.pool.ntp.org", "1.pool.ntp.org", "2.pool.ntp.org", "3.pool.ntp.org"};
const int ntpIntCount = 3;

QString keyPath(int index) {
    return QString::fromLatin1("/") + QString::fromLatin1(ntpCfgSection) +
           QString::fromLatin1("/") + QString::fromLatin1(ntpCfgNode[index]);
}

}  // namespace

ntpCfgParam::ntpCfgParam() : m_ntpSwitch(0), m_ntpMode(0), m_ntpFreq(0) {}

ntpCfgParam::~ntpCfgParam() {}

bool ntpCfgParam::operator==(const ntpCfgParam& other) const {
    if (m_ntpSwitch != other.m_ntpSwitch || m_ntpMode != other.m_ntpMode ||
        m_ntpFreq != other.m_ntpFreq)
        return false;
    for (int i = 0; i < 4; ++i)
        if (m_ntpServer[i] != other.m_ntpServer[i])
            return false;
    return true;
}

void ntpCfgParam::readCfg(QString const& path) {
    KRVCTRL::SettingsFile guard(path);
    QSettings settings(path, QSettings::IniFormat);
    settings.setIniCodec("UTF-8");
    int* const ints[ntpIntCount] = {&m_ntpSwitch, &m_ntpMode, &m_ntpFreq};
    for (int i = 0; i < ntpCfgCount; ++i) {
        QVariant value = settings.value(keyPath(i), QVariant(QString::fromLatin1(ntpDefCfg[i])));
        if (i < ntpIntCount)
            *ints[i] = value.toInt();  // not a number: 0, no range check here
        else
            m_ntpServer[i - ntpIntCount] = value.toString();
    }
}

void ntpCfgParam::writeCfg(QString const& path) {
    int slash = path.lastIndexOf(QLatin1Char('/'));
    QString dir = slash >= 0 ? path.left(slash) : path;
    if (!QDir(dir).exists() && !QDir().mkpath(dir))
        return;

    const int ints[ntpIntCount] = {m_ntpSwitch, m_ntpMode, m_ntpFreq};
    std::vector<std::pair<QString, QString>> values;
    for (int i = 0; i < ntpCfgCount; ++i)
        values.emplace_back(keyPath(i), i < ntpIntCount ? QString::number(ints[i], 10)
                                                        : m_ntpServer[i - ntpIntCount]);
    // Ends with sync(): the panel may lose power at any moment.
    (void)IniOperator::FileIniWriteValues(path, values);
}
