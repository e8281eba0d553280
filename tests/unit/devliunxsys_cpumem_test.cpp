// CPU use over controlled /proc/stat samples; available memory from fake and real /proc/meminfo.
#include <cstdlib>

#include "devliunxsys_fixture.h"
#include "sim/SimPanel.h"

namespace {

// The first line of /proc/stat: user, nice, system, idle, iowait, irq, softirq, steal and guests.
std::string Stat(const std::string& counters) {
    return "cpu  " + counters + " 0 0\n";
}

// The "available" column of procps `free -m`.
int FreeAvailableMiB() {
    return std::atoi(krv_test::run("free -m | awk '/^Mem:/ {print $7}'").out.c_str());
}

}  // namespace

TEST_F(SysOpsTest, CpuUseOverSuccessiveSamples) {
    sim::clearJournal();
    const std::pair<std::string, double> steps[] = {
        {Stat("200 0 0 800 0 0 0 0"), 0.2},     // first call: since boot
        {Stat("574 0 0 1426 0 0 0 0"), 0.37},   // use 0.374
        {Stat("949 0 0 2051 0 0 0 0"), 0.38},   // use 0.375 rounds up
        {Stat("949 0 0 2051 0 0 0 0"), 0.38},   // unchanged: last value
        {Stat("1100 0 0 2000 0 0 0 0"), 0.38},  // idle went backwards: last value, interval skipped
        {Stat("1200 0 0 2000 0 0 0 0"), 1.0},   // full load
        {"cpu 1 2 3\n", 1.0},                   // malformed: zero counters, last value
        {Stat("50 0 0 150 0 0 0 0"), 0.25},     // measured from the zero sample
        // 10 idle of 110: iowait is busy time, every counter to softirq counts, steal does not.
        {Stat("60 10 10 160 50 10 10 500"), 0.91},
        // Counters stop at 2^31 - 1 like a 32-bit strtol; their sum wraps at 32 bits: backwards.
        {Stat("2147483647 10 10 2147483600 50 10 10 0"), 0.91},
        {Stat("2147483647 53 0 2147483647 0 0 0 0"), 0.91},  // idle grew more than the total
        {"cpu 1 2 3\n", 0.91},
        // So idle ticks past 2^31 - 1 stay there, and an idle panel reads fully loaded from then
        // on.
        {Stat("150 0 0 2147483648 0 0 0 0"), 0.0},
        {Stat("250 0 0 2147493648 0 0 0 0"), 1.0},
    };
    for (const auto& [line, use] : steps) {
        krv_test::BoundFile stat("/proc/stat", line);
        ASSERT_TRUE(stat.ok());
        EXPECT_EQ(mgr.DevOpear(data, "GetCpuUse(10)"), 0);
        EXPECT_DOUBLE_EQ(bas.m_cpuUse, use) << line;
    }
    std::string errors;  // unchanged, backwards, malformed, wrapped, use below zero, malformed
    for (const sim::LogRecord& r : sim::logRecords()) {
        if (r.module == 3 && r.file == "device/krv_ctrl/devliunxsys" && r.level == 1)
            errors += r.title.substr(r.title.find("error")) + ";";
    }
    EXPECT_EQ(errors, "error;error;error;error;error(out of range);error;");
    bas.m_cpuUse = -1;
    EXPECT_EQ(mgr.DevOpear(data, "GetCpuUse()"), 0);
    EXPECT_EQ(bas.m_cpuUse, -1);  // computed, not stored
}

TEST_F(SysOpsTest, MemoryFromMeminfo) {
    const std::string old = "MemTotal: 5000 kB\nMemFree: 1000 kB\nBuffers: 200 kB\n";
    const struct {
        std::string meminfo;
        int result;
        double mib;  // -1: nothing stored
    } cases[] = {
        {"MemTotal: 9 kB\nMemAvailable:   123456 kB\nMemFree: 1 kB\n", 0, 120},
        {old + "Cached: 2896 kB\nSwapCached: 4000 kB\n", 0, 3},    // 4096 KiB less one
        {old + "Cached: 300 kB\nMemAvailable: 9999999 kB", 0, 1},  // unterminated: not used
        {old, -1, -1},
        {old + "Cached: 99999999999 kB\n", 0, 2097151},  // saturates at INT_MAX KiB
    };
    for (const auto& c : cases) {
        krv_test::BoundFile meminfo("/proc/meminfo", c.meminfo);
        ASSERT_TRUE(meminfo.ok());
        bas.m_memUse = -1;
        EXPECT_EQ(mgr.DevOpear(data, "GetMemUse()"), c.result);
        EXPECT_EQ(bas.m_memUse, -1);
        EXPECT_EQ(mgr.DevOpear(data, "GetMemUse(11)"), c.result) << c.meminfo;
        EXPECT_EQ(bas.m_memUse, c.mib) << c.meminfo;
    }
}

// Memory may move between readings: procps is read just before and just after, a few times.
TEST_F(SysOpsTest, MemoryAgreesWithFreeOnTheRealKernel) {
    bool agreed = false;
    for (int attempt = 0; attempt < 5 && !agreed; ++attempt) {
        int before = FreeAvailableMiB();
        ASSERT_EQ(mgr.DevOpear(data, "GetMemUse(11)"), 0);
        int after = FreeAvailableMiB();
        ASSERT_GT(before, 0);
        agreed = bas.m_memUse >= std::min(before, after) - 1 &&
                 bas.m_memUse <= std::max(before, after) + 1;
    }
    EXPECT_TRUE(agreed) << bas.m_memUse;
}
