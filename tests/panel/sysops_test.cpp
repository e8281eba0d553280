// System operations as a project sends them: command texts through DevIOCtrl, operands and
// results in runtime variables of every type.
#include <gtest/gtest.h>

#include "Sandbox.h"
#include "host/Runtime.h"

namespace {

class SysOpsPanel : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(rt.ok()) << rt.error();
        ASSERT_EQ(rt.start(), 0);
    }
    void TearDown() override { rt.device().cleanup(); }

    host::Runtime rt{KRV_DRIVER_PATH};
};

TEST_F(SysOpsPanel, LogOperandsAndResultsInVariables) {
    const std::string signal = krv_test::numberedLines(3000),
                      kernel = krv_test::numberedLines(6000);
    krv_test::writeFile("/storage/log/signal_recieved.log", signal);
    krv_test::writeFile("/sbx/fake_dmesg.txt", kernel);
    const std::string tail1 = signal.substr(3000 - 1024);
    struct Case {
        std::string command;
        int result;
        std::string text;  // "old": untouched
        std::string statusVar, status;
    } cases[] = {
        {"ReadAppLog(m,n,txt,st)", 0, tail1, "st", "0"},
        {"ReadAppLog(m,n,txt,sd)", 0, tail1, "sd", "0"},
        {"ReadAppLog(m,n,txt,ss)", 0, tail1, "ss", "7"},  // a text status receives nothing
        {"ReadAppLog(md,n,txt,st)", 4, "old", "st", "4"},
        {"ReadAppLog(m,nd,txt,sd)", 4, "old", "sd", "4"},
        {"ReadAppLog(m,n,num,st)", 4, "old", "st", "4"},
        {"ReadAppLog(m,n,txt)", 5, "old", "st", "7"},
        {"ReadSysLog(0,n,txt,sd)", 0, kernel.substr(6000 - 1024), "sd", "0"},
        {"ReadSysLog(m,n,txt,st)", 4, "old", "st", "4"},
    };
    host::Database& db = rt.database();
    for (const Case& c : cases) {
        db.defineInt("m", 2);
        db.defineDouble("md", 2);
        db.defineInt("n", 1);
        db.defineDouble("nd", 1);
        db.defineText("txt", "old");
        db.defineInt("num", 3);
        db.defineInt("st", 7);
        db.defineDouble("sd", 7);
        db.defineText("ss", "7");
        EXPECT_EQ(rt.device().command(c.command), c.result) << c.command;
        EXPECT_TRUE(db.variable("txt")->text == c.text) << c.command;
        EXPECT_EQ(db.variable(c.statusVar)->toString(), c.status) << c.command;
        EXPECT_FALSE(krv_test::fileExists("/tmp/dmesg.log")) << c.command;
    }
}

}  // namespace
