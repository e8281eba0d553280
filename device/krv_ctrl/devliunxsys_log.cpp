// The log readers: tails of the stored logs and of the live kernel log.
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

#include "devliunxsys.h"
#include "devliunxsys_internal.h"

namespace {

const char kRestartLog[] = "/storage/log/restart.log";
const char kStoredKernelLog[] = "/storage/log/dmesg.log";
// The misspelling is the file's name on the panel.
const char kSignalLog[] = "/storage/log/signal_recieved.log";
const char kKernelCapture[] = "/tmp/dmesg.log";

}  // namespace

int DevLiunxAppLog::DevOpear(WEXA_DATA& data, std::vector<std::string>& args) {
    return DevReadLog(data, kRestartLog, args);
}

int DevLinuxAppExecpLog::DevOpear(WEXA_DATA& data, std::vector<std::string>& args) {
    return DevReadLog(data, kStoredKernelLog, args);
}

int DevLiunxAppDealLog::DevOpear(WEXA_DATA& data, std::vector<std::string>& args) {
    return DevReadLog(data, kSignalLog, args);
}

int DevLinuxSysExecpLog::DevOpear(WEXA_DATA& data, std::vector<std::string>& args) {
    // The capture runs as root through a shell redirect, which follows symbolic
    // links: a link planted at this fixed name in the world-writable /tmp would make
    // it overwrite the link's target. Removing the name first (unlink removes a link,
    // never its target) is not enough, since a link can be planted again before the
    // shell opens the name. So the file is created here, exclusively and never through
    // a link, and the redirect only truncates our own file; in the sticky /tmp nobody
    // else can swap it. A name planted in between fails the capture.
    unlink(kKernelCapture);
    const int capture =
        open(kKernelCapture, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (capture < 0)
        return -3;
    close(capture);
    if (system("dmesg > /tmp/dmesg.log") != 0) {
        // The redirect has created the file even though the capture failed; no
        // capture file is ever left behind. The status variable stays untouched.
        unlink(kKernelCapture);
        return -3;
    }
    std::size_t cut = 0;
    int r = DevGetCutLen(data, args, cut);
    std::string content;
    if (r == 0)
        content = DevReadFileTail(kKernelCapture, cut);
    unlink(kKernelCapture);
    return r != 0 ? r : DevDeliverContext(data, content, cut, args);
}
