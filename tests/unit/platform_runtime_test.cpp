// The simulated runtime as the tests observe it: journal texts, refused calls and the text
// helpers (the restart interposition is checked with the REBOOT command).
#include <gtest/gtest.h>

#include "CommonTools.h"
#include "WexaRuntime.h"
#include "sim/SimPanel.h"
#include "wexa_gui.h"
#include "wexa_hal.h"

namespace {

std::vector<std::string> texts(const std::string& kind) {
    std::vector<std::string> out;
    for (const sim::JournalEntry& e : sim::journal(kind))
        out.push_back(e.text);
    return out;
}

TEST(PlatformRuntime, JournalHoldsEachCallAsWrittenRefusedOnesToo) {
    sim::reset();
    struct tm t = {};
    t.tm_year = 126, t.tm_mon = 10, t.tm_mday = 21, t.tm_hour = 28, t.tm_min = 30, t.tm_sec = 5;
    EXPECT_EQ(0, hal_set_rtc_time(&t));
    __gui_get_buzzing_time(1);
    __gui_reset_lcdlight_timer();
    sim::setLcdResult(7);
    EXPECT_EQ(7, hal_set_lcd_status(0));
    using V = std::vector<std::string>;
    EXPECT_EQ(V{"hal_set_rtc_time(2026-11-21 28:30:05)"}, texts("rtc"));
    EXPECT_EQ((V{"__gui_get_buzzing_time(1)", "__gui_reset_lcdlight_timer()"}), texts("gui"));
    EXPECT_EQ(V{"hal_set_lcd_status(0)"}, texts("lcd"));
    sim::reset();
}

TEST(PlatformRuntime, SplitKeepsEmptyFieldsAndTrimTakesSurroundingWhiteSpace) {
    std::vector<std::string> fields;
    EXPECT_EQ(4, SplitCsvStr(",a,,b", ',', fields));
    EXPECT_EQ((std::vector<std::string>{"", "a", "", "b"}), fields);
    ZU::utils::String s(" \t a b \r\n");
    EXPECT_EQ("a b", s.trim());
    EXPECT_EQ("", ZU::utils::String::trim(" \n "));
}

}  // namespace
