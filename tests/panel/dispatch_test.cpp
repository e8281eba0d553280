// Text commands as a project sends them, through the runtime host and the loaded driver.
#include <dlfcn.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Sandbox.h"
#include "host/Runtime.h"
#include "sim/SimPanel.h"

namespace {
class Dispatch : public ::testing::Test {
protected:
    void SetUp() override {
        if (getenv("KRV_REBOOT_CHILD"))
            GTEST_SKIP();
        sim::reset();
        ASSERT_TRUE(rt.ok()) << rt.error();
        ASSERT_EQ(rt.start(), 0);
        rt.database().defineText("Txt", "abcdef");
    }
    host::Runtime rt{KRV_DRIVER_PATH};
};
}  // namespace

TEST_F(Dispatch, KeywordsAndResultCodesAsUsersTypeThem) {
    const struct {
        const char* command;
        int result;
        int status;       // of variable St, -1: untouched
        const char* hal;  // last backlight or restart call, "": none
    } cases[] = {
        {"backlightoff()", 0, -1, "hal_set_lcd_status(1)"},
        {"  BacklightOn  (x)", 0, -1, "hal_set_lcd_status(0)"},
        {"BACKLIGHTOFF", 0, -1, ""},
        {"BACKLIGHTOFF(", 0, -1, ""},
        {"BACKLIGHTOFF)(", 5, -1, ""},  // keyword "BACKLIGHTOFF)": the operation manager answers
        {"ModVncPwd(a,b,c)", 5, -1, ""},
        {"ModVncPwd(abc,St)", 4, 4, ""},       // password of bad length
        {"ModVncPwd(Txt,St)", 0, 0, ""},       // read through a text variable
        {"ModVncPwd(St)", 4, -1, ""},          // a numeric variable gives no text
        {"ModVncPwd(abcdef,Txt)", 4, -1, ""},  // a text variable takes no status
        {"SetNTPServer(a,b,c)", 5, -1, ""},
        {"SetNTPServer(a,b,c,d,St,x)", 5, -1, ""},
        {"SetNTPServer(St,b,c,d,St)", 4, 4, ""},
        {"SetNTPServer(a,b,c,d,St)", 0, 0, ""},
        {"ExecNTP(Txt)", 4, -1, ""},
        // A synchronisation's outcome (no servers: 10) reaches only the status variable.
        {"SetNTPMode(0)", 0, -1, ""},  // manual: the worker stays quiet
        {"SetNTPServer(,,,)", 0, -1, ""},
        {"EnableNTP(1)", 0, -1, ""},
        {"ExecNTP(St)", 0, 10, ""},
        {"ExecNTP()", 0, -1, ""},
        {"EnableNTP(0)", 0, -1, ""},
        // A status variable that cannot be written fails every command that names one.
        {"EnableNTP(0,Txt)", 4, -1, ""},
        {"SetNTPMode(0,Txt)", 4, -1, ""},
        {"SetNTPFreq(25,Txt)", 4, -1, ""},
        {"SetNTPServer(,,,,Txt)", 4, -1, ""},
        {"READ(x)", 0, -1, ""},  // no handler of its own: the operation manager's
        {"GetHiddenPro(x)", 0, -1, ""},
        {"REBOOT(now)", 0, -1, "reboot(0x1234567)"},  // journaled by the simulated runtime
        {"reflesh()", 0, -1, ""},
    };
    ASSERT_TRUE(sim::rebootIsInterposed());
    std::string managed;  // the texts the operation manager received
    for (const auto& c : cases) {
        sim::clearJournal();
        rt.database().defineInt("St", -1);
        EXPECT_EQ(rt.device().command(c.command), c.result) << c.command;
        EXPECT_EQ(rt.database().variable("St")->intValue, c.status) << c.command;
        std::string hal;
        for (const sim::JournalEntry& e : sim::journal())
            hal = e.kind == "lcd" || e.kind == "reboot" ? e.text : hal;
        EXPECT_EQ(hal, c.hal) << c.command;
        for (const sim::LogRecord& r : sim::logRecords())
            managed += r.title == "DevOpear begin" ? r.message + ";" : "";
    }
    EXPECT_EQ(managed, "strCmd = BACKLIGHTOFF)(;strCmd = READ(x);strCmd = GetHiddenPro(x);");
    const sim::LogRecord r = sim::logRecords().back();
    EXPECT_EQ(r.function + "|" + r.file + "|" + std::to_string(r.line) + "|" +
                  std::to_string(r.level) + "|" + r.title + "|" + r.message,
              "mfDevIOCtrl|device/krv_ctrl/DevBas|544|4|mfDevIOCtrl begin|strOrder = REFLESH");
    sim::setLcdResult(-1);
    EXPECT_EQ(rt.device().command("BACKLIGHTON()"), 9);
    EXPECT_EQ(rt.device().command("BACKLIGHTOFF()"), 9);
}

