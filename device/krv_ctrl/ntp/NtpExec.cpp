// One SNTP exchange: pick and probe the servers, ask one for the time, set the clocks.
#include <arpa/inet.h>
#include <errno.h>
#include <netdb.h>
#include <netinet/in.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <QDebug>
#include <QFile>

#include "File.h"
#include "NtpCtrl.h"
#include "wexa_hal.h"

namespace {

const int ntpPacketSize = 48;
const uint16_t ntpPort = 123;
const uint32_t secondsFrom1900To1970 = 2208988800u;
const int execFailed = -10;

// Microseconds to the NTP fraction of a second (usec * 2^32 / 10^6, integer approximation).
uint32_t usecToFraction(uint32_t usec) {
    return 4294u * usec + ((1981u * usec) >> 11);
}

// The inverse of usecToFraction.
uint32_t fractionToUsec(uint32_t fraction) {
    return (fraction >> 12) - 759u * (((fraction >> 10) + 32768u) >> 16);
}

uint32_t wordAt(const unsigned char* packet, int offset) {
    uint32_t word;
    memcpy(&word, packet + offset, sizeof word);
    return ntohl(word);
}

void putWord(unsigned char* packet, int offset, uint32_t value) {
    uint32_t word = htonl(value);
    memcpy(packet + offset, &word, sizeof word);
}

// A timestamp of the reply (seconds word, then fraction word) as microseconds since 1970.
int64_t timestampAt(const unsigned char* packet, int offset) {
    uint64_t seconds = static_cast<uint32_t>(wordAt(packet, offset) - secondsFrom1900To1970);
    return static_cast<int64_t>(seconds * 1000000u + fractionToUsec(wordAt(packet, offset + 4)));
}

void buildRequest(unsigned char* packet) {
    memset(packet, 0, ntpPacketSize);
    packet[0] = 0x1B;                // leap indicator 0, version 3, mode 3 (client)
    packet[1] = 0;                   // stratum
    packet[2] = 4;                   // poll
    packet[3] = 0xFA;                // precision -6
    putWord(packet, 4, 0x00010000);  // root delay 1.0
    putWord(packet, 8, 0x00010000);  // root dispersion 1.0
    struct timeval now;
    gettimeofday(&now, nullptr);
    putWord(packet, 40, static_cast<uint32_t>(now.tv_sec) + secondsFrom1900To1970);
    putWord(packet, 44, usecToFraction(static_cast<uint32_t>(now.tv_usec)));
}

// Sets the system clock and the real-time clock to `seconds` since 1970; 0 or -10.
int setClocks(int64_t seconds) {
    // Any reply is believed, but a time the panel cannot hold (after 19 January 2038 where
    // time_t has 32 bits) would wrap to a date between 1901 and 1970 and be set as that.
    const time_t newTime = static_cast<time_t>(seconds);
    if (static_cast<int64_t>(newTime) != seconds)
        return execFailed;
    struct tm local;
    // localtime_r: the worker and the ExecNTP command may both be here at once.
    if (localtime_r(&newTime, &local) == nullptr)
        return execFailed;
    if (!QFile::exists(QString::fromLatin1("/etc/localtime")) &&
        !QFile::exists(QString::fromLatin1("/etc/timezone"))) {
        // No zone configured: the panel's clock runs on UTC+8. The hour is deliberately
        // left unnormalised (24 to 31, same day); the same value reaches both clocks.
        local.tm_hour += 8;
    }
    char command[100];
    memset(command, 0, sizeof command);
    snprintf(command, sizeof command, "date -s \"%d-%d-%d %d:%d:%d\"", local.tm_year + 1900,
             local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
    printf("date is : %d-%d-%d %d:%d:%d\n", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
           local.tm_hour, local.tm_min, local.tm_sec);
    int status = system(command);
    (void)status;  // a failing date command is not detected
    return hal_set_rtc_time(&local) == 0 ? 0 : execFailed;
}

// A descriptor closed however its scope is left, a throw included.
class Descriptor {
public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    ~Descriptor() {
        if (m_fd >= 0)
            close(m_fd);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return m_fd; }

private:
    int m_fd;
};

// A UDP socket that no child of the driver inherits (the date command runs while it is open).
int udpSocket() {
    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0 && errno == EINVAL) {  // a kernel before 2.6.27 knows no SOCK_CLOEXEC
        fd = socket(AF_INET, SOCK_DGRAM, 0);
        KRVCTRL::closeOnExec(fd);
    }
    return fd;
}

// One request and one reply with the server at `address`; 0 or -10.
int exchange(const struct in_addr& address) {
    Descriptor socketHolder(udpSocket());
    const int sock = socketHolder.get();
    if (sock < 0) {
        printf("[%s:%d]套接字创建失败，被迫终止 ! \n\n", "execNtp", 457);
        return execFailed;
    }
    struct sockaddr_in server;
    memset(&server, 0, sizeof server);
    server.sin_family = AF_INET;
    server.sin_port = htons(ntpPort);
    server.sin_addr = address;

    unsigned char packet[ntpPacketSize];
    buildRequest(packet);
    if (sendto(sock, packet, sizeof packet, 0, reinterpret_cast<struct sockaddr*>(&server),
               sizeof server) < 0)
        return execFailed;
    printf("[%s:%d]发送请求数据包到服务器...\n\n", "sendPacket", 531);

    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(sock, &readable);
    struct timeval wait = {5, 0};
    int ready = select(sock + 1, &readable, nullptr, nullptr, &wait);
    if (ready == -1) {
        printf("[%s:%d]select函数出错，被迫终止 !\n\n", "execNtp", 485);
        return execFailed;
    }
    if (ready == 0) {
        printf("[%s:%d]等待服务器响应超时，终止 !\n\n", "execNtp", 490);
        return execFailed;
    }
    if (!FD_ISSET(sock, &readable))
        return execFailed;

    unsigned char reply[ntpPacketSize];
    memset(reply, 0, sizeof reply);
    if (recvfrom(sock, reply, sizeof reply, 0, nullptr, nullptr) < 1) {
        printf("[%s:%d]读取返回数据失败\n\n", "getServerTime", 547);
        return execFailed;
    }
    struct timeval arrival;
    gettimeofday(&arrival, nullptr);
    // A short reply is used as it stands: the missing bytes stay zero.
    int64_t t4 = static_cast<int64_t>(arrival.tv_sec) * 1000000 + arrival.tv_usec;
    int64_t t1 = timestampAt(reply, 24);
    int64_t t2 = timestampAt(reply, 32);
    int64_t t3 = timestampAt(reply, 40);
    int64_t offset = ((t2 - t1) + (t3 - t4)) / 2000000;

    return setClocks(static_cast<int64_t>(arrival.tv_sec) + offset);
}

}  // namespace

