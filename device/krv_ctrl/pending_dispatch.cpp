// Placeholder until the command dispatcher, file utilities and network settings land.
#include "DevBas.h"
#include "File.h"
#include "IniOperator.h"

std::mutex g_halMutex;
namespace wexa_device {
int SvrDevIOCtrl(WEXA_DATA&, CString&, CArray<double, double>& valueArray, CStringArray&) {
    if (valueArray.GetSize() > 0) valueArray[0] = 0.0;
    return 0;
}
}  // namespace wexa_device
int CDevBas::IsAvailableIPAddr(const char*) { return 0; }
int CDevBas::IsAvailableMaskAddr(const char*) { return 0; }
int CDevBas::getLocalcount_name(unsigned int&, std::vector<QString>&) { return 0; }
int CDevBas::setLocalIp(QString&, int, QString&) { return 0; }
int CDevBas::writeVncPwd(const CString&) { return 0; }
int CDevBas::splitString(const char*, char, std::vector<ZU::utils::String>&) { return 0; }
CString CDevBas::QS2CS(QString) { return CString(); }
namespace KRVCTRL {
File::~File() {}
bool File::open(const std::string&, int) { return false; }
bool File::seek(unsigned int) { return false; }
std::string File::readAll() { return std::string(); }
bool File::is_file_exist(const std::string&) { return false; }
FileLock::FileLock() : m_file(new File) {}
FileLock::~FileLock() { delete m_file; }
FileLocker::FileLocker(FileLock& lock) : m_lock(lock) {}
FileLocker::~FileLocker() {}
}  // namespace KRVCTRL
int IniOperator::FileIniWriteValue(QString, QString, QString, QString) { return -1; }
int IniOperator::FileIniReadValue(QString, QString, QString, QString&, QString) { return 0; }
