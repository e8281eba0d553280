// File utilities, the lock file shared with other processes, and the application configuration
// store.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <thread>

#include <gtest/gtest.h>

#include "AppCfgStore.h"
#include "IniOperator.h"
#include "Sandbox.h"
#include "sim/SimPanel.h"

namespace {
QString stored(const char* key) {
    QString v;
    IniOperator::FileIniReadValue(AppCfgStore().filePath(), "DEVICE", key, v, "<none>");
    return v;
}

// Bounded so that a broken lock fails the test instead of hanging it.
template <class Ready>
bool eventually(Ready ready) {
    for (int i = 0; i < 5000 && !ready(); ++i)
        usleep(1000);
    return ready();
}

class Store : public ::testing::Test {
    void SetUp() override { sim::reset(); }
};
}  // namespace

TEST_F(Store, FilesAreReadWholeWithPositionKept) {
    for (size_t size : {0u, 1023u, 1024u, 2047u}) {
        std::string content(size, '\0');
        for (size_t i = 0; i < size; ++i)
            content[i] = static_cast<char>(i * 7);
        std::ofstream("/tmp/f.bin", std::ios::binary) << content;
        KRVCTRL::File f;
        ASSERT_TRUE(f.open("/tmp/f.bin", O_RDONLY));
        f.seek(static_cast<unsigned int>(size / 2));
        EXPECT_EQ(f.readAll(), content) << size;
        EXPECT_EQ(lseek(f.descriptor(), 0, SEEK_CUR), static_cast<off_t>(size / 2)) << size;
    }
    // Reported size 0, more than one read's worth of text.
    KRVCTRL::File meminfo;
    ASSERT_TRUE(meminfo.open("/proc/meminfo", O_RDONLY));
    const std::string text = meminfo.readAll();
    EXPECT_GT(text.size(), 1023u);
    EXPECT_EQ(text.compare(0, 9, "MemTotal:"), 0);

    ASSERT_EQ(symlink("/tmp/f.bin", "/tmp/link"), 0);
    EXPECT_TRUE(KRVCTRL::File::is_file_exist("/tmp/link"));
    EXPECT_FALSE(KRVCTRL::File::is_file_exist("/tmp"));
}

TEST_F(Store, WritesAreValidatedStoredAndAnnouncedInOrder) {
    const std::string buzz = "__gui_get_buzzing_time(1) __gui_get_buzzing_time(0) ";
    const std::string reset = "__gui_reset_lcdlight_timer() ";
    const struct {
        DEV_CHNLNAME channel;
        int value, result;
        const char *key, *text;
        std::string gui;
    } cases[] = {
        {DEV_CHL_BUZZ_SWITCH, 1, 0, "buzz_duration", "30", buzz},
        {DEV_CHL_BUZZ_SWITCH, 2, -4, "buzz_duration", "30", ""},
        {DEV_CHL_BUZZ_DURATION, 6500, 0, "buzz_duration", "6500", buzz},
        {DEV_CHL_BUZZ_DURATION, 6501, -4, "buzz_duration", "6500", ""},
        {DEV_CHL_BUZZ_DURATION, -1, -4, "buzz_duration", "6500", ""},
        {DEV_CHL_BUZZ_SWITCH, 0, 0, "buzz_duration", "0", buzz},
        {DEV_CHL_BACKLIGHT_SWITCH, 1, 0, "backlight_status", "1",
         "__gui_get_lcdlight_status(1) " + reset},
        {DEV_CHL_BACKLIGHT_TIMEOUT, 14, -4, "backlight_duration", "60000", ""},
        {DEV_CHL_BACKLIGHT_TIMEOUT, 1801, -4, "backlight_duration", "60000", ""},
        {DEV_CHL_BACKLIGHT_TIMEOUT, 15, 0, "backlight_duration", "15000",
         "__gui_get_lcdlight_time(1) " + reset},
    };
    for (const auto& c : cases) {
        sim::clearJournal();
        EXPECT_EQ(AppCfgStore().writeSetting(c.channel, c.value), c.result) << c.value;
        EXPECT_EQ(stored(c.key), c.text) << c.value;
        std::string gui;
        for (const sim::JournalEntry& e : sim::journal("gui"))
            gui += e.text + " ";
        EXPECT_EQ(gui, c.gui) << c.value;
    }
    EXPECT_EQ(AppCfgStore().beepTest(-1), -4);
    EXPECT_EQ(AppCfgStore().beepTest(50), 0);
    ASSERT_EQ(sim::journal("beep").size(), 1u);
    EXPECT_EQ(sim::journal("beep")[0].text, "Wexa_Beep(900,50)");

    // The directory is asked for on every access; an empty one falls back.
    sim::setDirectory(1, "/tmp");
    EXPECT_EQ(AppCfgStore().writeSetting(DEV_CHL_BACKLIGHT_SWITCH, 0), 0);
    EXPECT_EQ(krv_test::readFile("/tmp/wexa_app_conf.ini"), "[DEVICE]\nbacklight_status=0\n");
    sim::setDirectory(1, "");
    EXPECT_EQ(AppCfgStore().filePath(), "/usr/wexa_app/config/wexa_app_conf.ini");
}

