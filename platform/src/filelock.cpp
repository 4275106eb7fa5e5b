// SPDX-License-Identifier: LicenseRef-Tarnix
// An exclusive lock between processes.
#include "filelock.h"

#include "errors.h"

#include <sys/file.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <thread>

namespace tarnix_platform
{

namespace
{

std::atomic<DWORD> g_timeout{10000};

} // namespace

DWORD setLockTimeout(DWORD milliseconds)
{
    return g_timeout.exchange(milliseconds, std::memory_order_relaxed);
}

// Closing the file would not release the lock if a process that was forked meanwhile has it open
// too.
FileLock::~FileLock()
{
    ::flock(m_Fd, LOCK_UN); // no effect if nothing was locked
}

// Polls, because a wait of the system has no timeout.
bool FileLock::acquire(int fd, const std::string& path)
{
    const std::chrono::milliseconds timeout{g_timeout.load(std::memory_order_relaxed)};
    constexpr std::chrono::milliseconds interval{1};
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) {
            return fail(errno, "cannot lock '" + path + "'");
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            return fail(ETIMEDOUT, "timed out locking '" + path + "'");
        }
        std::this_thread::sleep_for(interval);
    }
    m_Fd = fd;
    return true;
}

} // namespace tarnix_platform
