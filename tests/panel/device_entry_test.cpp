// The built driver as the runtime sees it: exports, slot codes, array sizing as visible in channel
// pushes, channel writes as commands. (Blob forms and the life cycle are checked on the device
// object directly, communication states and a device without a database by krv-abi-check.)
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "host/Runtime.h"

namespace {

// Pushed channels, by 0-based runtime index.
std::vector<int> pushedChannels(const host::Database& db) {
    std::vector<int> pushed;
    for (const auto& entry : db.channels()) {
        if (entry.second.pushes > 0)
            pushed.push_back(entry.first);
    }
    return pushed;
}

class DeviceEntry : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(rt.ok()) << rt.error();
        rt.database().defineChannels(std::vector<DATATYPE>(20, DATATYPE_DOUBLE));
    }
    host::Runtime rt{KRV_DRIVER_PATH, "KRVdev"};
    host::Device& dev = rt.device();
};

// Another driver's object: DestroyDeviceCtrl must leave it alone.
class Foreign : public IDeviceCtrl {
public:
    bool* deleted;
    explicit Foreign(bool* flag) : deleted(flag) {}
    ~Foreign() override { *deleted = true; }
    int InitDevice(const unsigned char*, int) override { return 0; }
    int CleanupDevice() override { return 0; }
    int CollectDevData(const int*, int) override { return 0; }
    int DevIOCtrl(const char*) override { return 0; }
    int WriteChannel(int, DATATYPE, void*) override { return 0; }
    int UpdataCommunication(ICommunication*) override { return 0; }
    int ChannelRefChange(const int*, int) override { return 0; }
    int SetChannelAddress(int, int) override { return 0; }
};

}  // namespace

TEST_F(DeviceEntry, ExportsAndArgumentCodes) {
    const host::DriverLibrary& lib = rt.library();
    bool deleted = false;
    Foreign foreign(&deleted);
    EXPECT_EQ(lib.destroyFunction()(&foreign), 0);
    EXPECT_FALSE(deleted);

    // The other slots' argument codes are checked by krv-abi-check.
    const int flags[3] = {3, 3, 3};
    EXPECT_EQ(dev.init(nullptr, 4), DEVCTRL_BAD_ARGUMENT);
    EXPECT_EQ(dev.init(host::defaultBlob().data(), 0), DEVCTRL_BAD_ARGUMENT);
    EXPECT_EQ(dev.collect(flags, 0), 0);
    EXPECT_EQ(rt.database().totalPushes(), 0);
}

TEST_F(DeviceEntry, ArraySizingSeenInPushes) {
    ASSERT_EQ(rt.start(), 0);
    const struct {
        std::vector<int> flags;
        std::vector<int> pushed;
    } polls[] = {
        {{0, 0, 0}, {0, 1, 2, 3, 4, 5, 6, 7, 8}},  // the first refreshes: ten entries for 3
        {{0, 3, 0}, {1, 3, 4, 5, 6, 7, 8}},  // entries beyond the flags keep the refresh's status
        {std::vector<int>(12, 3), {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}},  // thirteen entries
        {std::vector<int>(9, 3), {0, 1, 2, 3, 4, 5, 6, 7, 8}},  // cut back to ten entries
    };
    for (const auto& p : polls) {
        rt.database().resetPushes();
        EXPECT_EQ(dev.collect(p.flags), 0);
        EXPECT_EQ(pushedChannels(rt.database()), p.pushed) << p.flags.size();
    }
    // A poll answers element 0 as the last command left it. Slot 15 comes before every poll,
    // command and write, but not before a poll without flags.
    EXPECT_EQ(dev.collect(nullptr, 5), 0);
    EXPECT_EQ(dev.command("ModVncPwd(a,b,c)"), 5);
    EXPECT_EQ(dev.collect({0, 0, 0}), 5);
    EXPECT_EQ(dev.writeInt(30, 1), 0);
    EXPECT_EQ(rt.communication().serviceCalls().size(), 7u);
}

// A write without a value type is an empty command: the next poll does not refresh. (Writes of
// each value type, which do, are checked channel by channel.)
TEST_F(DeviceEntry, WriteWithoutValueTypeIsNoWrite) {
    ASSERT_EQ(rt.start(), 0);
    const std::vector<int> idle(19, 0);
    ASSERT_EQ(dev.collect(idle), 0);
    rt.database().resetPushes();
    int one = 1;
    EXPECT_EQ(dev.write(4, static_cast<DATATYPE>(7), &one), 0);
    EXPECT_EQ(dev.collect(idle), 0);
    EXPECT_EQ(rt.database().totalPushes(), 0);
}

// Counts and channel numbers a runtime should never pass, before and after sizing, in any order:
// no slot fails, and the next poll with the real count refreshes and pushes every channel.
TEST_F(DeviceEntry, OddCountsLeaveTheArraysUsable) {
    const int flags[3] = {3, 3, 3};
    for (const bool started : {false, true}) {
        if (started) {
            ASSERT_EQ(rt.start(), 0);
        }
        for (const int count : {-1, -5, INT_MIN, 0}) {
            SCOPED_TRACE(count);
            EXPECT_EQ(dev.collect(flags, count), 0);
            EXPECT_EQ(dev.channelRefChange(flags, count), count == 0 ? DEVCTRL_BAD_ARGUMENT : 0);
            EXPECT_EQ(dev.collect(flags, count), 0);
            EXPECT_EQ(dev.writeInt(3, 1), 0);
        }
        // The ends of the int range: below 0 refused, above the last channel nothing to write.
        int one = 1;
        EXPECT_EQ(dev.writeInt(INT_MAX, 1), 0);
        EXPECT_EQ(dev.write(INT_MAX, static_cast<DATATYPE>(INT_MIN), &one), 0);
        EXPECT_EQ(dev.writeInt(INT_MIN, 1), DEVCTRL_BAD_ARGUMENT);
    }
    ASSERT_EQ(dev.command("REFLESH()"), 0);
    rt.database().resetPushes();
    EXPECT_EQ(dev.collect(std::vector<int>(19, 0)), 0);
    EXPECT_EQ(pushedChannels(rt.database()).size(), 19u);
}
