// SNTP replies of any length and content, each for one whole NtpCtrl::execNtp against a responder
// on the loopback that answers with the input. The panel's wall clock stands still, so the time
// the clocks are set to is known: T4 plus the mean of (T2 - T1) and (T3 - T4), truncated toward
// zero to whole seconds, where bytes missing from a short reply count as zero. The timestamps are
// read here in exact arithmetic; the driver's integer approximation of their microseconds may
// move the result by one second at a boundary, no more.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "FuzzPanel.h"
#include "Sandbox.h"
#include "ntp/NtpCtrl.h"
#include "sim/SimPanel.h"

namespace {

const long long kT4 = 2114380800500000;  // 2037-01-01 00:00:00.5 UTC, in microseconds

NtpCtrl& controller() {
    krv_fuzz::panel();
    krv_test::writeFile("/etc/timezone", "Etc/UTC\n");  // no UTC+8 fallback
    sim::setWallClock(kT4);
    const QString path = QString::fromLatin1("/tmp/sntp/ntp_param_cfg.ini");
    ntpCfgParam file;  // on, manual (the worker stays quiet), the responder as every server
    file.m_ntpSwitch = 1;
    file.m_ntpFreq = 2;
    for (QString& server : file.m_ntpServer)
        server = QString::fromLatin1("127.0.0.1");
    file.writeCfg(path);
    static NtpCtrl ctrl(path);
    return ctrl;
}

// The timestamp at `offset` of a 48-byte reply, in microseconds since 1970 (NTP seconds modulo
// 2^32, so 2037 lies past the 2036 wrap).
long double timestamp(const std::string& reply, std::size_t offset) {
    std::uint32_t words[2] = {0, 0};
    for (std::size_t i = 0; i < 8; ++i)
        words[i / 4] = words[i / 4] << 8 | static_cast<unsigned char>(reply[offset + i]);
    const std::uint32_t seconds = words[0] - 2208988800u;
    return seconds * 1e6L + words[1] * 1e6L / 4294967296.0L;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static NtpCtrl& ctrl = controller();
    static krv_test::SntpResponder responder;
    if (size == 0 || size > 48)
        return 0;  // an empty answer is no answer: a 5-second wait, not a reply
    const std::string reply = krv_fuzz::text(data, size);
    responder.setReply(reply);
    sim::clearJournal();
    if (ctrl.execNtp() != 0)
        std::abort();  // any datagram of one byte or more is used as it stands
    const std::string full = reply + std::string(48 - size, '\0');
    const long double offset =
        ((timestamp(full, 32) - timestamp(full, 24)) + (timestamp(full, 40) - kT4)) / 2e6L;
    const long double expected = kT4 / 1000000 + std::trunc(offset);
    struct tm set = {};
    const auto rtc = sim::journal("rtc");
    if (rtc.size() != 1 ||
        std::sscanf(rtc[0].text.c_str(), "hal_set_rtc_time(%d-%d-%d %d:%d:%d)", &set.tm_year,
                    &set.tm_mon, &set.tm_mday, &set.tm_hour, &set.tm_min, &set.tm_sec) != 6)
        std::abort();
    set.tm_year -= 1900;
    set.tm_mon -= 1;
    if (std::fabs(static_cast<long double>(timegm(&set)) - expected) > 1)
        std::abort();
    return 0;
}
