// INI files read with QSettings' rules as far as the driver's keys need them: [groups], key=value
// lines, ';' comments, quoted values and backslash escapes; a later key replaces an earlier one;
// a value with a comma outside quotes is a list, which the driver reads as an empty text. Qt 4
// matches groups and keys whatever their case, Qt 5 exactly.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace panel_check {

struct IniValue {
    std::string text;
    bool list = false;
    int line = 0;
};

class IniFile {
public:
    explicit IniFile(bool caseSensitive) : m_caseSensitive(caseSensitive) {}
    // False when the file cannot be read.
    bool read(const std::string& path);
    void parse(const std::string& text);
    // Lines that are neither a group, a key=value line, a comment nor blank: QSettings reports a
    // format error for them and leaves them out when it writes the file.
    const std::vector<int>& malformedLines() const { return m_malformed; }
    bool find(const std::string& group, const std::string& key, IniValue& value) const;

private:
    std::string name(const std::string& group, const std::string& key) const;

    bool m_caseSensitive;
    std::map<std::string, IniValue> m_values;  // "group/key"
    std::vector<int> m_malformed;
};

// The integer QString::toInt gives for a whole text (0 when it is not one).
int iniInt(const std::string& text, bool& isNumber);

}  // namespace panel_check
