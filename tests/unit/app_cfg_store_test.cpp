// File utilities, the lock file shared with other processes, and the application configuration
// store.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include <gtest/gtest.h>

#include "AppCfgStore.h"
#include "IniOperator.h"
#include "NtpCtrl.h"
#include "Sandbox.h"
#include "sim/SimPanel.h"

namespace {
QString stored(const char* key) {
    QString v;
    IniOperator::FileIniReadValue(AppCfgStore().filePath(), "DEVICE", key, v, "<none>");
    return v;
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
        // No child of the driver keeps what it opens.
        EXPECT_TRUE(fcntl(f.descriptor(), F_GETFD) & FD_CLOEXEC);
        f.seek(static_cast<unsigned int>(size / 2));
        EXPECT_EQ(f.readAll(), content) << size;
        EXPECT_EQ(lseek(f.descriptor(), 0, SEEK_CUR), static_cast<off_t>(size / 2)) << size;
    }
    ASSERT_EQ(symlink("/tmp/f.bin", "/tmp/link"), 0);
    EXPECT_TRUE(KRVCTRL::File::is_file_exist("/tmp/link"));
    EXPECT_FALSE(KRVCTRL::File::is_file_exist("/tmp"));
}

// Ranges, stored texts and GUI calls of each setting are checked through the channel writes; here
// the file's directory, asked for on every access, with an empty one falling back.
TEST_F(Store, DirectoryIsAskedForOnEveryAccess) {
    sim::setDirectory(1, "/tmp");
    EXPECT_EQ(AppCfgStore().writeSetting(DEV_CHL_BACKLIGHT_SWITCH, 0), 0);
    EXPECT_EQ(krv_test::readFile("/tmp/wexa_app_conf.ini"), "[DEVICE]\nbacklight_status=0\n");
    sim::setDirectory(1, "");
    EXPECT_EQ(AppCfgStore().filePath(), "/usr/wexa_app/config/wexa_app_conf.ini");
    // An empty name touches nothing: no file is created, a value read stays as it was.
    EXPECT_EQ(IniOperator::FileIniWriteValue("/tmp/new.ini", "", "key", "v"), -1);
    EXPECT_FALSE(krv_test::fileExists("/tmp/new.ini"));
    QString value = "kept";
    EXPECT_EQ(IniOperator::FileIniReadValue("/tmp/wexa_app_conf.ini", "DEVICE", "", value, ""), 0);
    EXPECT_EQ(value, "kept");
}

// Lock files are made for every user, whatever the umask: other users' processes open them to
// lock them.
TEST_F(Store, LockFilesAreCreatedForEveryUser) {
    const char* const locks[] = {"/tmp/wexa_app_conf.lck", "/tmp/dns_access_lock.lck"};
    for (const char* lock : locks)
        unlink(lock);
    const mode_t umaskBefore = umask(0);
    EXPECT_TRUE(AppCfgStore().isOpen());
    NtpCtrl::readNameServers();
    umask(umaskBefore);
    for (const char* lock : locks) {
        struct stat st;
        EXPECT_TRUE(stat(lock, &st) == 0 && (st.st_mode & 07777) == 0777) << lock;
        KRVCTRL::File file;
        EXPECT_TRUE(file.open(lock, O_CREAT) && fcntl(file.descriptor(), F_GETFD) & FD_CLOEXEC);
    }
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
        if (!lock.file().open(appCfgLckPath.toLatin1().constData(), O_CREAT) ||
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

// Settings are written through QSettings on the file itself: a linked file stays linked and
// keeps its mode, and only the emptied copy of the write is left beside it.
TEST_F(Store, SettingsWriteKeepsLinkAndModeAndLeavesNothingBeside) {
    ASSERT_TRUE(krv_test::writeFile("/tmp/cfg/real.ini", "[A]\nkept=1\n"));
    ASSERT_EQ(chmod("/tmp/cfg/real.ini", 0640), 0);
    ASSERT_EQ(symlink("/tmp/cfg/real.ini", "/tmp/cfg/link.ini"), 0);
    EXPECT_EQ(IniOperator::FileIniWriteValue("/tmp/cfg/link.ini", "A", "new", "2"), 0);
    struct stat st;
    EXPECT_TRUE(lstat("/tmp/cfg/link.ini", &st) == 0 && S_ISLNK(st.st_mode));
    EXPECT_TRUE(stat("/tmp/cfg/real.ini", &st) == 0 && (st.st_mode & 0777) == 0640);
    EXPECT_EQ(krv_test::readFile("/tmp/cfg/real.ini"), "[A]\nkept=1\nnew=2\n");
    EXPECT_EQ(krv_test::run("ls /tmp/cfg").out, "link.ini\nlink.ini.krvcopy\nreal.ini\n");
    EXPECT_EQ(krv_test::readFile("/tmp/cfg/link.ini.krvcopy"), "");
}
