// Reachability probes, the resolver file, the SNTP exchange against a scripted responder and
// a real NTP server in the peer namespace, and the worker's triggers.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include "File.h"
#include "NtpCtrl.h"
#include "Sandbox.h"
#include "sim/SimPanel.h"

namespace {

using krv_test::readFile;
using krv_test::writeFile;

// A controller on a scratch settings file: NTP on, every server `server`, manual by default.
std::unique_ptr<NtpCtrl> controller(const QString& server, int mode = 0) {
    char dir[] = "/tmp/ntpsync.XXXXXX";
    QString path = QString::fromLatin1(mkdtemp(dir)) + "/ntp_param_cfg.ini";
    ntpCfgParam file;
    file.m_ntpSwitch = 1;
    file.m_ntpMode = mode;
    file.m_ntpFreq = 2;
    for (QString& s : file.m_ntpServer)
        s = server;
    file.writeCfg(path);
    return std::unique_ptr<NtpCtrl>(new NtpCtrl(path));
}

// The time last given to the RTC (hour as given, possibly beyond 23), checked against the
// date command recorded just before it.
struct tm lastSet() {
    struct tm t = {};
    auto rtc = sim::journal("rtc");
    EXPECT_FALSE(rtc.empty());
    if (rtc.empty())
        return t;
    sscanf(rtc.back().text.c_str(), "hal_set_rtc_time(%d-%d-%d %d:%d:%d)", &t.tm_year, &t.tm_mon,
           &t.tm_mday, &t.tm_hour, &t.tm_min, &t.tm_sec);
    char date[64];
    snprintf(date, sizeof date, "date [-s] [%d-%d-%d %d:%d:%d]", t.tm_year, t.tm_mon, t.tm_mday,
             t.tm_hour, t.tm_min, t.tm_sec);
    EXPECT_EQ(date, krv_test::shimCalls().back());
    t.tm_year -= 1900;
    t.tm_mon -= 1;
    return t;
}

// Checks that the clocks were last set to a time between `before` and now, plus `offset`.
void expectSetTo(time_t before, int offset, int slack = 0) {
    struct tm set = lastSet();
    time_t t = timegm(&set);
    EXPECT_LE(before + offset - slack, t) << offset;
    // Not time(): its coarse clock may still read the previous second the driver has left.
    timeval now;
    gettimeofday(&now, nullptr);
    EXPECT_GE(now.tv_sec + offset + slack, t) << offset;
}

int64_t nowUs() {
    timeval tv;
    gettimeofday(&tv, nullptr);
    return tv.tv_sec * int64_t(1000000) + tv.tv_usec;
}

// An SNTP server on 127.0.0.1:123 whose timestamps put the client `offsetUs` off.
class Responder {
public:
    std::atomic<int> replyLength{48};
    std::atomic<int64_t> offsetUs{0};
    std::atomic<bool> spoof{false};  // reply from another address and port
    // The last request. Guarded: the client's exchange orders the two threads only through the
    // socket, which ThreadSanitizer cannot see.
    std::string request() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_request;
    }

