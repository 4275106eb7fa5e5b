// An exclusive lock between processes.
#ifndef TARNIX_PLATFORM_FILELOCK_H
#define TARNIX_PLATFORM_FILELOCK_H

#include <string>

namespace tarnix_platform
{

class FileLock
{
public:
    FileLock() = default;
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    // Locks the open file, which must stay open as long as this object exists. Waits 10 seconds at
    // most: a process that is stopped while it holds the lock would otherwise stop every other one.
    // False on failure (ETIMEDOUT), with the last error set; `path` is for its text.
    bool acquire(int fd, const std::string& path);

private:
    int m_Fd = -1;
};

} // namespace tarnix_platform

#endif
