// The panel misbehaving around the driver: /tmp full or read-only, other files planted at the lock
// names, configuration directories missing or read-only, and other processes holding the lock
// files. A watchdog turns a hang into a failure.
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include "Sandbox.h"
#include "host/Runtime.h"
#include "sim/SimPanel.h"

using namespace krv_test;

namespace {

// A fault made by a shell command, undone by another when it goes out of scope.
struct Fault {
    Fault(const std::string& make, const std::string& undo) : undo(undo) {
        EXPECT_EQ(run(make).status, 0) << make;
    }
    ~Fault() { run(undo); }
    std::string undo;
};

class Faults : public ::testing::Test {
protected:
    void SetUp() override {
        alarm(300);  // far beyond the longest wait, an NTP exchange with retries
        sim::reset();
        sim::setLogOutput("-", 0);
        resetFiles();
        ASSERT_TRUE(rt.ok()) << rt.error();
        ASSERT_EQ(rt.start(), 0);
    }
    void TearDown() override {
        EXPECT_EQ(rt.device().cleanup(), 0);
        alarm(0);
    }
    static void resetFiles() {
        writeFile(kAppCfg, "[DEVICE]\nbuzz_duration=250\n");
        writeFile(kVncCfg, "[VNCCONFIG]\npasswd=123456\n");
        writeFile(kNtpCfg,
                  "[NTP_PARAM]\nntp_switch=1\nntp_mode=0\nntp_freq=2\n"
                  "ntp_server1=10.0.0.1\nntp_server2=\nntp_server3=\nntp_server4=\n");
    }
    // "result/status" of a command whose status variable is St.
    std::string outcome(const std::string& command) {
        rt.database().defineInt("St", -1);
        const int result = rt.device().command(command);
        return std::to_string(result) + "/" +
               std::to_string(rt.database().variable("St")->intValue);
    }
    host::Runtime rt{KRV_DRIVER_PATH};
};

// /tmp full or read-only, or a FIFO (whose open used to wait for a writer), a directory or a
// link planted at a lock name: nothing blocks, and a lock file that cannot be had drops channel
// writes with 0, keeps the settings the refresh showed, fails the name-server probe, and leaves
// no descriptor open.
TEST_F(Faults, TmpFullReadOnlyOrLockNamesTaken) {
    NtpServer chrony;
    ASSERT_TRUE(chrony.ok());
    ASSERT_EQ(outcome("SetNTPServer(ntp.panel.test,,,)"), "0/-1");
    rt.database().defineChannels(std::vector<DATATYPE>(19, DATATYPE_DOUBLE));
    const std::string fill = " && (dd if=/dev/zero of=/tmp/fill bs=4k 2>/dev/null; true)";
    const std::string app = "/tmp/wexa_app_conf.lck", dns = "/tmp/dns_access_lock.lck";
    auto plant = [](const std::string& make, const std::string& lock) {
        return "rm -f " + lock + " && " + make + " " + lock;
    };
    writeFile("/sbx/fake_dmesg.txt", "[    0.000000] Booting Linux\n");
    const struct {
        std::string make;
        const char* stored;            // buzz_duration after a write of 4321
        double shown;                  // by the refresh once the file holds 77
        const char *execNtp, *sysLog;  // outcomes
    } cases[] = {
        {"true", "4321", 77, "0/0", "0/0"},
        {"mount -t tmpfs -o size=64k t /tmp" + fill, "4321", 77, "0/10", "3/-1"},
        {"mount -t tmpfs -o size=64k,nr_inodes=2 t /tmp" + fill, "250", 250, "0/10", "3/-1"},
        {"mount -t tmpfs -o ro t /tmp", "250", 250, "0/10", "3/-1"},
        {"mount -t tmpfs t /tmp && touch " + app + " && mount -o remount,ro t /tmp", "4321", 77,
         "0/10", "3/-1"},
        {plant("mkfifo", app), "250", 250, "0/0", "0/0"},
        {plant("mkdir", app), "250", 250, "0/0", "0/0"},
        {plant("ln -s /tmp/elsewhere", app), "250", 250, "0/0", "0/0"},
        {plant("mkfifo", dns), "4321", 77, "0/10", "0/0"},
        {plant("mkdir", dns), "4321", 77, "0/10", "0/0"},
        {plant("ln -s /tmp/elsewhere", dns), "4321", 77, "0/10", "0/0"},
    };
    int descriptors = -1;  // once the first case has opened what is opened once
    for (const auto& c : cases) {
        SCOPED_TRACE(c.make);
        resetFiles();
        rt.database().defineText("Txt", "old");
        ASSERT_EQ(rt.device().command("REFLESH()"), 0);
        rt.device().collect(std::vector<int>(19, 0));
        Fault fault(c.make,
                    c.make.rfind("mount", 0) == 0 ? "umount /tmp" : "rm -rf " + app + " " + dns);
        EXPECT_EQ(rt.device().writeInt(3, 4321), 0);
        EXPECT_EQ(iniValue(kAppCfg, "buzz_duration"), c.stored);
        writeFile(kAppCfg, "[DEVICE]\nbuzz_duration=77\n");
        rt.device().collect(std::vector<int>(19, 0));
        EXPECT_EQ(rt.database().channel(3)->doubleValue, c.shown);
        EXPECT_EQ(outcome("ExecNTP(St)"), c.execNtp);
        EXPECT_EQ(outcome("ReadSysLog(0,4,Txt,St)"), c.sysLog);
        descriptors = descriptors < 0 ? openDescriptors() : descriptors;
    }
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_FALSE(fileExists("/tmp/elsewhere"));  // a planted link made nothing
}

// A settings write that cannot be made safely writes nothing: a full file system never empties or
// cuts a file. A read-only directory whose file is writable takes the write in place where the
// panel's Qt does (Qt 5 refuses it).
TEST_F(Faults, ConfigurationDirectoriesMissingFullOrReadOnly) {
    const std::string ro = "mount --bind % % && mount -o remount,bind,ro %";
    const std::string full =
        "cp -a % /tmp/keep && mount -t tmpfs -o size=64k t % && cp -a "
        "/tmp/keep/. % && (dd if=/dev/zero of=%/fill bs=4k 2>/dev/null; true)";
    const std::string roDir =
        "mount --bind % % && mount --bind %/wexa_app_conf.ini "
        "%/wexa_app_conf.ini && mount -o remount,bind,ro %";
    const struct {
        std::string dir, make;
        const char *app, *vnc;  // stored after the writes
        bool ntpLands;
    } cases[] = {
        {"/usr/wexa_app/config", ro, "250", "abcdefgh", false},
        {"/usr/wexa_app/config", full, "250", "abcdefgh", false},
        {"/usr/wexa_app/config", roDir, kQtWritesInPlace ? "4321" : "250", "abcdefgh", false},
        {"/etc/iot_cfg", ro, "4321", "123456", true},
        {"/etc/iot_cfg", full, "4321", "123456", true},
        {"", "rm -r /usr/wexa_app/config", "4321", "abcdefgh", true},  // made again
        {"", "rm -r /etc/iot_cfg", "4321", "", true},  // the password file is never created
    };
    int freq = 3;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.make + " " + c.dir);
        resetFiles();
        std::string make = c.make;
        for (size_t at; (at = make.find('%')) != std::string::npos;)
            make.replace(at, 1, c.dir);
        Fault fault(make, c.dir.empty() ? "true" : "umount -R " + c.dir + "; rm -rf /tmp/keep");
        EXPECT_EQ(rt.device().writeInt(3, 4321), 0);
        EXPECT_EQ(outcome("SetNTPFreq(" + std::to_string(++freq) + ")"), "0/-1");
        EXPECT_EQ(outcome("ModVncPwd(abcdefgh)"), "0/-1");
        EXPECT_EQ(iniValue(kAppCfg, "buzz_duration"), c.app);
        EXPECT_EQ(iniValue(kNtpCfg, "ntp_freq"), c.ntpLands ? std::to_string(freq) : "2");
        EXPECT_EQ(iniValue(kVncCfg, "passwd"), c.vnc);
    }
}

