#include "Ini.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace panel_check {

namespace {

const char kBlanks[] = " \t\f\v";

std::string trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string::npos)
        return std::string();
    return std::string(text, first, text.find_last_not_of(kBlanks) + 1 - first);
}

char escaped(char c) {
    switch (c) {
        case 'a':
            return '\a';
        case 'b':
            return '\b';
        case 'f':
            return '\f';
        case 'n':
            return '\n';
        case 'r':
            return '\r';
        case 't':
            return '\t';
        case 'v':
            return '\v';
        default:
            return c;
    }
}

// The value after '=': quoted parts kept as they are, blanks around unquoted parts dropped, a
// ';' outside quotes ends it, a ',' outside quotes makes it a list.
IniValue parseValue(const std::string& raw) {
    const std::string blanks(kBlanks);
    IniValue value;
    std::string item;
    size_t keep = 0;  // what trailing blanks may not cut: up to the last quoted or escaped byte
    bool quoted = false, started = false;
    for (size_t i = 0; i < raw.size(); ++i) {
        const char c = raw[i];
        if (!quoted && !started && blanks.find(c) != std::string::npos)
            continue;
        started = true;
        if (c == '\\' && i + 1 < raw.size()) {
            item += escaped(raw[++i]);
            keep = item.size();
        } else if (c == '"') {
            quoted = !quoted;
            keep = item.size();
        } else if (quoted) {
            item += c;
            keep = item.size();
        } else if (c == ';') {
            break;
        } else if (c == ',') {
            value.list = true;
            item.clear();
            keep = 0;
            started = false;
        } else {
            item += c;
        }
    }
    const size_t last = item.find_last_not_of(kBlanks);
    item.resize(last == std::string::npos || last + 1 < keep ? keep : last + 1);
    value.text = value.list ? std::string() : item;
    return value;
}

}  // namespace

bool IniFile::read(const std::string& path) {
    std::FILE* in = std::fopen(path.c_str(), "rb");
    if (!in)
        return false;
    std::string text;
    char buffer[4096];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, in)) > 0)
        text.append(buffer, n);
    const bool ok = !std::ferror(in);
    std::fclose(in);
    if (ok)
        parse(text);
    return ok;
}

void IniFile::parse(const std::string& text) {
    std::string group;
    int number = 0;
    size_t start = 0;
    while (start <= text.size()) {
        size_t end = text.find_first_of("\r\n", start);
        if (end == std::string::npos)
            end = text.size();
        const std::string line = trimmed(std::string(text, start, end - start));
        // "\r\n" is one line break.
        start =
            end + ((end + 1 < text.size() && text[end] == '\r' && text[end + 1] == '\n') ? 2 : 1);
        ++number;
        if (line.empty() || line[0] == ';')
            continue;
        if (line[0] == '[') {
            const size_t close = line.find(']');
            if (close == std::string::npos)
                m_malformed.push_back(number);
            else
                group = trimmed(std::string(line, 1, close - 1));
            continue;
        }
        const size_t equals = line.find('=');
        if (equals == std::string::npos) {
            m_malformed.push_back(number);
            continue;
        }
        const std::string key = trimmed(std::string(line, 0, equals));
        if (key.empty())
            continue;
        IniValue value = parseValue(std::string(line, equals + 1));
        value.line = number;
        m_values[group.empty() || group == "General" ? name("", key) : name(group, key)] = value;
    }
}

bool IniFile::find(const std::string& group, const std::string& key, IniValue& value) const {
    std::map<std::string, IniValue>::const_iterator it = m_values.find(name(group, key));
    if (it == m_values.end())
        return false;
    value = it->second;
    return true;
}

std::string IniFile::name(const std::string& group, const std::string& key) const {
    std::string text = group.empty() ? key : group + "/" + key;
    for (size_t i = 0; i < text.size() && !m_caseSensitive; ++i)
        text[i] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[i])));
    return text;
}

int iniInt(const std::string& text, bool& isNumber) {
    const std::string t = trimmed(text);
    char* end = nullptr;
    errno = 0;
    const long n = std::strtol(t.c_str(), &end, 10);
    isNumber =
        !t.empty() && *end == '\0' && errno == 0 && n >= -2147483647L - 1 && n <= 2147483647L;
    return isNumber ? static_cast<int>(n) : 0;
}

}  // namespace panel_check
