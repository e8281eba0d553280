// krv-panel-check on the simulated panel: a healthy panel gives no FAIL and is left exactly as it
// was; a panel broken in one way gives exactly the FAIL of that check, and as exit status 1.
#include <gtest/gtest.h>

#include "Sandbox.h"

using namespace krv_test;

namespace {

const std::string kRuntime =
    std::string(" --runtime ") + KRV_QTCORE_FILE + " --runtime " + KRV_RUNTIME_FILE + " --runtime ";
const std::string kHealthyRuntime = kRuntime + KRV_HAL_FILE;
const char kResolver[] = "# the panel's LAN\nsearch lan\nnameserver 10.0.0.1\n";

struct Outcome {
    int status;
    std::vector<std::string> fails;  // the checks that FAIL, in the order printed
    std::string out;
};

// Runs the check with `arguments` (JSON output); `env` goes before the program.
Outcome check(const std::string& arguments, const std::string& env = "") {
    const CommandResult r =
        run(env + " " + KRV_TEST_EMULATOR + " " + KRV_PANEL_CHECK + " --json " + arguments);
    Outcome outcome{r.status, {}, r.out};
    const std::string fail = "\"status\": \"FAIL\"", name = "\"check\": \"";
    for (size_t at = 0; (at = r.out.find(fail, at)) != std::string::npos; ++at) {
        const size_t start = r.out.find(name, at) + name.size();
        outcome.fails.push_back(r.out.substr(start, r.out.find('"', start) - start));
    }
    return outcome;
}

// Everything the driver could touch on the panel, with size, modification time and mode.
std::string listing() {
    return run("find /etc /usr/wexa_app /storage /tmp -printf '%p %y %s %T@ %m\\n' 2>/dev/null | "
               "sort")
        .out;
}

class PanelCheck : public ::testing::Test {
protected:
    void SetUp() override {
        writeFile("/etc/timezone", "Etc/UTC\n");
        writeFile("/etc/resolv.conf", kResolver);
        writeFile(kNtpCfg,
                  "[NTP_PARAM]\nntp_switch=1\nntp_mode=0\nntp_freq=2\n"
                  "ntp_server1=ntp.panel.test\nntp_server2=10.0.0.1\nntp_server3=\n"
                  "ntp_server4=\n");
    }
};

TEST_F(PanelCheck, HealthyPanelPassesAndIsLeftAsItWas) {
    const std::string before = listing();
    const CommandResult table =
        run(std::string(KRV_TEST_EMULATOR) + " " + KRV_PANEL_CHECK + kHealthyRuntime);
    EXPECT_EQ(table.status, 0) << table.out;
    EXPECT_NE(table.out.find("0 FAIL, 0 WARN"), std::string::npos) << table.out;
    EXPECT_EQ(listing(), before);
}

// Each case breaks the panel in one way (a shell command, undone afterwards; another process
// holding a lock for good among them), or gives the check other libraries or another PATH.
TEST_F(PanelCheck, EachBrokenPanelGivesExactlyItsFail) {
    const std::string config = "/usr/wexa_app/config", lock = "/tmp/wexa_app_conf.lck",
                      dnsLock = "/tmp/dns_access_lock.lck";
    const std::string noPing =
        "mkdir -p /tmp/noping && for p in sh date dmesg rm env qemu-arm; do "
        "! command -v $p >/dev/null || ln -sf $(command -v $p) /tmp/noping/$p; done";
    const struct {
        std::string make, undo, runtime, env, fail;
    } cases[] = {
        {"mount --bind " + config + " " + config + " && mount -o remount,bind,ro " + config,
         "umount " + config, kHealthyRuntime, "", "settings directory " + config},
        {"mkfifo " + lock, "rm " + lock, kHealthyRuntime, "", "lock file " + lock},
        {"flock -F " + dnsLock + " sleep 600 >/dev/null 2>&1 & echo $! > /tmp/holder; for i in " +
             "$(seq 100); do flock -n " + dnsLock + " true || break; sleep 0.05; done",
         "kill $(cat /tmp/holder); rm /tmp/holder " + dnsLock, kHealthyRuntime, "",
         "lock file " + dnsLock},
        {"printf 'nameserver\\t10.0.0.1\\n' > /etc/resolv.conf", "", kHealthyRuntime, "",
         "resolver file /etc/resolv.conf"},
        {"printf '  nameserver 10.0.0.1\\n' > /etc/resolv.conf", "", kHealthyRuntime, "",
         "resolver file /etc/resolv.conf"},
        {"printf 'nameserver 10.0.0.1 # LAN\\n' > /etc/resolv.conf", "", kHealthyRuntime, "",
         "resolver file /etc/resolv.conf"},
        {"rm /etc/timezone", "", kHealthyRuntime, "", "time zone"},
        {noPing, "rm -r /tmp/noping", kHealthyRuntime, "/usr/bin/env PATH=/tmp/noping", "ping"},
        {"printf 'cpu 1 2 3 4 5 6 7 8 9 10\\n' > /tmp/stat && mount --bind /tmp/stat /proc/stat",
         "umount /proc/stat", kHealthyRuntime, "", "/proc/stat"},
        {"printf 'MemTotal: 9 kB\\nMemFree: 5 kB\\nCached: 1 kB\\n' > /tmp/mem && "
         "mount --bind /tmp/mem /proc/meminfo",
         "umount /proc/meminfo", kHealthyRuntime, "", "/proc/meminfo"},
        {"", "", kRuntime + KRV_REFUSING_HAL_FILE, "", "interfaces (channels 1, 2, 8, 9)"},
        {"", "", std::string(" --runtime ") + KRV_OLD_CXX_FILE + kHealthyRuntime, "",
         "symbol versions of libstdc++.so.6"},
        {"", "", kHealthyRuntime + " --runtime " + KRV_OTHER_LAYOUT_FILE, "", "std::string layout"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fail + " after: " + c.make);
        ASSERT_EQ(run(c.make).status, 0);
        const Outcome outcome = check(c.runtime, c.env);
        EXPECT_EQ(outcome.fails, std::vector<std::string>{c.fail}) << outcome.out;
        EXPECT_EQ(outcome.status, 1);
        run(c.undo);
        SetUp();
    }
}

// The settings files read as Qt reads them: blanks, quotes and ';' comments around values, the
// last of a repeated key, names in any case with Qt 4 only; what Qt drops or reads as nothing
// warns.
TEST_F(PanelCheck, SettingsReadAsQtReadsThem) {
    const std::string keys = "backlight_status=1\nbacklight_duration=60000\n";
    const struct {
        std::string file, status;
    } cases[] = {
        {"[DEVICE]\nbuzz_duration = 30 ; ms\nbacklight_status=\"1\"\nbacklight_duration=6e4\n"
         "backlight_duration=60000\n",
         "PASS"},
        {"[DEVICE]\nbuzz_duration=30\nbacklight_status=TRUE\nbacklight_duration=60000\n", "WARN"},
        {"[DEVICE]\nbuzz_duration=30,40\n" + keys, "WARN"},
        {"[DEVICE]\nbuzz_duration=30\nbacklight\n" + keys, "WARN"},
        {"[Device]\nBuzz_Duration=30\n" + keys, KRV_QT_MAJOR == 4 ? "PASS" : "WARN"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        writeFile(kAppCfg, c.file);
        const std::string out = check(kHealthyRuntime).out;
        EXPECT_NE(out.find("{\"status\": \"" + c.status +
                           "\", \"area\": \"files\", \"check\": \"panel settings"),
                  std::string::npos)
            << out;
    }
}

// With --network: the driver's probes (the public resolver for the address, the name server for
// the name), the names, and one SNTP exchange with the first server, the clock left alone.
TEST_F(PanelCheck, NetworkProbesReachTheServers) {
    NtpServer chrony;
    ASSERT_TRUE(chrony.ok());
    clearShimCalls();
    const Outcome outcome = check(kHealthyRuntime + " --network");
    EXPECT_TRUE(outcome.fails.empty()) << outcome.out;
    for (const char* pass : {"probe of 223.5.5.5", "probe of 10.0.0.1", "SNTP ntp.panel.test"})
        EXPECT_NE(
            outcome.out.find(std::string("\"PASS\", \"area\": \"network\", \"check\": \"") + pass),
            std::string::npos)
            << pass << "\n"
            << outcome.out;
    for (const std::string& call : shimCalls())
        EXPECT_EQ(call.rfind("date [-s]", 0), std::string::npos) << call;
}

}  // namespace
