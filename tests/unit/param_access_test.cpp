// Project variables by name, literal fallbacks and the conversion table.
#include <gtest/gtest.h>

#include <cstdint>

#include "DevCtrl.h"
#include "DevServer.h"
#include "host/Database.h"

namespace {

class ParamAccess : public ::testing::Test {
protected:
    void SetUp() override {
        db.defineInt("iv", 7);
        db.defineDouble("neg", -2.5);
        db.defineDouble("pos", 2.5);
        db.defineText("sv", "hello");
    }
    void TearDown() override { DestroyDeviceCtrl(dev); }
    host::Database db;
    IDeviceCtrl* dev = CreateDeviceCtrl("dev", &db);
    // The services receive the record by reference, as the dispatcher passes it.
    WEXA_DATA& data = const_cast<WEXA_DATA&>(dynamic_cast<CDevCtrl&>(*dev).GetRecord());
};

}  // namespace

TEST(Conversions, TableRowsSignsAndUnknownFormats) {
    enum Kind { I32, U32, F32, F64 };
    struct Case {
        const char* text;
        const char* format;
        int result;
        Kind kind;
        double expected;
    };
    const Case cases[] = {
        {"-12", "%d", 0, I32, -12},         {"-13", "%D", 0, I32, -13},
        {"-14", "%Ld", 0, I32, -14},        {"4294967297", "%d", 0, I32, 1},
        {"-ff", "%x", 0, U32, 255},         {"-17", "%o", 0, U32, 15},
        {"-1", "%u", 0, U32, 4294967295.0}, {"-0.25x", "%f", 0, F32, -0.25},
        {"-1.5", "%lf", 0, F64, -1.5},      {"abc", "%LF", 0, F64, 0},
        {"-1.5", "%e", 1, F64, 99},  // not in the table: output untouched
    };
    for (const Case& c : cases) {
        union {
            int32_t i;
            uint32_t u;
            float f;
            double d;
        } out;
        out.d = 99;
        EXPECT_EQ(cstringToNumeric(c.text, c.format, &out), c.result) << c.text << c.format;
        const double got = c.kind == I32   ? out.i
                           : c.kind == U32 ? out.u
                           : c.kind == F32 ? out.f
                                           : out.d;
        EXPECT_EQ(got, c.expected) << c.text << " " << c.format;
    }
    EXPECT_EQ(CDevServer::SvrStr2Double("3.25abc", 4, 0, 0), 3.25);
    EXPECT_EQ(CDevServer::SvrStr2Double("3.25abc", 8, 0, 0), 0.0);
}

TEST_F(ParamAccess, FunctionsCheckArgumentsBeforeTheDatabase) {
    DATATYPE t = DATATYPE_NONE;
    int v = 0;
    data.pRtdbByName = nullptr;
    EXPECT_EQ(CDevCtrl::GetParamType_Fun(data, "", t), DEVCTRL_BAD_ARGUMENT);
    EXPECT_EQ(CDevCtrl::GetParamType_Fun(data, "iv", t), DEVCTRL_NO_DATABASE);
    EXPECT_EQ(CDevCtrl::GetParamValue_Fun(data, "iv", DATATYPE_INT, nullptr), DEVCTRL_BAD_ARGUMENT);
    EXPECT_EQ(CDevCtrl::SetParamValue_Fun(data, "iv", DATATYPE_INT, &v), DEVCTRL_NO_DATABASE);
    data.pRtdbByName = &db;
    EXPECT_EQ(CDevCtrl::GetParamValue_Fun(data, "iv", DATATYPE_NONE, &v), DEVCTRL_BAD_ARGUMENT);
    CString text("set");
    EXPECT_EQ(CDevCtrl::SetParamValue_Fun(data, "sv", DATATYPE_STRING, &text), 0);
    EXPECT_EQ(db.variable("sv")->text, "set");
}

TEST_F(ParamAccess, OperandsAreVariablesOrLiterals) {
    CString text;  // text and numeric variables as texts: see the remote-view password commands
    EXPECT_EQ(CDevServer::SvrGetParaValue(data, "unknown", text), 1);
    EXPECT_EQ(text, "unknown");

    struct Case {
        const char* name;
        int result;
        int value;
    };
    const Case cases[] = {{"iv", 1, 7}, {"neg", 1, -3},  {"pos", 1, 3},
                          {"sv", 0, 0}, {"-42", 1, -42}, {"x", 1, 0}};
    for (const Case& c : cases) {
        int value = 99;
        EXPECT_EQ(CDevServer::SvrGetParaValue(data, c.name, value), c.result) << c.name;
        EXPECT_EQ(value, c.value) << c.name;
    }

    EXPECT_EQ(CDevServer::SvrSetParaValue(data, "sv", 5), 0);
    EXPECT_EQ(CDevServer::SvrSetParaValue(data, "unknown", 5), 0);
    EXPECT_EQ(CDevServer::SvrSetParaValue(data, "iv", 5), 1);
    EXPECT_EQ(CDevServer::SvrSetParaValue(data, "pos", -6), 1);
    EXPECT_EQ(db.variable("sv")->text, "hello");
    EXPECT_EQ(db.variable("iv")->intValue, 5);
    EXPECT_EQ(db.variable("pos")->doubleValue, -6.0);

    data.GetParamType_Fun = nullptr;  // no type function: literals only, no writes
    EXPECT_EQ(CDevServer::SvrGetParaValue(data, "sv", text), 1);
    EXPECT_EQ(text, "sv");
    EXPECT_EQ(CDevServer::SvrSetParaValue(data, "iv", 1), 0);
}
