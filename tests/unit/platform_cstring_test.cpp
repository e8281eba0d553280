// The runtime's CString where drivers rely on MFC's exact behaviour.
#include <gtest/gtest.h>

#include <string>

#include "CString.h"

namespace {

struct Slice {
    const char* call;
    CString result;
    const char* expected;
};

TEST(PlatformCString, OutOfRangeArgumentsAreClamped) {
    const CString s("abcdef");
    const Slice cases[] = {
        {"Mid(2,3)", s.Mid(2, 3), "cde"},   {"Mid(-2,3)", s.Mid(-2, 3), "abc"},
        {"Mid(4,10)", s.Mid(4, 10), "ef"},  {"Mid(10,2)", s.Mid(10, 2), ""},
        {"Mid(2,-1)", s.Mid(2, -1), ""},    {"Mid(-1)", s.Mid(-1), "abcdef"},
        {"Mid(3)", s.Mid(3), "def"},        {"Mid(7)", s.Mid(7), ""},
        {"Left(-1)", s.Left(-1), ""},       {"Left(3)", s.Left(3), "abc"},
        {"Left(99)", s.Left(99), "abcdef"}, {"Right(2)", s.Right(2), "ef"},
        {"Right(-1)", s.Right(-1), ""},     {"Right(99)", s.Right(99), "abcdef"},
    };
    for (const Slice& c : cases)
        EXPECT_STREQ(c.expected, c.result.GetString()) << c.call;
}

TEST(PlatformCString, FindSearchesFromStartAndStopsAtTheFirstZero) {
    const CString s("a,b,c");
    EXPECT_EQ(1, s.Find(','));
    EXPECT_EQ(3, s.Find(',', 2));
    EXPECT_EQ(-1, s.Find(',', 4));
    EXPECT_EQ(-1, s.Find(',', -1));
    EXPECT_EQ(-1, s.Find(',', 99));
    EXPECT_EQ(2, s.Find("b,c"));
    EXPECT_EQ(-1, s.Find("b,c", 3));
    EXPECT_EQ(5, s.Find("", 5));
    EXPECT_EQ(-1, s.Find("", 6));
    EXPECT_EQ(3, s.ReverseFind(','));
    const CString zero("ab\0cd", 5);
    EXPECT_EQ(5, zero.GetLength());
    EXPECT_EQ(-1, zero.Find('c'));
    EXPECT_EQ(-1, zero.Find("cd"));
}

TEST(PlatformCString, TrimRemovesEveryKindOfWhiteSpace) {
    CString s(" \t\r\n\v\fx y \n");
    EXPECT_STREQ("x y", s.Trim().GetString());
    CString left("  a  "), right("  a  "), stars("**a*b**");
    EXPECT_STREQ("a  ", left.TrimLeft().GetString());
    EXPECT_STREQ("  a", right.TrimRight().GetString());
    EXPECT_STREQ("a*b", stars.Trim('*').GetString());
    CString blank(" \t ");
    EXPECT_TRUE(blank.Trim().IsEmpty());
}

TEST(PlatformCString, FormatBuildsAsideAndHasNoLengthLimit) {
    CString s("abc");
    s.Format("%s%s", s.GetString(), "d");
    EXPECT_STREQ("abcd", s.GetString());
    s.Format("WEXA_WRITE(%d=%lf)", 5, 1.5);
    EXPECT_STREQ("WEXA_WRITE(5=1.500000)", s.GetString());
    s.AppendFormat("-%03d", 7);
    EXPECT_STREQ("WEXA_WRITE(5=1.500000)-007", s.GetString());
    const std::string big(5000, 'x');
    s.Format("<%s>", big.c_str());
    EXPECT_EQ(5002, s.GetLength());
}

TEST(PlatformCString, CompareNoCaseIgnoresOnlyCase) {
    const CString s("ExecNTP");
    EXPECT_EQ(0, s.CompareNoCase("EXECNTP"));
    EXPECT_NE(0, s.Compare("EXECNTP"));
    EXPECT_LT(CString("abc").CompareNoCase("ABD"), 0);
    EXPECT_GT(CString("b").CompareNoCase("A"), 0);
    EXPECT_NE(0, s.CompareNoCase("ExecNTP "));
}

TEST(PlatformCString, DeleteClampsANegativeIndexToTheStart) {
    CString s("abcdef");
    EXPECT_EQ(3, s.Delete(-2, 3));
    EXPECT_STREQ("def", s.GetString());
}

}  // namespace
