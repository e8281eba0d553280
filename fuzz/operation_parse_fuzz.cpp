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

std::string join(const std::vector<std::string>& args, const std::string& separator) {
    std::string text;
    for (std::size_t i = 0; i < args.size(); ++i)
        text += (i ? separator : "") + args[i];
    return text;
}

}  // namespace

// Properties rather than a second parser: the name is what stands before the first "(", the text
// between the brackets is the arguments in order with nothing but commas around them, and the
// arguments printed back, with any number of commas between them, parse to themselves.
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
        const std::string inside = command.substr(open + 1, command.size() - open - 2);
        std::size_t at = 0;
        for (const std::string& arg : args) {
            check(!arg.empty() && arg.find(',') == std::string::npos);
            check(inside.find_first_not_of(',', at) == inside.find(arg, at));
            at = inside.find(arg, at) + arg.size();
        }
        check(inside.find_first_not_of(',', at) == std::string::npos);
        for (const std::string& separator : {",", ",,,"}) {
            std::string again;
            std::vector<std::string> reparsed;
            check(tools.ParaCmd(again, reparsed, name + "(," + join(args, separator) + ")") == 0);
            check(again == name && reparsed == args);
        }
    } else {
        check(args.empty());
    }
    // The same text as the runtime would send it; the log readers and the CPU and memory
    // operations behind the manager get whatever the parser made of it.
    if (command.find('\0') == std::string::npos) {
        rt.device().command(command);
        krv_fuzz::resetVariables(rt.database());
    }
    return 0;
}
