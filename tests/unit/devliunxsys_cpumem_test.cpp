// CPU use over controlled /proc/stat samples; available memory from fake and real /proc/meminfo.
#include <cstdio>

#include "devliunxsys_fixture.h"
#include "sim/SimPanel.h"

namespace {

std::string Stat(long long busy, long long idle) {
    return "cpu  " + std::to_string(busy) + " 0 0 " + std::to_string(idle) + " 0 0 0 0 0 0\n";
}

// The "available" column of procps `free -m`.
int FreeAvailableMiB() {
    FILE* pipe = popen("free -m", "r");
    char line[512];
    int skip, available = -1;
    while (pipe != nullptr && fgets(line, sizeof line, pipe) != nullptr) {
        sscanf(line, "Mem: %d %d %d %d %d %d", &skip, &skip, &skip, &skip, &skip, &available);
    }
    if (pipe != nullptr)
        pclose(pipe);
    return available;
}

}  // namespace

TEST_F(SysOpsTest, CpuUseOverSuccessiveSamples) {
    sim::clearJournal();
    const std::pair<std::string, double> steps[] = {
        {Stat(200, 800), 0.2},     // first call: since boot
        {Stat(574, 1426), 0.37},   // use 0.374
        {Stat(949, 2051), 0.38},   // use 0.375 rounds up
        {Stat(949, 2051), 0.38},   // unchanged: last value
        {Stat(1100, 2000), 0.38},  // idle went backwards: last value, interval skipped
        {Stat(1200, 2000), 1.0},   // full load
        {"cpu 1 2 3\n", 1.0},      // malformed: zero counters, last value
        {Stat(50, 150), 0.25},     // measured from the zero sample
        // The panel's strtol is 32-bit: idle ticks past 2^31 - 1 stay there, so an idle
        // panel reads fully loaded from then on.
        {Stat(150, 2147483648LL), 0.0},
        {Stat(250, 2147493648LL), 1.0},
    };
    for (const auto& [line, use] : steps) {
        krv_test::BoundFile stat("/proc/stat", line);
        ASSERT_TRUE(stat.ok());
        EXPECT_EQ(mgr.DevOpear(data, "GetCpuUse(10)"), 0);
        EXPECT_DOUBLE_EQ(bas.m_cpuUse, use) << line;
    }
    int errors = 0;  // unchanged, backwards, malformed
    for (const sim::LogRecord& r : sim::logRecords()) {
        errors += r.module == 3 && r.file == "device/krv_ctrl/devliunxsys" && r.level == 1 &&
                  r.title == "CPUUSE DevOpear calc error";
    }
    EXPECT_EQ(errors, 3);
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
