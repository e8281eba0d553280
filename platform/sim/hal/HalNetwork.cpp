// The simulated HAL's network calls, on the real interfaces of the current network namespace.
#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "SimInternal.h"
#include "wexa_hal.h"

namespace {

using sim::detail::HalCall;

constexpr int kFailed = -1;

// A datagram socket as the handle for the interface ioctls.
class IoctlSocket {
public:
    IoctlSocket() : m_fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}
    ~IoctlSocket() {
        if (m_fd >= 0)
            close(m_fd);
    }
    IoctlSocket(const IoctlSocket&) = delete;
    IoctlSocket& operator=(const IoctlSocket&) = delete;

    bool ok() const { return m_fd >= 0; }
    bool call(unsigned long request, ifreq& req) const { return ioctl(m_fd, request, &req) == 0; }

private:
    int m_fd;
};

// The kernel's name for `name`, or empty when it cannot be one. The caller's text is read
// at most up to the record's name size, so an unterminated or overlong name is harmless.
std::string kernelName(const char* name) {
    if (!name)
        return std::string();
    size_t length = strnlen(name, sizeof(hal_network_info::name));
    if (length == 0 || length >= IFNAMSIZ)
        return std::string();
    return std::string(name, length);
}

ifreq requestFor(const std::string& name) {
    ifreq req;
    memset(&req, 0, sizeof req);
    memcpy(req.ifr_name, name.data(), std::min(name.size(), sizeof req.ifr_name - 1));
    return req;
}

// Every interface but loopback, by interface index.
std::vector<std::string> listInterfaces(const IoctlSocket& sock) {
    std::vector<std::pair<unsigned, std::string>> found;
    if (struct if_nameindex* all = if_nameindex()) {
        for (struct if_nameindex* it = all; it->if_index != 0; ++it) {
            ifreq req = requestFor(it->if_name);
            if (sock.call(SIOCGIFFLAGS, req) && !(req.ifr_flags & IFF_LOOPBACK)) {
                found.emplace_back(it->if_index, it->if_name);
            }
        }
        if_freenameindex(all);
    }
    std::sort(found.begin(), found.end());
    std::vector<std::string> names;
    for (auto& entry : found)
        names.push_back(std::move(entry.second));
    return names;
}

bool isListed(const IoctlSocket& sock, const std::string& name) {
    std::vector<std::string> names = listInterfaces(sock);
    return !name.empty() && std::find(names.begin(), names.end(), name) != names.end();
}

uint32_t readIpv4(const IoctlSocket& sock, const std::string& name, unsigned long request) {
    ifreq req = requestFor(name);
    req.ifr_addr.sa_family = AF_INET;
    if (!sock.call(request, req))
        return 0;  // no IPv4 address yet
    sockaddr_in sin;
    memcpy(&sin, &req.ifr_addr, sizeof sin);
    return sin.sin_addr.s_addr;
}

bool writeIpv4(const IoctlSocket& sock, const std::string& name, unsigned long request,
               uint32_t value) {
    ifreq req = requestFor(name);
    sockaddr_in sin;
    memset(&sin, 0, sizeof sin);
    sin.sin_family = AF_INET;
    sin.sin_addr.s_addr = value;
    memcpy(&req.ifr_addr, &sin, sizeof sin);
    return sock.call(request, req);
}

// The words the HAL does not use stay zero.
void fillRecord(const IoctlSocket& sock, const std::string& name, hal_network_info* info) {
    memset(info, 0, sizeof *info);
    memcpy(info->name, name.data(), std::min(name.size(), sizeof info->name - 1));
    info->param.addr = readIpv4(sock, name, SIOCGIFADDR);
    info->param.mask = readIpv4(sock, name, SIOCGIFNETMASK);
}

std::string dotted(uint32_t address) {
    in_addr in;
    in.s_addr = address;
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &in, text, sizeof text);
    return text;
}

}  // namespace

extern "C" {

int hal_get_network_count(unsigned int* count) {
    if (!count)
        return kFailed;
    if (int refused = sim::detail::halResult(HalCall::Network))
        return refused;
    IoctlSocket sock;
    if (!sock.ok())
        return kFailed;
    *count = static_cast<unsigned int>(listInterfaces(sock).size());
    return 0;
}

int hal_get_network(unsigned int index, hal_network_info* info) {
    if (!info)
        return kFailed;
    memset(info, 0, sizeof *info);
    if (int refused = sim::detail::halResult(HalCall::Network))
        return refused;
    IoctlSocket sock;
    if (!sock.ok())
        return kFailed;
    std::vector<std::string> names = listInterfaces(sock);
    if (index >= names.size())
        return kFailed;
    fillRecord(sock, names[index], info);
    return 0;
}

int hal_get_network_byname(const char* name, hal_network_info* info) {
    if (!info)
        return kFailed;
    std::string wanted = kernelName(name);
    memset(info, 0, sizeof *info);
    if (int refused = sim::detail::halResult(HalCall::Network))
        return refused;
    IoctlSocket sock;
    if (!sock.ok() || !isListed(sock, wanted))
        return kFailed;
    fillRecord(sock, wanted, info);
    return 0;
}

// Setting the address makes the kernel derive a class mask, so the mask is applied after it.
// A zero mask word means the record carried none; the kernel's mask then stays.
int hal_set_ip_addr(const char* name, const hal_net_param* param) {
    if (!param)
        return kFailed;
    std::string target = kernelName(name);
    sim::detail::record(
        "net", sim::detail::format("hal_set_ip_addr(%s,%s,%s)", target.c_str(),
                                   dotted(param->addr).c_str(), dotted(param->mask).c_str()));
    if (int refused = sim::detail::halResult(HalCall::IpAddr))
        return refused;
    IoctlSocket sock;
    if (!sock.ok() || !isListed(sock, target))
        return kFailed;
    if (!writeIpv4(sock, target, SIOCSIFADDR, param->addr))
        return kFailed;
    if (param->mask != 0 && !writeIpv4(sock, target, SIOCSIFNETMASK, param->mask))
        return kFailed;
    return 0;
}
}
