// Tails of the stored logs and of the captured kernel log, delivered into variables.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstring>

#include "devliunxsys_fixture.h"

namespace {

// Plays another local user who wins the race for the capture's name: when set, a link to
// /tmp/victim appears at "/tmp/dmesg.log" right after the driver removes that name.
std::atomic<bool> plantAtCapture{false};
// The mode of what stood at "/tmp/dmesg.log" when that name was last removed.
std::atomic<unsigned> captureMode{0};

}  // namespace

// The driver's objects are linked into this program, so their unlink is this one.
extern "C" int unlink(const char* path) noexcept {
    struct stat st;
    if (std::strcmp(path, "/tmp/dmesg.log") == 0 && lstat(path, &st) == 0)
        captureMode = st.st_mode & 07777;
    const int result = unlinkat(AT_FDCWD, path, 0);
    if (std::strcmp(path, "/tmp/dmesg.log") == 0 && plantAtCapture.exchange(false))
        (void)symlink("/tmp/victim", path);
    return result;
}

TEST_F(SysOpsTest, StoredLogTails) {
    const std::string big = krv_test::numberedLines(3000), small = krv_test::numberedLines(500),
                      huge = krv_test::numberedLines(3 << 20);
    std::string twoByte = "a";
    for (int i = 0; i < 512; ++i)
        twoByte += "\xc3\xa9";  // the cut splits the first "é"
    const std::string zeroed = krv_test::numberedLines(2000) + '\0' + krv_test::numberedLines(100);
    const struct {
        std::string command, file, content, text;
    } cases[] = {
        {"ReadAppLog(2,1,txt,st)", "signal_recieved", big, big.substr(3000 - 1024)},
        {"ReadAppLog(0,10,txt,st)", "restart", small, small},
        {"ReadAppLog(mode,2,txt,st)", "signal_recieved", big, big.substr(3000 - 2048)},
        {"ReadAppLog(0, 1,txt,st)", "restart", twoByte, twoByte.substr(1)},
        {"ReadAppLog(1,0,txt,st)", "dmesg", big, ""},
        {"ReadAppLog(1,1,txt,st)", "dmesg", huge, huge.substr(huge.size() - 1024)},
        {"ReadAppLog(1,9999999,txt,st)", "dmesg", huge, huge},
        // a zero byte ends the text, as it does for a whole read
        {"ReadAppLog(0,1,txt,st)", "restart", zeroed, zeroed.substr(2000 - 1024, 1024)},
        {"ReadAppLog(1,1,txt,st)", "", "", ""},  // missing file
    };
    for (const auto& c : cases) {
        krv_test::removeFile("/storage/log/dmesg.log");
        if (!c.file.empty())
            krv_test::writeFile("/storage/log/" + c.file + ".log", c.content);
        db.defineInt("mode", 2);
        db.defineText("txt", "old");
        db.defineInt("st", 7);
        EXPECT_EQ(mgr.DevOpear(data, c.command), 0) << c.command;
        EXPECT_TRUE(text() == c.text) << c.command;
        EXPECT_EQ(status(), 0) << c.command;
    }
}

TEST_F(SysOpsTest, KernelLogCapture) {
    const std::string kernel = krv_test::numberedLines(5000);
    krv_test::writeFile("/sbx/fake_dmesg.txt", kernel);
    // A link planted at the capture name must not redirect the capture.
    krv_test::writeFile("/tmp/victim", "keep");
    ASSERT_EQ(symlink("/tmp/victim", "/tmp/dmesg.log"), 0);
    EXPECT_EQ(mgr.DevOpear(data, "ReadSysLog(0,4,txt,st)"), 0);
    EXPECT_TRUE(text() == kernel.substr(5000 - 4096));
    EXPECT_EQ(status(), 0);
    EXPECT_EQ(krv_test::readFile("/tmp/victim"), "keep");
    EXPECT_FALSE(krv_test::fileExists("/tmp/dmesg.log"));
    EXPECT_EQ(captureMode, 0600u);  // the kernel's log is for the driver's user only

    EXPECT_EQ(mgr.DevOpear(data, "ReadSysLog(0,-1,txt,st)"), -4);
    EXPECT_EQ(status(), 4);
    EXPECT_FALSE(krv_test::fileExists("/tmp/dmesg.log"));

    krv_test::writeFile("/sbx/dmesg_fail", "");
    db.defineInt("st", 7);
    db.defineText("txt", "old");
    EXPECT_EQ(mgr.DevOpear(data, "ReadSysLog(0,4,txt,st)"), -3);
    EXPECT_EQ(status(), 7);
    EXPECT_EQ(text(), "old");
    EXPECT_FALSE(krv_test::fileExists("/tmp/dmesg.log"));
    krv_test::removeFile("/sbx/dmesg_fail");

    // A link planted between the removal and the capture fails the capture, not the victim.
    plantAtCapture = true;
    EXPECT_EQ(mgr.DevOpear(data, "ReadSysLog(0,4,txt,st)"), -3);
    EXPECT_FALSE(plantAtCapture);
    EXPECT_EQ(krv_test::readFile("/tmp/victim"), "keep");
    unlink("/tmp/dmesg.log");
}