    Responder() : m_fd(socket(AF_INET, SOCK_DGRAM, 0)) {
        sockaddr_in at = {};
        at.sin_family = AF_INET;
        at.sin_port = htons(123);
        at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(0, bind(m_fd, reinterpret_cast<sockaddr*>(&at), sizeof at));
        at.sin_port = 0;
        at.sin_addr.s_addr = htonl(INADDR_LOOPBACK + 1);
        EXPECT_EQ(0, bind(m_spoofFd, reinterpret_cast<sockaddr*>(&at), sizeof at));
        m_thread = std::thread([this] {
            for (pollfd p = {m_fd, POLLIN, 0}; !m_stop;) {
                if (poll(&p, 1, 50) == 1)
                    answer();
            }
        });
    }
    ~Responder() {
        m_stop = true;
        m_thread.join();
        close(m_fd);
        close(m_spoofFd);
    }

private:
    static void putTime(unsigned char* p, int64_t us) {
        uint32_t words[2] = {htonl(uint32_t(us / 1000000 + 2208988800u)),
                             htonl(uint32_t((us % 1000000) * 4294967296.0 / 1e6))};
        memcpy(p, words, 8);
    }
    void answer() {
        unsigned char packet[48] = {};
        sockaddr_in from;
        socklen_t fromLen = sizeof from;
        ssize_t n = recvfrom(m_fd, packet, 48, 0, reinterpret_cast<sockaddr*>(&from), &fromLen);
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_request.assign(reinterpret_cast<char*>(packet), n > 0 ? n : 0);
        }
        // T1 a little ahead of the client's T4, so that only the offset decides the seconds.
        int64_t t1 = nowUs() + 50000;
        putTime(packet + 24, t1);
        putTime(packet + 32, t1 + offsetUs);
        putTime(packet + 40, t1 + offsetUs);
        if (replyLength > 0)
            sendto(spoof ? m_spoofFd : m_fd, packet, replyLength, 0,
                   reinterpret_cast<sockaddr*>(&from), fromLen);
    }
    mutable std::mutex m_mutex;
    std::string m_request;
    int m_fd;
    int m_spoofFd = socket(AF_INET, SOCK_DGRAM, 0);
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

TEST(NtpProbe, ScriptTargetsAndFailures) {
    auto ctrl = controller("");
    EXPECT_TRUE(ctrl->pingNetWork(true));
    EXPECT_EQ(
        "#!/bin/sh \nping -c 1 -W 2 223.5.5.5 > /dev/null 2>&1 \nif [ $? -eq 0 ];then \n"
        "exit 0 \nelse \nexit 1 \nfi \n",
        readFile("/tmp/ping.sh"));
    EXPECT_TRUE(ctrl->pingNetWork(false));                    // the name server 10.0.0.1
    writeFile("/etc/resolv.conf", "nameserver 10.0.0.77\n");  // nobody there
    EXPECT_FALSE(ctrl->pingNetWork(false));
    EXPECT_NE(std::string::npos, readFile("/tmp/ping.sh").find("ping -c 1 -W 2 10.0.0.77 "));
    // A planted link must not redirect the script.
    unlink("/tmp/ping.sh");
    writeFile("/tmp/victim", "keep");
    ASSERT_EQ(0, symlink("/tmp/victim", "/tmp/ping.sh"));
    EXPECT_TRUE(ctrl->pingNetWork(true));
    EXPECT_EQ("keep", readFile("/tmp/victim"));
    // Nor may a file someone else created at the name, and still holds open for writing, be
    // the one that runs; and nobody else may write the script, whatever the umask.
    const mode_t umaskBefore = umask(0);
    const int theirs = open("/tmp/ping.sh", O_WRONLY | O_CREAT | O_TRUNC, 0666);
    ASSERT_GE(theirs, 0);
    EXPECT_TRUE(ctrl->pingNetWork(true));
    struct stat planted, script;
    ASSERT_EQ(0, fstat(theirs, &planted));
    ASSERT_EQ(0, stat("/tmp/ping.sh", &script));
    EXPECT_NE(planted.st_ino, script.st_ino);
    EXPECT_EQ(0u, script.st_mode & 022);
    close(theirs);
    umask(umaskBefore);
    unlink("/tmp/ping.sh");
    writeFile("/etc/resolv.conf", "nameserver 10.0.0.1\n");
}

