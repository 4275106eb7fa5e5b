// SPDX-License-Identifier: LicenseRef-Tarnix
// Reaping of children.
#include "reaping.h"

#include "neverdestroyed.h"
#include "polling.h"
#include "retry.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <new>
#include <vector>

namespace tarnix_platform
{

namespace
{

// Children whose last handle was closed while they ran.
class Orphans
{
public:
    void add(UniqueFd pidfd)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_PidFds.push_back(std::move(pidfd));
        m_Count.store(m_PidFds.size(), std::memory_order_relaxed);
    }

    void reapEnded()
    {
        if (m_Count.load(std::memory_order_relaxed) == 0) {
            return;
        }
        const std::lock_guard<std::mutex> lock(m_Mutex);
        const auto ended = [](const UniqueFd& pidfd) {
            siginfo_t info;
            return reap(pidfd.get(), info) != Reaped::no;
        };
        m_PidFds.erase(std::remove_if(m_PidFds.begin(), m_PidFds.end(), ended), m_PidFds.end());
        m_Count.store(m_PidFds.size(), std::memory_order_relaxed);
    }

private:
    std::mutex m_Mutex;
    std::vector<UniqueFd> m_PidFds;
    std::atomic<std::size_t> m_Count{};
};

} // namespace

Reaped reap(int pidfd, siginfo_t& info, rusage* used, int options)
{
    info = siginfo_t{};
    // The C library's waitid does not pass on what the child has used.
    const auto result = retryInterrupted(
        [&] { return ::syscall(SYS_waitid, P_PIDFD, pidfd, &info, WEXITED | options, used); });
    if (result != 0) {
        return Reaped::elsewhere;
    }
    return info.si_pid == 0 ? Reaped::no : Reaped::yes;
}

void reapSoon(UniqueFd pidfd) noexcept
{
    awaitDescriptor(pidfd.get(), kKillTimeout);
    try {
        siginfo_t info;
        if (reap(pidfd.get(), info) == Reaped::no) {
            addOrphan(std::move(pidfd));
        }
    } catch (const std::bad_alloc&) {
        // Then nobody reaps the child: once it has ended, it is a zombie until this process ends.
    }
}

void addOrphan(UniqueFd pidfd)
{
    neverDestroyed<Orphans>().add(std::move(pidfd));
}

void reapOrphans()
{
    neverDestroyed<Orphans>().reapEnded();
}

} // namespace tarnix_platform
