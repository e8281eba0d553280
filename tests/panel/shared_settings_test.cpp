// The settings files are shared with the panel GUI, which reads and writes them with its own
// QSettings (of the same Qt) and keeps its parsed copy between reads. Each round packs a
// change from each side into one second (Qt 4 compares modification times in whole seconds);
// the GUI's own change also keeps the file's modification time, as any change does that lands
// within the time step of the driver's last access.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <QSettings>
#include <QString>
#include <cstdio>
#include <cstring>
#include <memory>

#include <gtest/gtest.h>

#include "Sandbox.h"
#include "host/Runtime.h"
#include "sim/SimPanel.h"

using namespace krv_test;

namespace {

// The GUI stand-in: a child process serving "r FILE KEY" (prints the value) and
// "w FILE KEY VALUE" (writes it, then puts the modification time back), answering each with the
// key's value.
void serveSettings(FILE* in, FILE* out) {
    char op, file[256], key[256], value[256] = "";
    while (std::fscanf(in, " %c %255s %255s", &op, file, key) == 3) {
        if (op == 'w' && std::fscanf(in, " %255s", value) != 1)
            break;
        struct stat before;
        const bool stamped = ::stat(file, &before) == 0;
        {
            QSettings settings(QString::fromUtf8(file), QSettings::IniFormat);
            if (op == 'w')
                settings.setValue(QString::fromUtf8(key), QString::fromUtf8(value));
            std::fprintf(out, "%s\n",
                         settings.value(QString::fromUtf8(key)).toString().toUtf8().constData());
        }
        const struct timespec times[2] = {{0, UTIME_OMIT}, before.st_mtim};
        if (op == 'w' && stamped)
            ::utimensat(AT_FDCWD, file, times, 0);
        std::fflush(out);
    }
}

class SharedSettings : public ::testing::Test {
protected:
    void SetUp() override {
        sim::reset();
        sim::setLogOutput("-", 0);
        writeFile(kAppCfg,
                  "[DEVICE]\nbuzz_duration=250\nbacklight_status=1\n"
                  "backlight_duration=60000\n");
        writeFile(kVncCfg, "[VNCCONFIG]\npasswd=123456\n");
        // Forked before the driver touches a file, so the GUI's Qt starts with nothing parsed.
        int toGui[2], fromGui[2];
        ASSERT_TRUE(pipe(toGui) == 0 && pipe(fromGui) == 0);
        std::fflush(nullptr);
        gui_ = fork();
        if (gui_ == 0) {
            ::close(toGui[1]);
            ::close(fromGui[0]);
            serveSettings(fdopen(toGui[0], "r"), fdopen(fromGui[1], "w"));
            _exit(0);
        }
        ::close(toGui[0]);
        ::close(fromGui[1]);
        toGui_ = fdopen(toGui[1], "w");
        fromGui_ = fdopen(fromGui[0], "r");
        rt_.reset(new host::Runtime(KRV_DRIVER_PATH));
        ASSERT_TRUE(rt_->ok());
        ASSERT_EQ(rt_->start(), 0);
        std::vector<DATATYPE> types(19, DATATYPE_DOUBLE);
        types[18] = DATATYPE_STRING;
        rt_->database().defineChannels(types);
    }
    void TearDown() override {
        rt_.reset();
        std::fclose(toGui_);
        int status;
        waitpid(gui_, &status, 0);
        std::fclose(fromGui_);
    }

    std::string gui(const std::string& request) {
        char line[256] = "";
        std::fprintf(toGui_, "%s\n", request.c_str());
        std::fflush(toGui_);
        if (std::fgets(line, sizeof line, fromGui_))
            line[std::strcspn(line, "\n")] = '\0';
        return line;
    }
    // What the driver's next refresh pushes for element `element` (channel element - 1).
    std::string refreshed(int element) {
        EXPECT_EQ(rt_->device().command("REFLESH()"), 0);
        rt_->device().collect(std::vector<int>(19, 0));
        return rt_->database().channel(element - 1)->toString();
    }