TEST(NtpProbe, ResolverFileRules) {
    struct Case {
        const char* text;
        std::vector<std::string> servers;
    } cases[] = {
        {"nameserver 10.0.0.1\n", {"10.0.0.1"}},
        {"# generated\nsearch panel\nnameserver 10.0.0.1 \nnameserver 01.2.3.4\n",
         {"10.0.0.1", "01.2.3.4"}},
        {"# nameserver 10.0.0.1\n", {}},
        {"nameserver\n", {}},
        {"nameserver\t10.0.0.1\n", {}},
        {"  nameserver 10.0.0.1\n", {}},
        {"nameserver 10.0.0.1\nnameserver ntp.panel.test\n", {}},
    };
    for (const Case& c : cases) {
        writeFile("/etc/resolv.conf", c.text);
        EXPECT_EQ(c.servers, NtpCtrl::readNameServers()) << c.text;
    }
    // A rewrite cut short before its rename is completed by the reader.
    unlink("/etc/resolv.conf");
    writeFile("/etc/resolv.conf.tmp", "nameserver 10.0.0.1\n");
    EXPECT_EQ(std::vector<std::string>{"10.0.0.1"}, NtpCtrl::readNameServers());
    EXPECT_EQ("nameserver 10.0.0.1\n", readFile("/etc/resolv.conf"));
    EXPECT_NE(0, access("/etc/resolv.conf.tmp", F_OK));
    EXPECT_TRUE(NtpCtrl::isIp("01.2.3.4"));
    for (const char* bad : {"256.1.1.1", "1.2.3", "1.2.3.4.5", " 1.2.3.4", ""})
        EXPECT_FALSE(NtpCtrl::isIp(bad)) << bad;
}

// Another process rewrites the resolver file while it is read over and over: in place without
// the lock, or under the lock through the temporary file and a rename. Every reading gives one
// of the two name servers, or (for a file caught half-written) the empty failure result.
TEST(NtpProbe, ResolverFileRewrittenUnderTheReader) {
    const std::string texts[] = {"nameserver 10.0.0.1\n", "nameserver 10.0.0.7\n"};
    const std::string original = readFile("/etc/resolv.conf");  // later tests probe its server
    for (bool locked : {false, true}) {
        writeFile("/etc/resolv.conf", texts[0]);
        const pid_t writer = fork();
        if (writer == 0) {
            KRVCTRL::FileLock lock;
            lock.file().open("/tmp/dns_access_lock.lck", O_CREAT);
            for (int i = 0;; i ^= 1) {
                if (!locked) {
                    writeFile("/etc/resolv.conf", texts[i]);
                    continue;
                }
                KRVCTRL::FileLocker hold(lock);
                writeFile("/etc/resolv.conf.tmp", texts[i]);
                rename("/etc/resolv.conf.tmp", "/etc/resolv.conf");
            }
        }
        std::map<std::string, int> seen;
        // Until both texts were seen often enough (the writer may be slow to start).
        for (int read = 0; read < 100000 && !(seen["10.0.0.1"] > 100 && seen["10.0.0.7"] > 100);
             ++read) {
            const std::vector<std::string> servers = NtpCtrl::readNameServers();
            ++seen[servers.size() == 1 ? servers[0] : std::to_string(servers.size())];
        }
        kill(writer, SIGKILL);
        waitpid(writer, nullptr, 0);
        EXPECT_TRUE(seen["10.0.0.1"] > 100 && seen["10.0.0.7"] > 100 &&
                    seen.size() == 2u + (locked ? 0 : seen.count("0")))
            << locked << " " << ::testing::PrintToString(seen);
    }
    writeFile("/etc/resolv.conf", original);
}

