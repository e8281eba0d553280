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
    EXPECT_EQ(run("find" + app + " -newermt @" + std::to_string(ahead)).out, app.substr(1) + "\n");
}

}  // namespace
