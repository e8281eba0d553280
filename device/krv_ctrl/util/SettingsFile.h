// Guards every access of the driver to a settings file through QSettings.
//
// Qt 4 rewrites a settings file in place (truncate, then write), so a kill or power cut in the
// middle leaves it empty or cut short; and both Qt versions keep a parsed copy per process that
// they reread only when the file's size or modification time changes (Qt 4: whole seconds,
// Qt 5: milliseconds). Around each access this class
// - fills a synced copy of the file beside it ("<file>.krvcopy", mode 0600) for the length of a
//   write, and on any access puts it back in place when it finds the file damaged (empty, not
//   ending in a line break, holding a zero byte, or missing a key the copy has), then empties
//   it (an empty copy stays in place);
// - moves the modification time one step on when the file changed behind Qt's back without a
//   visible change, and after a write when the write left size and time step as they were, so
//   the parsed copies of this and every other process are reread.
// All accesses of the process are serialised by one mutex held from construction to
// destruction. Construct it before the QSettings object and destroy it after that object.
#pragma once

#include <QString>
#include <memory>

namespace KRVCTRL {

class SettingsFile {
public:
    enum Access { Read, Write };

    SettingsFile(const QString& path, Access access);
    ~SettingsFile();
    SettingsFile(const SettingsFile&) = delete;
    SettingsFile& operator=(const SettingsFile&) = delete;

    // After QSettings::sync() of a write and before the system-wide sync(): makes the write
    // visible to every reader's parsed copy.
    void written();

private:
    struct State;
    std::unique_ptr<State> m_state;
};

}  // namespace KRVCTRL
