// Power loss while settings are being written: a child process loads the driver and writes two
// value sets in turn, over and over, until it is killed at a random moment. After every kill and
// the next driver's first refresh each settings file must hold, key by key, a value of one of
// the two sets, on both Qt versions (Qt 4 rewrites a file in place, so a kill there can empty
// it until the next access puts the driver's copy back). Round count: KRV_POWERLOSS_ROUNDS
// (scripts/powerloss.sh runs a long series).
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

// Files beside the settings files whose name matches `pattern`.
int filesBeside(const std::string& pattern) {
    return std::stoi(
        run("find /usr/wexa_app/config /etc/iot_cfg -maxdepth 1 -type f " + pattern + " | wc -l")
            .out);
}

// Values of different lengths, so that a file cut short or mixed from two writes shows.
const struct {
    const char *file, *key, *values[2];
} kKeys[] = {
    {kAppCfg, "buzz_duration", {"25", "6400"}},
    {kAppCfg, "backlight_status", {"0", "1"}},
    {kAppCfg, "backlight_duration", {"20000", "1800000"}},
    {kNtpCfg, "ntp_mode", {"0", "1"}},
    {kNtpCfg, "ntp_freq", {"3", "17"}},
    {kNtpCfg, "ntp_server1", {"10.0.0.1", "first.panel.test"}},
    {kNtpCfg, "ntp_server4", {"10.0.0.4", "fourth-server.panel.test"}},
    {kVncCfg, "passwd", {"abcdef", "0123456789abcdefghij"}},
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

// Keys holding neither value.
std::vector<std::string> corruptKeys() {
    std::vector<std::string> corrupt;
    for (const auto& k : kKeys) {
        const std::string got = iniValue(k.file, k.key);
        if (got != k.values[0] && got != k.values[1])
            corrupt.push_back(std::string(k.file) + ": " + k.key + "=" + got);
    }
    return corrupt;
}

// A child that loads the driver (which reads the NTP file), refreshes (the other two files),
// reports on `ready`, then writes set `set` `writes` times, alternating the two sets
// (-1: forever).
pid_t startDriver(int set, int writes, int ready) {
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid != 0)
        return pid;
    sim::setLogOutput("-", 0);
    host::Runtime rt{KRV_DRIVER_PATH};
    if (!rt.ok() || rt.start() != 0 || rt.device().command("REFLESH()") != 0)
        _exit(1);
    rt.device().collect(std::vector<int>(19, 0));
    if (write(ready, "r", 1) != 1)
        _exit(1);
    for (; writes != 0; set ^= 1, writes -= writes > 0)
        writeSet(rt.device(), set);
    _exit(0);
}

// Runs a driver that makes `writes` writes to its end.
bool runDriver(int set, int writes, const int ready[2]) {
    char byte;
    int status = -1;
    const pid_t pid = startDriver(set, writes, ready[1]);
    return waitpid(pid, &status, 0) == pid && status == 0 && read(ready[0], &byte, 1) == 1;
}

TEST(PowerLoss, EveryFileHoldsOldOrNewValuesAfterEachKill) {
    const char* env = std::getenv("KRV_POWERLOSS_ROUNDS");
    const int rounds = env ? std::atoi(env) : *KRV_TEST_EMULATOR ? 20 : 100;  // qemu is slow
    int ready[2], status = -1;
    char byte;
    ASSERT_EQ(pipe(ready), 0);
    ASSERT_TRUE(runDriver(0, 1, ready));
    ASSERT_EQ(corruptKeys(), std::vector<std::string>());

    const unsigned seed = std::random_device()();
    std::mt19937 random(seed);
    std::uniform_int_distribution<useconds_t> delayUs(0, 150000);
    int emptied = 0, copiesLeft = 0;
    for (int round = 0; round < rounds; ++round) {
        const pid_t writer = startDriver(1 - round % 2, -1, ready[1]);
        ASSERT_TRUE(writer > 0 && read(ready[0], &byte, 1) == 1);
        usleep(delayUs(random));
        kill(writer, SIGKILL);
        ASSERT_TRUE(waitpid(writer, &status, 0) == writer && WIFSIGNALED(status));
        const int copies = filesBeside("-name '*.krvcopy' ! -empty");
        emptied += filesBeside("-name '*.ini' -empty") > 0;
        ASSERT_TRUE(runDriver(0, 0, ready));
        EXPECT_EQ(corruptKeys(), std::vector<std::string>())
            << "round " << round << ", seed " << seed;
        copiesLeft += copies;
        // The next access takes every copy over (and leaves it empty).
        EXPECT_EQ(filesBeside("-name '*.krvcopy' ! -empty"), 0);
    }
    // Most kills land in a write, whose copy the next driver took over.
    EXPECT_GT(copiesLeft, 0);
    // Qt 5's lock files (and the lock files of their removal): one each a file at most, taken
    // over by Qt's next write. Its temporary files went with the next driver.
    const int locks = filesBeside("-name '*.ini.lock*'");
    EXPECT_LE(locks, kQtWritesInPlace ? 0 : 6);
    EXPECT_EQ(filesBeside("! -name '*.ini' ! -name '*.ini.krvcopy' ! -name '*.ini.lock' "
                          "! -name '*.ini.lock.rmlock'"),
              0)
        << run("ls -A /usr/wexa_app/config /etc/iot_cfg").out;
    std::printf(
        "power loss, Qt %d: %d rounds, %d left a file empty, %d copies taken over by the next "
        "driver, %d lock files (seed %u)\n",
        KRV_QT_MAJOR, rounds, emptied, copiesLeft, locks, seed);
}

}  // namespace
