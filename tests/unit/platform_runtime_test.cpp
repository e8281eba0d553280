// The simulated runtime's text helpers. (Its journal texts are compared exactly wherever a test
// reads them; the restart interposition is checked with the REBOOT command.)
#include <gtest/gtest.h>

#include "CommonTools.h"

namespace {

TEST(PlatformRuntime, SplitKeepsEmptyFieldsAndTrimTakesSurroundingWhiteSpace) {
    std::vector<std::string> fields;
    EXPECT_EQ(4, SplitCsvStr(",a,,b", ',', fields));
    EXPECT_EQ((std::vector<std::string>{"", "a", "", "b"}), fields);
    ZU::utils::String s(" \t a b \r\n");
    EXPECT_EQ("a b", s.trim());
    EXPECT_EQ("", ZU::utils::String::trim(" \n "));
}

}  // namespace
