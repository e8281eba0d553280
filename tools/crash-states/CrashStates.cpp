#include "CrashStates.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace crash_states {

namespace {

// FsRecord.c writes bytes as hexadecimal digits ending in "-".
bool unhex(const std::string& text, std::string& bytes) {
    if (text.empty() || text.back() != '-' || text.size() % 2 == 0)
        return false;
    for (size_t i = 0; i + 1 < text.size(); i += 2)
        bytes += static_cast<char>(std::strtol(text.substr(i, 2).c_str(), nullptr, 16));
    return true;
}

struct Medium {
    std::map<std::string, int> names;
    std::map<int, File> files;

    State state() const {
        State state;
        for (const auto& name : names) {
            const auto file = files.find(name.second);
            if (file != files.end())
                state[name.first] = file->second;
        }
        return state;
    }
};

template <class Event>
void apply(Medium& m, const Event& e) {
    File& file = m.files[e.file];  // -1 for events on names only
    if (e.kind == "init" || e.kind == "create") {
        file = File();
        file.data = e.bytes;
        file.mode = e.mode;
        file.uid = e.uid;
        file.gid = e.gid;
    }
    if ((e.kind == "init" || e.kind == "create" || e.kind == "link") && e.name != "-") {
        m.names[e.name] = e.file;
    } else if (e.kind == "rename" && m.names.count(e.name) && e.name != e.other) {
        m.names[e.other] = m.names[e.name];
        m.names.erase(e.name);
    } else if (e.kind == "unlink") {
        m.names.erase(e.name);
    } else if (e.kind == "chmod") {
        file.mode = e.mode;
    } else if (e.kind == "chown") {
        file.uid = e.uid;
        file.gid = e.gid;
    } else if (e.kind == "write") {
        const size_t end = static_cast<size_t>(e.size) + e.bytes.size();
        if (file.data.size() < end)
            file.data.resize(end, '\0');
        file.data.replace(static_cast<size_t>(e.size), e.bytes.size(), e.bytes);
    } else if (e.kind == "trunc") {
        file.data.resize(static_cast<size_t>(e.size), '\0');
    }
}

}  // namespace

Trace::Trace(const std::string& path) {
    std::ifstream in(path);
    std::string line, hex;
    Medium medium;
    std::vector<State> marked;
    while (std::getline(in, line)) {
        std::istringstream words(line);
        Event e;
        words >> e.kind;
        const std::string& k = e.kind;
        if (k == "init")
            words >> e.name >> e.file >> std::oct >> e.mode >> std::dec >> e.uid >> e.gid >> hex;
        else if (k == "create")
            words >> e.name >> e.file >> std::oct >> e.mode;
        else if (k == "link")
            words >> e.file >> e.name;
        else if (k == "chmod")
            words >> e.file >> std::oct >> e.mode;
        else if (k == "chown")
            words >> e.file >> e.uid >> e.gid;
        else if (k == "rename")
            words >> e.name >> e.other;
        else if (k == "unlink" || k == "fsyncdir")
            words >> e.name;
        else if (k == "write")
            words >> e.file >> e.size >> hex;
        else if (k == "trunc")
            words >> e.file >> e.size;
        else if (k == "fsync")
            words >> e.file;
        else if (k != "sync" && k != "mark")
            return;
        if (!words || ((k == "init" || k == "write") && !unhex(hex, e.bytes)))
            return;
        if (k == "mark")
            marked.push_back(medium.state());
        apply(medium, e);
        (k == "init" ? start_ : events_).push_back(e);
    }
    Medium begin;
    for (const Event& e : start_)
        apply(begin, e);
    versions_.push_back(begin.state());
    versions_.insert(versions_.end(), marked.begin(), marked.end());
    versions_.push_back(medium.state());
    ok_ = !start_.empty();
}

bool Trace::isMetadata(const Event& e) const {
    return e.kind == "create" || e.kind == "link" || e.kind == "rename" || e.kind == "unlink" ||
           e.kind == "chmod" || e.kind == "chown";
}

long Trace::explore(const std::function<void(const State&, int marks)>& visit) const {
    // What of a file's data changes may be on the medium: `count` of them whole, then the next
    // one whole (part 0), in half (1) or as zeros (2).
    struct Choice {
        size_t count;
        int part;
    };
    long states = 0;
    for (size_t at = 0; at <= events_.size(); ++at) {  // the power is cut after `at` calls
        int marks = 0;
        size_t metaDurable = 0, allDurable = 0;
        std::map<int, size_t> fileDurable;
        for (size_t i = 0; i < at; ++i) {
            const std::string& k = events_[i].kind;
            marks += k == "mark";
            if (k == "sync")
                allDurable = i + 1;
            if (k == "sync" || k == "fsyncdir")
                metaDurable = i + 1;
            if (k == "fsync")
                fileDurable[events_[i].file] = i + 1;
        }
        std::vector<size_t> meta;
        size_t metaMin = 0;
        std::map<int, std::vector<size_t>> data;
        std::map<int, size_t> dataMin;
        for (size_t i = 0; i < at; ++i) {
            const Event& e = events_[i];
            if (isMetadata(e)) {
                meta.push_back(i);
                metaMin = i < metaDurable ? meta.size() : metaMin;
            } else if (e.kind == "write" || e.kind == "trunc") {
                data[e.file].push_back(i);
                if (i < allDurable || i < fileDurable[e.file])
                    dataMin[e.file] = data[e.file].size();
            }
        }
        std::vector<std::pair<int, std::vector<Choice>>> options;
        for (const auto& file : data) {
            std::vector<Choice> choices;
            for (size_t n = dataMin[file.first]; n <= file.second.size(); ++n) {
                choices.push_back({n, 0});
                if (n < file.second.size() && events_[file.second[n]].kind == "write") {
                    choices.push_back({n, 1});
                    choices.push_back({n, 2});
                }
            }
            options.emplace_back(file.first, choices);
        }
        for (size_t applied = metaMin; applied <= meta.size(); ++applied) {
            std::vector<size_t> pick(options.size(), 0);
            for (bool more = true; more;) {
                Medium m;
                for (const Event& e : start_)
                    apply(m, e);
                for (size_t j = 0; j < applied; ++j)
                    apply(m, events_[meta[j]]);
                for (size_t o = 0; o < options.size(); ++o) {
                    const Choice c = options[o].second[pick[o]];
                    const std::vector<size_t>& ops = data[options[o].first];
                    for (size_t j = 0; j < c.count; ++j)
                        apply(m, events_[ops[j]]);
                    if (c.part != 0) {
                        Event cut = events_[ops[c.count]];
                        if (c.part == 1)
                            cut.bytes.resize(cut.bytes.size() / 2);
                        else
                            cut.bytes.assign(cut.bytes.size(), '\0');
                        apply(m, cut);
                    }
                }
                visit(m.state(), marks);
                ++states;
                // The next combination of the files' choices, the first file fastest.
                more = false;
                for (size_t o = 0; o < pick.size() && !more; ++o) {
                    more = ++pick[o] < options[o].second.size();
                    if (!more)
                        pick[o] = 0;
                }
            }
        }
    }
    return states;
}

}  // namespace crash_states
