// Thin, error-tolerant wrappers over POSIX descriptors and advisory file locks.
#pragma once

#include <string>

namespace KRVCTRL {

class File {
public:
    File() = default;
    ~File();
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    bool open(const std::string& path, int flags);
    bool seek(unsigned int offset);
    // The whole file from offset 0; the position is restored afterwards.
    std::string readAll();
    int descriptor() const { return m_fd; }
    int lastError() const { return m_lastError; }

    static bool is_file_exist(const std::string& path);

private:
    int m_fd = -1;
    int m_lastError = 0;
};

// A lock file, opened by the caller through file().
class FileLock {
public:
    FileLock();
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    File& file() { return *m_file; }

private:
    File* m_file;
};

// Holds an exclusive flock on a FileLock for its scope.
class FileLocker {
public:
    explicit FileLocker(FileLock& lock);
    ~FileLocker();
    FileLocker(const FileLocker&) = delete;
    FileLocker& operator=(const FileLocker&) = delete;

private:
    FileLock& m_lock;
};

// Replaces a file as a whole: the new contents go into a copy beside it, which is pushed to the
// medium and renamed over the file, so that a kill or a power cut leaves either the old or the
// new file. A writer that rewrites the file in place (as older INI writers do) can leave it
// truncated or empty instead.
class FileReplacer {
public:
    // Makes the copy with the file's contents, mode and owner (empty when the file is missing,
    // creating missing directories). When the directory refuses new files but the file may
    // still be writable (EACCES), path() is the file itself and it is changed in place.
    explicit FileReplacer(const std::string& target);
    ~FileReplacer();
    FileReplacer(const FileReplacer&) = delete;
    FileReplacer& operator=(const FileReplacer&) = delete;

    // False when there is nowhere to write (no copy and no in-place fallback).
    bool ok() const { return !m_path.empty(); }
    const std::string& path() const { return m_path; }
    // Syncs the copy and renames it into place; false leaves the file as it was.
    bool commit();

private:
    std::string m_target;
    std::string m_path;
    bool m_copy = false;
};

}  // namespace KRVCTRL
