// The panel misbehaving around the driver: /tmp full or read-only, configuration directories
// missing or read-only, no log directory, an NTP server that stops answering mid-run, and other
// processes holding the lock files for seconds. A watchdog turns a hang into a failure.
#include <signal.h>
#include <unistd.h>

#include <thread>

#include <gtest/gtest.h>

#include "Sandbox.h"
#include "host/Runtime.h"
#include "sim/SimPanel.h"

using krv_test::iniValue;
using krv_test::run;

namespace {

const char kAppCfg[] = "/usr/wexa_app/config/wexa_app_conf.ini";
const char kNtpCfg[] = "/usr/wexa_app/config//ntp_param_cfg.ini";
const char kVncCfg[] = "/etc/iot_cfg/vncConfig.ini";

// A fault made by a shell command, undone by another when it goes out of scope.
struct Fault {
    Fault(const std::string& make, const std::string& undo) : undo(undo) {
        EXPECT_EQ(run(make).status, 0) << make;
    }
    ~Fault() { run(undo); }
    std::string undo;
};

class Faults : public ::testing::Test {
protected:
    void SetUp() override {
        alarm(300);  // far beyond the longest wait, an NTP exchange with retries
        sim::reset();
        sim::setLogOutput("-", 0);
        resetFiles();
        ASSERT_TRUE(rt.ok()) << rt.error();
        ASSERT_EQ(rt.start(), 0);
    }
    void TearDown() override {
        EXPECT_EQ(rt.device().cleanup(), 0);
        alarm(0);
    }
    static void resetFiles() {
        krv_test::writeFile(kAppCfg, "[DEVICE]\nbuzz_duration=250\n");
        krv_test::writeFile(kVncCfg, "[VNCCONFIG]\npasswd=123456\n");
        krv_test::writeFile(kNtpCfg,
                            "[NTP_PARAM]\nntp_switch=1\nntp_mode=0\nntp_freq=2\n"
                            "ntp_server1=10.0.0.1\nntp_server2=\nntp_server3=\nntp_server4=\n");
    }
    // "result/status" of a command whose status variable is St.
    std::string outcome(const std::string& command) {
        rt.database().defineInt("St", -1);
        const int result = rt.device().command(command);
        return std::to_string(result) + "/" +
               std::to_string(rt.database().variable("St")->intValue);
    }
    host::Runtime rt{KRV_DRIVER_PATH};
};

TEST_F(Faults, TmpFullOrReadOnly) {
    krv_test::NtpServer chrony;
    ASSERT_TRUE(chrony.ok());
    const std::string fill = " && (dd if=/dev/zero of=/tmp/fill bs=4k 2>/dev/null; true)";
    krv_test::writeFile("/sbx/fake_dmesg.txt", "[    0.000000] Booting Linux\n");
    const struct {
        std::string make;
        const char* stored;            // buzz_duration after a write of 4321
        const char *execNtp, *sysLog;  // outcomes
    } cases[] = {
        {"true", "4321", "0/0", "0/0"},
        {"mount -t tmpfs -o size=64k t /tmp" + fill, "4321", "0/10", "3/-1"},
        {"mount -t tmpfs -o size=64k,nr_inodes=2 t /tmp" + fill, "250", "0/10", "3/-1"},
        {"mount -t tmpfs -o ro t /tmp", "250", "0/10", "3/-1"},
        {"mount -t tmpfs t /tmp && touch /tmp/wexa_app_conf.lck && mount -o remount,ro t /tmp",
         "4321", "0/10", "3/-1"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.make);
        resetFiles();
        rt.database().defineText("Txt", "old");
        Fault fault(c.make, c.make == "true" ? "true" : "umount /tmp");
        EXPECT_EQ(rt.device().writeInt(3, 4321), 0);
        EXPECT_EQ(iniValue(kAppCfg, "buzz_duration"), c.stored);
        EXPECT_EQ(outcome("ExecNTP(St)"), c.execNtp);
        EXPECT_EQ(outcome("ReadSysLog(0,4,Txt,St)"), c.sysLog);
    }
}

TEST_F(Faults, ConfigurationDirectoriesMissingFullOrReadOnly) {
    const std::string ro = "mount --bind % % && mount -o remount,bind,ro %";
    const std::string full =
        "cp -a % /tmp/keep && mount -t tmpfs -o size=64k t % && cp -a "
        "/tmp/keep/. % && (dd if=/dev/zero of=%/fill bs=4k 2>/dev/null; true)";
    const struct {
        std::string dir, make;
        const char *app, *vnc;  // stored after the writes
        bool ntpLands;
    } cases[] = {
        {"/usr/wexa_app/config", ro, "250", "abcdefgh", false},
        // In place, the new contents fit in the room the old ones leave.
        {"/usr/wexa_app/config", full, krv_test::kQtWritesInPlace ? "4321" : "250", "abcdefgh",
         krv_test::kQtWritesInPlace},
        {"/etc/iot_cfg", ro, "4321", "123456", true},
        {"", "rm -r /usr/wexa_app/config", "4321", "abcdefgh", true},  // made again
        {"", "rm -r /etc/iot_cfg", "4321", "", true},  // the password file is never created
    };
    int freq = 3;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.make + " " + c.dir);
        resetFiles();
        std::string make = c.make;
        for (size_t at; (at = make.find('%')) != std::string::npos;)
            make.replace(at, 1, c.dir);
        Fault fault(make, c.dir.empty() ? "true" : "umount " + c.dir + "; rm -rf /tmp/keep");
        EXPECT_EQ(rt.device().writeInt(3, 4321), 0);
        EXPECT_EQ(outcome("SetNTPFreq(" + std::to_string(++freq) + ")"), "0/-1");
        EXPECT_EQ(outcome("ModVncPwd(abcdefgh)"), "0/-1");
        EXPECT_EQ(iniValue(kAppCfg, "buzz_duration"), c.app);
        EXPECT_EQ(iniValue(kNtpCfg, "ntp_freq"), c.ntpLands ? std::to_string(freq) : "2");
        EXPECT_EQ(iniValue(kVncCfg, "passwd"), c.vnc);
    }
}

