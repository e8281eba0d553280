// The runtime host's own rules: blob bytes, variable typing, channel push records, loading.
#include <link.h>

#include <gtest/gtest.h>

#include "host/Runtime.h"

namespace {

using Bytes = std::vector<unsigned char>;

TEST(ConfigBlob, BytesAreLittleEndianInBothForms) {
    struct Case {
        const char* what;
        Bytes blob;
        Bytes expected;
    };
    const Case cases[] = {
        {"old form", host::oldFormBlob({5, 200}), {0x02, 0, 0, 0, 0x05, 0, 0, 0, 0xC8, 0, 0, 0}},
        {"versioned", host::versionedBlob({7}), {0x20, 0x4E, 0x01, 0, 0, 0, 0x07, 0, 0, 0}},
        {"store version", host::versionedBlob({}, 20001), {0x21, 0x4E, 0, 0, 0, 0}},
        {"negative parameter", host::oldFormBlob({-2}), {0x01, 0, 0, 0, 0xFE, 0xFF, 0xFF, 0xFF}},
        {"default", host::defaultBlob(), host::oldFormBlob({0, 200})},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.blob, c.expected) << c.what;
    }
}

class DatabaseTest : public ::testing::Test {
protected:
    DatabaseTest() {
        db.defineInt("i", 7);
        db.defineDouble("d", 2.5);
        db.defineText("t", "abc");
    }
    host::Database db;
    IRtdb& slots = db;
};

TEST_F(DatabaseTest, UnknownNameLeavesTheTypeUntouched) {
    auto type = static_cast<DATATYPE>(-2);
    EXPECT_NE(slots.GetValueType("nope", &type), 0);
    EXPECT_EQ(type, -2);
    EXPECT_EQ(slots.GetValueType("d", &type), 0);
    EXPECT_EQ(type, DATATYPE_DOUBLE);
    EXPECT_NE(slots.GetValueType(nullptr, &type), 0);
    EXPECT_FALSE(db.defineInt("", 1));
}

TEST_F(DatabaseTest, SlotsAreStrictlyTyped) {
    int i = 0;
    double d = 0.0;
    std::string t;
    EXPECT_EQ(slots.GetIntValue("i", &i), 0);
    EXPECT_EQ(slots.GetDoubleValue("d", &d), 0);
    EXPECT_EQ(slots.GetStringValue("t", &t), 0);
    EXPECT_EQ(i, 7);
    EXPECT_EQ(d, 2.5);
    EXPECT_EQ(t, "abc");

    EXPECT_EQ(slots.GetIntValue("d", &i), host::RTDB_WRONG_TYPE);
    EXPECT_EQ(slots.GetStringValue("i", &t), host::RTDB_WRONG_TYPE);
    EXPECT_EQ(slots.SetDoubleValue("i", 1.5), host::RTDB_WRONG_TYPE);
    EXPECT_EQ(slots.SetIntValue("missing", 1), host::RTDB_UNKNOWN_NAME);
    EXPECT_EQ(slots.SetStringValue("t", nullptr), host::RTDB_BAD_ARGUMENT);
    EXPECT_EQ(db.variable("i")->intValue, 7);

    std::string text = "new";
    EXPECT_EQ(slots.SetStringValue("t", &text), 0);
    EXPECT_EQ(slots.SetIntValue("i", -4), 0);
    EXPECT_EQ(db.variable("t")->text, "new");
    EXPECT_EQ(db.variable("i")->toString(), "-4");

    // Redefining changes the type.
    db.defineText("i");
    EXPECT_EQ(slots.SetIntValue("i", 1), host::RTDB_WRONG_TYPE);
}

TEST_F(DatabaseTest, ChannelPushesAreRecordedEvenWhenRefused) {
    db.defineChannels({DATATYPE_STRING, DATATYPE_DOUBLE, DATATYPE_INT});
    DATATYPE type = DATATYPE_NONE;
    EXPECT_EQ(slots.GetChannelType(1, &type), 0);
    EXPECT_EQ(type, DATATYPE_DOUBLE);
    EXPECT_NE(slots.GetChannelType(3, &type), 0);

    std::string text = "10.0.0.9";
    EXPECT_EQ(slots.SetChannelString(0, &text), 0);
    EXPECT_EQ(slots.SetChannelDouble(1, 0.25), 0);
    EXPECT_EQ(slots.SetChannelDouble(1, 0.5), 0);
    EXPECT_EQ(slots.SetChannelDouble(2, 3.0), host::RTDB_WRONG_TYPE);
    EXPECT_EQ(slots.SetChannelInt(5, 1), host::RTDB_UNKNOWN_NAME);

    EXPECT_EQ(db.channel(0)->toString(), "10.0.0.9");
    EXPECT_EQ(db.channel(1)->pushes, 2);
    EXPECT_EQ(db.channel(1)->doubleValue, 0.5);
    EXPECT_EQ(db.channel(2)->pushedType, DATATYPE_DOUBLE);
    EXPECT_EQ(db.channel(5)->type, DATATYPE_NONE);
    EXPECT_EQ(db.totalPushes(), 5);

    db.resetPushes();
    EXPECT_EQ(db.totalPushes(), 0);
    EXPECT_EQ(db.channel(1)->type, DATATYPE_DOUBLE);
    EXPECT_EQ(db.channel(1)->toString(), "");
}

TEST(Communication, RecordsServiceCallsAndAnswersItsState) {
    host::Communication comm(2);
    ICommunication& slots = comm;
    char name[] = "KRVcontrol";
    slots.OnDeviceService(name);
    slots.OnDeviceService(nullptr);
    EXPECT_EQ(slots.GetCommState(), 2);
    comm.setState(1);
    EXPECT_EQ(slots.GetCommState(), 1);
    EXPECT_EQ(comm.serviceCalls(), (std::vector<std::string>{"KRVcontrol", ""}));
    EXPECT_EQ(comm.stateQueries(), 2);
}

TEST(DriverLibrary, RefusesObjectsWithoutTheEntryPoints) {
    host::Runtime missing("/nonexistent/libnothing.so");
    EXPECT_FALSE(missing.ok());
    EXPECT_NE(missing.error().find("libnothing"), std::string::npos);
    EXPECT_EQ(missing.start(), DEVCTRL_BAD_ARGUMENT);

    // A real shared object that exports neither function.
    host::DriverLibrary runtimeLibrary("libwexa-runtime.so");
    EXPECT_FALSE(runtimeLibrary.loaded());
    EXPECT_NE(runtimeLibrary.error().find("CreateDeviceCtrl"), std::string::npos);
}

// The runtime library must come before libc in the global search order, or a dlopen'ed
// driver's reboot() would reach the C library.
TEST(DriverLibrary, RuntimeIsLoadedAheadOfLibc) {
    std::vector<std::string> order;
    dl_iterate_phdr(
        [](dl_phdr_info* info, size_t, void* data) {
            static_cast<std::vector<std::string>*>(data)->emplace_back(info->dlpi_name);
            return 0;
        },
        &order);
    auto position = [&order](const char* part) {
        for (std::size_t i = 0; i < order.size(); ++i) {
            if (order[i].find(part) != std::string::npos) {
                return static_cast<int>(i);
            }
        }
        return -1;
    };
    int runtime = position("libwexa-runtime.so");
    ASSERT_GE(runtime, 0);
    EXPECT_LT(runtime, position("libc.so"));
}

}  // namespace
