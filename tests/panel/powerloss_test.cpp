// Power loss while settings are being written: a child process loads the driver and writes two
// value sets in turn, over and over, until it is killed at a random moment. After every kill
// each settings file must parse and hold, key by key, a value of one of the two sets. Round
// count: KRV_POWERLOSS_ROUNDS (scripts/powerloss.sh runs a long series).
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Sandbox.h"
#include "host/Runtime.h"
#include "sim/SimPanel.h"

namespace {

struct Key {
    const char* file;
    const char* path;  // "GROUP/key"
    const char* values[2];
};

const char kAppCfg[] = "/usr/wexa_app/config/wexa_app_conf.ini";
const char kNtpCfg[] = "/usr/wexa_app/config//ntp_param_cfg.ini";
const char kVncCfg[] = "/etc/iot_cfg/vncConfig.ini";

// Values of different lengths, so that a file cut short or mixed from two writes shows.
const Key kKeys[] = {
    {kAppCfg, "DEVICE/buzz_duration", {"25", "6400"}},
    {kAppCfg, "DEVICE/backlight_status", {"0", "1"}},
    {kAppCfg, "DEVICE/backlight_duration", {"20000", "1800000"}},
    {kNtpCfg, "NTP_PARAM/ntp_switch", {"0", "0"}},
    {kNtpCfg, "NTP_PARAM/ntp_mode", {"0", "1"}},
    {kNtpCfg, "NTP_PARAM/ntp_freq", {"3", "17"}},
    {kNtpCfg, "NTP_PARAM/ntp_server1", {"10.0.0.1", "first.panel.test"}},
    {kNtpCfg, "NTP_PARAM/ntp_server4", {"10.0.0.4", "fourth-server.panel.test"}},
    {kVncCfg, "VNCCONFIG/passwd", {"abcdef", "0123456789abcdefghij"}},
};

// The commands that store value set `set` (0 or 1) of every key above.
void writeSet(host::Device& dev, int set) {
    const auto value = [set](size_t key) { return std::string(kKeys[key].values[set]); };
    // Channel indexes are the driver's channel numbers less one.
    dev.writeInt(3, std::atoi(value(0).c_str()));
    dev.writeInt(4, std::atoi(value(1).c_str()));
    dev.writeInt(5, std::atoi(value(2).c_str()) / 1000);
    dev.command("EnableNTP(0)");
    dev.command("SetNTPMode(" + value(4) + ")");
    dev.command("SetNTPFreq(" + value(5) + ")");
    dev.command("SetNTPServer(" + value(6) + ",x,y," + value(7) + ")");
    dev.command("ModVncPwd(" + value(8) + ")");
}

// "GROUP/key" -> value; false when a line is neither a group, a key=value pair nor empty.
bool parseIni(const std::string& text, std::map<std::string, std::string>& keys) {
    std::istringstream in(text);
    std::string group;
    for (std::string line; std::getline(in, line);) {
        const size_t eq = line.find('=');
        if (line.empty())
            continue;
        if (line.front() == '[' && line.back() == ']')
            group = line.substr(1, line.size() - 2);
        else if (eq == std::string::npos || group.empty())
            return false;
        else
            keys[group + "/" + line.substr(0, eq)] = line.substr(eq + 1);
    }
    return !text.empty();
}

// Files that do not hold one of the two values for each of their keys.
std::vector<std::string> corruptFiles() {
    std::vector<std::string> corrupt;
    std::map<std::string, std::map<std::string, std::string>> files;
    for (const Key& key : kKeys) {
        if (!files.count(key.file) && !parseIni(krv_test::readFile(key.file), files[key.file])) {
            corrupt.push_back(std::string(key.file) + ": unreadable");
            continue;
        }
        const std::string& got = files[key.file][key.path];
        if (got != key.values[0] && got != key.values[1])
            corrupt.push_back(std::string(key.file) + ": " + key.path + "=" + got);
    }
    return corrupt;
}

// A child that loads the driver, reports on `ready`, then writes set `set` once (`once`) or the
// two sets in turn forever, starting with `set`.
pid_t startWriter(int set, bool once, int ready) {
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid != 0)
        return pid;
    sim::setLogOutput("-", 0);
    host::Runtime rt{KRV_DRIVER_PATH};
    if (!rt.ok() || rt.start() != 0)
        _exit(1);
    if (write(ready, "r", 1) != 1)
        _exit(1);
    for (;; set ^= 1) {
        writeSet(rt.device(), set);
        if (once)
            _exit(0);
    }
}

TEST(PowerLoss, EveryFileHoldsOldOrNewValuesAfterEachKill) {
    const char* env = std::getenv("KRV_POWERLOSS_ROUNDS");
    const int rounds = env ? std::atoi(env) : 100;
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    char byte;
    int status = -1;
    const pid_t first = startWriter(0, true, ready[1]);
    ASSERT_EQ(waitpid(first, &status, 0), first);
    ASSERT_EQ(status, 0);
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    ASSERT_EQ(corruptFiles(), std::vector<std::string>());

    const unsigned seed = std::random_device()();
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> delayUs(0, 150000);
    int clean = 0;
    for (int round = 0; round < rounds; ++round) {
        const pid_t writer = startWriter(1 - round % 2, false, ready[1]);
        ASSERT_GT(writer, 0);
        ASSERT_EQ(read(ready[0], &byte, 1), 1);
        usleep(static_cast<useconds_t>(delayUs(random)));
        kill(writer, SIGKILL);
        ASSERT_EQ(waitpid(writer, &status, 0), writer);
        ASSERT_TRUE(WIFSIGNALED(status)) << "the writer ended before the kill";
        const std::vector<std::string> corrupt = corruptFiles();
        EXPECT_EQ(corrupt, std::vector<std::string>()) << "round " << round << ", seed " << seed;
        clean += corrupt.empty();
    }
    std::printf("power loss: %d of %d rounds without a corrupt file (seed %u)\n", clean, rounds,
                seed);
}

}  // namespace