TEST_F(Faults, MissingLogDirectoryDeliversEmptyLogs) {
    Fault fault("mount -t tmpfs t /storage", "umount /storage");
    for (const char* mode : {"0", "1", "2"}) {
        rt.database().defineText("Txt", "old");
        EXPECT_EQ(outcome(std::string("ReadAppLog(") + mode + ",1,Txt,St)"), "0/0") << mode;
        EXPECT_EQ(rt.database().variable("Txt")->text, "") << mode;
    }
}

// The server dies or loses its address while ExecNTP runs, at several moments.
TEST_F(Faults, NtpServerStopsAnsweringMidRun) {
    for (int delayMs : {0, 50, 500}) {
        for (bool kill : {true, false}) {
            krv_test::NtpServer chrony;
            ASSERT_TRUE(chrony.ok());
            std::string got;
            std::thread exec([&] { got = outcome("ExecNTP(St)"); });
            usleep(delayMs * 1000);
            if (kill)
                ::kill(chrony.pid(), SIGKILL);
            else
                krv_test::runInPeer("ip addr del 10.0.0.1/24 dev eth0p");
            exec.join();
            EXPECT_TRUE(got == "0/0" || got == "0/10") << got << " " << delayMs;
            krv_test::runInPeer("ip addr add 10.0.0.1/24 dev eth0p 2>/dev/null");
        }
    }
    // The worker retrying against a dead server stops at clean-up.
    size_t synced = sim::journal("rtc").size();
    {
        krv_test::NtpServer chrony;
        ASSERT_TRUE(chrony.ok());
        EXPECT_EQ(outcome("SetNTPMode(1)"), "0/-1");
        ASSERT_TRUE(sim::waitForJournal("rtc", ++synced, 20000));
        ::kill(chrony.pid(), SIGKILL);
    }
    krv_test::removeFile("/tmp/ping.sh");
    EXPECT_EQ(outcome("SetNTPFreq(3)"), "0/-1");
    while (!krv_test::fileExists("/tmp/ping.sh"))  // a synchronisation attempt has begun
        usleep(10000);
    EXPECT_EQ(rt.device().cleanup(), 0);
    EXPECT_EQ(sim::journal("rtc").size(), synced);
}

// Another process holds a lock file for two seconds: the command waits for it, then completes.
TEST_F(Faults, CommandsWaitForLocksHeldByOtherProcesses) {
    krv_test::NtpServer chrony;
    ASSERT_TRUE(chrony.ok());
    ASSERT_EQ(outcome("SetNTPServer(ntp.panel.test,,,)"), "0/-1");
    const struct {
        const char *lock, *command, *outcome;
    } cases[] = {
        {"/tmp/wexa_app_conf.lck", "WEXA_WRITE(4=4321)", "0/-1"},
        {"/tmp/wexa_app_conf.lck", "WEXA_WRITE(7=1)", "0/-1"},  // the buzzer test reads
        {"/tmp/dns_access_lock.lck", "ExecNTP(St)", "0/0"},
    };
    for (const auto& c : cases) {
        run(std::string("flock ") + c.lock +
            " sh -c 'touch /tmp/held; sleep 2; rm /tmp/held' >&- &");
        while (!krv_test::fileExists("/tmp/held"))
            usleep(10000);
        EXPECT_EQ(outcome(c.command), c.outcome) << c.command;
        EXPECT_FALSE(krv_test::fileExists("/tmp/held")) << c.command << " did not wait";
    }
    EXPECT_EQ(iniValue(kAppCfg, "buzz_duration"), "4321");
    EXPECT_EQ(iniValue(kNtpCfg, "ntp_server1"), "ntp.panel.test");
}

}  // namespace
