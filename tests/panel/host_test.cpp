// The runtime host's own rules: variable typing, channel push records.
#include <gtest/gtest.h>

#include "host/Runtime.h"

namespace {

// The runtime's database as the driver meets it: typed strictly, names unknown or empty refused.
TEST(Database, VariablesAndChannelsAreStrictlyTyped) {
    host::Database db;
    IRtdb& slots = db;
    db.defineInt("i", 7);
    db.defineText("t", "abc");
    auto type = static_cast<DATATYPE>(-2);
    EXPECT_NE(slots.GetValueType("nope", &type), 0);
    EXPECT_EQ(type, -2);
    EXPECT_NE(slots.GetValueType(nullptr, &type), 0);
    EXPECT_FALSE(db.defineInt("", 1));
    int i = 0;
    std::string t;
    EXPECT_EQ(slots.GetIntValue("i", &i), 0);
    EXPECT_EQ(i, 7);
    EXPECT_EQ(slots.GetStringValue("i", &t), host::RTDB_WRONG_TYPE);
    EXPECT_EQ(slots.SetDoubleValue("i", 1.5), host::RTDB_WRONG_TYPE);
    EXPECT_EQ(slots.SetIntValue("missing", 1), host::RTDB_UNKNOWN_NAME);
    EXPECT_EQ(slots.SetStringValue("t", nullptr), host::RTDB_BAD_ARGUMENT);
    EXPECT_EQ(db.variable("i")->intValue, 7);

    // Channel pushes are counted even when refused.
    db.defineChannels({DATATYPE_STRING, DATATYPE_DOUBLE, DATATYPE_INT});
    std::string text = "10.0.0.9";
    EXPECT_EQ(slots.SetChannelString(0, &text), 0);
    EXPECT_EQ(slots.SetChannelDouble(1, 0.5), 0);
    EXPECT_EQ(slots.SetChannelDouble(2, 3.0), host::RTDB_WRONG_TYPE);
    EXPECT_EQ(slots.SetChannelInt(5, 1), host::RTDB_UNKNOWN_NAME);
    EXPECT_EQ(db.channel(0)->toString(), "10.0.0.9");
    EXPECT_EQ(db.channel(2)->pushedType, DATATYPE_DOUBLE);
    EXPECT_EQ(db.totalPushes(), 4);
    db.resetPushes();
    EXPECT_EQ(db.channel(1)->toString(), "");
}

}  // namespace
