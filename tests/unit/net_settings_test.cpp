// Address validation, list splitting and the remote-view password file (interface changes are
// checked through the channel writes).
#include <QSettings>
#include <fstream>

#include <gtest/gtest.h>

#include "DevBas.h"
#include "sim/SimPanel.h"

namespace {
QString vncPassword(const char* path) {
    return QSettings(path, QSettings::IniFormat).value("/VNCCONFIG/passwd").toString();
}

class Net : public ::testing::Test {
    void SetUp() override { sim::reset(); }
};
}  // namespace

TEST(NetText, AddressesMasksAndLists) {
    const struct {
        const char* text;
        int ip, mask;
    } cases[] = {{"1.0.0.0", 1, 0},         {"223.255.255.255", 1, 1}, {"0.1.2.3", 0, 0},
                 {"224.0.0.1", 0, 1},       {"10.0.0.256", 0, 0},      {"10.0.0.-1", 0, 0},
                 {"192.168.1.10abc", 1, 1}, {"255.255.255.0", 0, 1},   {"192.0.255.0", 1, 1},
                 {"191.255.255.0", 1, 0},   {"10.0.0", 0, 0},          {"", 0, 0}};
    for (const auto& c : cases) {
        EXPECT_EQ(CDevBas::IsAvailableIPAddr(c.text), c.ip) << c.text;
        EXPECT_EQ(CDevBas::IsAvailableMaskAddr(c.text), c.mask) << c.text;
    }
    std::vector<ZU::utils::String> items;
    EXPECT_EQ(CDevBas::splitString(" a , b ,", ',', items), 1);
    EXPECT_EQ(CDevBas::splitString(nullptr, ',', items), 0);
    EXPECT_EQ(items, (std::vector<ZU::utils::String>{"a", "b", "", ""}));
}

TEST_F(Net, VncPasswordWrittenOnlyWhenChangedAndNeverCreated) {
    const char* etc = "/etc/iot_cfg/vncConfig.ini";
    for (int length : {5, 33})
        EXPECT_EQ(CDevBas::writeVncPwd(std::string(length, 'p').c_str()), -4);
    EXPECT_EQ(vncPassword(etc), "123456");
    for (int length : {6, 32, 0}) {
        EXPECT_EQ(CDevBas::writeVncPwd(std::string(length, 'q').c_str()), 0);
        EXPECT_EQ(vncPassword(etc), QString(length, 'q'));
    }
    // The same password again leaves the file alone.
    sim::watchFiles({etc});
    sim::clearJournal();
    EXPECT_EQ(CDevBas::writeVncPwd(""), 0);
    EXPECT_TRUE(sim::journal().empty());
    // Without the file under /etc the runtime's directory is used, and only an existing file.
    ASSERT_EQ(unlink(etc), 0);
    sim::setDirectory(1, "/tmp");
    EXPECT_EQ(CDevBas::writeVncPwd("secret2"), 0);
    EXPECT_NE(access("/tmp/vncConfig.ini", F_OK), 0);
    EXPECT_NE(access(etc, F_OK), 0);
    std::ofstream("/tmp/vncConfig.ini") << "[VNCCONFIG]\npasswd=x\n";
    EXPECT_EQ(CDevBas::writeVncPwd("secret2"), 0);
    EXPECT_EQ(vncPassword("/tmp/vncConfig.ini"), "secret2");
}
