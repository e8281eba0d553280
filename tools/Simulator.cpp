#include "Simulator.h"

#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iomanip>
#include <sstream>

#include "ChannelTable.h"
#include "ResultCodes.h"
#include "sim/SimPanel.h"

namespace krv_sim {

namespace {

const char* const kBlanks = " \t\r\n";

std::string trim(const std::string& text) {
    std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string::npos) {
        return std::string();
    }
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// Splits off the first `count` words; `rest` receives the text after them, trimmed.
std::vector<std::string> leadingWords(const std::string& line, std::size_t count,
                                      std::string& rest) {
    std::vector<std::string> words;
    std::size_t pos = 0;
    while (words.size() < count) {
        std::size_t start = line.find_first_not_of(kBlanks, pos);
        if (start == std::string::npos) {
            pos = line.size();
            break;
        }
        pos = line.find_first_of(kBlanks, start);
        if (pos == std::string::npos) {
            pos = line.size();
        }
        words.push_back(line.substr(start, pos - start));
    }
    rest = trim(line.substr(pos));
    // A value written as "" stands for the empty text.
    if (rest == "\"\"") {
        rest.clear();
    }
    return words;
}

bool parseInt(const std::string& text, int& value) {
    if (text.empty()) {
        return false;
    }
    char* end = nullptr;
    errno = 0;
    long v = std::strtol(text.c_str(), &end, 0);
    if (*end != '\0' || errno != 0 || v < INT32_MIN || v > INT32_MAX) {
        return false;
    }
    value = static_cast<int>(v);
    return true;
}

bool parseDouble(const std::string& text, double& value) {
    if (text.empty()) {
        return false;
    }
    char* end = nullptr;
    value = std::strtod(text.c_str(), &end);
    return *end == '\0';
}

const char* typeName(DATATYPE type) {
    switch (type) {
        case DATATYPE_INT:
            return "int";
        case DATATYPE_DOUBLE:
            return "double";
        case DATATYPE_STRING:
            return "text";
        default:
            return "none";
    }
}

std::string quotedIfText(DATATYPE type, const std::string& value) {
    return type == DATATYPE_STRING ? "\"" + value + "\"" : value;
}

const char* const kJournalKinds[] = {"lcd", "rtc",    "net",  "gui",  "beep", "wait",
                                     "log", "reboot", "sync", "file", "shell"};

// The HAL's backlight argument reads the wrong way round to most people: 1 is off.
std::string labelled(const sim::JournalEntry& e) {
    if (e.kind == "lcd" && e.text.size() > 3) {
        const std::string tail = e.text.substr(e.text.size() - 3);
        if (tail == "(0)" || tail == "(1)") {
            return e.text + "   (HAL: " + tail[1] + " = backlight " +
                   (tail[1] == '0' ? "on" : "off") + ")";
        }
    }
    return e.text;
}

}  // namespace

Simulator::Simulator(host::Runtime& runtime, std::ostream& out, std::ostream& err)
    : runtime_(runtime), out_(out), err_(err) {
    runtime_.database().defineChannels(runtimeChannelTypes());
}

void Simulator::printHelp(std::ostream& out) {
    out << "Commands, one per line:\n"
           "  NAME(ARGS)             send a command text, e.g. BACKLIGHTOFF() or GetCpuUse(10)\n"
           "  raw TEXT               send TEXT exactly as it stands, brackets or not\n"
           "  write N VALUE          write VALUE to channel N as the runtime does (runtime\n"
           "                         channel N-1), with channel N's type (text outside 1-19);\n"
           "                         \"\" writes the empty text\n"
           "  poll [N]...            collect the channels and print the table (or channels N)\n"
           "  var int|double|text NAME [VALUE]\n"
           "                         define a runtime variable for commands to use\n"
           "  print [NAME]           print one runtime variable, or all of them\n"
           "  journal [KIND|clear]   print what the simulated panel was asked to do (all but\n"
           "                         log records, or one kind: lcd, rtc, net, gui, beep, wait,\n"
           "                         log, reboot, sync, file, shell), or forget it\n"
           "  sh COMMAND             run COMMAND with sh inside the panel, e.g. to look at or\n"
           "                         change its files; prints its output\n"
           "  time LINE              run LINE and print how long it took\n"
           "  help                   this text\n"
           "  quit                   leave (end of input does the same)\n"
           "The panel's LAN has an NTP server at 10.0.0.1 (ntp.panel.test), e.g.:\n"
           "  SetNTPServer(10.0.0.1,ntp.panel.test,,)  EnableNTP(1)  var int st  ExecNTP(st)\n"
           "Channels:\n";
    for (int i = 1; i < kChannelCount; ++i) {
        out << "  " << std::setw(2) << i << "  " << std::left << std::setw(24)
            << kChannelTable[i].name << std::right << typeName(kChannelTable[i].type) << "\n";
    }
}

bool Simulator::execute(const std::string& rawLine) {
    std::string line = trim(rawLine);
    if (echo_ && !line.empty()) {
        out_ << "> " << line << std::endl;
    }
    bool more = line.empty() || line[0] == '#' || run(line);
    out_.flush();
    return more;
}

bool Simulator::run(const std::string& line) {
    std::string rest;
    Words first = leadingWords(line, 1, rest);
    const std::string& word = first[0];
    if (word == "quit" || word == "exit") {
        return false;
    }
    if (word == "help") {
        printHelp(out_);
    } else if (word == "poll") {
        poll(leadingWords(line, 64, rest));
    } else if (word == "write") {
        Words words = leadingWords(line, 2, rest);
        write(words, rest);
    } else if (word == "var") {
        Words words = leadingWords(line, 3, rest);
        defineVariable(words, rest);
    } else if (word == "print") {
        printVariables(leadingWords(line, 2, rest));
    } else if (word == "journal") {
        printJournal(leadingWords(line, 2, rest));
    } else if (word == "raw") {
        sendCommand(rest);
    } else if (word == "sh") {
        shell(rest);
    } else if (word == "time") {
        timed(rest);
    } else if (line.find('(') != std::string::npos) {
        sendCommand(line);
    } else {
        fail("unknown command \"" + word + "\" (try help)");
    }
    return true;
}

void Simulator::poll(const Words& words) {
    std::vector<bool> shown(kChannelCount, words.size() < 2);
    for (std::size_t i = 1; i < words.size(); ++i) {
        int channel = -1;
        if (!parseInt(words[i], channel) || channel < 0 || channel >= kChannelCount) {
            fail("usage: poll [N]..., with N from 0 to " + std::to_string(kChannelCount - 1));
            return;
        }
        shown[channel] = true;
    }
    // Status 3 for every runtime channel: the runtime wants all of them.
    std::vector<int> flags(kChannelCount - 1, 3);
    int result = runtime_.device().collect(flags);
    auto channels = runtime_.database().channels();
    out_ << " #  " << std::left << std::setw(24) << "Channel"
         << "Value\n";
    for (int i = 0; i < kChannelCount; ++i) {
        if (!shown[i]) {
            continue;
        }
        std::string value;
        if (i == 0) {
            value = std::to_string(result);
        } else {
            auto it = channels.find(i - 1);
            value = it == channels.end() || it->second.pushes == 0
                        ? "-"
                        : quotedIfText(it->second.pushedType, it->second.toString());
        }
        out_ << std::right << std::setw(2) << i << "  " << std::left << std::setw(24)
             << kChannelTable[i].name << value << "\n";
    }
    out_ << std::right;
}

void Simulator::sendCommand(const std::string& text) {
    printResult(text, runtime_.device().command(text));
}

void Simulator::write(const Words& words, const std::string& rest) {
    int channel = 0;
    if (words.size() < 2 || !parseInt(words[1], channel) || channel == INT32_MIN) {
        fail("usage: write N VALUE");
        return;
    }
    // Channels the panel does not have go to the driver all the same, as a text.
    const bool known = channel >= 1 && channel < kChannelCount;
    const ChannelInfo info =
        known ? kChannelTable[channel] : ChannelInfo{"no such channel", DATATYPE_STRING};
    std::string what = "write " + std::to_string(channel) + " (" + info.name + ")";
    // The driver numbers channels from 1, the runtime from 0.
    int runtimeChannel = channel - 1;
    if (info.type == DATATYPE_STRING) {
        printResult(what, runtime_.device().writeText(runtimeChannel, rest));
    } else if (info.type == DATATYPE_DOUBLE) {
        double value = 0.0;
        if (!parseDouble(rest, value)) {
            fail("channel " + std::to_string(channel) + " takes a number");
            return;
        }
        printResult(what, runtime_.device().writeDouble(runtimeChannel, value));
    } else {
        int value = 0;
        if (!parseInt(rest, value)) {
            fail("channel " + std::to_string(channel) + " takes an integer");
            return;
        }
        printResult(what, runtime_.device().writeInt(runtimeChannel, value));
    }
}

void Simulator::defineVariable(const Words& words, const std::string& rest) {
    if (words.size() < 3) {
        fail("usage: var int|double|text NAME [VALUE]");
        return;
    }
    const std::string& type = words[1];
    const std::string& name = words[2];
    host::Database& db = runtime_.database();
    if (type == "int") {
        int value = 0;
        if (!rest.empty() && !parseInt(rest, value)) {
            fail("not an integer: " + rest);
            return;
        }
        db.defineInt(name, value);
    } else if (type == "double") {
        double value = 0.0;
        if (!rest.empty() && !parseDouble(rest, value)) {
            fail("not a number: " + rest);
            return;
        }
        db.defineDouble(name, value);
    } else if (type == "text") {
        db.defineText(name, rest);
    } else {
        fail("variable types are int, double and text");
        return;
    }
    printVariables({"print", name});
}

void Simulator::printVariables(const Words& words) {
    std::vector<std::pair<std::string, host::Variable>> list;
    if (words.size() >= 2) {
        auto v = runtime_.database().variable(words[1]);
        if (!v) {
            fail("no variable " + words[1]);
            return;
        }
        list.emplace_back(words[1], *v);
    } else {
        list = runtime_.database().variables();
        if (list.empty()) {
            out_ << "(no variables)\n";
        }
    }
    for (const auto& entry : list) {
        const host::Variable& v = entry.second;
        out_ << entry.first << " (" << typeName(v.type)
             << ") = " << quotedIfText(v.type, v.toString()) << "\n";
    }
}

void Simulator::printJournal(const Words& words) {
    if (words.size() >= 2 && words[1] == "clear") {
        sim::clearJournal();
        return;
    }
    // The driver's log records outnumber everything else; they show only when asked for.
    bool all = words.size() < 2;
    if (!all && std::find(std::begin(kJournalKinds), std::end(kJournalKinds), words[1]) ==
                    std::end(kJournalKinds)) {
        fail("no journal kind \"" + words[1] + "\" (see help)");
        return;
    }
    auto entries = all ? sim::journal() : sim::journal(words[1]);
    int shown = 0;
    for (const sim::JournalEntry& e : entries) {
        if (all && e.kind == "log") {
            continue;
        }
        out_ << std::left << std::setw(8) << e.kind << std::right << labelled(e) << "\n";
        ++shown;
    }
    if (shown == 0) {
        out_ << "(nothing in the journal)\n";
    }
}

void Simulator::shell(const std::string& command) {
    out_.flush();
    // Braces keep a trailing "&" inside; the simulator runs only inside the panel sandbox.
    FILE* pipe = popen(("{ " + command + "\n} 2>&1").c_str(), "r");
    if (pipe == nullptr) {
        fail("cannot start sh");
        return;
    }
    char buffer[4096];
    for (std::size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
        out_.write(buffer, static_cast<std::streamsize>(n));
    }
    int status = pclose(pipe);
    if (status != 0) {
        out_ << "(exit status " << (WIFEXITED(status) ? WEXITSTATUS(status) : -1) << ")\n";
    }
}

void Simulator::timed(const std::string& line) {
    if (line.empty()) {
        fail("usage: time LINE");
        return;
    }
    auto start = std::chrono::steady_clock::now();
    run(line);
    std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    out_ << "(took " << std::fixed << std::setprecision(1) << took.count() << " s)\n"
         << std::defaultfloat;
}

void Simulator::printResult(const std::string& what, int code) {
    out_ << what << " -> ";
    // The slots' own failure codes read better the way they are defined.
    if (code == DEVCTRL_BAD_ARGUMENT || code == DEVCTRL_NO_DATABASE) {
        out_ << "0x" << std::hex << static_cast<unsigned>(code) << std::dec;
    } else {
        out_ << code;
    }
    out_ << " (" << resultMeaning(code) << ")\n";
}

void Simulator::fail(const std::string& message) {
    hadErrors_ = true;
    out_.flush();
    err_ << "krv-sim: " << message << std::endl;
}

}  // namespace krv_sim
