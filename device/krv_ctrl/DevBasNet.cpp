// Network addresses, interface enumeration, the remote-view password and small
// text helpers of the device logic object.
#include <arpa/inet.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <QFile>
#include <QSettings>

#include "AppCfgStore.h"
#include "DevBas.h"
#include "IniOperator.h"
#include "SettingsFile.h"
#include "wexa_hal.h"

QString vncCfgPath = "/etc/iot_cfg/vncConfig.ini";

namespace {
// The C library's sscanf under its own name. In C++11, glibc's headers turn sscanf into
// __isoc99_sscanf, which needs glibc 2.7 and reads "%d" exactly alike (only "%a" differs).
extern "C" int scanNumbers(const char* text, const char* format, ...) __asm__("sscanf")
    __attribute__((format(scanf, 2, 3)));

constexpr int kMinVncPwdLength = 6;
constexpr int kMaxVncPwdLength = 32;
const char* const kVncPwdKey = "/VNCCONFIG/passwd";

// Dotted quad whose first number lies in [firstLow, firstHigh] and the others in
// [0, 255]. Trailing characters are not examined, on purpose.
int isDottedQuad(const char* text, unsigned int firstLow, unsigned int firstHigh) {
    if (text == nullptr)
        return 0;
    int n[4];
    if (scanNumbers(text, "%d.%d.%d.%d", &n[0], &n[1], &n[2], &n[3]) < 4)
        return 0;
    if (static_cast<unsigned int>(n[0]) - firstLow > firstHigh - firstLow)
        return 0;
    for (int i = 1; i < 4; ++i)
        if (static_cast<unsigned int>(n[i]) > 255u)
            return 0;
    return 1;
}

// How a write of an address channel is carried out.
struct AddressChannel {
    int channel;
    int (*valid)(const char*);
    unsigned int interfaceIndex;
    int kind;  // 0 address, 1 mask
};

const AddressChannel kAddressChannels[] = {
    {DEV_CHL_IP1, CDevBas::IsAvailableIPAddr, 0, 0},
    {DEV_CHL_MASK1, CDevBas::IsAvailableMaskAddr, 0, 1},
    {DEV_CHL_IP2, CDevBas::IsAvailableIPAddr, 1, 0},
    {DEV_CHL_MASK2, CDevBas::IsAvailableMaskAddr, 1, 1},
};
}  // namespace

QString vncCfgFilePath(bool& exists) {
    exists = QFile::exists(vncCfgPath);
    if (exists)
        return vncCfgPath;
    QString fallback = AppCfgStore::configDirectory() + "/vncConfig.ini";
    exists = QFile::exists(fallback);
    return fallback;
}

int CDevBas::IsAvailableIPAddr(const char* text) {
    return isDottedQuad(text, 1, 223);
}

int CDevBas::IsAvailableMaskAddr(const char* text) {
    return isDottedQuad(text, 192, 255);
}

int CDevBas::getLocalcount_name(unsigned int& count, std::vector<QString>& names) {
    if (hal_get_network_count(&count) != 0 || count == 0)
        return 0;
    for (unsigned int i = 0; i < count; ++i) {
        hal_network_info info;
        memset(&info, 0, sizeof(info));
        (void)hal_get_network(i, &info);
        info.name[sizeof(info.name) - 1] = '\0';
        names.push_back(QString::fromLatin1(info.name));
    }
    return 1;
}

int CDevBas::setLocalIp(QString& value, int kind, QString& ifname) {
    char name[sizeof(hal_network_info::name)];
    memset(name, 0, sizeof(name));
    // A name of 32 bytes or more is cut to fit; the HAL then simply finds no
    // such interface instead of the buffer overflowing.
    const QByteArray ascii = ifname.toLatin1();
    strncpy(name, ascii.constData(), sizeof(name) - 1);

    hal_network_info info;
    memset(&info, 0, sizeof(info));
    if (hal_get_network_byname(name, &info) != 0)
        return 0;

    hal_net_param param = info.param;
    const in_addr_t word = inet_addr(value.toLatin1().constData());
    if (kind == 1)
        param.mask = word;
    else
        param.addr = word;
    return hal_set_ip_addr(info.name, &param) == 0 ? 1 : 0;
}

int CDevBas::changeAddress(int channel, const CString& text) {
    const AddressChannel* entry = nullptr;
    for (const AddressChannel& candidate : kAddressChannels)
        if (candidate.channel == channel)
            entry = &candidate;
    // Only the four address channels come here; anything else is a bad value.
    if (entry == nullptr || !entry->valid(text.GetString()))
        return -4;

    unsigned int count = 0;
    std::vector<QString> names;
    if (!getLocalcount_name(count, names))
        return -6;
    if (names.size() <= entry->interfaceIndex)
        return -8;

    QString value = QString::fromLatin1(text.GetString());
    QString ifname = names[entry->interfaceIndex];
    return setLocalIp(value, entry->kind, ifname) ? 0 : -7;
}

int CDevBas::writeVncPwd(const CString& password) {
    const int length = password.GetLength();
    if (length != 0 && (length < kMinVncPwdLength || length > kMaxVncPwdLength))
        return -4;

    // The remote-view server owns this file; the driver never creates it.
    bool exists = false;
    const QString path = vncCfgFilePath(exists);
    if (!exists)
        return 0;

    QString current;
    {
        KRVCTRL::SettingsFile guard(path, KRVCTRL::SettingsFile::Read);
        current = QSettings(path, QSettings::IniFormat).value(kVncPwdKey).toString();
    }
    const QString wanted = QString::fromLatin1(password.GetString(), length);
    if (wanted != current) {
        // The remote-view server reads it with the default codec.
        (void)IniOperator::FileIniWriteValues(path, {{kVncPwdKey, wanted}}, false);
    }
    return 0;
}

int CDevBas::splitString(const char* text, char separator, std::vector<ZU::utils::String>& items) {
    if (text == nullptr) {
        items.push_back(ZU::utils::String());
        return 0;
    }
    const char* start = text;
    for (const char* p = text;; ++p) {
        if (*p == separator || *p == '\0') {
            ZU::utils::String item(start, static_cast<size_t>(p - start));
            items.push_back(item.trim());
            if (*p == '\0')
                break;
            start = p + 1;
        }
    }
    return 1;
}

CString CDevBas::QS2CS(QString text) {
    // CString(const char*) stops at the first zero character.
    return CString(text.toLatin1().constData());
}
