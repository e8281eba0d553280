// Kills while settings are being written: a child process loads the driver and writes two value
// sets in turn, over and over, until it is killed at a random moment. Right after every kill, as
// another program of the panel reads them before any driver runs again (as bytes, and with a
// QSettings of another process), and again after the next driver's first refresh, each settings
// file must be whole and hold, key by key, a value of one of the two sets. Files of other programs
// beside them stay. Round count: KRV_POWERLOSS_ROUNDS (scripts/powerloss.sh runs a long series).
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>
#include <string>
#include <vector>

#include <QSettings>
#include <QStringList>
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

// Files not whole (Qt ends every line it writes) and keys holding neither value, read as bytes.
std::vector<std::string> corruptKeys() {
    std::vector<std::string> corrupt;
    for (const char* file : {kAppCfg, kNtpCfg, kVncCfg}) {
        const std::string text = readFile(file);
        if (text.empty() || text.back() != '\n' || text.find('\0') != std::string::npos)
            corrupt.push_back(std::string(file) + " not whole");
    }
    for (const auto& k : kKeys) {
        const std::string got = iniValue(k.file, k.key);
        if (got != k.values[0] && got != k.values[1])
            corrupt.push_back(std::string(k.file) + ": " + k.key + "=" + got);
    }
    return corrupt;
}

// The keys holding neither value as another process reads them with its own QSettings.
std::string corruptForQt() {
    int out[2];
    char text[4096] = "";
    if (pipe(out) != 0)
        return "no pipe";
    std::fflush(nullptr);
    const pid_t reader = fork();
    if (reader == 0) {
        std::string corrupt;
        for (const auto& k : kKeys) {
            QSettings settings(k.file, QSettings::IniFormat);
            const QStringList groups = settings.childGroups();
            const std::string got =
                settings.value(groups.value(0) + "/" + k.key).toString().toUtf8().constData();
            if (groups.size() != 1 || (got != k.values[0] && got != k.values[1]))
                corrupt += std::string(k.file) + ": " + k.key + "=" + got + "\n";
        }
        _exit(write(out[1], corrupt.data(), corrupt.size()) < 0);
    }
    close(out[1]);
    const ssize_t n = read(out[0], text, sizeof text - 1);
    close(out[0]);
    waitpid(reader, nullptr, 0);
    return std::string(text, n > 0 ? static_cast<size_t>(n) : 0);
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

// Integrators' files beside the settings files, and Qt 5's temporary file of another program.
const char* const kForeign[] = {"/etc/iot_cfg/vncConfig.ini.backup",
                                "/etc/iot_cfg/vncConfig.ini.AbC123",
                                "/usr/wexa_app/config/ntp_param_cfg.ini.bak001",
                                "/usr/wexa_app/config/wexa_app_conf.ini.backup",
                                "/usr/wexa_app/config/wexa_app_conf.ini.Orig12"};

TEST(PowerLoss, EveryFileWholeForEveryReaderAfterEachKill) {
    const char* env = std::getenv("KRV_POWERLOSS_ROUNDS");
    const int rounds = env ? std::atoi(env) : *KRV_TEST_EMULATOR ? 20 : 100;  // qemu is slow
    int ready[2], status = -1;
    char byte;
    ASSERT_EQ(pipe(ready), 0);
    ASSERT_TRUE(runDriver(0, 1, ready));
    ASSERT_EQ(corruptKeys(), std::vector<std::string>());
    for (const char* file : kForeign)
        ASSERT_TRUE(writeFile(file, file));

    const unsigned seed = std::random_device()();
    std::mt19937 random(seed);
    std::uniform_int_distribution<useconds_t> delayUs(0, 150000);
    int leftovers = 0;
    for (int round = 0; round < rounds; ++round) {
        const pid_t writer = startDriver(1 - round % 2, -1, ready[1]);
        ASSERT_TRUE(writer > 0 && read(ready[0], &byte, 1) == 1);
        usleep(delayUs(random));
        kill(writer, SIGKILL);
        ASSERT_TRUE(waitpid(writer, &status, 0) == writer && WIFSIGNALED(status));
        const std::string trace =
            "round " + std::to_string(round) + ", seed " + std::to_string(seed);
        EXPECT_EQ(corruptKeys(), std::vector<std::string>()) << trace;
        EXPECT_EQ(corruptForQt(), "") << trace;
        leftovers += filesBeside("-name '*.krvnew-*'");
        ASSERT_TRUE(runDriver(0, 0, ready));
        EXPECT_EQ(corruptKeys(), std::vector<std::string>()) << trace;
    }
    // Most kills land in a write, whose new file the next driver removed; nothing else is left.
    EXPECT_GT(leftovers, 0);
    for (const char* file : kForeign)
        EXPECT_EQ(readFile(file), file);
    EXPECT_EQ(filesBeside("! -name '*.ini'"), 5)
        << run("ls -A /usr/wexa_app/config /etc/iot_cfg").out;
    std::printf(
        "kills, Qt %d: %d rounds, %d files of killed writes removed by the next driver (seed %u)\n",
        KRV_QT_MAJOR, rounds, leftovers, seed);
}

// What killed writes of this or an earlier driver left beside a file goes with the next driver:
// an earlier driver's filled copy is put back over the file it left damaged (dropped beside a
// whole one), the new files of processes that are gone are removed. New files of a live process,
// and everything else, stay.
TEST(PowerLoss, NextDriverTakesOverWhatKilledWritesLeft) {
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t gone = fork();
    if (gone == 0)
        _exit(0);
    ASSERT_EQ(waitpid(gone, nullptr, 0), gone);
    const std::string app = kAppCfg, vnc = kVncCfg, old = "[DEVICE]\nbuzz_duration=25\n";
    const std::string dead = app + ".krvnew-" + std::to_string(gone) + "-7";
    const std::string live = app + ".krvnew-" + std::to_string(getpid()) + "-1";
    ASSERT_TRUE(writeFile(app, "[DEVICE]\n") && writeFile(app + ".krvcopy", old));
    ASSERT_TRUE(writeFile(vnc, "[VNCCONFIG]\npasswd=abcdef\n"));
    ASSERT_TRUE(writeFile(vnc + ".krvcopy", "[VNCCONFIG]\npasswd=0123456789abcdefghij\n"));
    for (const std::string& file : {dead, dead + ".lock", dead + ".AbC123", live})
        ASSERT_TRUE(writeFile(file, "x"));
    // Anything but a regular file at a copy's name is not the driver's.
    const std::string ntp = kNtpCfg, link = ntp + ".krvcopy", ntpBefore = readFile(ntp);
    ASSERT_TRUE(writeFile("/tmp/elsewhere", "[NTP_PARAM]\nntp_freq=9\n"));
    ASSERT_EQ(symlink("/tmp/elsewhere", link.c_str()), 0);
    ASSERT_TRUE(runDriver(0, 0, ready));
    EXPECT_EQ(readFile(ntp), ntpBefore);
    EXPECT_EQ(unlink(link.c_str()), 0);
    EXPECT_EQ(readFile(app), old);
    EXPECT_EQ(readFile(vnc), "[VNCCONFIG]\npasswd=abcdef\n");
    for (const std::string& file :
         {app + ".krvcopy", vnc + ".krvcopy", dead, dead + ".lock", dead + ".AbC123"})
        EXPECT_FALSE(fileExists(file)) << file;
    EXPECT_TRUE(fileExists(live));
    removeFile(live);
}

}  // namespace
