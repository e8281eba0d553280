// Operation commands, Name(arg1,arg2,...), through the manager's parser directly, with the
// parser's promises checked; the same texts then go through DevIOCtrl to the operations.
#include <cstdlib>
#include <string>
#include <vector>

#include "FuzzPanel.h"
#include "devliunxsys.h"

namespace {

void check(bool promise) {
    if (!promise)
        std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    host::Runtime& rt = krv_fuzz::panel();
    const std::string command = krv_fuzz::text(data, size);
    ToolsBase tools;
    std::string name;
    std::vector<std::string> args;
    if (tools.ParaCmd(name, args, command) == 0) {
        const std::size_t open = command.find('(');
        check(open != std::string::npos && command.back() == ')');
        check(name == command.substr(0, open));
        // Arguments are the non-empty pieces between the commas, in order.
        std::string joined;
        for (const std::string& arg : args) {
            check(!arg.empty() && arg.find(',') == std::string::npos);
            joined += arg;
        }
        std::string inside = command.substr(open + 1, command.size() - open - 2);
        std::string expected;
        for (char c : inside)
            if (c != ',')
                expected += c;
        check(joined == expected);
    } else {
        check(args.empty());
    }
    // The same text as the runtime would send it; the log readers and the CPU and memory
    // operations behind the manager get whatever the parser made of it.
    if (command.find('\0') == std::string::npos && !krv_fuzz::startsNtp(command)) {
        rt.device().command(command);
        krv_fuzz::resetVariables(rt.database());
    }
    return 0;
}
