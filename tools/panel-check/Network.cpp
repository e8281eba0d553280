// Network: the interfaces as the HAL reports them (what channels 1, 2, 8 and 9 show), and with
// --network the probes that send packets: the driver's reachability probe, the NTP servers'
// names, one SNTP request to the first server (the offset is reported, the clock left alone).
#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "Checks.h"
#include "Child.h"
#include "Rules.h"

namespace panel_check {

namespace {

const char kArea[] = "network";
// The driver's probe target for servers given as addresses.
const char kPublicResolver[] = "223.5.5.5";
const int kPingTimeoutMs = 10000;
const int kSntpWaitMs = 5000;
const uint32_t kSecondsFrom1900To1970 = 2208988800u;

std::vector<std::string> fields(const std::string& line) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (size_t tab; (tab = line.find('\t', start)) != std::string::npos; start = tab + 1)
        parts.push_back(std::string(line, start, tab - start));
    parts.push_back(std::string(line, start));
    return parts;
}

bool ping(const std::string& target, std::string& how) {
    const std::string program = findOnPath("ping");
    if (program.empty()) {
        how = "no ping on PATH";
        return false;
    }
    // The driver's probe exactly: one echo request, two seconds for the answer.
    const ChildResult run = runProgram(
        program, std::vector<std::string>{"ping", "-c", "1", "-W", "2", target}, kPingTimeoutMs);
    how = run.how();
    return run.exited && run.status == 0;
}

uint32_t wordAt(const unsigned char* packet, int offset) {
    uint32_t word;
    std::memcpy(&word, packet + offset, sizeof word);
    return ntohl(word);
}

// Microseconds since 1970 of the reply's timestamp at `offset`, as the driver reads it.
long long timestampAt(const unsigned char* packet, int offset) {
    const unsigned long long seconds =
        static_cast<uint32_t>(wordAt(packet, offset) - kSecondsFrom1900To1970);
    const uint32_t f = wordAt(packet, offset + 4);
    return static_cast<long long>(seconds * 1000000u +
                                  ((f >> 12) - 759u * (((f >> 10) + 32768u) >> 16)));
}

// One request as the driver sends it; the offset in whole seconds it would set the clock by.
bool sntpOffset(const in_addr& address, long long& offset, std::string& how) {
    const int fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    if (fd < 0) {
        how = "no socket";
        return false;
    }
    struct sockaddr_in server;
    std::memset(&server, 0, sizeof server);
    server.sin_family = AF_INET;
    server.sin_port = htons(123);
    server.sin_addr = address;
    unsigned char packet[48];
    std::memset(packet, 0, sizeof packet);
    packet[0] = 0x1B;  // version 3, client
    packet[2] = 4;
    packet[3] = 0xFA;
    struct timeval sent;
    gettimeofday(&sent, nullptr);
    const uint32_t words[2] = {htonl(static_cast<uint32_t>(sent.tv_sec) + kSecondsFrom1900To1970),
                               htonl(4294u * static_cast<uint32_t>(sent.tv_usec) +
                                     ((1981u * static_cast<uint32_t>(sent.tv_usec)) >> 11))};
    std::memcpy(packet + 40, words, sizeof words);
    bool answered = false;
    struct pollfd p = {fd, POLLIN, 0};
    if (::sendto(fd, packet, sizeof packet, 0, reinterpret_cast<sockaddr*>(&server),
                 sizeof server) < 0) {
        how = "cannot send";
    } else if (::poll(&p, 1, kSntpWaitMs) != 1) {
        how = "no answer within 5 s";
    } else {
        unsigned char reply[48];
        std::memset(reply, 0, sizeof reply);
        if (::recvfrom(fd, reply, sizeof reply, 0, nullptr, nullptr) < 1) {
            how = "no reply could be read";
        } else {
            struct timeval arrival;
            gettimeofday(&arrival, nullptr);
            const long long t4 = static_cast<long long>(arrival.tv_sec) * 1000000 + arrival.tv_usec;
            offset = ((timestampAt(reply, 32) - timestampAt(reply, 24)) +
                      (timestampAt(reply, 40) - t4)) /
                     2000000;
            answered = true;
        }
    }
    ::close(fd);
    return answered;
}

}  // namespace