    pid_t gui_ = -1;
    FILE *toGui_ = nullptr, *fromGui_ = nullptr;
    std::unique_ptr<host::Runtime> rt_;
};

// Waits for the start of the next second of the file system's clock.
void startOfSecond() {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    usleep(static_cast<useconds_t>((1000000000L - now.tv_nsec) / 1000 + 5000));
}

TEST_F(SharedSettings, ChangesOfEitherSideAreSeenByTheOtherWithinOneSecond) {
    const std::string app = std::string(" ") + kAppCfg, vnc = std::string(" ") + kVncCfg;
    // Both files were written in this second, and both sides have parsed them since.
    auto touchedAndParsed = [&] {
        ASSERT_EQ(run(std::string("touch") + app + vnc).status, 0);
        ASSERT_EQ(gui("r" + app + " DEVICE/backlight_duration").size(), 5u);
        ASSERT_EQ(gui("r" + vnc + " VNCCONFIG/passwd").size(), 6u);
        refreshed(4);
    };
    for (int round = 0; round < 6; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        const std::string digit = std::to_string(round % 2 + 1);
        startOfSecond();
        touchedAndParsed();
        // The GUI changes a setting; the driver's refresh shows it, and its write of another key
        // of the same file keeps it.
        gui("w" + app + " DEVICE/buzz_duration 2" + digit + "0");
        gui("w" + vnc + " VNCCONFIG/passwd 65432" + digit);
        EXPECT_EQ(refreshed(4), "2" + digit + "0");
        EXPECT_EQ(refreshed(19), "65432" + digit);
        // The GUI's next read shows the driver's writes.
        touchedAndParsed();
        EXPECT_EQ(rt_->device().writeText(5, "6" + digit), 0);
        EXPECT_EQ(rt_->device().writeText(18, "abcde" + digit), 0);
        EXPECT_EQ(gui("r" + app + " DEVICE/backlight_duration"), "6" + digit + "000");
        EXPECT_EQ(gui("r" + vnc + " VNCCONFIG/passwd"), "abcde" + digit);
        EXPECT_EQ(gui("r" + app + " DEVICE/buzz_duration"), "2" + digit + "0");
    }
    // However far ahead of the clock the file's time was left, a write moves it on.
    const long ahead = static_cast<long>(time(nullptr)) + 1000;
    ASSERT_EQ(run("touch -d @" + std::to_string(ahead) + app).status, 0);
    EXPECT_EQ(rt_->device().writeText(5, "99"), 0);
    EXPECT_EQ(readFile(std::string(kAppCfg) + ".krvcopy"), "");  // a complete write empties it
    EXPECT_EQ(run("find" + app + " -newermt @" + std::to_string(ahead)).out, app.substr(1) + "\n");
}

// What a killed write leaves beside a file is taken over by the next access: a damaged file gets
// the copy back (same inode and mode), a complete one is kept; the copy is emptied either way.
// Anything but a regular file at the copy's name is left alone.
TEST_F(SharedSettings, CopiesLeftByAKilledWriteAreTakenOverByTheNextAccess) {
    const std::string copy = std::string(kAppCfg) + ".krvcopy";
    const std::string old =
        "[DEVICE]\nbuzz_duration=250\nbacklight_status=1\n"
        "backlight_duration=60000\n";
    const std::string complete =
        "[DEVICE]\nbacklight_duration=60000\nbacklight_status=1\n"
        "buzz_duration=400\n";
    const struct {
        std::string file, make, after, shown;
    } cases[] = {
        {"", "", old, "250"},
        {"[DEVICE]\nbuzz_duration=400\nbackl", "", old, "250"},
        {"[DEVICE]\nbuzz_duration=400\n", "", old, "250"},
        {std::string("[DEVICE]\nbuzz_duration=400\n\0\0\0", 30), "", old, "250"},
        {complete, "", complete, "400"},
        {"", "rm " + copy + " && ln -s /tmp/elsewhere " + copy, "", "0"},
        {"", "rm " + copy + " && mkdir " + copy, "", "0"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.make + " " + c.file);
        writeFile(kAppCfg, c.file);
        writeFile(copy, old);
        writeFile("/tmp/elsewhere", old);
        ASSERT_EQ(run("chmod 640 " + std::string(kAppCfg) + " && ls -i " + kAppCfg +
                      " >/tmp/inode" + (c.make.empty() ? "" : " && " + c.make))
                      .status,
                  0);
        EXPECT_EQ(refreshed(4), c.shown);
        EXPECT_EQ(readFile(kAppCfg), c.after);
        EXPECT_EQ(run("stat -c %a " + std::string(kAppCfg) + " && ls -i " + kAppCfg +
                      " | cmp - /tmp/inode")
                      .out,
                  "640\n");
        EXPECT_EQ(run("test -L " + copy + " || test -d " + copy).status == 0, !c.make.empty());
        if (c.make.empty()) {
            EXPECT_EQ(readFile(copy), "");
        }
        run("rm -rf " + copy + " /tmp/elsewhere");
        EXPECT_EQ(readFile("/tmp/elsewhere"), "");
    }
    // Qt 5's temporary files of killed writes go with the next write, but not while a writer
    // holds the lock file; other names stay.
    const std::string app = kAppCfg, temporary = app + ".AbC123", other = app + ".AbC1234";
    writeFile(temporary, old);
    writeFile(other, old);
    const std::string held = "grep -q FLOCK /proc/locks";
    // A lock of a writer that is gone (Qt 5 takes it over once free) held for two seconds.
    run("printf '999999\\nx\\n%s\\n' $(uname -n) >" + app + ".lock && flock " + app +
        ".lock sleep 2 >/dev/null 2>&1 &");
    ASSERT_EQ(run("until " + held + "; do sleep 0.01; done").status, 0);
    EXPECT_EQ(rt_->device().writeText(5, "30"), 0);  // Qt 5 waits for the lock
    EXPECT_TRUE(fileExists(temporary));
    run("while " + held + "; do sleep 0.01; done");
    EXPECT_EQ(rt_->device().writeText(5, "31"), 0);
    EXPECT_FALSE(fileExists(temporary));
    EXPECT_TRUE(fileExists(other));
    // Without the file there is nothing to restore: the copy is emptied, no file is made.
    removeFile(kAppCfg);
    writeFile(copy, old);
    refreshed(4);
    EXPECT_FALSE(fileExists(kAppCfg));
    EXPECT_EQ(readFile(copy), "");
}

}  // namespace
