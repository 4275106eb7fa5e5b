// SPDX-License-Identifier: LicenseRef-Tarnix
// An exclusive lock between processes.
#ifndef TARNIX_PLATFORM_FILELOCK_H
#define TARNIX_PLATFORM_FILELOCK_H

#include "platform_types.h"

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

    // Locks the open file, which must stay open as long as this object exists. Waits as long as
    // setLockTimeout says: a process that is stopped while it holds the lock would otherwise stop
    // every other one. False on failure (ETIMEDOUT), with the last error set; `path` is for its
    // text.
    bool acquire(int fd, const std::string& path);

private:
    int m_Fd = -1;
};

// How long `acquire` waits, in milliseconds: at first 10000. For the whole process; any thread may
// call. Returns the former timeout.
DWORD setLockTimeout(DWORD milliseconds);

} // namespace tarnix_platform

#endif
