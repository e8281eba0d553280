// Project variables by name, literal fallbacks and the conversion table.
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>

#include "DevCtrl.h"
#include "DevServer.h"

namespace {

struct Variable {
    DATATYPE type;
    int i;
    double d;
    std::string s;
};

// A database with named variables that counts its writes.
class FakeRtdb : public IRtdb {
public:
    std::map<std::string, Variable> vars;
    int writes = 0;

    int GetValueType(const char* n, DATATYPE* o) override {
        return at(n, [&](Variable& v) { *o = v.type; });
    }
    int GetIntValue(const char* n, int* o) override {
        return at(n, [&](Variable& v) { *o = v.i; });
    }
    int GetDoubleValue(const char* n, double* o) override {
        return at(n, [&](Variable& v) { *o = v.d; });
    }
    int GetStringValue(const char* n, std::string* o) override {
        return at(n, [&](Variable& v) { *o = v.s; });
    }
    int SetIntValue(const char* n, int x) override {
        return at(n, [&](Variable& v) { v.i = x, ++writes; });
    }
    int SetDoubleValue(const char* n, double x) override {
        return at(n, [&](Variable& v) { v.d = x, ++writes; });
    }
    int SetStringValue(const char* n, std::string* x) override {
        return at(n, [&](Variable& v) { v.s = *x, ++writes; });
    }
    int GetChannelType(int, DATATYPE*) override { return -1; }
    int Reserved8() override { return 0; }
    int Reserved9() override { return 0; }
    int Reserved10() override { return 0; }
    int SetChannelInt(int, int) override { return -1; }
    int SetChannelDouble(int, double) override { return -1; }
    int SetChannelString(int, std::string*) override { return -1; }

private:
    template <class Fn>
    int at(const char* n, Fn fn) {
        auto it = vars.find(n);
        return it == vars.end() ? -1 : (fn(it->second), 0);
    }
};

class ParamAccess : public ::testing::Test {
protected:
    void SetUp() override {
        db.vars = {{"iv", {DATATYPE_INT, 7, 0, ""}},
                   {"neg", {DATATYPE_DOUBLE, 0, -2.5, ""}},
                   {"pos", {DATATYPE_DOUBLE, 0, 2.5, ""}},
                   {"sv", {DATATYPE_STRING, 0, 0, "hello"}}};
    }
    FakeRtdb db;
    IDeviceCtrl* dev = CreateDeviceCtrl("dev", &db);
    WEXA_DATA& data = const_cast<WEXA_DATA&>(dynamic_cast<CDevCtrl*>(dev)->GetRecord());
    void TearDown() override { DestroyDeviceCtrl(dev); }
};

}  // namespace

TEST(Conversions, TableRowsSignsAndUnknownFormats) {
    int32_t i = 0;
    EXPECT_EQ(cstringToNumeric("-12", "%d", &i), 0);
    EXPECT_EQ(i, -12);
    EXPECT_EQ(cstringToNumeric("-13", "%D", &i), 0);
    EXPECT_EQ(i, -13);
    EXPECT_EQ(cstringToNumeric("-14", "%Ld", &i), 0);
    EXPECT_EQ(i, -14);
    EXPECT_EQ(cstringToNumeric("4294967297", "%d", &i), 0);  // low 32 bits
    EXPECT_EQ(i, 1);
    uint32_t u = 0;
    EXPECT_EQ(cstringToNumeric("-ff", "%x", &u), 0);
    EXPECT_EQ(u, 255u);
    EXPECT_EQ(cstringToNumeric("-17", "%o", &u), 0);
    EXPECT_EQ(u, 15u);
    EXPECT_EQ(cstringToNumeric("-1", "%u", &u), 0);
    EXPECT_EQ(u, 0xFFFFFFFFu);
    float f = 0;
    EXPECT_EQ(cstringToNumeric("-0.25x", "%f", &f), 0);
    EXPECT_EQ(f, -0.25f);
    double d = 9.0;
    EXPECT_EQ(cstringToNumeric("-1.5", "%lf", &d), 0);
    EXPECT_EQ(d, -1.5);
    EXPECT_EQ(cstringToNumeric("abc", "%lf", &d), 0);
    EXPECT_EQ(d, 0.0);
    d = 9.0;
    EXPECT_EQ(cstringToNumeric("-1.5", "%e", &d), 1);
    EXPECT_EQ(d, 9.0);

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
    EXPECT_EQ(CDevCtrl::SetParamValue_Fun(data, "iv", static_cast<DATATYPE>(4), &v),
              DEVCTRL_BAD_ARGUMENT);
    EXPECT_EQ(db.writes, 0);
    CString text("set");
    EXPECT_EQ(CDevCtrl::SetParamValue_Fun(data, "sv", DATATYPE_STRING, &text), 0);
    EXPECT_EQ(db.vars["sv"].s, "set");
}

TEST_F(ParamAccess, OperandsAreVariablesOrLiterals) {
    CString text;
    EXPECT_EQ(CDevServer::SvrGetParaValue(data, "sv", text), 1);
    EXPECT_EQ(text, "hello");
    EXPECT_EQ(CDevServer::SvrGetParaValue(data, "unknown", text), 1);
    EXPECT_EQ(text, "unknown");
    EXPECT_EQ(CDevServer::SvrGetParaValue(data, "iv", text), 0);
    EXPECT_EQ(text, "");

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
    EXPECT_EQ(db.writes, 0);
    EXPECT_EQ(CDevServer::SvrSetParaValue(data, "iv", 5), 1);
    EXPECT_EQ(CDevServer::SvrSetParaValue(data, "pos", -6), 1);
    EXPECT_EQ(db.vars["iv"].i, 5);
    EXPECT_EQ(db.vars["pos"].d, -6.0);

    data.GetParamType_Fun = nullptr;  // no type function: literals only, no writes
    EXPECT_EQ(CDevServer::SvrGetParaValue(data, "sv", text), 1);
    EXPECT_EQ(text, "sv");
    EXPECT_EQ(CDevServer::SvrSetParaValue(data, "iv", 1), 0);
}