TEST_F(Dispatch, NtpServersAreWrittenOnlyWhenOneChanges) {
    ASSERT_EQ(rt.device().command("SetNTPServer(a,b,c,d)"), 0);
    sim::watchFiles({krv_test::kNtpCfg});
    for (const char* servers : {" a,b , c,d", "a,b,c,e"}) {  // the same four, then the fourth new
        sim::clearJournal();
        EXPECT_EQ(rt.device().command(std::string("SetNTPServer(") + servers + ")"), 0);
        EXPECT_EQ(sim::journal("file").size(), servers[0] == 'a' ? 1u : 0u) << servers;
    }
    EXPECT_EQ(krv_test::iniValue(krv_test::kNtpCfg, "ntp_server4"), "e");
}

// The driver unmodified, with the C library's reboot (preloaded ahead of the simulated
// runtime): only ever as init of a nested pid namespace inside the sandbox, where the kernel
// answers the restart with SIGHUP to that init.
TEST(RebootUnmodified, EndsNestedPidNamespace) {
    ASSERT_TRUE(krv_test::inSandbox());  // never outside it
    if (getenv("KRV_REBOOT_CHILD")) {
        if (getpid() != 1 || sim::rebootIsInterposed())
            _exit(3);
        host::Runtime rt{KRV_DRIVER_PATH};
        if (!rt.ok() || rt.start() != 0)
            _exit(4);
        rt.device().command("REBOOT()");
        _exit(5);  // the restart returned
    }
    Dl_info libc{};
    ASSERT_NE(dladdr(reinterpret_cast<void*>(&::getpid), &libc), 0);
    const std::string preload = std::string("LD_PRELOAD=") + libc.dli_fname;
    // In a sanitizer build the preloaded C library comes ahead of the sanitizer runtime, which
    // then refuses to start; the child needs no checking on its way to reboot().
    const char* asan = getenv("ASAN_OPTIONS");
    const std::string asanOptions =
        std::string("ASAN_OPTIONS=") + (asan ? asan : "") + ":verify_asan_link_order=0";
    char self[4096] = {};
    ASSERT_GT(readlink("/proc/self/exe", self, sizeof self - 1), 0);
    // Under a cross build the copy runs through the emulator, which takes the environment
    // with -E (through env, the preload would reach the emulator itself).
    std::vector<std::string> words = {"unshare", "--pid", "--fork"};
    std::istringstream emulator(KRV_TEST_EMULATOR);
    for (std::string word; emulator >> word;)
        words.push_back(word);
    const bool emulated = words.size() > 3;
    if (!emulated)
        words.push_back("env");
    for (const std::string& env : {preload, asanOptions, std::string("KRV_REBOOT_CHILD=1")}) {
        if (emulated)
            words.push_back("-E");
        words.push_back(env);
    }
    words.insert(words.end(), {self, "--gtest_filter=RebootUnmodified.*"});
    std::vector<char*> argv;
    for (std::string& w : words)
        argv.push_back(&w[0]);
    argv.push_back(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        execvp(argv[0], argv.data());
        _exit(127);
    }
    int ws = 0;
    ASSERT_EQ(waitpid(pid, &ws, 0), pid);
    EXPECT_EQ(WIFSIGNALED(ws) ? 128 + WTERMSIG(ws) : WEXITSTATUS(ws), 128 + SIGHUP);
}
