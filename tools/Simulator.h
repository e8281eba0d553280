// The simulator's command interpreter: one command line at a time against a running device.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "host/Runtime.h"

namespace krv_sim {

class Simulator {
public:
    // Defines the panel's runtime channels in the runtime's database.
    Simulator(host::Runtime& runtime, std::ostream& out, std::ostream& err);

    // Runs one command line; false when it asks to quit.
    bool execute(const std::string& line);
    // Each line is first printed as "> line": the output reads as a written-down session.
    void setEcho(bool echo) { echo_ = echo; }
    // True once any line was not understood or not accepted by the simulator itself
    // (the driver's own result codes do not count).
    bool hadErrors() const { return hadErrors_; }

    static void printHelp(std::ostream& out);

private:
    using Words = std::vector<std::string>;

    bool run(const std::string& line);
    void poll(const Words& words);
    void sendCommand(const std::string& text);
    void write(const Words& words, const std::string& rest);
    void defineVariable(const Words& words, const std::string& rest);
    void printVariables(const Words& words);
    void printJournal(const Words& words);
    void shell(const std::string& command);
    void timed(const std::string& line);
    void printResult(const std::string& what, int code);
    void fail(const std::string& message);

    host::Runtime& runtime_;
    std::ostream& out_;
    std::ostream& err_;
    bool hadErrors_ = false;
    bool echo_ = false;
};

}  // namespace krv_sim
