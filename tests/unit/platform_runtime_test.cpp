// The simulated runtime as tests and the simulator observe it: journal texts, log records,
// tick offset, directories, text helpers and the restart interposition.
#include <gtest/gtest.h>

#include <thread>

#include "CommonTools.h"
#include "Logger.h"
#include "WexaRuntime.h"
#include "sim/SimPanel.h"
#include "wexa_gui.h"
#include "wexa_hal.h"

extern "C" int reboot(int);

namespace {

class PlatformRuntime : public ::testing::Test {
protected:
    void SetUp() override {
        sim::reset();
        sim::setLogOutput("-", 0);
    }
    void TearDown() override { sim::reset(); }

    static std::vector<std::string> texts(const std::string& kind) {
        std::vector<std::string> out;
        for (const sim::JournalEntry& e : sim::journal(kind))
            out.push_back(e.text);
        return out;
    }
};

TEST_F(PlatformRuntime, JournalHoldsEachCallAsWritten) {
    EXPECT_EQ(0, hal_set_lcd_status(1));
    struct tm t = {};
    t.tm_year = 126, t.tm_mon = 10, t.tm_mday = 21, t.tm_hour = 28, t.tm_min = 30, t.tm_sec = 5;
    EXPECT_EQ(0, hal_set_rtc_time(&t));
    __gui_get_buzzing_time(1);
    __gui_reset_lcdlight_timer();
    Wexa_Beep(900, 50);
    using V = std::vector<std::string>;
    EXPECT_EQ(V{"hal_set_lcd_status(1)"}, texts("lcd"));
    EXPECT_EQ(V{"hal_set_rtc_time(2026-11-21 28:30:05)"}, texts("rtc"));
    EXPECT_EQ((V{"__gui_get_buzzing_time(1)", "__gui_reset_lcdlight_timer()"}), texts("gui"));
    EXPECT_EQ(V{"Wexa_Beep(900,50)"}, texts("beep"));
    EXPECT_EQ(5u, sim::journal().size());

    sim::setLcdResult(7);
    sim::setRtcResult(-1);
    EXPECT_EQ(7, hal_set_lcd_status(0));
    EXPECT_NE(0, hal_set_rtc_time(&t));
    EXPECT_EQ(2u, sim::journal("lcd").size());  // refused calls are journaled too
}

TEST_F(PlatformRuntime, LogRecordsKeepTheirArgumentsWhateverTheOutputLevel) {
    logger_printf(3, "mfDevIOCtrl", "device/krv_ctrl/DevBas", 544, 0, 4, "mfDevIOCtrl begin",
                  "strOrder = %s", "REFLESH");
    EXPECT_EQ(std::vector<std::string>{"[4] mfDevIOCtrl begin: strOrder = REFLESH "
                                       "(device/krv_ctrl/DevBas:544)"},
              texts("log"));
    std::vector<sim::LogRecord> logs = sim::logRecords();
    ASSERT_EQ(1u, logs.size());
    const sim::LogRecord& r = logs[0];
    EXPECT_EQ(3, r.module);
    EXPECT_EQ("mfDevIOCtrl", r.function);
    EXPECT_EQ("device/krv_ctrl/DevBas", r.file);
    EXPECT_EQ(544, r.line);
    EXPECT_EQ(0, r.flags);
    EXPECT_EQ(4, r.level);
    EXPECT_EQ("mfDevIOCtrl begin", r.title);
    EXPECT_EQ("strOrder = REFLESH", r.message);
}

TEST_F(PlatformRuntime, JournalKeepsOnlyTheNewestEntries) {
    for (size_t i = 0; i < sim::journalCapacity + 5; ++i)
        Wexa_Beep(1, static_cast<int>(i));
    std::vector<sim::JournalEntry> all = sim::journal();
    ASSERT_EQ(sim::journalCapacity, all.size());
    EXPECT_EQ("Wexa_Beep(1,5)", all.front().text);
    sim::clearJournal();
    EXPECT_TRUE(sim::journal().empty());
}

TEST_F(PlatformRuntime, WaitForJournalSeesEntriesOfOtherThreads) {
    std::thread worker([] {
        struct tm t = {};
        for (int i = 0; i < 3; ++i)
            hal_set_rtc_time(&t);
    });
    EXPECT_TRUE(sim::waitForJournal("rtc", 3, 10000));
    worker.join();
    EXPECT_FALSE(sim::waitForJournal("rtc", 4, 10));
}

TEST_F(PlatformRuntime, TickOffsetMovesTheCountForward) {
    const long long before = Wexa_GetTickCount();
    sim::advanceTicks(5LL * 3600 * 1000);
    EXPECT_GE(Wexa_GetTickCount() - before, 5LL * 3600 * 1000);
    sim::reset();
    EXPECT_LT(Wexa_GetTickCount() - before, 5LL * 3600 * 1000);
}

TEST_F(PlatformRuntime, DirectoriesAreConfigurableAndMayBeEmpty) {
    EXPECT_STREQ("/usr/wexa_app/config", Wexa_GetDirectory(1).GetString());
    EXPECT_STREQ("/usr/wexa_app", Wexa_GetDirectory(2).GetString());
    EXPECT_TRUE(Wexa_GetDirectory(3).IsEmpty());
    sim::setDirectory(1, "");
    sim::setDirectory(2, "/tmp/panel");
    EXPECT_TRUE(Wexa_GetDirectory(1).IsEmpty());
    EXPECT_STREQ("/tmp/panel", Wexa_GetDirectory(2).GetString());
    sim::resetDirectories();
    EXPECT_STREQ("/usr/wexa_app/config", Wexa_GetDirectory(1).GetString());
}

TEST_F(PlatformRuntime, SplitKeepsEmptyFieldsAndTrimTakesSurroundingWhiteSpace) {
    std::vector<std::string> fields;
    EXPECT_EQ(4, SplitCsvStr(",a,,b", ',', fields));
    EXPECT_EQ((std::vector<std::string>{"", "a", "", "b"}), fields);
    fields.clear();
    EXPECT_EQ(2, SplitCsvStr("nameserver 1.1.1.1\n", '\n', fields));
    EXPECT_EQ("", fields[1]);
    ZU::utils::String s(" \t a b \r\n");
    EXPECT_EQ("a b", s.trim());
    EXPECT_EQ("", ZU::utils::String::trim(" \n "));
}

TEST_F(PlatformRuntime, RebootIsInterposedAndOnlyJournaled) {
    ASSERT_TRUE(sim::rebootIsInterposed());  // never reach the real call
    EXPECT_EQ(0, reboot(0x1234567));
    EXPECT_EQ(std::vector<std::string>{"reboot(0x1234567)"}, texts("reboot"));
}

}  // namespace
