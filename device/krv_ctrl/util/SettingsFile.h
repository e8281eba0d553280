// Every access of the driver to a settings file through QSettings goes through here.
//
// The panel may lose power at any moment, and other programs of the panel (its GUI, the
// remote-view service) read these files at boot before any driver runs: a write never changes a
// file in place. Its new contents go into a new file beside it, "<file>.krvnew-<pid>-<n>",
// written by QSettings from a copy of the file's bytes; that file is checked whole, given the
// file's owner and mode, fsynced and renamed over the file, then the system-wide sync() runs. A
// failure before the rename leaves the file as it was and removes the new file. Where no file can
// be made beside it (a read-only directory) the write goes to the file itself, as the panel's Qt
// makes it. The new files of writes killed in between, and the lock and temporary files Qt 5 makes
// for them, are removed by the next process's first access of the file, once the process that
// made them is gone; nothing else beside a file is touched.
//
// Both Qt versions keep a parsed copy of each file per process that they reread only when the
// file's size or modification time changes (Qt 4: whole seconds, Qt 5: milliseconds). A file
// changed behind Qt's back without a visible change has its modification time moved one step on
// before a read, and every write leaves the file a later step than it had, so that the parsed
// copies of this and every other process are reread.
//
// All accesses of the process are serialised by one mutex.
#pragma once

#include <QString>
#include <memory>
#include <utility>
#include <vector>

namespace KRVCTRL {

class SettingsFile {
public:
    // A read: constructed before the QSettings object on `path`, destroyed after it.
    explicit SettingsFile(const QString& path);
    ~SettingsFile();
    SettingsFile(const SettingsFile&) = delete;
    SettingsFile& operator=(const SettingsFile&) = delete;

    // Sets each "/group/key" path to its text (with the UTF-8 codec unless `utf8` is false), then
    // sync(). False when the file was left as it was.
    static bool write(const QString& path, const std::vector<std::pair<QString, QString>>& values,
                      bool utf8);

private:
    struct State;
    std::unique_ptr<State> m_state;
};

}  // namespace KRVCTRL
