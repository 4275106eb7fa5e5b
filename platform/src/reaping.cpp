// Reaping of children.
#include "reaping.h"

#include "neverdestroyed.h"
#include "retry.h"

#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <vector>

namespace tarnix_platform
{

namespace
{

int waitFor(int pidfd, siginfo_t& info, int options)
{
    info = siginfo_t{};
    return retryInterrupted([&] {
        return ::waitid(static_cast<idtype_t>(P_PIDFD), static_cast<id_t>(pidfd), &info,
                        WEXITED | options);
    });
}

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
    std::atomic<std::size_t> m_Count{0};
};

} // namespace

Reaped reap(int pidfd, siginfo_t& info)
{
    if (waitFor(pidfd, info, WNOHANG) != 0) {
        return Reaped::elsewhere;
    }
    return info.si_pid == 0 ? Reaped::no : Reaped::yes;
}

void reapAtEnd(int pidfd)
{
    siginfo_t info;
    waitFor(pidfd, info, 0);
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
