// The panel sandbox itself: what every other system test relies on being true.
#include "Sandbox.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <unistd.h>

using namespace krv_test;

namespace {

bool hasLine(const std::string& text, const std::string& line) {
    return ("\n" + text).find("\n" + line + "\n") != std::string::npos;
}

TEST(Sandbox, WritesToSystemFilesStayInTheCase) {
    ASSERT_TRUE(inSandbox());
    EXPECT_EQ(0u, geteuid());

    // Replaced the way the driver does it: a new file renamed over the old one.
    ASSERT_TRUE(writeFile("/etc/resolv.conf.tmp", "nameserver 10.9.9.9\n"));
    ASSERT_EQ(0, rename("/etc/resolv.conf.tmp", "/etc/resolv.conf"));
    EXPECT_EQ("nameserver 10.9.9.9\n", readFile("/sbx/up/etc/resolv.conf"));
    EXPECT_EQ("nameserver 10.0.0.1\n", readFile("/sbx/root/etc/resolv.conf"));

    // The host's system directories are read-only.
    EXPECT_FALSE(writeFile("/var/krv-probe", "x"));
    EXPECT_FALSE(fileExists("/var/krv-probe"));
}

TEST(Sandbox, DefaultPanelFiles) {
    EXPECT_FALSE(fileExists("/etc/localtime"));
    EXPECT_FALSE(fileExists("/etc/timezone"));
    const struct {
        const char* path;
        const char* line;
    } files[] = {
        {"/etc/hosts", "10.0.0.1\tntp.panel.test"},
        {"/etc/iot_cfg/vncConfig.ini", "passwd=123456"},
        {"/usr/wexa_app/config/wexa_app_conf.ini", "backlight_duration=60000"},
    };
    for (const auto& f : files) {
        EXPECT_TRUE(hasLine(readFile(f.path), f.line)) << f.path;
    }
    for (const char* log : {"restart.log", "dmesg.log", "signal_recieved.log"}) {
        EXPECT_FALSE(readFile(std::string("/storage/log/") + log).empty()) << log;
    }
}

TEST(Sandbox, NetworkIsThePeerOnly) {
    CommandResult addr = run("ip -4 -o addr show");
    EXPECT_NE(std::string::npos, addr.out.find("eth0    inet 10.0.0.2/24")) << addr.out;
    EXPECT_EQ(std::string::npos, addr.out.find("eth1")) << addr.out;

    EXPECT_EQ(0, run("ping -c1 -W2 223.5.5.5 >/dev/null").status);
    EXPECT_NE(0, run("ping -c1 -W1 198.51.100.7 >/dev/null 2>&1").status);

    // A second interface comes and goes with its peer end.
    ASSERT_TRUE(addInterface("eth1", "10.0.1.2/24", "10.0.1.1/24"));
    EXPECT_EQ(0, run("ping -c1 -W2 10.0.1.1 >/dev/null").status);
    EXPECT_NE(std::string::npos, runInPeer("ip -4 -o addr").out.find("eth1p    inet 10.0.1.1/24"));
    EXPECT_TRUE(removeInterface("eth1"));
    EXPECT_NE(0, run("ip link show eth1 >/dev/null 2>&1").status);
}

TEST(Sandbox, ShimsRecordAndNeverSetTheClock) {
    clearShimCalls();
    CommandResult set = run("date -s '2020-01-02 03:04:05'");
    EXPECT_EQ(0, set.status);
    EXPECT_EQ("2020-01-02 03:04:05\n", set.out);
    EXPECT_NE("2020\n", run("date +%Y").out);

    ASSERT_TRUE(writeFile("/sbx/fake_dmesg.txt", "[    1.000000] eth0: link up\n"));
    CommandResult dmesg = run("dmesg");
    EXPECT_EQ(0, dmesg.status);
    EXPECT_EQ("[    1.000000] eth0: link up\n", dmesg.out);
    ASSERT_TRUE(writeFile("/sbx/dmesg_fail", ""));
    EXPECT_EQ(1, run("dmesg").status);
    removeFile("/sbx/dmesg_fail");
    removeFile("/sbx/fake_dmesg.txt");
    EXPECT_EQ("", run("dmesg").out);

    const std::vector<std::string> expected = {"date [-s] [2020-01-02 03:04:05]", "date [+%Y]",
                                               "dmesg", "dmesg", "dmesg"};
    EXPECT_EQ(expected, shimCalls());
}

TEST(Sandbox, FakeProcFileIsBoundAndReleased) {
    const std::string fake = "MemTotal:          65536 kB\nMemFree:            1024 kB\n";
    {
        BoundFile meminfo("/proc/meminfo", fake);
        ASSERT_TRUE(meminfo.ok());
        EXPECT_EQ(fake, readFile("/proc/meminfo"));
    }
    std::string real = readFile("/proc/meminfo");
    EXPECT_NE(fake, real);
    EXPECT_EQ(0u, real.find("MemTotal:"));
}

TEST(Sandbox, NtpServerInThePeer) {
    pid_t pid = -1;
    {
        NtpServer server;
        ASSERT_TRUE(server.ok());
        pid = server.pid();
        EXPECT_EQ(0, kill(pid, 0));
        EXPECT_TRUE(ntpAnswers("10.0.0.1"));
        EXPECT_TRUE(ntpAnswers("223.5.5.5"));
    }
    EXPECT_NE(0, kill(pid, 0));
    EXPECT_FALSE(ntpAnswers("10.0.0.1", 300));
}

}  // namespace
