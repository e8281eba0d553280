// CPU use from two samples of /proc/stat, available memory from /proc/meminfo.
#include <fcntl.h>

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "DevBas.h"
#include "File.h"
#include "Text.h"
#include "devliunxsys.h"
#include "devliunxsys_internal.h"

namespace {

// One sample of the first line of /proc/stat.
struct cpu_occupy_ {
    std::string m_cpuname;
    std::uint32_t m_user = 0;
    std::uint32_t m_nice = 0;
    std::uint32_t m_system = 0;
    std::uint32_t m_idle = 0;
    std::uint32_t m_iowait = 0;
    std::uint32_t m_irq = 0;
    std::uint32_t m_softirq = 0;
};

// Cuts at every single blank; empty tokens are kept, so positions are fixed.
std::vector<std::string> DevSplitBlanks(const std::string& text) {
    std::vector<std::string> tokens;
    std::size_t start = 0;
    std::size_t blank;
    while ((blank = text.find(' ', start)) != std::string::npos) {
        tokens.push_back(KRVCTRL::slice(text, start, blank - start));
        start = blank + 1;
    }
    return tokens;
}

std::uint32_t DevCounter(const std::string& token) {
    return static_cast<std::uint32_t>(DevStrToInt(token));
}

// Truncation toward zero; values no int can hold count as out of range (-1).
int DevTruncHundredths(double scaled) {
    if (!(scaled > -2147483649.0 && scaled < 2147483648.0))
        return -1;
    return static_cast<int>(scaled);
}

}  // namespace

void DevLiunxCpuUse::DevCalcCpuUse(long long& all, long long& idle) {
    std::string path = "/proc/stat";
    std::string line = DevReadFile(path, 0, 1);
    DEVSYS_INFO("DevCalcCpuUse begin", "strFileContext = %s", line.c_str());

    // The kernel writes two blanks after "cpu": token 1 is empty, the counters are
    // tokens 2 to 8. A line that does not parse leaves every counter at zero, which
    // takes the error path below and keeps the last value.
    cpu_occupy_ cpu;
    std::vector<std::string> tokens = DevSplitBlanks(line + " ");
    if (tokens.size() >= 9) {
        DEVSYS_INFO("DevCalcCpuUse begin",
                    "m_cpuname = %s,m_user = %s,m_nice=%s,m_system = %s,m_idle=%s,m_iowait=%s,"
                    "m_irq=%s,m_softirq=%s",
                    tokens[0].c_str(), tokens[2].c_str(), tokens[3].c_str(), tokens[4].c_str(),
                    tokens[5].c_str(), tokens[6].c_str(), tokens[7].c_str(), tokens[8].c_str());
        cpu.m_cpuname = tokens[0];
        cpu.m_user = DevCounter(tokens[2]);
        cpu.m_nice = DevCounter(tokens[3]);
        cpu.m_system = DevCounter(tokens[4]);
        cpu.m_idle = DevCounter(tokens[5]);
        cpu.m_iowait = DevCounter(tokens[6]);
        cpu.m_irq = DevCounter(tokens[7]);
        cpu.m_softirq = DevCounter(tokens[8]);
    }
    DEVSYS_INFO("DevCalcCpuUse begin",
                "m_cpuname = %s,m_user = %d,m_nice=%d,m_system = %d,m_idle=%d,m_iowait=%d,"
                "m_irq=%d,m_softirq=%d",
                cpu.m_cpuname.c_str(), static_cast<int>(cpu.m_user), static_cast<int>(cpu.m_nice),
                static_cast<int>(cpu.m_system), static_cast<int>(cpu.m_idle),
                static_cast<int>(cpu.m_iowait), static_cast<int>(cpu.m_irq),
                static_cast<int>(cpu.m_softirq));

    // Summed in 32 bits (it wraps), then widened. iowait counts as busy time.
    std::uint32_t sum = cpu.m_user + cpu.m_nice + cpu.m_system + cpu.m_idle + cpu.m_iowait +
                        cpu.m_irq + cpu.m_softirq;
    all = static_cast<long long>(sum);
    idle = static_cast<long long>(cpu.m_idle);
}