int NtpCtrl::execNtp() {
    // Development trace only: the operator log does not need it.
    qDebug("execNtp-----------");

    std::vector<QString> all, addresses, names;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_ntpSwitch != 1)
            return 0;
        bool anyServer = false;
        for (int i = 0; i < 4; ++i)
            if (!m_ntpServer[i].isEmpty())
                anyServer = true;
        if (!anyServer)
            return execFailed;
    }

    const std::vector<QString>* chosen = nullptr;
    if (classifyServers(all, addresses, names) == 4) {
        if (!pingNetWork(true))
            return execFailed;
        chosen = &addresses;
    } else if (classifyServers(all, addresses, names) == 0) {
        if (!pingNetWork(false))
            return execFailed;
        chosen = &names;
    } else {
        bool addressesAnswer = pingNetWork(true);
        bool nameServerAnswers = pingNetWork(false);
        if (addressesAnswer && nameServerAnswers)
            chosen = &all;
        else if (addressesAnswer)
            chosen = &addresses;
        else if (nameServerAnswers)
            chosen = &names;
        else
            return execFailed;
    }

    struct in_addr address;
    {
        // gethostbyname answers in one static record of the C library: the worker and an
        // ExecNTP command must not resolve at the same time, and the address is copied out
        // before the record is let go.
        static std::mutex resolverMutex;
        std::lock_guard<std::mutex> lock(resolverMutex);
        struct hostent* host = getHostByName(*chosen);
        if (host == nullptr)
            return execFailed;
        memcpy(&address, host->h_addr_list[0], sizeof address);
    }
    return exchange(address);
}

int NtpCtrl::classifyServers(std::vector<QString>& all, std::vector<QString>& addresses,
                             std::vector<QString>& names) {
    // The lists are taken from the settings in the same hold as the count, so that a
    // SetNTPServer in between cannot pair the count of one list with the servers of another.
    std::lock_guard<std::mutex> lock(m_mutex);
    all.assign(m_ntpServer, m_ntpServer + 4);
    addresses.clear();
    names.clear();
    for (const QString& server : all) {
        if (server.isEmpty())
            continue;
        (isIp(server) ? addresses : names).push_back(server);
    }
    return static_cast<int>(addresses.size());
}
