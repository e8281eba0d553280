// The panel sandbox itself: what every other system test relies on being true.
#include "Sandbox.h"

#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

using namespace krv_test;

namespace {

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

    const std::vector<std::string> expected = {"date [-s] [2020-01-02 03:04:05]", "date [+%Y]"};
    EXPECT_EQ(expected, shimCalls());
}

}  // namespace
