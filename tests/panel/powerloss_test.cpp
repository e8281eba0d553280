// Power loss while settings are being written: a child process loads the driver and writes two
// value sets in turn, over and over, until it is killed at a random moment. After every kill
// each settings file must hold, key by key, a value of one of the two sets. Qt 4 rewrites a file
// in place, so there a kill may also cut a file short: its keys are missing, and a driver started
// on a cut NTP file writes the defaults back with the next NTP setting. Round count:
// KRV_POWERLOSS_ROUNDS (scripts/powerloss.sh runs a long series).
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Sandbox.h"
#include "host/Runtime.h"
#include "sim/SimPanel.h"

using namespace krv_test;

namespace {

// Values of different lengths, so that a file cut short or mixed from two writes shows. The
// default is what a driver writes back after starting on a cut file (null: none).
const struct {
    const char *file, *key, *values[2], *fallback;
} kKeys[] = {
    {kAppCfg, "buzz_duration", {"25", "6400"}, nullptr},
    {kAppCfg, "backlight_status", {"0", "1"}, nullptr},
    {kAppCfg, "backlight_duration", {"20000", "1800000"}, nullptr},
    {kNtpCfg, "ntp_mode", {"0", "1"}, "1"},
    {kNtpCfg, "ntp_freq", {"3", "17"}, "2"},
    {kNtpCfg, "ntp_server1", {"10.0.0.1", "first.panel.test"}, "0.pool.ntp.org"},
    {kNtpCfg, "ntp_server4", {"10.0.0.4", "fourth-server.panel.test"}, "3.pool.ntp.org"},
    {kVncCfg, "passwd", {"abcdef", "0123456789abcdefghij"}, nullptr},
};

// The channel writes and commands that store value set `set` (0 or 1) of every key above.
void writeSet(host::Device& dev, int set) {
    auto value = [set](int key) { return std::string(kKeys[key].values[set]); };
    for (int key = 0; key < 3; ++key)  // channels 4, 5, 6 (seconds)
        dev.writeInt(3 + key, std::stoi(value(key)) / (key == 2 ? 1000 : 1));
    dev.command("SetNTPMode(" + value(3) + ")");
    dev.command("SetNTPFreq(" + value(4) + ")");
    dev.command("SetNTPServer(" + value(5) + ",x,y," + value(6) + ")");
    dev.command("ModVncPwd(" + value(7) + ")");
}

// Keys holding neither value; `cut` tells whether a file was cut short (or reset after that).
std::vector<std::string> corruptKeys(bool& cut) {
    std::vector<std::string> corrupt;
    for (const auto& k : kKeys) {
        const std::string got = iniValue(k.file, k.key);
        if (got == k.values[0] || got == k.values[1])
            continue;
        if (kQtWritesInPlace && (got.empty() || (k.fallback && got == k.fallback)))
            cut = true;
        else
            corrupt.push_back(std::string(k.file) + ": " + k.key + "=" + got);
    }
    return corrupt;
}

// A child that loads the driver, reports on `ready`, then writes set `set`, and unless `once`
// the two sets in turn forever.
pid_t startWriter(int set, bool once, int ready) {
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid != 0)
        return pid;
    sim::setLogOutput("-", 0);
    host::Runtime rt{KRV_DRIVER_PATH};
    if (!rt.ok() || rt.start() != 0 || write(ready, "r", 1) != 1)
        _exit(1);
    for (;; set ^= 1) {
        writeSet(rt.device(), set);
        if (once)
            _exit(0);
    }
}

TEST(PowerLoss, EveryFileHoldsOldOrNewValuesAfterEachKill) {
    const char* env = std::getenv("KRV_POWERLOSS_ROUNDS");
    const int rounds = env ? std::atoi(env) : *KRV_TEST_EMULATOR ? 20 : 100;  // qemu is slow
    int ready[2], status = -1, cutRounds = 0;
    bool cut = false;
    char byte;
    ASSERT_EQ(pipe(ready), 0);
    const pid_t first = startWriter(0, true, ready[1]);
    ASSERT_TRUE(waitpid(first, &status, 0) == first && status == 0 &&
                read(ready[0], &byte, 1) == 1);
    ASSERT_EQ(corruptKeys(cut), std::vector<std::string>());

    const unsigned seed = std::random_device()();
    std::mt19937 random(seed);
    std::uniform_int_distribution<useconds_t> delayUs(0, 150000);
    for (int round = 0; round < rounds; ++round) {
        const pid_t writer = startWriter(1 - round % 2, false, ready[1]);
        ASSERT_TRUE(writer > 0 && read(ready[0], &byte, 1) == 1);
        usleep(delayUs(random));
        kill(writer, SIGKILL);
        ASSERT_TRUE(waitpid(writer, &status, 0) == writer && WIFSIGNALED(status));
        cut = false;
        EXPECT_EQ(corruptKeys(cut), std::vector<std::string>())
            << "round " << round << ", seed " << seed;
        cutRounds += cut;
    }
    // Lock files and copies of killed writes beside the settings files (Qt 5); in place, none.
    const int left =
        std::stoi(run("ls -A /usr/wexa_app/config /etc/iot_cfg | grep -c '\\.ini\\.'").out);
    EXPECT_TRUE(left == 0 || !kQtWritesInPlace) << left;
    std::printf(
        "power loss, Qt %d: %d rounds, %d with a file cut short, %d files left beside "
        "(seed %u)\n",
        KRV_QT_MAJOR, rounds, cutRounds, left, seed);
}

}  // namespace
