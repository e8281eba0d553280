// The runtime's CString where drivers rely on MFC's exact behaviour.
#include <gtest/gtest.h>

#include <string>

#include "CString.h"

namespace {

TEST(PlatformCString, OutOfRangeArgumentsAreClamped) {
    const CString s("abcdef"), commas("a,b,c"), zero("ab\0cd", 5);
    const struct {
        const char* call;
        std::string result;
        const char* expected;
    } cases[] = {
        {"Mid(2,3)", s.Mid(2, 3).GetString(), "cde"},
        {"Mid(-2,3)", s.Mid(-2, 3).GetString(), "abc"},
        {"Mid(4,10)", s.Mid(4, 10).GetString(), "ef"},
        {"Mid(10,2)", s.Mid(10, 2).GetString(), ""},
        {"Mid(2,-1)", s.Mid(2, -1).GetString(), ""},
        {"Mid(-1)", s.Mid(-1).GetString(), "abcdef"},
        {"Mid(7)", s.Mid(7).GetString(), ""},
        {"Left(-1)", s.Left(-1).GetString(), ""},
        {"Left(99)", s.Left(99).GetString(), "abcdef"},
        {"Right(2)", s.Right(2).GetString(), "ef"},
        {"Right(-1)", s.Right(-1).GetString(), ""},
        {"Find(',',2)", std::to_string(commas.Find(',', 2)), "3"},
        {"Find(',',-1)", std::to_string(commas.Find(',', -1)), "-1"},
        {"Find(',',99)", std::to_string(commas.Find(',', 99)), "-1"},
        {"Find(\"b,c\",3)", std::to_string(commas.Find("b,c", 3)), "-1"},
        {"Find(\"\",5)", std::to_string(commas.Find("", 5)), "5"},
        {"Find(\"\",6)", std::to_string(commas.Find("", 6)), "-1"},
        {"ReverseFind(',')", std::to_string(commas.ReverseFind(',')), "3"},
        {"Find past a zero", std::to_string(zero.Find('c')), "-1"},  // searches stop there
        {"GetLength with a zero", std::to_string(zero.GetLength()), "5"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.expected, c.result) << c.call;
}

TEST(PlatformCString, TrimFormatAndCompare) {
    CString s(" \t\r\n\v\fx y \n"), left("  a  "), stars("**a*b**"), blank(" \t ");
    EXPECT_STREQ("x y", s.Trim().GetString());
    EXPECT_STREQ("a  ", left.TrimLeft().GetString());
    EXPECT_STREQ("a*b", stars.Trim('*').GetString());
    EXPECT_TRUE(blank.Trim().IsEmpty());

    CString f("abc");
    f.Format("%s%s", f.GetString(), "d");  // built aside: the argument may be the string itself
    EXPECT_STREQ("abcd", f.GetString());
    f.AppendFormat("-%03d", 7);
    EXPECT_STREQ("abcd-007", f.GetString());
    f.Format("<%s>", std::string(5000, 'x').c_str());  // no length limit
    EXPECT_EQ(5002, f.GetLength());

    EXPECT_EQ(0, CString("ExecNTP").CompareNoCase("EXECNTP"));
    EXPECT_LT(CString("abc").CompareNoCase("ABD"), 0);
    EXPECT_NE(0, CString("ExecNTP").CompareNoCase("ExecNTP "));
    CString d("abcdef");
    EXPECT_EQ(3, d.Delete(-2, 3));  // a negative index counts from the start
    EXPECT_STREQ("def", d.GetString());
}

}  // namespace
