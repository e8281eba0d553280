#include "FuzzPanel.h"

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "Sandbox.h"
#include "sim/SimPanel.h"

// The NTP worker polls every 200 ms, CleanupDevice waits out its current pause, and the resolver
// reader pauses 100 ms between readings of a file that breaks its rules: the blob and resolver
// targets would manage a few inputs a second. In the fuzz programs every pause is a hundredth
// as long; the program exports this usleep so that the dlopen'ed driver uses it too.
extern "C" int usleep(useconds_t microseconds) {
    const long scaled = static_cast<long>(microseconds) / 100;
    timespec pause{static_cast<time_t>(scaled / 1000000), (scaled % 1000000) * 1000};
    return nanosleep(&pause, nullptr);
}

namespace krv_fuzz {
namespace {

[[noreturn]] void fail(const char* why) {
    std::fprintf(stderr, "fuzz panel: %s\n", why);
    std::abort();
}

host::Runtime& startPanel() {
    // The sandbox guard of the test helpers has already stopped a run outside it; this is the
    // same check for a reader of this file.
    if (!krv_test::inSandbox())
        fail("not inside the panel sandbox");
    // REBOOT() reaches reboot(): it must be the recording one, never the C library's.
    if (!sim::rebootIsInterposed())
        fail("reboot() is not the simulated runtime's");
    sim::reset();
    // Millions of commands would flood the output with the driver's log records.
    sim::setLogOutput("-", 0);
    // Never destroyed: the device lives until the process ends, as under the runtime. Unloading
    // the driver at exit would also unload QtCore with it, and LeakSanitizer would then take
    // what Qt's globals still hold for leaks of an unknown module.
    static host::Runtime& runtime = *new host::Runtime(KRV_DRIVER_PATH);
    if (!runtime.ok())
        fail(runtime.error().c_str());
    if (runtime.start() != 0)
        fail("InitDevice failed");
    resetVariables(runtime.database());
    return runtime;
}

}  // namespace

host::Runtime& panel() {
    static host::Runtime& runtime = startPanel();
    return runtime;
}

void resetVariables(host::Database& database) {
    database.clearVariables();
    database.defineInt("St", -1);
    database.defineInt("I", 3);
    database.defineDouble("D", 2.5);
    database.defineText("Txt", "abcdef");
    database.defineText("T");
}

void overwrite(const std::string& path, const std::string& contents) {
    int fd = open(path.c_str(), O_WRONLY | O_TRUNC | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0)
        fail("cannot write a fuzzed file");
    std::size_t done = 0;
    while (done < contents.size()) {
        ssize_t n = write(fd, contents.data() + done, contents.size() - done);
        if (n <= 0)
            fail("short write of a fuzzed file");
        done += static_cast<std::size_t>(n);
    }
    close(fd);
}

}  // namespace krv_fuzz
