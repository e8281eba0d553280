// System operations: the operation manager, its command parser and handlers.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "WexaData.h"

enum DEVSYSOPEAR : int {
    SYS_OPEAR_NONE = -1,
    SYS_OPEAR_CPUUSE = 0,
    SYS_OPEAR_MEMUSE = 1,
    SYS_OPEAR_APPLOG = 2,
    SYS_OPEAR_APPEXECPLOG = 3,
    SYS_OPEAR_APPDEALLOG = 4,
    SYS_OPEAR_SYSEXECPLOG = 5,
};

// Parses "Name(arg1,arg2,...)".
class ToolsBase {
public:
    virtual ~ToolsBase();
    virtual int ParaCmd(std::string& name, std::vector<std::string>& args,
                        const std::string& command);
};

// Named runtime variables for the handlers.
class DevLinuxOpearDb {
public:
    int DevGetParaValue(WEXA_DATA& data, std::string name, int& value);
    int DevSetParaValue(WEXA_DATA& data, std::string name, double& value);
    int DevSetParaValue(WEXA_DATA& data, std::string name, std::string& value);
};

class DevLiunxBase {
public:
    DevLiunxBase();
    virtual ~DevLiunxBase();
    DevLiunxBase(const DevLiunxBase&) = delete;
    DevLiunxBase& operator=(const DevLiunxBase&) = delete;

    virtual int DevOpear(WEXA_DATA& data, std::vector<std::string>& args);
    virtual std::string DevReadFile(std::string& path, long offset, int mode);
    virtual int DevSetContext(WEXA_DATA& data, const std::string& content,
                              const std::vector<std::string>& args);

protected:
    // The two halves of DevSetContext: the requested cut in bytes (status 4 on
    // failure), then the delivery of the cut text into the text and status variables.
    int DevGetCutLen(WEXA_DATA& data, const std::vector<std::string>& args, std::size_t& cut);
    int DevDeliverContext(WEXA_DATA& data, const std::string& content, std::size_t cut,
                          const std::vector<std::string>& args);
    // Whole-file read that keeps only the last `keep` bytes of what a whole read
    // would give (the text up to its first zero byte).
    std::string DevReadFileTail(const std::string& path, std::size_t keep);
    // Delivers the tail of a stored log file as the command asks.
    int DevReadLog(WEXA_DATA& data, const std::string& path, const std::vector<std::string>& args);

    DevLinuxOpearDb* m_pOpearDb;
};

class DevLiunxCpuUse : public DevLiunxBase {
public:
    int DevOpear(WEXA_DATA& data, std::vector<std::string>& args) override;

private:
    // One sample of the first line of /proc/stat: total and idle jiffies.
    void DevCalcCpuUse(long long& all, long long& idle);
    // The use since the previous sample, or the last value when it cannot be computed.
    double DevCalcCpuUse_1(long long all, long long idle);

    long long _cpu_jiff_all = 0;
    long long _cpu_jiff_idle = 0;
    double m_lastCpuUse = 0.0;
};

class DevLiunxMemUse : public DevLiunxBase {
public:
    int DevOpear(WEXA_DATA& data, std::vector<std::string>& args) override;
    int DevCalcMemNoUseOld(int& kib);
};

class DevLiunxAppLog : public DevLiunxBase {
public:
    int DevOpear(WEXA_DATA& data, std::vector<std::string>& args) override;
};

class DevLinuxAppExecpLog : public DevLiunxBase {
public:
    int DevOpear(WEXA_DATA& data, std::vector<std::string>& args) override;
};

class DevLiunxAppDealLog : public DevLiunxBase {
public:
    int DevOpear(WEXA_DATA& data, std::vector<std::string>& args) override;
};

class DevLinuxSysExecpLog : public DevLiunxBase {
public:
    int DevOpear(WEXA_DATA& data, std::vector<std::string>& args) override;
};

class DevManger {
public:
    DevManger();
    virtual ~DevManger();
    DevManger(const DevManger&) = delete;
    DevManger& operator=(const DevManger&) = delete;

    // Takes ownership of `handler`.
    void RegisterOpear(DEVSYSOPEAR key, DevLiunxBase* handler);
    int DevOpear(WEXA_DATA& data, std::string command);
    int GetOpearMode(WEXA_DATA& data, int& mode, const std::vector<std::string>& args);

private:
    ToolsBase* m_pTools;
    DevLinuxOpearDb* m_pOpearDb;
    std::string m_opearName;
    std::vector<std::string> m_args;
    std::map<DEVSYSOPEAR, DevLiunxBase*> m_handlers;
};