TEST(NtpExchange, RequestOffsetsAndTimeZoneFallback) {
    writeFile("/etc/timezone", "Etc/UTC\n");
    Responder server;
    auto ctrl = controller("127.0.0.1");
    for (auto c : {std::make_pair(3000000, 3), {2900000, 2}, {-2900000, -2}}) {
        server.offsetUs = c.first;
        time_t before = time(nullptr);
        ASSERT_EQ(0, ctrl->execNtp());
        expectSetTo(before, c.second);
    }
    const std::string req = server.request();
    ASSERT_EQ(48u, req.size());
    EXPECT_EQ(std::string("\x1B\0\4\xFA\0\1\0\0\0\1\0\0", 12) + std::string(28, '\0'),
              req.substr(0, 40));
    uint32_t seconds = ntohl(*reinterpret_cast<const uint32_t*>(req.data() + 40));
    EXPECT_NEAR(double(time(nullptr) + 2208988800u), double(seconds), 2.0);

    // Whatever answers is believed: a reply from another address and port sets the clocks,
    // and a one-byte reply (all timestamps zero, i.e. 2036-02-07 06:28:16 UTC) sets them half
    // way from now to that date.
    server.spoof = true;
    server.offsetUs = 365 * 86400 * int64_t(1000000);
    time_t before = time(nullptr);
    EXPECT_EQ(0, ctrl->execNtp());
    expectSetTo(before, 365 * 86400);
    server.replyLength = 1;
    before = time(nullptr);
    EXPECT_EQ(0, ctrl->execNtp());
    expectSetTo(before, static_cast<int>((2085978496 - before) / 2), 1);
    // No time zone: 20:30 UTC becomes hour 28 of the same day.
    unlink("/etc/timezone");
    server.replyLength = 48;
    time_t today = time(nullptr) / 86400 * 86400;
    server.offsetUs = (today + 20 * 3600 + 30 * 60 - time(nullptr)) * int64_t(1000000);
    ASSERT_EQ(0, ctrl->execNtp());
    struct tm set = lastSet(), utc;
    gmtime_r(&today, &utc);
    EXPECT_EQ(28, set.tm_hour);
    EXPECT_EQ(utc.tm_mday, set.tm_mday);
    server.replyLength = 0;  // no answer: one 5-second wait
    EXPECT_EQ(-10, ctrl->execNtp());
}

TEST(NtpExchange, RealServerByAddressAndName) {
    krv_test::NtpServer chrony;
    ASSERT_TRUE(chrony.ok());
    writeFile("/etc/timezone", "Etc/UTC\n");
    for (const char* server : {"10.0.0.1", "ntp.panel.test"}) {
        auto ctrl = controller(server);
        time_t before = time(nullptr);
        ASSERT_EQ(0, ctrl->execNtp()) << server;
        expectSetTo(before, 0, 1);
    }
    unlink("/etc/timezone");
}

TEST(NtpWorker, TriggersPeriodAndPromptStop) {
    Responder server;
    sim::clearJournal();
    auto ctrl = controller("127.0.0.1", 1);
    auto syncs = [] { return sim::journal("rtc").size(); };
    auto settle = [] { usleep(600 * 1000); };  // three passes of the worker
    ASSERT_TRUE(sim::waitForJournal("rtc", 1, 10000)) << "no start-up synchronisation";
    settle();
    size_t count = syncs();
    ctrl->setNtpServer(1, "127.0.0.2");
    settle();
    EXPECT_EQ(count, syncs()) << "a server change alone must not synchronise";
    ctrl->setNtpFreq(3);
    EXPECT_TRUE(sim::waitForJournal("rtc", ++count, 10000)) << "period change";
    // The worker must see mode 0 before mode 1; on a loaded machine it may sleep through a
    // short toggle, so a toggle that went unseen is repeated a few times.
    bool entered = false;
    for (int attempt = 0; attempt < 5 && !entered; ++attempt) {
        ctrl->setNtpMode(0);
        settle();
        ctrl->setNtpMode(1);
        entered = sim::waitForJournal("rtc", count + 1, 3000);
    }
    EXPECT_TRUE(entered) << "automatic mode entered";
    ++count;
    settle();
    EXPECT_EQ(count, syncs());
    sim::advanceTicks(3 * 3600000LL);
    EXPECT_TRUE(sim::waitForJournal("rtc", ++count, 10000)) << "period elapsed";

    // A failing RTC keeps the worker retrying; the destructor ends that at once.
    sim::setRtcResult(-1);
    ctrl->setNtpFreq(4);
    EXPECT_TRUE(sim::waitForJournal("rtc", count + 2, 10000)) << "no retries";
    ctrl.reset();
    sim::setRtcResult(0);
}

}  // namespace
