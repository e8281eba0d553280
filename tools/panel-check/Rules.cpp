#include "Rules.h"

#include <cstdlib>
#include <cstring>

namespace panel_check {

namespace {

const char kNameServerWord[] = "nameserver";
const size_t kValueStart = 11;  // the word and one separator
const size_t kStatLineBytes = 127;

std::string trimmed(const std::string& text) {
    const char* const blanks = " \t\r\n\f\v";
    const size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos)
        return std::string();
    return std::string(text, first, text.find_last_not_of(blanks) + 1 - first);
}

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (size_t at; (at = text.find(separator, start)) != std::string::npos; start = at + 1)
        parts.push_back(std::string(text, start, at - start));
    parts.push_back(std::string(text, start));
    return parts;
}

bool allDigits(const std::string& text) {
    if (text.empty())
        return false;
    for (size_t i = 0; i < text.size(); ++i)
        if (text[i] < '0' || text[i] > '9')
            return false;
    return true;
}

// The next blank-separated field after `from` in `line`, as strtok with " " finds it.
bool nextField(const std::string& line, size_t from, std::string& field) {
    const size_t start = line.find_first_not_of(' ', from);
    if (start == std::string::npos)
        return false;
    field = std::string(line, start, line.find(' ', start) - start);
    return true;
}

}  // namespace

bool isDottedAddress(const std::string& text) {
    const std::vector<std::string> parts = split(text, '.');
    if (parts.size() != 4)
        return false;
    for (size_t i = 0; i < 4; ++i) {
        const std::string& p = parts[i];
        if (!allDigits(p) || p.size() > 3)
            return false;
        if (p.size() == 3 && (p[0] == '0' || std::atoi(p.c_str()) > 255))
            return false;
    }
    return true;
}

NameServers readNameServers(const std::string& text) {
    NameServers result;
    std::vector<int> lineOf;
    const std::vector<std::string> lines = split(text, '\n');
    for (size_t n = 0; n < lines.size() && result.badLine == 0; ++n) {
        const std::string& line = lines[n];
        const size_t word = line.find(kNameServerWord);
        if (word == std::string::npos)
            continue;
        const size_t valueStart = word + kValueStart;
        const size_t hash = line.find('#');
        if (hash != std::string::npos && hash <= valueStart)
            continue;  // commented out
        if (hash == std::string::npos && valueStart >= line.size()) {
            result.badLine = static_cast<int>(n + 1);
            result.why = "\"nameserver\" without an address";
        } else if (line.size() <= 10 || line[10] != ' ') {
            // Checked at index 10 of the line: the word must begin it, one blank after it.
            result.badLine = static_cast<int>(n + 1);
            result.why = word != 0          ? "\"nameserver\" does not begin the line"
                         : line[10] == '\t' ? "a tab after \"nameserver\", where one blank must be"
                                            : "\"nameserver\" not followed by one blank";
        } else {
            result.servers.push_back(trimmed(std::string(line, valueStart)));
            lineOf.push_back(static_cast<int>(n + 1));
        }
    }
    for (size_t i = 0; i < result.servers.size() && result.badLine == 0; ++i) {
        if (!isDottedAddress(result.servers[i])) {
            result.badLine = lineOf[i];
            result.why = "\"" + result.servers[i] + "\" is not a dotted IPv4 address";
        }
    }
    if (result.badLine != 0)
        result.servers.clear();
    return result;
}

std::string statLayoutProblem(const std::string& text) {
    // One line as fgets reads it into 128 bytes, then cut at every single blank.
    const std::string line(text, 0, text.find('\n'));
    const std::string cut(line, 0, kStatLineBytes);
    const std::vector<std::string> tokens = split(cut + " ", ' ');
    if (tokens.size() < 10)  // nine fields and what follows the last blank
        return "its first line has fewer than nine blank-separated fields";
    if (tokens[0] != "cpu" || !tokens[1].empty())
        return "its first line does not begin with \"cpu\" and two blanks";
    for (size_t i = 2; i <= 8; ++i)
        if (!allDigits(tokens[i]))
            return "field " + std::string(1, static_cast<char>('0' + i)) +
                   " of its first line is "
                   "not a count";
    size_t end = 0;
    for (size_t i = 0; i <= 8; ++i)
        end += tokens[i].size() + 1;
    if (end > cut.size() && line.size() > cut.size())
        return "its first line is cut within the counts at 127 bytes";
    return std::string();
}

long meminfoKib(const std::string& text, bool& fallback) {
    fallback = false;
    const std::string key = "MemAvailable:";
    const size_t at = text.find(key);
    if (at != std::string::npos) {
        const size_t start = at + key.size();
        const size_t end = text.find('\n', start);
        if (end != std::string::npos && end > start)
            return std::strtol(std::string(text, start, end - start).c_str(), nullptr, 10);
    }
    // Older kernels: MemFree + Buffers + Cached - 1, the first field of each line compared
    // with strstr as the driver does, reading stopped once all four (MemTotal too) were seen.
    fallback = true;
    const char* const keys[] = {"MemTotal", "MemFree", "Buffers", "Cached"};
    bool seen[4] = {false, false, false, false};
    long kib = -1;
    const std::vector<std::string> lines = split(text, '\n');
    for (size_t n = 0; n < lines.size(); ++n) {
        std::string first;
        if (!nextField(lines[n], 0, first))
            continue;
        for (int k = 0; k < 4; ++k) {
            if (std::strstr(first.c_str(), keys[k]) == nullptr)
                continue;
            std::string value;
            if (!nextField(lines[n], lines[n].find(first) + first.size(), value))
                return -1;
            if (k > 0)
                kib += std::strtol(value.c_str(), nullptr, 10);
            seen[k] = true;
            break;
        }
        if (seen[0] && seen[1] && seen[2] && seen[3])
            return kib;
    }
    return -1;
}

}  // namespace panel_check