void checkInterfaces(Context& ctx) {
    const std::string check = "interfaces (channels 1, 2, 8, 9)";
    std::vector<std::string> shown;
    int count = -1, result = 0;
    for (size_t i = 0; i < ctx.halLines.size(); ++i) {
        const std::vector<std::string> f = fields(ctx.halLines[i]);
        if (f[0] == "count" && f.size() == 3) {
            result = std::atoi(f[1].c_str());
            count = std::atoi(f[2].c_str());
        } else if (f[0] == "iface" && f.size() == 6) {
            if (std::atoi(f[1].c_str()) != 0) {
                ctx.report.add(kFail, kArea, check,
                               format("the HAL refuses interface %d (result %s): channels 1, 2, "
                                      "8 and 9 stay empty",
                                      static_cast<int>(shown.size()), f[1].c_str()),
                               "ask the panel's vendor why hal_get_network fails");
                return;
            }
            if (std::atoi(f[2].c_str()) != 0) {
                ctx.report.add(kFail, kArea, check,
                               "the HAL does not find " + f[3] +
                                   " by its name: its address and mask writes give 7",
                               "ask the panel's vendor why hal_get_network_byname fails");
                return;
            }
            shown.push_back(f[3] + " " + f[4] + "/" + f[5]);
        }
    }
    if (count < 0)
        return;  // the HAL check says why there is nothing
    if (result != 0)
        ctx.report.add(kFail, kArea, check,
                       format("the HAL refuses the interface count (result %d): channels 1, 2, 8 "
                              "and 9 stay empty and their writes give 6",
                              result),
                       "ask the panel's vendor why hal_get_network_count fails");
    else if (count == 0)
        ctx.report.add(kFail, kArea, check,
                       "the HAL reports no interface: channels 1, 2, 8 and 9 stay empty",
                       "check the panel's network set-up");
    else if (count > 2)
        ctx.report.add(
            kWarn, kArea, check,
            format("the HAL reports %d interfaces: the driver shows none of them", count),
            "expected only on panels with more than two interfaces");
    else
        ctx.report.add(kPass, kArea, check,
                       shown[0] + " on 1 and 2" +
                           (count == 2 ? ", " + shown[1] + " on 8 and 9" : ", 8 and 9 empty"));
}

void checkNetworkProbes(Context& ctx) {
    bool byAddress = false, byName = false;
    for (size_t i = 0; i < ctx.ntpServers.size(); ++i) {
        if (ctx.ntpServers[i].empty())
            continue;
        (isDottedAddress(ctx.ntpServers[i]) ? byAddress : byName) = true;
    }
    if (!byAddress && !byName) {
        ctx.report.add(kWarn, kArea, "NTP servers", "none configured: ExecNTP gives 10",
                       "set the NTP servers from the project (SetNTPServer)");
        return;
    }
    // The targets of the driver's reachability probes.
    std::vector<std::string> targets;
    if (byAddress)
        targets.push_back(kPublicResolver);
    if (byName && !ctx.nameServers.empty())
        targets.push_back(ctx.nameServers[0]);
    else if (byName)
        ctx.report.add(kWarn, kArea, "probe of the name server", "not tried: no usable name server",
                       "see the resolver file's FAIL");
    for (size_t i = 0; i < targets.size(); ++i) {
        std::string how;
        if (ping(targets[i], how))
            ctx.report.add(kPass, kArea, "probe of " + targets[i], "answers one ping");
        else
            ctx.report.add(
                kFail, kArea, "probe of " + targets[i],
                "no answer to \"ping -c 1 -W 2\" (" + how + "): the driver's synchronisations fail",
                "let the panel reach " + targets[i]);
    }
    // The first server that resolves is the one the driver asks.
    std::vector<std::string> unresolved;
    for (size_t i = 0; i < ctx.ntpServers.size(); ++i) {
        const std::string& server = ctx.ntpServers[i];
        if (server.empty())
            continue;
        struct hostent* host = gethostbyname(server.c_str());
        if (!host || host->h_addrtype != AF_INET || !host->h_addr_list[0]) {
            unresolved.push_back(server);
            continue;
        }
        in_addr address;
        std::memcpy(&address, host->h_addr_list[0], sizeof address);
        std::string found = server + " is " + inet_ntoa(address);
        if (!unresolved.empty())
            found += format(" (%d before it do not resolve)", static_cast<int>(unresolved.size()));
        ctx.report.add(kPass, kArea, "NTP server names", found);
        long long offset = 0;
        std::string how;
        if (sntpOffset(address, offset, how))
            ctx.report.add(kPass, kArea, "SNTP " + server,
                           format("answers; the driver would move the clock by %lld s (left "
                                  "alone here)",
                                  offset));
        else
            ctx.report.add(kFail, kArea, "SNTP " + server,
                           how + ": the driver's synchronisation gives 10",
                           "let the panel reach UDP port 123 of " + server);
        return;
    }
    ctx.report.add(kFail, kArea, "NTP server names", "none of the configured servers resolves",
                   "configure servers by address, or a name server that knows them");
}

}  // namespace panel_check
