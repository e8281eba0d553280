// The runtime's command thread and the driver's NTP worker at the same time: settings changed
// by commands and channel writes while the worker synchronises and retries, a synchronisation
// on demand next to the worker's, and clean-up in the middle of a retry loop. Run under
// ThreadSanitizer (scripts/sanitize.sh tsan), this is where a race between the two would show.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "Sandbox.h"
#include "host/Runtime.h"
#include "sim/SimPanel.h"

namespace {

// Runtime channel indexes (the driver's channel number less one).
constexpr int kNtpFreqChannel = 13;
constexpr int kNtpServer1Channel = 14;

TEST(NtpRace, CommandsNextToTheRetryingWorkerThenCleanup) {
    krv_test::NtpServer chrony;
    ASSERT_TRUE(chrony.ok());
    sim::reset();
    sim::setLogOutput("-", 0);
    // Every exchange reaches the server and then fails at the RTC: the worker keeps retrying.
    sim::setRtcResult(-1);
    host::Runtime rt{KRV_DRIVER_PATH};
    ASSERT_TRUE(rt.ok()) << rt.error();
    std::vector<DATATYPE> types(20, DATATYPE_DOUBLE);
    for (int i = kNtpServer1Channel; i < kNtpServer1Channel + 4; ++i)
        types[i] = DATATYPE_STRING;
    rt.database().defineChannels(types);
    ASSERT_EQ(rt.start(), 0);
    host::Device& dev = rt.device();
    for (const char* c :
         {"SetNTPServer(10.0.0.1,10.0.0.1,10.0.0.1,10.0.0.1)", "SetNTPMode(1)", "EnableNTP(1)"})
        ASSERT_EQ(dev.command(c), 0) << c;
    ASSERT_TRUE(sim::waitForJournal("rtc", 1, 10000)) << "the worker never reached the clocks";

    const std::vector<int> idle(20, 0);
    for (int round = 0; round < 40; ++round) {
        const std::string server = round % 2 ? "223.5.5.5" : "10.0.0.1";
        EXPECT_EQ(dev.command("SetNTPServer(" + server + ",10.0.0.1,10.0.0.1,10.0.0.1)"), 0);
        EXPECT_EQ(dev.command("SetNTPFreq(" + std::to_string(1 + round % 24) + ")"), 0);
        EXPECT_EQ(dev.writeText(kNtpServer1Channel + 1, "10.0.0.1"), 0);
        EXPECT_EQ(dev.writeInt(kNtpFreqChannel - 1, round % 2), 0);  // mode
        if (round % 10 == 0) {  // next to the worker's exchange; without a status always 0
            EXPECT_EQ(dev.command("ExecNTP()"), 0);
        }
        EXPECT_EQ(dev.collect(idle), 0);
        usleep(20 * 1000);
    }
    // The last values set are the ones a refresh reads back.
    for (const char* c : {"SetNTPMode(1)", "SetNTPFreq(5)", "REFLESH()"})
        EXPECT_EQ(dev.command(c), 0) << c;
    EXPECT_EQ(dev.collect(idle), 0);
    EXPECT_EQ(rt.database().channel(kNtpFreqChannel)->doubleValue, 5.0);
    EXPECT_EQ(rt.database().channel(kNtpServer1Channel)->text, "223.5.5.5");

    // The frequency change set the worker retrying again; clean-up stops it mid-loop.
    const std::size_t before = sim::journal("rtc").size();
    ASSERT_TRUE(sim::waitForJournal("rtc", before + 1, 10000)) << "no retry";
    EXPECT_EQ(dev.cleanup(), 0);
    const std::size_t after = sim::journal("rtc").size();
    usleep(1500 * 1000);  // more than one retry pause: a live worker would have synchronised
    EXPECT_EQ(sim::journal("rtc").size(), after);
    sim::setRtcResult(0);
}

}  // namespace
