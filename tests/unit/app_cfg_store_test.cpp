// File utilities, the lock file shared with other processes, and the application configuration
// store.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QSettings>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

#include "AppCfgStore.h"
#include "IniOperator.h"
#include "sim/SimPanel.h"

namespace {
std::string slurp(const std::string& path) {
    std::ifstream in(path);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

QString stored(const char* key) {
    QString v;
    IniOperator::FileIniReadValue(AppCfgStore().filePath(), "DEVICE", key, v, "<none>");
    return v;
}

std::vector<std::string> guiCalls() {
    std::vector<std::string> calls;
    for (const sim::JournalEntry& e : sim::journal("gui"))
        calls.push_back(e.text);
    return calls;
}

class Store : public ::testing::Test {
protected:
    void SetUp() override {
        if (!getenv("KRV_IN_SANDBOX"))
            GTEST_SKIP() << "needs the panel sandbox";
        sim::reset();
    }
};
}  // namespace

TEST_F(Store, ReadAllReturnsWholeFileAndKeepsPosition) {
    for (size_t size : {0u, 1023u, 1024u, 2047u}) {
        std::string content(size, 'x');
        for (size_t i = 0; i < size; ++i)
            content[i] = static_cast<char>(i * 7);
        std::ofstream("/tmp/f.bin", std::ios::binary) << content;
        KRVCTRL::File f;
        ASSERT_TRUE(f.open("/tmp/f.bin", O_RDONLY));
        f.seek(static_cast<unsigned int>(size / 2));
        EXPECT_EQ(f.readAll(), content) << size;
        EXPECT_EQ(lseek(f.descriptor(), 0, SEEK_CUR), static_cast<off_t>(size / 2)) << size;
    }
    KRVCTRL::File meminfo;
    ASSERT_TRUE(meminfo.open("/proc/meminfo", O_RDONLY));
    EXPECT_EQ(meminfo.readAll(), slurp("/proc/meminfo"));
}

TEST_F(Store, IsFileExistOnlyForRegularFiles) {
    std::ofstream("/tmp/regular") << "x";
    ASSERT_EQ(symlink("/tmp/regular", "/tmp/link"), 0);
    EXPECT_TRUE(KRVCTRL::File::is_file_exist("/tmp/link"));
    EXPECT_FALSE(KRVCTRL::File::is_file_exist("/tmp"));
    EXPECT_FALSE(KRVCTRL::File::is_file_exist("/tmp/missing"));
}

TEST_F(Store, PathFollowsRuntimeDirectoryEachTime) {
    sim::setDirectory(1, "");
    EXPECT_EQ(AppCfgStore().filePath(), "/usr/wexa_app/config/wexa_app_conf.ini");
    sim::setDirectory(1, "/tmp");
    AppCfgStore store;
    EXPECT_EQ(store.filePath(), "/tmp/wexa_app_conf.ini");
    EXPECT_EQ(store.writeSetting(DEV_CHL_BACKLIGHT_SWITCH, 0), 0);
    EXPECT_EQ(stored("backlight_status"), "0");
}

TEST_F(Store, WritesAreValidatedAndNotifyTheGui) {
    struct Case {
        DEV_CHNLNAME channel;
        int value;
        int result;
        const char* key;
        const char* text;
        std::vector<std::string> gui;
    };
    const std::vector<std::string> buzz = {"__gui_get_buzzing_time(1)",
                                           "__gui_get_buzzing_time(0)"};
    const std::vector<std::string> none;
    const Case cases[] = {
        {DEV_CHL_BUZZ_SWITCH, 1, 0, "buzz_duration", "30", buzz},
        {DEV_CHL_BUZZ_SWITCH, 2, -4, "buzz_duration", "30", none},
        {DEV_CHL_BUZZ_DURATION, 6500, 0, "buzz_duration", "6500", buzz},
        {DEV_CHL_BUZZ_DURATION, 6501, -4, "buzz_duration", "6500", none},
        {DEV_CHL_BUZZ_DURATION, -1, -4, "buzz_duration", "6500", none},
        {DEV_CHL_BUZZ_SWITCH, 0, 0, "buzz_duration", "0", buzz},
        {DEV_CHL_BACKLIGHT_SWITCH,
         1,
         0,
         "backlight_status",
         "1",
         {"__gui_get_lcdlight_status(1)", "__gui_reset_lcdlight_timer()"}},
        {DEV_CHL_BACKLIGHT_TIMEOUT, 14, -4, "backlight_duration", "60000", none},
        {DEV_CHL_BACKLIGHT_TIMEOUT, 1801, -4, "backlight_duration", "60000", none},
        {DEV_CHL_BACKLIGHT_TIMEOUT,
         15,
         0,
         "backlight_duration",
         "15000",
         {"__gui_get_lcdlight_time(1)", "__gui_reset_lcdlight_timer()"}},
    };
    for (const Case& c : cases) {
        sim::clearJournal();
        EXPECT_EQ(AppCfgStore().writeSetting(c.channel, c.value), c.result) << c.value;
        EXPECT_EQ(stored(c.key), c.text) << c.value;
        EXPECT_EQ(guiCalls(), c.gui) << c.value;
    }
}

TEST_F(Store, BeepTestWaitsThenBeeps) {
    AppCfgStore store;
    EXPECT_EQ(store.beepTest(-1), -4);
    EXPECT_TRUE(sim::journal("beep").empty());
    EXPECT_EQ(store.beepTest(50), 0);
    ASSERT_EQ(sim::journal("beep").size(), 1u);
    EXPECT_EQ(sim::journal("beep")[0].text, "Wexa_Beep(900,50)");
}

// A second process holds the lock: the driver's write waits for it, then lands.
TEST_F(Store, WriteWaitsForAnotherProcessHoldingTheLock) {
    FILE* holder = popen("flock /tmp/wexa_app_conf.lck sh -c 'touch /tmp/held; read x'", "w");
    ASSERT_NE(holder, nullptr);
    while (access("/tmp/held", F_OK) != 0)
        usleep(1000);
    int result = 1;
    std::thread writer([&] { result = AppCfgStore().writeSetting(DEV_CHL_BUZZ_DURATION, 1234); });
    // A blocked flock shows in /proc/locks as a "->" waiter line.
    while (slurp("/proc/locks").find("->") == std::string::npos)
        usleep(1000);
    EXPECT_EQ(stored("buzz_duration"), "30");
    pclose(holder);
    writer.join();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(stored("buzz_duration"), "1234");
}

// Processes that each read-modify-write under the lock lose no update.
TEST_F(Store, LockSerialisesWritersAcrossProcesses) {
    const QString file = AppCfgStore().filePath();
    constexpr int kChildren = 4, kRounds = 10;
    std::vector<pid_t> children;
    for (int c = 0; c < kChildren; ++c) {
        pid_t pid = fork();
        if (pid == 0) {
            AppCfgStore own;
            KRVCTRL::FileLock lock;
            lock.file().open(appCfgLckPath.toStdString(), O_CREAT);
            for (int i = 0; i < kRounds; ++i) {
                KRVCTRL::FileLocker hold(lock);
                QString n;
                IniOperator::FileIniReadValue(file, "DEVICE", "counter", n, "0");
                IniOperator::FileIniWriteValue(file, "DEVICE", "counter",
                                               QString::number(n.toInt() + 1));
            }
            // Distinct keys through the store from different processes all land as well.
            own.writeSetting(c % 2 ? DEV_CHL_BACKLIGHT_SWITCH : DEV_CHL_BACKLIGHT_TIMEOUT,
                             c % 2 ? 0 : 20);
            _exit(0);
        }
        children.push_back(pid);
    }
    for (pid_t pid : children)
        waitpid(pid, nullptr, 0);
    EXPECT_EQ(stored("counter"), QString::number(kChildren * kRounds));
    EXPECT_EQ(stored("backlight_status"), "0");
    EXPECT_EQ(stored("backlight_duration"), "20000");
}
