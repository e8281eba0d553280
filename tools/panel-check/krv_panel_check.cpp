// krv-panel-check: what an integrator runs first on a new panel. Checks everything the driver
// needs of the panel (libraries, files, commands, network) and says for each what to do.
// Changes nothing on the panel; only --network sends packets.
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <string>

#include "Checks.h"

namespace {

const char kUsage[] =
    "usage: krv-panel-check [--driver PATH] [--runtime LIB]... [--config-dir DIR] [--network] "
    "[--json]\n"
    "  --driver PATH     the driver to check (default: ../lib/libkrvcontrol_armv5.so.1 beside\n"
    "                    this program, as the bundle installs it)\n"
    "  --runtime LIB     a library the runtime holds before it loads the driver (its QtCore,\n"
    "                    the HAL, its own); repeat for each, in the runtime's order\n"
    "  --config-dir DIR  the runtime's configuration directory (default /usr/wexa_app/config)\n"
    "  --network         also send the probes: one ping, name look-ups, one SNTP request\n"
    "  --json            the findings as JSON\n"
    "Exit status: the number of FAILs (255: bad arguments).\n";

// The bundle's driver, lib/ beside this program's bin/.
std::string bundledDriver() {
    char self[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    std::string dir = n > 0 ? std::string(self, static_cast<size_t>(n)) : std::string("./x");
    dir = std::string(dir, 0, dir.rfind('/'));
    return dir + "/../lib/libkrvcontrol_armv5.so.1";
}

bool parse(int argc, char** argv, panel_check::Options& options) {
    options.driver = bundledDriver();
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const bool hasValue = i + 1 < argc;
        if (arg == "--driver" && hasValue)
            options.driver = argv[++i];
        else if (arg == "--runtime" && hasValue)
            options.runtime.push_back(argv[++i]);
        else if (arg == "--config-dir" && hasValue)
            options.configDir = argv[++i];
        else if (arg == "--network")
            options.network = true;
        else if (arg == "--json")
            options.json = true;
        else
            return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    panel_check::Context ctx;
    if (!parse(argc, argv, ctx.options)) {
        std::fputs(kUsage, stderr);
        return 255;
    }
    panel_check::checkLoading(ctx);
    panel_check::checkFiles(ctx);
    panel_check::checkCommands(ctx);
    panel_check::checkInterfaces(ctx);
    if (ctx.options.network)
        panel_check::checkNetworkProbes(ctx);
    if (ctx.options.json)
        ctx.report.printJson(stdout, ctx.options.driver);
    else
        ctx.report.printTable(stdout);
    const int fails = ctx.report.count(panel_check::kFail);
    return fails < 254 ? fails : 254;
}
