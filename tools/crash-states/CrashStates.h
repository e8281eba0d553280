// Every state a power cut could leave on the medium, built from a trace that FsRecord.c wrote.
//
// The model, the panel's file systems (ext4 in ordered mode, UBIFS) taken at their weakest:
// - Metadata changes (a file made, a name made, changed or removed, an owner or mode set) reach
//   the medium in the order they were made: after a power cut any prefix of them is there, at
//   least every one made before the last sync() or fsync of a directory. So a new name (a rename
//   too) is durable only once its directory is synced or sync() ran.
// - A file's data changes (writes, truncations) reach the medium in order, apart from the
//   metadata and from other files: any prefix of them, at least every one made before the file's
//   last fsync or sync(). The first change beyond the prefix may be there in part (its first
//   half) or as zeros in place of its bytes.
// - A new file belongs to whoever made it until its owner is set.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace crash_states {

struct File {
    std::string data;
    unsigned mode = 0;
    long uid = -1, gid = -1;  // -1: the process that made the file
};
// The regular files a reader finds by name, by path.
using State = std::map<std::string, File>;

class Trace {
public:
    explicit Trace(const std::string& path);
    // False when the trace is missing or malformed.
    bool ok() const { return ok_; }
    // The files after every call up to each mark, with no power cut: the start first, the end
    // of the trace last.
    const std::vector<State>& versions() const { return versions_; }
    // Calls `visit` with each state a power cut at any point of the trace could leave, and the
    // number of marks before that point. Returns the number of states.
    long explore(const std::function<void(const State&, int marks)>& visit) const;

private:
    struct Event {
        std::string kind, name, other;  // other: a rename's new name
        int file = -1;
        long long size = 0;  // a write's offset or a truncation's length
        std::string bytes;
        unsigned mode = 0;
        long uid = -1, gid = -1;
    };
    bool isMetadata(const Event& e) const;
    bool ok_ = false;
    std::vector<Event> start_, events_;
    std::vector<State> versions_;
};

}  // namespace crash_states
