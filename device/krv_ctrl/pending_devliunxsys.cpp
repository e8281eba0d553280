// Placeholder until the operation manager lands.
#include "devliunxsys.h"

ToolsBase::~ToolsBase() {}
int ToolsBase::ParaCmd(std::string&, std::vector<std::string>&, const std::string&) { return -5; }
int DevLinuxOpearDb::DevGetParaValue(WEXA_DATA&, std::string, int&) { return -1; }
int DevLinuxOpearDb::DevSetParaValue(WEXA_DATA&, std::string, double&) { return -1; }
int DevLinuxOpearDb::DevSetParaValue(WEXA_DATA&, std::string, std::string&) { return -1; }
DevLiunxBase::DevLiunxBase() : m_pOpearDb(new DevLinuxOpearDb) {}
DevLiunxBase::~DevLiunxBase() { delete m_pOpearDb; }
int DevLiunxBase::DevOpear(WEXA_DATA&, std::vector<std::string>&) { return 0; }
std::string DevLiunxBase::DevReadFile(std::string&, long, int) { return std::string(); }
int DevLiunxBase::DevSetContext(WEXA_DATA&, const std::string&, const std::vector<std::string>&) {
    return 0;
}
int DevLiunxCpuUse::DevOpear(WEXA_DATA&, std::vector<std::string>&) { return 0; }
int DevLiunxMemUse::DevOpear(WEXA_DATA&, std::vector<std::string>&) { return 0; }
int DevLiunxMemUse::DevCalcMemNoUseOld(int&) { return -1; }
int DevLiunxAppLog::DevOpear(WEXA_DATA&, std::vector<std::string>&) { return 0; }
int DevLinuxAppExecpLog::DevOpear(WEXA_DATA&, std::vector<std::string>&) { return 0; }
int DevLiunxAppDealLog::DevOpear(WEXA_DATA&, std::vector<std::string>&) { return 0; }
int DevLinuxSysExecpLog::DevOpear(WEXA_DATA&, std::vector<std::string>&) { return 0; }
DevManger::DevManger() : m_pTools(new ToolsBase), m_pOpearDb(new DevLinuxOpearDb) {}
DevManger::~DevManger() {
    for (auto& entry : m_handlers) delete entry.second;
    delete m_pTools;
    delete m_pOpearDb;
}
void DevManger::RegisterOpear(DEVSYSOPEAR key, DevLiunxBase* handler) { m_handlers[key] = handler; }
int DevManger::DevOpear(WEXA_DATA&, std::string) { return 0; }
int DevManger::GetOpearMode(WEXA_DATA&, int&, const std::vector<std::string>&) { return -5; }
