// The NTP settings file and the range-checked setters.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <QFile>
#include <QVariant>
#include <functional>
#include <QSettings>

#include "NtpCtrl.h"

namespace {

QString scratchDir() {
    char dir[] = "/tmp/ntpcfg.XXXXXX";
    return QString::fromLatin1(mkdtemp(dir));
}

TEST(NtpSettingsFile, DefaultsConversionsAndUtf8RoundTrip) {
    QString dir = scratchDir();
    ntpCfgParam missing, defaults;
    missing.readCfg(dir + "/none.ini");
    defaults.m_ntpMode = 1;
    defaults.m_ntpFreq = 2;
    for (int i = 0; i < 4; ++i)
        defaults.m_ntpServer[i] = QString("%1.pool.ntp.org").arg(i);
    EXPECT_TRUE(missing == defaults);

    {
        QSettings odd(dir + "/odd.ini", QSettings::IniFormat);
        odd.setValue("NTP_PARAM/ntp_switch", "abc");
        odd.setValue("NTP_PARAM/ntp_freq", "99");
    }
    ntpCfgParam oddRead;
    oddRead.readCfg(dir + "/odd.ini");
    EXPECT_EQ(0, oddRead.m_ntpSwitch);
    EXPECT_EQ(99, oddRead.m_ntpFreq);

    // The controller's path joins "/config/" and "/ntp_param_cfg.ini" as they stand.
    QString path = dir + "/a/b/config//ntp_param_cfg.ini";
    ntpCfgParam written;
    written.m_ntpSwitch = 1;
    written.m_ntpFreq = 24;
    written.m_ntpServer[0] = QString::fromUtf8("时间.例子.中国");
    written.m_ntpServer[2] = QString::fromUtf8("zeit-ü.example");
    written.writeCfg(path);
    ntpCfgParam back;
    back.readCfg(path);
    EXPECT_TRUE(back == written);
    EXPECT_EQ(QVariant("24"), QSettings(path, QSettings::IniFormat).value("NTP_PARAM/ntp_freq"));
}

TEST(NtpSetters, UnsignedRangesAndWriteOnlyWhenChanged) {
    QString path = scratchDir() + "/config//ntp_param_cfg.ini";
    NtpCtrl ctrl(path);  // no file: switch off, the worker only polls
    struct Case {
        int (NtpCtrl::*set)(int);
        int value;
        int expected;
    } cases[] = {
        {&NtpCtrl::enableNtp, 2, -4},   {&NtpCtrl::enableNtp, -1, -4},
        {&NtpCtrl::setNtpMode, 2, -4},  {&NtpCtrl::setNtpMode, -2147483647 - 1, -4},
        {&NtpCtrl::setNtpFreq, 0, -4},  {&NtpCtrl::setNtpFreq, 25, -4},
        {&NtpCtrl::setNtpFreq, -1, -4}, {&NtpCtrl::setNtpFreq, 24, 0},
        {&NtpCtrl::setNtpMode, 0, 0},   {&NtpCtrl::setNtpFreq, 1, 0},
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.expected, (ctrl.*c.set)(c.value)) << c.value;
    EXPECT_EQ(0, ctrl.getParam().m_ntpSwitch);
    EXPECT_EQ(0, ctrl.getParam().m_ntpMode);
    EXPECT_EQ(1, ctrl.getParam().m_ntpFreq);

    // Each accepted change is written; an unchanged value leaves the file alone.
    auto rewrites = [&](const std::function<int()>& set) {
        QFile::remove(path);
        EXPECT_EQ(0, set());
        return QFile::exists(path);
    };
    EXPECT_FALSE(rewrites([&] { return ctrl.enableNtp(0); }));
    EXPECT_TRUE(rewrites([&] { return ctrl.enableNtp(1); }));
    EXPECT_FALSE(rewrites([&] { return ctrl.enableNtp(1); }));
    EXPECT_FALSE(rewrites([&] { return ctrl.setNtpServer(1, "1.pool.ntp.org"); }));
    EXPECT_TRUE(rewrites([&] { return ctrl.setNtpServer(3, "10.0.0.1"); }));
    ntpCfgParam file;
    file.readCfg(path);
    EXPECT_TRUE(file == ctrl.getParam());
    EXPECT_EQ(QString("10.0.0.1"), file.m_ntpServer[3]);
    ctrl.enableNtp(0);  // keep the worker off the network on the way out
}

}  // namespace
