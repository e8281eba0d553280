// The outcome of every check, printed as a table a person reads at a glance (FAILs first) or as
// JSON for automation.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace panel_check {

enum Status { kPass, kWarn, kFail };

struct Finding {
    Status status;
    std::string area;   // loading, files, commands, network
    std::string check;  // what was looked at, e.g. "lock file /tmp/wexa_app_conf.lck"
    std::string found;  // what was found
    std::string fix;    // what to do; empty for a PASS
};

class Report {
public:
    void add(Status status, const std::string& area, const std::string& check,
             const std::string& found, const std::string& fix = std::string());
    int count(Status status) const;
    const std::vector<Finding>& findings() const { return m_findings; }
    void printTable(std::FILE* out) const;
    void printJson(std::FILE* out, const std::string& driver) const;

private:
    std::vector<Finding> m_findings;
};

// printf into a std::string.
std::string format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

}  // namespace panel_check
