#include "Report.h"

#include <cstdarg>

namespace panel_check {

namespace {

const char* const kStatusNames[] = {"PASS", "WARN", "FAIL"};

std::string jsonText(const std::string& text) {
    std::string out = "\"";
    for (size_t i = 0; i < text.size(); ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c == '"' || c == '\\')
            out += std::string("\\") + static_cast<char>(c);
        else if (c < 0x20)
            out += format("\\u%04x", c);
        else
            out += static_cast<char>(c);
    }
    return out + "\"";
}

// Worst first; within a status, in the order the checks ran.
std::vector<const Finding*> ordered(const std::vector<Finding>& findings) {
    std::vector<const Finding*> rows;
    for (int status = kFail; status >= kPass; --status)
        for (size_t i = 0; i < findings.size(); ++i)
            if (findings[i].status == status)
                rows.push_back(&findings[i]);
    return rows;
}

}  // namespace

std::string format(const char* fmt, ...) {
    char buffer[512];
    va_list args;
    va_start(args, fmt);
    const int n = std::vsnprintf(buffer, sizeof buffer, fmt, args);
    va_end(args);
    if (n < 0)
        return std::string();
    if (static_cast<size_t>(n) < sizeof buffer)
        return std::string(buffer, static_cast<size_t>(n));
    std::string text(static_cast<size_t>(n) + 1, '\0');
    va_start(args, fmt);
    std::vsnprintf(&text[0], text.size(), fmt, args);
    va_end(args);
    text.resize(static_cast<size_t>(n));
    return text;
}

void Report::add(Status status, const std::string& area, const std::string& check,
                 const std::string& found, const std::string& fix) {
    Finding finding = {status, area, check, found, fix};
    m_findings.push_back(finding);
}

int Report::count(Status status) const {
    int n = 0;
    for (size_t i = 0; i < m_findings.size(); ++i)
        n += m_findings[i].status == status;
    return n;
}

void Report::printTable(std::FILE* out) const {
    size_t width = 0;
    for (size_t i = 0; i < m_findings.size(); ++i)
        width = m_findings[i].check.size() > width ? m_findings[i].check.size() : width;
    const std::vector<const Finding*> rows = ordered(m_findings);
    for (size_t i = 0; i < rows.size(); ++i) {
        const Finding& f = *rows[i];
        std::string line = f.found;
        if (!f.fix.empty())
            line += ": " + f.fix;
        std::fprintf(out, "%s  %-*s  %s\n", kStatusNames[f.status], static_cast<int>(width),
                     f.check.c_str(), line.c_str());
    }
    std::fprintf(out, "%d FAIL, %d WARN, %d PASS\n", count(kFail), count(kWarn), count(kPass));
}

void Report::printJson(std::FILE* out, const std::string& driver) const {
    std::fprintf(out, "{\"driver\": %s, \"fail\": %d, \"warn\": %d, \"pass\": %d, \"checks\": [\n",
                 jsonText(driver).c_str(), count(kFail), count(kWarn), count(kPass));
    const std::vector<const Finding*> rows = ordered(m_findings);
    for (size_t i = 0; i < rows.size(); ++i) {
        const Finding& f = *rows[i];
        std::fprintf(out,
                     "  {\"status\": \"%s\", \"area\": %s, \"check\": %s, \"found\": %s, "
                     "\"fix\": %s}%s\n",
                     kStatusNames[f.status], jsonText(f.area).c_str(), jsonText(f.check).c_str(),
                     jsonText(f.found).c_str(), jsonText(f.fix).c_str(),
                     i + 1 < rows.size() ? "," : "");
    }
    std::fprintf(out, "]}\n");
}

}  // namespace panel_check