double DevLiunxCpuUse::DevCalcCpuUse_1(long long all, long long idle) {
    DEVSYS_INFO("CPUUSE DevOpear begin", "od = %lld,_cpu_jiff_all=%lld", all, _cpu_jiff_all);
    DEVSYS_INFO("CPUUSE DevOpear begin", "sd = %lld,_cpu_jiff_idle=%lld", idle, _cpu_jiff_idle);
    long long allDelta = all - _cpu_jiff_all;
    long long idleDelta = idle - _cpu_jiff_idle;
    if (allDelta <= 0 || idleDelta < 0) {
        DEVSYS_ERROR("CPUUSE DevOpear calc error",
                     "od=%lld,_cpu_jiff_all=%lld,sd=%lld,_cpu_jiff_idle=%lld", all, _cpu_jiff_all,
                     idle, _cpu_jiff_idle);
        return m_lastCpuUse;
    }
    double use = 1.0 - static_cast<double>(idleDelta) / static_cast<double>(allDelta);
    DEVSYS_INFO("CPUUSE DevOpear calc end", "cpu_use = %lf", use);
    // Half up to hundredths; negative p fails the unsigned test as well.
    int p = DevTruncHundredths((use + 0.005) * 100.0);
    if (static_cast<unsigned int>(p) > 100u) {
        DEVSYS_ERROR("CPUUSE DevOpear calc error(out of range)", "cpu_use = %lf", m_lastCpuUse);
        return m_lastCpuUse;
    }
    m_lastCpuUse = p / 100.0;
    DEVSYS_INFO("CPUUSE DevOpear end", "cpu_use = %lf", m_lastCpuUse);
    return m_lastCpuUse;
}

int DevLiunxCpuUse::DevOpear(WEXA_DATA& data, std::vector<std::string>& args) {
    // No sleep here: the interval is the time since the previous call, and the very
    // first call measures since boot.
    long long all = 0;
    long long idle = 0;
    DevCalcCpuUse(all, idle);
    double use = DevCalcCpuUse_1(all, idle);
    // A failed interval is skipped: the next call measures from this sample.
    _cpu_jiff_all = all;
    _cpu_jiff_idle = idle;
    if (args.empty())
        return 0;

    int chl = DevStrToInt(args[0]);
    DEVSYS_INFO("CPUUSE DevOpear begin", "Chl = %d", chl);
    if (data.pDevBas != nullptr)
        data.pDevBas->m_cpuUse = use;
    DEVSYS_INFO("CPUUSE DevOpear end", "Chl = %d,CpuUse = %lf", chl, use);
    return 0;
}

int DevLiunxMemUse::DevOpear(WEXA_DATA& data, std::vector<std::string>& args) {
    int kib = 0;
    bool found = false;
    {
        // /proc files report size 0, so the whole-file reader of the base cannot be used.
        KRVCTRL::File file;
        if (!file.open("/proc/meminfo", O_RDONLY))
            return -1;
        std::string text = file.readAll();
        std::string key = "MemAvailable";
        if (key.back() != ':')
            key += ':';
        std::size_t pos = text.find(key);
        if (pos != std::string::npos) {
            std::size_t start = pos + key.size();
            // The value must end with a newline; without one the lookup fails.
            std::size_t end = text.find('\n', start);
            if (end == std::string::npos)
                end = key.size();
            if (end > start) {
                kib = DevStrToInt(KRVCTRL::slice(text, start, end - start));
                found = true;
            }
        }
        // Older kernels lack MemAvailable.
        if (!found)
            found = DevCalcMemNoUseOld(kib) == 0;
    }
    if (!found)
        return -1;
    if (args.empty())
        return 0;

    int chl = DevStrToInt(args[0]);
    DEVSYS_INFO("CPUMem DevOpear begin", "Chl = %d", chl);
    double mib = static_cast<double>(kib / 1024);
    if (data.pDevBas != nullptr)
        data.pDevBas->m_memUse = mib;
    DEVSYS_INFO("CPUMem DevOpear end", "Chl = %d,Mem = %lf", chl, mib);
    return 0;
}

int DevLiunxMemUse::DevCalcMemNoUseOld(int& kib) {
    // MemFree + Buffers + Cached, starting from -1 KiB as the panel always has.
    kib = -1;
    FILE* file = fopen("/proc/meminfo", "re");  // "e": close-on-exec
    if (file == nullptr)
        return -1;
    bool total = false, memFree = false, buffers = false, cached = false;
    char line[1024];
    for (;;) {
        memset(line, 0, sizeof line);
        if (fgets(line, sizeof line, file) == nullptr)
            break;
        char* save = nullptr;
        char* token = strtok_r(line, " ", &save);
        if (token == nullptr)
            continue;
        bool* seen = nullptr;
        bool adds = true;
        if (strstr(token, "MemTotal") != nullptr) {
            seen = &total;
            adds = false;  // required, not used
        } else if (strstr(token, "MemFree") != nullptr) {
            seen = &memFree;
        } else if (strstr(token, "Buffers") != nullptr) {
            seen = &buffers;
        } else if (strstr(token, "Cached") != nullptr) {
            // SwapCached also matches, but Cached comes first and reading stops once
            // all four are seen.
            seen = &cached;
        }
        if (seen != nullptr) {
            char* value = strtok_r(nullptr, " ", &save);
            if (value == nullptr)
                break;
            if (adds)  // saturates like each value does: a wrapped sum would show garbage
                kib = DevSaturate(static_cast<long long>(kib) + DevStrToInt(value));
            *seen = true;
        }
        if (total && memFree && buffers && cached) {
            fclose(file);
            return 0;
        }
    }
    fclose(file);
    return -1;
}
