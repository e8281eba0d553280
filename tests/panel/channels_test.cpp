// Channels as the runtime sees them: what CollectDevData pushes after a refresh, what a
// WriteChannel changes on the panel (files as another process reads them, interfaces, GUI
// and buzzer calls), and the NTP controls that share the write path.

#include <gtest/gtest.h>

#include "Sandbox.h"
#include "host/Runtime.h"
#include "sim/SimPanel.h"

using namespace krv_test;

namespace {

// The driver's element n is the runtime's channel n - 1.
int rc(int element) {
    return element - 1;
}

// "key=value\n" as the file holding `key` stores it; for an interface name its address.
std::string stored(const std::string& key) {
    if (key.rfind("eth", 0) == 0)
        return key + "=" + run("ip -4 -o addr show dev " + key + " | awk '{print $4}'").out;
    const char* file = key.rfind("ntp_", 0) == 0 ? kNtpCfg : key == "passwd" ? kVncCfg : kAppCfg;
    return run("grep ^" + key + "= " + file).out;
}

// What the panel was asked to do, oldest first: HAL, GUI and buzzer calls, waits, syncs, and
// which settings file changed ("app", "ntp", "vnc").
std::string sideEffects() {
    std::string out;
    for (const sim::JournalEntry& e : sim::journal()) {
        if (e.kind == "log")
            continue;
        out += e.text == kAppCfg   ? "app"
               : e.text == kNtpCfg ? "ntp"
               : e.text == kVncCfg ? "vnc"
                                   : e.text;
        out += ";";
    }
    return out;
}

class Channels : public ::testing::Test {
protected:
    void SetUp() override {
        resetPanel();
        ASSERT_TRUE(rt.ok()) << rt.error();
        ASSERT_EQ(rt.start(), 0);
        std::vector<DATATYPE> types(19, DATATYPE_DOUBLE);
        for (int e : {1, 2, 8, 9, 15, 16, 17, 18, 19})
            types[rc(e)] = DATATYPE_STRING;
        for (int e : {3, 5, 10, 12, 13, 14})
            types[rc(e)] = DATATYPE_INT;
        rt.database().defineChannels(types);
    }
    void TearDown() override {
        rt.device().cleanup();
        // A test stopped half-way may have left /tmp read-only.
        run("touch /tmp || umount /tmp");
    }
    static void resetPanel() {
        sim::reset();
        sim::setLogOutput("-", 0);
        removeInterface("eth1");
        removeInterface("eth2");
        run("ip addr flush dev eth0 && ip addr add 10.0.0.2/24 dev eth0 && "
            "ip route replace default via 10.0.0.1");
        writeFile(kAppCfg,
                  "[DEVICE]\nbuzz_duration=250\nbacklight_status=1\n"
                  "backlight_duration=60000\n");
        writeFile(kVncCfg, "[VNCCONFIG]\npasswd=123456\n");
        writeFile(kNtpCfg,
                  "[NTP_PARAM]\nntp_switch=0\nntp_mode=1\nntp_freq=2\n"
                  "ntp_server1=ntp.panel.test\nntp_server2=b\nntp_server3=c\n"
                  "ntp_server4=d\n");
        sim::watchFiles({kAppCfg, kNtpCfg, kVncCfg});
    }

    // Flags 0: only a refresh pushes anything.
    int poll(int count = 19) { return rt.device().collect(std::vector<int>(count, 0)); }
    // Asks for a refresh, then polls.
    void refresh(int count = 19) {
        ASSERT_EQ(rt.device().command("REFLESH()"), 0);
        poll(count);
    }
    std::string pushed(int element) { return rt.database().channel(rc(element))->toString(); }
    // Pushed values of several elements, joined by blanks.
    std::string shown(std::initializer_list<int> elements) {
        std::string out;
        for (int e : elements)
            out += (out.empty() ? "" : " ") + pushed(e);
        return out;
    }
    int pushes(int element) { return rt.database().channel(rc(element))->pushes; }
    int write(int element, DATATYPE type, const std::string& value) {
        host::Device& dev = rt.device();
        return type == DATATYPE_INT      ? dev.writeInt(rc(element), std::stoi(value))
               : type == DATATYPE_DOUBLE ? dev.writeDouble(rc(element), std::stod(value))
                                         : dev.writeText(rc(element), value);
    }