// Every thread of this process but the calling one gets `signal`.
void signalOtherThreads(int signal) {
    DIR* tasks = opendir("/proc/self/task");
    while (const dirent* task = tasks ? readdir(tasks) : nullptr)
        if (atoi(task->d_name) > 0 && atoi(task->d_name) != gettid())
            syscall(SYS_tgkill, getpid(), atoi(task->d_name), signal);
    if (tasks)
        closedir(tasks);
}

// Another process holds a lock file for good. A command, or clean-up joining the worker (which
// synchronises by host name, so it reads the name servers under the resolver lock), waits in its
// blocking flock, as the kernel's lock list shows, without a time-out, also through signals that
// end the wait early (Qt 4's SIGCHLD handler has no SA_RESTART); it completes once the holder lets
// go.
TEST_F(Faults, LocksHeldByOtherProcessesAreWaitedForWithoutTimeOut) {
    struct sigaction caught = {}, before;
    caught.sa_sigaction = [](int, siginfo_t*, void*) {};
    caught.sa_flags = SA_NOCLDSTOP | SA_SIGINFO;
    NtpServer chrony;
    ASSERT_TRUE(chrony.ok());
    ASSERT_EQ(outcome("SetNTPServer(ntp.panel.test,,,)"), "0/-1");
    const char app[] = "/tmp/wexa_app_conf.lck", dns[] = "/tmp/dns_access_lock.lck";
    const struct {
        const char *lock, *command, *outcome;  // no outcome: clean-up follows the command
    } cases[] = {
        {app, "WEXA_WRITE(4=4321)", "0/-1"},
        {app, "WEXA_WRITE(7=1)", "0/-1"},  // the buzzer test reads
        {dns, "ExecNTP(St)", "0/0"},
        {dns, "SetNTPMode(1)", nullptr},  // the worker synchronises at once
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.command);
        int ready[2];
        ASSERT_EQ(pipe(ready), 0);
        const pid_t holder = fork();
        if (holder == 0) {
            flock(open(c.lock, O_RDONLY | O_CREAT, 0666), LOCK_EX);
            if (write(ready[1], "", 1) == 1)
                pause();
            _exit(0);
        }
        char byte;
        ASSERT_EQ(read(ready[0], &byte, 1), 1);
        close(ready[0]);
        close(ready[1]);
        struct stat st;
        ASSERT_EQ(stat(c.lock, &st), 0);
        // "-> FLOCK ... <pid> <major>:<minor>:<inode> ...": this process waits for the lock file.
        const std::string waiter = "grep -q -- '-> FLOCK .* " + std::to_string(getpid()) +
                                   " [^ ]*:" + std::to_string(st.st_ino) + " ' /proc/locks";
        auto waiting = [&] { return run(waiter).status == 0; };
        std::string got;
        std::atomic<bool> done{false};
        std::thread user([&] {
            got = outcome(c.command);
            while (!c.outcome && !waiting())
                usleep(10000);
            if (!c.outcome)
                rt.device().cleanup();
            done = true;
        });
        while (!waiting())  // the watchdog bounds this
            usleep(10000);
        ASSERT_EQ(sigaction(SIGCHLD, &caught, &before), 0);
        for (int i = 0; i < 20; ++i, usleep(100000))
            signalOtherThreads(SIGCHLD);
        EXPECT_FALSE(done);
        EXPECT_TRUE(waiting());
        sigaction(SIGCHLD, &before, nullptr);
        kill(holder, SIGKILL);
        waitpid(holder, nullptr, 0);
        user.join();
        EXPECT_EQ(got, c.outcome ? c.outcome : "0/-1");
    }
    EXPECT_EQ(iniValue(kAppCfg, "buzz_duration"), "4321");
}

}  // namespace
