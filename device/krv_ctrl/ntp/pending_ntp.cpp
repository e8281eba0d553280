// Placeholder until the NTP controller lands.
#include "NtpCtrl.h"

ntpCfgParam::ntpCfgParam() : m_ntpSwitch(0), m_ntpMode(0), m_ntpFreq(0) {}
ntpCfgParam::~ntpCfgParam() {}
void ntpCfgParam::readCfg(QString const&) {}
void ntpCfgParam::writeCfg(QString const&) {}
bool ntpCfgParam::operator==(const ntpCfgParam& o) const {
    return m_ntpSwitch == o.m_ntpSwitch && m_ntpMode == o.m_ntpMode && m_ntpFreq == o.m_ntpFreq &&
           m_ntpServer[0] == o.m_ntpServer[0] && m_ntpServer[1] == o.m_ntpServer[1] &&
           m_ntpServer[2] == o.m_ntpServer[2] && m_ntpServer[3] == o.m_ntpServer[3];
}
NtpCtrl::NtpCtrl(const QString& cfgPath) : m_cfgPath(cfgPath), m_thread(0), m_running(1) {}
NtpCtrl::~NtpCtrl() { m_running = 0; }
ntpCfgParam NtpCtrl::getParam() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return *this;
}
int NtpCtrl::enableNtp(int) { return 0; }
int NtpCtrl::setNtpMode(int) { return 0; }
int NtpCtrl::setNtpFreq(int) { return 0; }
int NtpCtrl::setNtpServers(const QString[4]) { return 0; }
int NtpCtrl::setNtpServer(int, const QString&) { return 0; }
int NtpCtrl::execNtp() { return 0; }
bool NtpCtrl::isIp(QString const&) { return false; }
bool NtpCtrl::pingNetWork(bool) { return false; }
struct hostent* NtpCtrl::getHostByName(const std::vector<QString>&) { return nullptr; }
void* NtpCtrl::ThreadOfExecNtp(void*) { return nullptr; }
