// Command parsing, routing and argument errors of the operation manager.
#include <climits>

#include "devliunxsys_fixture.h"

TEST(ParaCmd, SplitsNameAndArguments) {
    struct Case {
        std::string command;
        int result;
        std::string name;
        std::vector<std::string> args;
    } cases[] = {
        {"ReadAppLog(a,,b)", 0, "ReadAppLog", {"pre", "a", "b"}},  // empty dropped, appended
        {"ReadAppLog(a,b,)", 0, "ReadAppLog", {"pre", "a", "b"}},  // trailing comma
        {"X(,a)", 0, "X", {"pre", "a"}},
        {"X()", 0, "X", {"pre"}},
        {" X(0, 4)", 0, " X", {"pre", "0", " 4"}},  // blanks kept
        {"X(f(1))", 0, "X", {"pre", "f(1)"}},       // up to the last bracket
        {"GetCpuUse", -5, "", {"pre"}},
        {"GetCpuUse(10", -5, "", {"pre"}},
        {"", -5, "", {"pre"}},
    };
    ToolsBase tools;
    for (const Case& c : cases) {
        std::string name;
        std::vector<std::string> args{"pre"};
        EXPECT_EQ(tools.ParaCmd(name, args, c.command), c.result) << c.command;
        EXPECT_EQ(name, c.name) << c.command;
        EXPECT_EQ(args, c.args) << c.command;
    }
}

// Commands that stop before any handler runs, and what they leave in the status variable.
TEST_F(SysOpsTest, RejectsBadCommandsAndOperands) {
    struct Case {
        std::string command;
        int result;
        double status;  // 7 = untouched
    } cases[] = {
        {"", 0, 7},
        {"getcpuuse(10)", 0, 7},  // names are case-sensitive: unknown, silently done
        {"Reboot(1)", 0, 7},
        {"GetCpuUse", -5, 7},
        {"GetCpuUse(10", -5, 7},
        {"ReadAppLog(0,1,txt)", -5, 7},
        {"ReadAppLog(0,1,txt,st,x)", -5, 7},
        {"ReadAppLog(3,1,txt,st)", -4, 4},
        {"ReadAppLog(-1,1,txt,st)", -4, 4},
        {"ReadSysLog(1,1,txt,st)", -4, 4},
        {"ReadAppLog(dmode,1,txt,st)", -4, 4},  // a double variable is no integer operand
        {"ReadAppLog(smode,1,txt,st)", -4, 4},
        {"ReadAppLog(0,-1,txt,st)", -4, 4},
        {"ReadAppLog(0,dmode,txt,st)", -4, 4},
        {"ReadAppLog(0,1,st,st)", -4, 4},  // a numeric variable refuses the text
        {"ReadAppLog(3,1,txt,nosuch)", -4, 7},
        {"ReadAppLog(3,1,txt,txt)", -4, 7},
    };
    for (const Case& c : cases) {
        for (DATATYPE statusType : {DATATYPE_INT, DATATYPE_DOUBLE}) {
            Var("st", statusType, 7);
            Var("txt", DATATYPE_STRING, 0, "old");
            Var("dmode", DATATYPE_DOUBLE, 2);
            Var("smode", DATATYPE_STRING, 0, "2");
            EXPECT_EQ(mgr.DevOpear(data, c.command), c.result) << c.command;
            EXPECT_EQ(Num("st"), c.status) << c.command;
            EXPECT_EQ(Text("txt"), "old") << c.command;
        }
    }
}

TEST(DevLinuxOpearDb, LiteralsWithoutDatabase) {
    WEXA_DATA data{};
    DevLinuxOpearDb db;
    int value = -1;
    EXPECT_EQ(db.DevGetParaValue(data, " 42kB", value), 0);
    EXPECT_EQ(value, 42);
    EXPECT_EQ(db.DevGetParaValue(data, "99999999999", value), 0);
    EXPECT_EQ(value, INT_MAX);  // saturates as a 32-bit strtol does
    double d = 1;
    std::string s = "x";
    EXPECT_EQ(db.DevSetParaValue(data, "v", d), -1);
    EXPECT_EQ(db.DevSetParaValue(data, "v", s), -1);
}

TEST_F(SysOpsTest, StatusRoundsHalfAwayFromZero) {
    DevLinuxOpearDb db;
    for (double v : {2.5, -2.5, 2.4}) {
        Var("n", DATATYPE_INT);
        EXPECT_EQ(db.DevSetParaValue(data, "n", v), 0);
        EXPECT_EQ(Num("n"), v == 2.5 ? 3 : v < 0 ? -3 : 2) << v;
    }
}
