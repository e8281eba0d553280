// Tails of the stored logs and of the captured kernel log, delivered into variables.
#include <sys/stat.h>
#include <unistd.h>

#include "devliunxsys_fixture.h"

namespace {

std::string Lines(std::size_t bytes) {
    std::string text;
    for (int i = 0; text.size() < bytes; ++i)
        text += "line " + std::to_string(i) + "\n";
    return text.substr(0, bytes);
}

bool Exists(const char* path) {
    struct stat st;
    return lstat(path, &st) == 0;
}

}  // namespace

TEST_F(SysOpsTest, StoredLogTails) {
    const std::string big = Lines(3000), small = Lines(500), huge = Lines(3 << 20);
    std::string twoByte = "a";
    for (int i = 0; i < 512; ++i)
        twoByte += "\xc3\xa9";  // the cut splits the first character
    const std::string zeroed = Lines(2000) + std::string(1, '\0') + Lines(100);
    struct Case {
        std::string command, file, content, text;
    } cases[] = {
        {"ReadAppLog(2,1,txt,st)", "signal_recieved", big, big.substr(3000 - 1024)},
        {"ReadAppLog(0,10,txt,st)", "restart", small, small},
        {"ReadAppLog(mode,len,txt,st)", "signal_recieved", big, big.substr(3000 - 2048)},
        {"ReadAppLog(0, 1,txt,st)", "restart", twoByte, twoByte.substr(1)},
        {"ReadAppLog(1,0,txt,st)", "dmesg", big, ""},
        {"ReadAppLog(1,1,txt,st)", "dmesg", huge, huge.substr(huge.size() - 1024)},
        {"ReadAppLog(1,9999999,txt,st)", "dmesg", huge, huge},
        // a zero byte ends the text, as a whole read would
        {"ReadAppLog(0,1,txt,st)", "restart", zeroed, zeroed.substr(2000 - 1024, 1024)},
        {"ReadAppLog(1,1,txt,st)", "", "", ""},  // missing file
    };
    for (const Case& c : cases) {
        unlink("/storage/log/dmesg.log");
        if (!c.file.empty())
            WriteFile("/storage/log/" + c.file + ".log", c.content);
        Var("mode", DATATYPE_INT, 2);
        Var("len", DATATYPE_INT, 2);
        Var("txt", DATATYPE_STRING, 0, "old");
        Var("st", DATATYPE_DOUBLE, 7);
        EXPECT_EQ(mgr.DevOpear(data, c.command), 0) << c.command;
        EXPECT_TRUE(Text("txt") == c.text) << c.command << " got " << Text("txt").size();
        EXPECT_EQ(Num("st"), 0) << c.command;
    }
}

TEST_F(SysOpsTest, KernelLogCapture) {
    const std::string kernel = "[    0.000000] Booting\n" + Lines(5000);
    WriteFile("/sbx/fake_dmesg.txt", kernel);
    // A link planted at the capture name must not redirect the capture.
    WriteFile("/tmp/victim", "keep");
    ASSERT_EQ(symlink("/tmp/victim", "/tmp/dmesg.log"), 0);
    Var("txt", DATATYPE_STRING);
    Var("st", DATATYPE_INT, 7);
    EXPECT_EQ(mgr.DevOpear(data, "ReadSysLog(0,4,txt,st)"), 0);
    EXPECT_TRUE(Text("txt") == kernel.substr(kernel.size() - 4096));
    EXPECT_EQ(Num("st"), 0);
    EXPECT_EQ(ReadFile("/tmp/victim"), "keep");
    EXPECT_FALSE(Exists("/tmp/dmesg.log"));

    EXPECT_EQ(mgr.DevOpear(data, "ReadSysLog(0,-1,txt,st)"), -4);
    EXPECT_EQ(Num("st"), 4);
    EXPECT_FALSE(Exists("/tmp/dmesg.log"));

    WriteFile("/sbx/dmesg_fail", "");
    Var("txt", DATATYPE_STRING, 0, "old");
    Var("st", DATATYPE_INT, 7);
    EXPECT_EQ(mgr.DevOpear(data, "ReadSysLog(0,4,txt,st)"), -3);
    EXPECT_EQ(Num("st"), 7);
    EXPECT_EQ(Text("txt"), "old");
    EXPECT_FALSE(Exists("/tmp/dmesg.log"));
    unlink("/sbx/dmesg_fail");
}