    host::Runtime rt{KRV_DRIVER_PATH};
};

TEST_F(Channels, FullCycleRefreshesPushesWritesAndRefreshesAgain) {
    {
        // A load of 0.99 since boot reaches the integer channel truncated.
        BoundFile stat("/proc/stat", "cpu  99 0 0 1 0 0 0 0 0 0\n");
        ASSERT_TRUE(stat.ok());
        poll();
    }
    EXPECT_EQ(shown({1, 2, 3, 4, 5, 6, 8, 9, 10, 12, 13, 14, 15, 18, 19}),
              "10.0.0.2 255.255.255.0 1 250 1 60   0 0 1 2 ntp.panel.test d 123456");
    EXPECT_GT(rt.database().channel(rc(11))->doubleValue, 0.0);
    for (int element = 1; element <= 19; ++element)
        EXPECT_EQ(pushes(element), 1) << element;

    // Without a write or a refresh request the cache is served, even to flags asking for
    // pushes: a change made by another process is not seen yet.
    writeFile(kAppCfg, "[DEVICE]\nbuzz_duration=0\n");
    poll();
    EXPECT_EQ(rt.device().collect(std::vector<int>(19, 3)), 0);
    EXPECT_EQ(pushed(4), "250");

    EXPECT_EQ(rt.device().writeInt(rc(5), 0), 0);
    poll();
    EXPECT_EQ(shown({3, 4, 5}), "0 0 0");
    EXPECT_EQ(pushes(5), 3);
}

// Every writable channel, accepted and refused: the result, the setting as stored, what the
// panel was asked to do in which order (a settings file written, then synced, and only then the
// GUI told to reread it), and what the next poll pushes.
TEST_F(Channels, EveryWritableChannelAcceptedAndRefused) {
    const std::string kBuzz = "app;sync();__gui_get_buzzing_time(1);__gui_get_buzzing_time(0);";
    const DATATYPE I = DATATYPE_INT, D = DATATYPE_DOUBLE, S = DATATYPE_STRING;
    const std::string umlauts = "p\xc3\xa4sw\xc3\xb6rt";  // UTF-8 bytes, taken one by one
    const struct {
        int element;
        DATATYPE type;
        std::string value;
        int result;
        const char* key;  // the panel state that changes (see stored()), null: not checked
        std::string seen;
        std::string effects;
        const char* after;  // pushed by the next poll, null: not checked
    } cases[] = {
        {1, S, "10.0.0.7", 0, "eth0", "10.0.0.7/24",
         "hal_set_ip_addr(eth0,10.0.0.7,255.255.255.0);", "10.0.0.7"},
        {1, S, "224.0.0.1", 4, "eth0", "10.0.0.7/24", "", "10.0.0.7"},  // a mask, no address
        {2, S, "255.255.0.0", 0, "eth0", "10.0.0.7/16",
         "hal_set_ip_addr(eth0,10.0.0.7,255.255.0.0);", "255.255.0.0"},
        {2, S, "10.0.0.1", 4, "eth0", "10.0.0.7/16", "", "255.255.0.0"},
        {8, S, "10.0.1.9", 0, "eth1", "10.0.1.9/24",
         "hal_set_ip_addr(eth1,10.0.1.9,255.255.255.0);", "10.0.1.9"},
        {8, S, "255.255.255.0", 4, "eth1", "10.0.1.9/24", "", "10.0.1.9"},
        {9, S, "255.255.0.0", 0, "eth1", "10.0.1.9/16",
         "hal_set_ip_addr(eth1,10.0.1.9,255.255.0.0);", "255.255.0.0"},
        {9, S, "10.0.1.1", 4, "eth1", "10.0.1.9/16", "", "255.255.0.0"},
        {3, I, "1", 0, "buzz_duration", "30", kBuzz, "1"},
        {3, I, "0", 0, "buzz_duration", "0", kBuzz, "0"},
        {3, I, "2", 4, "buzz_duration", "0", "", "0"},
        {4, D, "250", 0, "buzz_duration", "250", kBuzz, "250"},
        {7, I, "40", 0, "buzz_duration", "250", "usleep(250000);Wexa_Beep(900,40);", "0"},
        {7, I, "-1", 4, "buzz_duration", "250", "", "0"},
        {4, D, "6500", 0, "buzz_duration", "6500", kBuzz, "6500"},
        {4, D, "6501", 4, "buzz_duration", "6500", "", "6500"},
        {4, D, "-1", 4, "buzz_duration", "6500", "", "6500"},
        {5, I, "0", 0, "backlight_status", "0",
         "app;sync();__gui_get_lcdlight_status(1);__gui_reset_lcdlight_timer();", "0"},
        {5, I, "2", 4, "backlight_status", "0", "", "0"},
        {5, I, "-1", 4, "backlight_status", "0", "", "0"},
        {6, D, "15", 0, "backlight_duration", "15000",
         "app;sync();__gui_get_lcdlight_time(1);__gui_reset_lcdlight_timer();", "15"},
        {6, D, "14", 4, "backlight_duration", "15000", "", "15"},
        {6, D, "1801", 4, "backlight_duration", "15000", "", "15"},
        {10, D, "1", 1, nullptr, "", "", nullptr},  // read-only
        {11, D, "1", 1, nullptr, "", "", nullptr},
        // The runtime's double write formats "1.000000", which is no plain integer: 0.
        {13, D, "1", 0, "ntp_mode", "0", "ntp;sync();", "0"},
        {13, I, "-1", 4, "ntp_mode", "0", "", "0"},
        {12, I, "1", 0, "ntp_switch", "1", "ntp;sync();", "1"},  // manual: the worker stays quiet
        {12, I, "2", 4, "ntp_switch", "1", "", "1"},
        {14, I, "5", 0, "ntp_freq", "5", "ntp;sync();", "5"},
        {14, I, "25", 4, "ntp_freq", "5", "", "5"},
        {16, S, "10.0.0.1", 0, "ntp_server2", "10.0.0.1", "ntp;sync();", "10.0.0.1"},
        {17, S, "zeit-" + umlauts, 0, nullptr, "", "ntp;sync();", "zeit-p\xc3\xa4sw\xc3\xb6rt"},
        {19, S, "abcdef12", 0, "passwd", "abcdef12", "vnc;sync();", "abcdef12"},
        {19, S, "abc", 4, "passwd", "abcdef12", "", "abcdef12"},
        // Latin-1 characters, as the remote-view server reads the file with the default codec.
        {19, S, umlauts, 0, "passwd", "p\\xc3\\xa4sw\\xc3\\xb6rt", "vnc;sync();", umlauts.c_str()},
        {19, S, "secret)Tail99", 0, "passwd", "secret", "vnc;sync();", "secret"},  // ")" ends it
        {19, S, "", 0, "passwd", "", "vnc;sync();", ""},  // clears the password
        // Checked as decimal, applied by inet_addr: a leading 0 is octal, and what inet_addr
        // cannot read (a 9 in an octal part, trailing text) becomes 255.255.255.255.
        {1, S, "10.0.0.010", 0, "eth0", "10.0.0.8/16",
         "hal_set_ip_addr(eth0,10.0.0.8,255.255.0.0);", "10.0.0.8"},
        {2, S, "255.255.255.0abc", 0, "eth0", "10.0.0.8/32",
         "hal_set_ip_addr(eth0,10.0.0.8,255.255.255.255);", "255.255.255.255"},
        {1, S, "10.0.0.09", 0, "eth0", "255.255.255.255/32",
         "hal_set_ip_addr(eth0,255.255.255.255,255.255.255.255);", "255.255.255.255"},
    };
    ASSERT_TRUE(addInterface("eth1", "10.0.1.2/24", "10.0.1.1/24"));
    poll();
    for (const auto& c : cases) {
        const std::string label = std::to_string(c.element) + "=" + c.value;
        sim::clearJournal();
        EXPECT_EQ(write(c.element, c.type, c.value), c.result) << label;
        if (c.key) {
            EXPECT_EQ(stored(c.key), c.key + ("=" + c.seen) + "\n") << label;
        }
        EXPECT_EQ(sideEffects(), c.effects) << label;
        const int before = pushes(c.element);
        poll();
        EXPECT_EQ(pushes(c.element), before + 1) << label;
        if (c.after) {
            EXPECT_EQ(pushed(c.element), c.after) << label;
        }
    }
    // Refused before anything is done: no "=", an interface list the HAL cannot give, an address
    // the HAL refuses; channel 0 and unknown channels are accepted and ignored.
    sim::clearJournal();
    EXPECT_EQ(rt.device().command("WEXA_WRITE(5)"), 1);
    EXPECT_EQ(rt.device().command("WEXA_WRITE(0=5)") + rt.device().command("WEXA_WRITE(25=1)"), 0);
    sim::setNetworkResult(-1);
    EXPECT_EQ(rt.device().command("WEXA_WRITE(1=10.0.0.9)"), 6);
    sim::setNetworkResult(0);
    sim::setIpAddrResult(-1);
    EXPECT_EQ(rt.device().command("WEXA_WRITE(9=255.0.0.0)"), 7);
    EXPECT_EQ(sideEffects(), "hal_set_ip_addr(eth1,10.0.1.9,255.0.0.0);");
    EXPECT_EQ(stored("eth1"), "eth1=10.0.1.9/16\n");
    sim::setIpAddrResult(0);
    // Values of the same length, written within the same second several times in a row: each
    // is seen by the next refresh (Qt 4 keeps a parsed file until its size or second changes).
    for (int round = 0; round < 6; ++round) {
        const std::string bit = std::to_string(round % 2);
        for (const auto& c :
             {std::make_pair(5, bit), std::make_pair(6, "1" + bit + "0"),
              std::make_pair(4, "64" + bit + "0"), std::make_pair(19, "pw1234" + bit)}) {
            EXPECT_EQ(write(c.first, DATATYPE_STRING, c.second), 0) << round;
            poll();
            EXPECT_EQ(pushed(c.first), c.second) << round;
        }
    }
}

// The lock file cannot be created: /tmp is read-only.
TEST_F(Channels, WithoutTheLockFileWritesAreDroppedAndOnlyTheNetworkRefreshes) {
    refresh();
    // Changes by other parts of the panel that a refresh would show.
    writeFile(kAppCfg, "[DEVICE]\nbuzz_duration=0\nbacklight_duration=90000\n");
    writeFile(kVncCfg, "[VNCCONFIG]\npasswd=654321\n");
    ASSERT_TRUE(addInterface("eth1", "10.0.1.2/24", "10.0.1.1/24"));
    ASSERT_EQ(run("rm -f /tmp/wexa_app_conf.lck && mount --bind /tmp /tmp && "
                  "mount -o remount,bind,ro /tmp")
                  .status,
              0);
    sim::clearJournal();
    for (const char* write : {"1=10.0.0.9", "3=1", "4=100", "5=0", "6=20", "7=5", "8=10.0.1.9",
                              "10=1", "12=1", "14=5", "15=x", "19=abcdefgh", "3=2"}) {
        EXPECT_EQ(rt.device().command(std::string("WEXA_WRITE(") + write + ")"), 0) << write;
    }
    EXPECT_EQ(sideEffects(), "");
    poll();
    EXPECT_EQ(shown({8, 9}), "10.0.1.2 255.255.255.0");
    EXPECT_EQ(shown({4, 6, 19}), "250 60 123456");
}

TEST_F(Channels, NetworkChannelsFollowTheInterfaceCount) {
    poll();
    EXPECT_EQ(write(8, DATATYPE_STRING, "10.0.0.9") + write(9, DATATYPE_STRING, "255.0.0.0"), 16);
    // Three interfaces: the address channels keep what they showed.
    ASSERT_TRUE(addInterface("eth1", "10.0.1.2/16", "10.0.1.1/16"));
    refresh();
    ASSERT_TRUE(addInterface("eth2", "10.0.2.2/24", "10.0.2.1/24"));
    run("ip addr flush dev eth1 && ip addr add 10.0.1.5/24 dev eth1");
    const struct {
        const char* step;
        const char* shown;  // elements 1, 2, 8, 9
    } steps[] = {
        {"", "10.0.0.2 255.255.255.0 10.0.1.2 255.255.0.0"},
        {"ip link del eth2", "10.0.0.2 255.255.255.0 10.0.1.5 255.255.255.0"},
        {"ip link del eth1", "10.0.0.2 255.255.255.0  "},
    };
    for (const auto& s : steps) {
        run(s.step);
        refresh();
        EXPECT_EQ(shown({1, 2, 8, 9}), s.shown) << s.step;
    }

    // A HAL that cannot list the interfaces leaves them alone; the rest still refreshes.
    run("ip addr flush dev eth0 && ip addr add 10.0.0.3/24 dev eth0");
    writeFile(kAppCfg, "[DEVICE]\nbuzz_duration=77\n");
    sim::setNetworkResult(-1);
    refresh();
    EXPECT_EQ(shown({1, 4}), "10.0.0.2 77");
}

TEST_F(Channels, StoredSettingsAsTheRefreshReadsThem) {
    const struct {
        const char* stored;  // section DEVICE; null: no file at all
        const char* shown;   // elements 3, 4, 5, 6
    } cases[] = {
        {"buzz_duration=false\nbacklight_status=TRUE\nbacklight_duration=1999", "0 0 1 1"},
        {"buzz_duration=6500\nbacklight_status=false\nbacklight_duration=-1500", "1 6500 0 -1"},
        // A missing key reads as the empty text; only the switch then keeps its value.
        {"backlight_status=true", "0 0 1 0"},
        {"buzz_duration=12ms\nbacklight_status=0\nbacklight_duration=x", "0 0 0 0"},
        {"buzz_duration=-30\nbacklight_status=1\nbacklight_duration=15000", "1 -30 1 15"},
        {nullptr, "0 0 1 0"},
    };
    poll();
    for (const auto& c : cases) {
        if (c.stored)
            writeFile(kAppCfg, std::string("[DEVICE]\n") + c.stored + "\n");
        else
            removeFile(kAppCfg);
        refresh();
        EXPECT_EQ(shown({3, 4, 5, 6}), c.shown) << (c.stored ? c.stored : "no file");
    }
    // The buzzer test waits 30 ms when the stored duration is out of range, negative included.
    for (const char* stored : {"6501", "-30"}) {
        writeFile(kAppCfg, std::string("[DEVICE]\nbuzz_duration=") + stored + "\n");
        sim::clearJournal();
        EXPECT_EQ(write(7, DATATYPE_INT, "1"), 0);
        EXPECT_EQ(sideEffects(), "usleep(30000);Wexa_Beep(900,1);") << stored;
    }
    // The password from /etc/iot_cfg, else from the configuration directory, else empty.
    const char* const fallback = "/usr/wexa_app/config/vncConfig.ini";
    removeFile(kVncCfg);
    writeFile(fallback, "[VNCCONFIG]\npasswd=fallback\n");
    refresh();
    EXPECT_EQ(pushed(19), "fallback");
    removeFile(fallback);
    refresh();
    EXPECT_EQ(pushed(19), "");
}

TEST_F(Channels, NtpControlsAndPlainIntegerChannels) {
    rt.database().defineInt("N", 7);
    rt.database().defineText("Txt", "3");
    const struct {
        const char* command;
        int result;
        int status;        // of St; -1: untouched
        const char* file;  // the key as the NTP settings file holds it afterwards
    } cases[] = {
        {"EnableNTP(5)", 0, -1, "ntp_switch=0"},
        {"EnableNTP(5,St)", 0, 4, "ntp_switch=0"},
        {"SetNTPFreq(a,b,c)", 5, -1, "ntp_freq=2"},
        {"SetNTPFreq(Txt,St)", 4, 4, "ntp_freq=2"},
        {"SetNTPFreq(N,St)", 0, 0, "ntp_freq=7"},
        {"SetNTPMode(0)", 0, -1, "ntp_mode=0"},
        {"EnableNTP(1,St)", 0, 0, "ntp_switch=1"},
        {"WEXA_WRITE(14= 12 )", 0, -1, "ntp_freq=12"},
        {"WEXA_WRITE(14=3.9)", 4, -1, "ntp_freq=12"},
        {"WEXA_WRITE(15=)", 0, -1, "ntp_server1="},
        {"WEXA_WRITE( 5.9 = 0 )", 0, -1, "ntp_switch=1"},
    };
    for (const auto& c : cases) {
        rt.database().defineInt("St", -1);
        EXPECT_EQ(rt.device().command(c.command), c.result) << c.command;
        EXPECT_EQ(rt.database().variable("St")->intValue, c.status) << c.command;
        const std::string file = c.file;
        EXPECT_EQ(stored(file.substr(0, file.find('='))), file + "\n") << c.command;
    }
    // The last write went to element 5: the channel number is truncated, not rounded.
    EXPECT_EQ(stored("backlight_status"), "backlight_status=0\n");
}

}  // namespace
