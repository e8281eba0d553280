// CPU use over controlled /proc/stat samples; available memory from fake and real /proc/meminfo.
#include <cstdio>

#include "devliunxsys_fixture.h"

namespace {

// A /proc/stat first line with the given busy (user) and idle jiffies.
std::string Stat(long long user, long long idle) {
    return "cpu  " + std::to_string(user) + " 0 0 " + std::to_string(idle) +
           " 0 0 0 0 0 0\ncpu0 1 2 3 4 5 6 7 0 0 0\n";
}

// The "available" column of procps `free -m`.
int FreeAvailableMiB() {
    FILE* pipe = popen("free -m", "r");
    char line[512];
    int total, used, free_, shared, cache, available = -1;
    while (pipe != nullptr && fgets(line, sizeof line, pipe) != nullptr) {
        sscanf(line, "Mem: %d %d %d %d %d %d", &total, &used, &free_, &shared, &cache, &available);
    }
    if (pipe != nullptr)
        pclose(pipe);
    return available;
}

}  // namespace

TEST_F(SysOpsTest, CpuUseOverSuccessiveSamples) {
    FakeProcFile stat("/proc/stat", Stat(200, 800));
    struct Step {
        std::string line;
        double use;
    } steps[] = {
        {Stat(200, 800), 0.2},     // first call: since boot
        {Stat(574, 1426), 0.37},   // 0.374
        {Stat(949, 2051), 0.38},   // 0.375 rounds up
        {Stat(949, 2051), 0.38},   // unchanged: last value
        {Stat(1100, 2000), 0.38},  // idle went backwards: last value, interval skipped
        {Stat(1200, 2000), 1.0},   // full load
        {"cpu 1 2 3\n", 1.0},      // malformed: zero counters, last value
        {Stat(50, 150), 0.25},     // measured from the zero sample
    };
    for (const Step& s : steps) {
        stat.Set(s.line);
        EXPECT_EQ(mgr.DevOpear(data, "GetCpuUse(10)"), 0);
        EXPECT_DOUBLE_EQ(bas.m_cpuUse, s.use) << s.line;
    }
    stat.Set(Stat(100, 400));
    bas.m_cpuUse = -1;
    EXPECT_EQ(mgr.DevOpear(data, "GetCpuUse()"), 0);
    EXPECT_EQ(bas.m_cpuUse, -1);  // computed, not stored
}

TEST_F(SysOpsTest, MemoryFromMeminfo) {
    struct Case {
        std::string meminfo;
        int result;
        double mib;  // -1: nothing stored
    } cases[] = {
        {"MemTotal: 500000 kB\nMemFree: 1 kB\nMemAvailable:   123456 kB\nBuffers: 1 kB\n"
         "Cached: 1 kB\n",
         0, 120},
        {"MemTotal: 5000 kB\nMemFree: 1000 kB\nBuffers: 200 kB\nCached: 300 kB\n"
         "SwapCached: 4000 kB\n",
         0, 1},  // older kernel: MemFree + Buffers + Cached - 1 KiB
        {"MemTotal: 5000 kB\nMemFree: 1025 kB\nBuffers: 0 kB\nCached: 0 kB\n"
         "MemAvailable: 9999999 kB",
         0, 1},  // an unterminated MemAvailable does not count
        {"MemTotal: 5000 kB\nMemFree: 1000 kB\n", -1, -1},
    };
    for (const Case& c : cases) {
        FakeProcFile meminfo("/proc/meminfo", c.meminfo);
        bas.m_memUse = -1;
        EXPECT_EQ(mgr.DevOpear(data, "GetMemUse(11)"), c.result) << c.meminfo;
        EXPECT_EQ(bas.m_memUse, c.mib) << c.meminfo;
        bas.m_memUse = -1;
        EXPECT_EQ(mgr.DevOpear(data, "GetMemUse()"), c.result);
        EXPECT_EQ(bas.m_memUse, -1);
    }
}

// On the real kernel the value agrees with procps, read just before and just after; memory
// may move between the readings, so a few attempts are allowed.
TEST_F(SysOpsTest, MemoryAgreesWithFree) {
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
