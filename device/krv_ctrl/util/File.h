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

// Marks a descriptor close-on-exec (nothing for a negative one).
void closeOnExec(int fd);

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

// Holds an exclusive flock on a FileLock for its scope, waiting as long as another holder keeps
// it (through signals too).
class FileLocker {
public:
    explicit FileLocker(FileLock& lock);
    ~FileLocker();
    FileLocker(const FileLocker&) = delete;
    FileLocker& operator=(const FileLocker&) = delete;

private:
    FileLock& m_lock;
};

}  // namespace KRVCTRL