// A second process holds the lock: the driver's write waits for it, then lands.
TEST_F(Store, WriteWaitsForAnotherProcessHoldingTheLock) {
    FILE* holder = popen("flock /tmp/wexa_app_conf.lck sh -c 'touch /tmp/held; read x'", "w");
    ASSERT_TRUE(holder && eventually([] { return access("/tmp/held", F_OK) == 0; }));
    const QString before = stored("buzz_duration");
    int result = 1;
    std::thread writer([&] { result = AppCfgStore().writeSetting(DEV_CHL_BUZZ_DURATION, 1234); });
    // A blocked flock shows in /proc/locks as a "->" waiter line.
    EXPECT_TRUE(eventually(
        [] { return krv_test::readFile("/proc/locks").find("->") != std::string::npos; }));
    EXPECT_EQ(stored("buzz_duration"), before);
    pclose(holder);
    writer.join();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(stored("buzz_duration"), "1234");
}

// Processes that each read-modify-write a counter under the lock lose no update, and
// store writes of distinct keys from parallel processes all land.
TEST_F(Store, LockSerialisesWritersAcrossProcesses) {
    constexpr int kChildren = 3, kRounds = 300;
    const std::pair<DEV_CHNLNAME, int> settings[kChildren] = {{DEV_CHL_BUZZ_DURATION, 4321},
                                                              {DEV_CHL_BACKLIGHT_SWITCH, 0},
                                                              {DEV_CHL_BACKLIGHT_TIMEOUT, 20}};
    int gate[2];
    ASSERT_EQ(pipe(gate), 0);
    for (int c = 0; c < kChildren; ++c) {
        if (fork() != 0)
            continue;
        char unused;  // all start together once the parent closes the gate
        close(gate[1]);
        if (read(gate[0], &unused, 1) != 0)
            _exit(1);
        KRVCTRL::FileLock lock;
        KRVCTRL::File counter;
        if (!lock.file().open(appCfgLckPath.toStdString(), O_CREAT) ||
            !counter.open("/tmp/counter", O_RDWR | O_CREAT))
            _exit(1);
        for (int i = 0; i < kRounds; ++i) {
            KRVCTRL::FileLocker hold(lock);
            const std::string next = std::to_string(atoi(counter.readAll().c_str()) + 1);
            if (pwrite(counter.descriptor(), next.data(), next.size(), 0) < 0)
                _exit(1);
        }
        _exit(AppCfgStore().writeSetting(settings[c].first, settings[c].second) == 0 ? 0 : 1);
    }
    close(gate[0]);
    close(gate[1]);
    for (int c = 0, status = -1; c < kChildren; ++c) {
        wait(&status);
        EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(krv_test::readFile("/tmp/counter"), std::to_string(kChildren * kRounds));
    EXPECT_EQ(stored("buzz_duration"), "4321");
    EXPECT_EQ(stored("backlight_status"), "0");
    EXPECT_EQ(stored("backlight_duration"), "20000");
}
