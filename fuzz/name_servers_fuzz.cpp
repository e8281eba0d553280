// Resolver files for the name-server reader. The slots reach it only inside a whole NTP
// synchronisation (seconds), so it is called directly; the file is the sandbox's own
// /etc/resolv.conf (pauses between readings are cut short, see FuzzPanel.cpp). The panel is started
// anyway so that the reader runs next to a live device.
#include <cstdlib>
#include <string>
#include <vector>

#include "FuzzPanel.h"
#include "ntp/NtpCtrl.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    krv_fuzz::panel();
    const std::string file = krv_fuzz::text(data, size);
    krv_fuzz::overwrite("/etc/resolv.conf", file);
    const std::vector<std::string> servers = NtpCtrl::readNameServers();
    for (const std::string& server : servers) {
        // Whatever the reader makes of the lines, a server it names must come from the file.
        if (server.empty() || file.find(server) == std::string::npos)
            std::abort();
    }
    return 0;
}
