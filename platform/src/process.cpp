// SPDX-License-Identifier: LicenseRef-Tarnix
// A child with a handle: signalling, killing, and its exit status.
#include "process.h"

#include "polling.h"
#include "reaping.h"

#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <new>

namespace tarnix_platform
{

Process::Process(std::weak_ptr<Pipe> output, std::weak_ptr<Pipe> error)
    : m_Outputs{std::move(output), std::move(error)}
{
}

void Process::adopt(Child child, bool keepsGroup)
{
    rusage caller{};
    ::getrusage(RUSAGE_SELF, &caller);
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_CallerPeak = caller.ru_maxrss;
    m_Child = std::move(child);
    m_KeepsGroup = keepsGroup;
    m_Ended = false;
}

Process::~Process()
{
    if (!m_Ended && m_KillStatus) {
        awaitDescriptor(m_Child.pidfd.get(), kKillTimeout);
    }
    try {
        if (!ended()) {
            addOrphan(std::move(m_Child.pidfd));
        }
        if (m_IsZombie) {
            siginfo_t info;
            reap(m_Child.pidfd.get(), info);
        }
    } catch (const std::bad_alloc&) {
        // Then nobody reaps the child: once it has ended, it is a zombie until this process ends.
    }
}

bool Process::ended()
{
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        if (m_Ended || !tryReap()) {
            return m_Ended;
        }
    }
    for (const std::weak_ptr<Pipe>& output : m_Outputs) {
        if (const std::shared_ptr<Pipe> pipe = output.lock()) {
            pipe->markEndOfOutput();
        }
    }
    return true;
}

bool Process::tryReap()
{
    siginfo_t info;
    switch (reap(m_Child.pidfd.get(), info, &m_Used, m_KeepsGroup ? WNOHANG | WNOWAIT : WNOHANG)) {
    case Reaped::no:
        return false;
    case Reaped::elsewhere:
        break;
    case Reaped::yes:
        m_IsZombie = m_KeepsGroup;
        m_Status = static_cast<DWORD>(info.si_status);
        if (info.si_code != CLD_EXITED) {
            if (m_KillStatus && info.si_status == SIGKILL) {
                m_Status = *m_KillStatus;
            } else {
                m_Status = 128 + static_cast<DWORD>(info.si_status);
                m_Signal = info.si_status;
                m_CoreDumped = info.si_code == CLD_DUMPED;
            }
        }
    }
    m_Ended = true;
    killGroup();
    return true;
}

// Only before the child is reaped: no other process or group can have its id.
void Process::killGroup()
{
    if (m_KillsGroupAtEnd && m_IsZombie && !reapedElsewhere()) {
        ::kill(-m_Child.pid, SIGKILL);
    }
}

bool Process::sendToChild(int signal) const
{
    return ::syscall(SYS_pidfd_send_signal, m_Child.pidfd.get(), signal, nullptr, 0) == 0;
}

// By the calling process: then another process or group may have the child's id.
bool Process::reapedElsewhere() const
{
    return !sendToChild(0) && errno == ESRCH;
}

bool Process::isRunning(DWORD pid) const
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return !m_Ended && static_cast<DWORD>(m_Child.pid) == pid;
}

bool Process::signalGroup(int signal)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return send(signal);
}

// All callers have just called `ended`, which notices a child that was reaped elsewhere.
bool Process::send(int signal)
{
    if (m_Ended) {
        return fail(ESRCH);
    }
    const bool group = ::kill(-m_Child.pid, signal) == 0;
    // A child must get the signal only once: a second Ctrl-C means something else to many programs.
    // So it is signalled by its own id only if the signal to its group has not reached it; it may
    // have moved to another group.
    const bool moved = ::getpgid(m_Child.pid) != m_Child.pid;
    const bool child = (group && !moved) || sendToChild(signal);
    return group || child ? true : fail(errno);
}

bool Process::kill(UINT status)
{
    ended();
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (!send(SIGKILL)) {
        return false;
    }
    m_KillStatus = status;
    return true;
}

BOOL Process::exitStatus(DWORD* status)
{
    if (!ended()) {
        return fail(EBUSY);
    }
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (!m_Status) {
        return fail(ECHILD);
    }
    *status = *m_Status;
    return true;
}

bool Process::used(rusage& usage) const
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (!m_Status) {
        return fail(ECHILD);
    }
    usage = m_Used;
    // The kernel counts from the clone, when the child had the caller's memory.
    usage.ru_maxrss = m_Used.ru_maxrss > m_CallerPeak ? m_Used.ru_maxrss : 0;
    return true;
}

void Process::killGroupAtEnd()
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_KillsGroupAtEnd = true;
    killGroup();
}

bool Process::endingSignal(int& signal, bool& coreDumped) const
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_Signal == 0) {
        return false;
    }
    signal = m_Signal;
    coreDumped = m_CoreDumped;
    return true;
}

} // namespace tarnix_platform
