// What every check of krv-panel-check shares: the options, the report, the driver and runtime
// libraries as read from their files, and what one area finds that another needs.
#pragma once

#include <string>
#include <vector>

#include "Elf.h"
#include "Report.h"

namespace panel_check {

struct Options {
    std::string driver;
    std::vector<std::string> runtime;  // the runtime's libraries, loaded before the driver
    std::string configDir = "/usr/wexa_app/config";
    bool network = false;
    bool json = false;
};

struct Context {
    Options options;
    Report report;
    ElfFile driver;
    bool driverRead = false;
    int qtMajor = 0;               // of the QtCore the driver needs; 0 when unknown
    std::vector<ElfFile> runtime;  // those of options.runtime that could be read
    // A loading FAIL (missing versions, layout, Qt) already explains why something does not
    // load: later checks then say so as a WARN instead of failing for the same cause.
    bool loadingFailed = false;
    // The NTP servers the driver would use (the settings file, else its defaults), and the name
    // servers of /etc/resolv.conf under the driver's rules (empty when they break them).
    std::vector<std::string> ntpServers;
    std::vector<std::string> nameServers;
    // Filled by the HAL's child process for the network area.
    std::vector<std::string> halLines;
};

void checkLoading(Context& ctx);
void checkFiles(Context& ctx);
void checkCommands(Context& ctx);
void checkInterfaces(Context& ctx);
void checkNetworkProbes(Context& ctx);

}  // namespace panel_check
