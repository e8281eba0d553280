// Command parsing, routing and argument errors of the operation manager.
#include <climits>

#include "devliunxsys_fixture.h"

TEST(ParaCmd, SplitsNameAndArguments) {
    using Args = std::vector<std::string>;
    const struct {
        std::string command;
        int result;
        std::string name;
        Args args;  // the list afterwards; it held "pre" before
    } cases[] = {
        {"ReadAppLog(a,,b)", 0, "ReadAppLog", {"pre", "a", "b"}},  // empty arguments dropped
        {"ReadAppLog(a,b,)", 0, "ReadAppLog", {"pre", "a", "b"}},
        {"X(,a)", 0, "X", {"pre", "a"}},
        {"X()", 0, "X", {"pre"}},
        {" X(0, 4)", 0, " X", {"pre", "0", " 4"}},  // blanks kept
        {"X(f(1))", 0, "X", {"pre", "f(1)"}},
        {"GetCpuUse", -5, "", {"pre"}},
        {"GetCpuUse(10", -5, "", {"pre"}},
        {"", -5, "", {"pre"}},
    };
    ToolsBase tools;
    for (const auto& c : cases) {
        std::string name;
        Args args{"pre"};
        EXPECT_EQ(tools.ParaCmd(name, args, c.command), c.result) << c.command;
        EXPECT_EQ(name, c.name) << c.command;
        EXPECT_EQ(args, c.args) << c.command;
    }
}

// Commands stopped before any log is read, and what they leave in the status variable.
TEST_F(SysOpsTest, RejectsBadCommandsAndOperands) {
    const struct {
        std::string command;
        int result;
        int status;  // 7: untouched
    } cases[] = {
        {"", 0, 7},
        {"getcpuuse(10)", 0, 7},  // names are case-sensitive: unknown, silently done
        {"GetCpuUse", -5, 7},
        {"ReadAppLog(0,1,txt)", -5, 7},
        {"ReadAppLog(0,1,txt,st,x)", -5, 7},
        {"ReadAppLog(3,1,txt,st)", -4, 4},
        {"ReadAppLog(-1,1,txt,st)", -4, 4},
        {"ReadSysLog(1,1,txt,st)", -4, 4},
        {"ReadAppLog(0,-1,txt,st)", -4, 4},
        {"ReadAppLog(3,1,txt,nosuch)", -4, 7},
    };
    for (const auto& c : cases) {
        db.defineInt("st", 7);
        EXPECT_EQ(mgr.DevOpear(data, c.command), c.result) << c.command;
        EXPECT_EQ(status(), c.status) << c.command;
        EXPECT_EQ(text(), "old") << c.command;
    }
}

TEST(DevLinuxOpearDb, LiteralsWithoutDatabase) {
    WEXA_DATA data{};
    DevLinuxOpearDb db;
    int value = -1;
    EXPECT_EQ(db.DevGetParaValue(data, " 42kB", value), 0);
    EXPECT_EQ(value, 42);
    EXPECT_EQ(db.DevGetParaValue(data, "99999999999", value), 0);
    EXPECT_EQ(value, INT_MAX);  // saturates as the panel's 32-bit strtol does
    double status = 4;
    EXPECT_EQ(db.DevSetParaValue(data, "st", status), -1);
}
