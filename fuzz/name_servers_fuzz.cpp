// Resolver files for the name-server reader. The slots reach it only inside a whole NTP
// synchronisation (seconds), so it is called directly; the file is the sandbox's own
// /etc/resolv.conf (pauses between readings are cut short, see FuzzPanel.cpp). The panel is started
// anyway so that the reader runs next to a live device.
#include <cstdlib>
#include <string>
#include <vector>

#include "FuzzPanel.h"
#include "ntp/NtpCtrl.h"

namespace {

// Four decimal numbers from 0 to 255 joined by dots, each of one or two digits or of three
// beginning with 1 or 2 ("01" passes, "001" does not): a probe target must be nothing else.
bool dottedAddress(const std::string& text) {
    std::vector<std::string> parts(1);
    for (char c : text) {
        if (c == '.')
            parts.emplace_back();
        else
            parts.back() += c;
    }
    if (parts.size() != 4)
        return false;
    for (const std::string& p : parts) {
        if (p.empty() || p.size() > 3 || p.find_first_not_of("0123456789") != std::string::npos ||
            (p.size() == 3 && (p[0] == '0' || std::stoi(p) > 255)))
            return false;
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    krv_fuzz::panel();
    const std::string file = krv_fuzz::text(data, size);
    krv_fuzz::overwrite("/etc/resolv.conf", file);
    for (const std::string& server : NtpCtrl::readNameServers()) {
        // Whatever the reader makes of the lines, a server it names comes from the file and is
        // an address that ping can be pointed at.
        if (file.find(server) == std::string::npos || !dottedAddress(server))
            std::abort();
    }
    return 0;
}
