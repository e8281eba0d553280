// The driver's own rules for the texts it reads, applied to the panel's files: the resolver file
// line by line, dotted addresses, the first line of /proc/stat and /proc/meminfo. Each says what
// the driver gets, or why it gets nothing.
#pragma once

#include <string>
#include <vector>

namespace panel_check {

// A dotted IPv4 address as the driver's address patterns take it: four numbers of one or two
// digits, or of three from 100 to 255, and nothing else.
bool isDottedAddress(const std::string& text);

struct NameServers {
    std::vector<std::string> servers;  // in file order; empty when a line breaks the rules
    int badLine = 0;                   // 1-based, 0 when none does
    std::string why;
};
NameServers readNameServers(const std::string& text);

// Empty when the first line of /proc/stat gives the driver its counters, else what is wrong.
std::string statLayoutProblem(const std::string& text);

// The available memory in KiB the driver reads from /proc/meminfo, -1 when it finds none;
// `fallback` tells that MemAvailable was missing and the older kernels' sum was taken.
long meminfoKib(const std::string& text, bool& fallback);

}  // namespace panel_check
