// SPDX-License-Identifier: LicenseRef-Tarnix
// A child with a handle, and its exit status.
#ifndef TARNIX_PLATFORM_PROCESS_H
#define TARNIX_PLATFORM_PROCESS_H

#include "child.h"
#include "pipe.h"

#include <sys/resource.h>

#include <memory>
#include <mutex>
#include <optional>

namespace tarnix_platform
{

class Process : public Object
{
public:
    Process(std::weak_ptr<Pipe> output, std::weak_ptr<Pipe> error);
    ~Process() override;

    // Sets the child after its start, at once. Until then the process counts as ended. A child that
    // keeps its group is reaped by the destructor.
    void adopt(Child child, bool keepsGroup);

    int pidfd() const { return m_Child.pidfd.get(); }

    // Whether the child has ended. The first call after its end marks the end of its output, and
    // reaps the child unless that keeps its group.
    bool ended();

    // These use the ids of the child and its group only until the child has been reaped: after that
    // another process may have them.
    bool isRunning(DWORD pid) const;
    bool signalGroup(int signal);
    bool kill(UINT status);

    BOOL exitStatus(DWORD* status);

    // The child's processor time and memory. False as long as they are not known.
    bool used(rusage& usage) const;

    void killGroupAtEnd();

    // False if no signal ended the child, or the one of `kill` did.
    bool endingSignal(int& signal, bool& coreDumped) const;

private:
    bool tryReap();
    void killGroup();
    bool send(int signal);
    bool sendToChild(int signal) const;
    bool reapedElsewhere() const;

    mutable std::mutex m_Mutex;
    Child m_Child;
    const std::weak_ptr<Pipe> m_Outputs[2];
    bool m_Ended = true;
    std::optional<UINT> m_KillStatus; // set if it was killed
    std::optional<DWORD> m_Status;    // set once it is known
    int m_Signal = 0;                 // that ended the child; 0 if none did, or that of `kill`
    bool m_CoreDumped{};
    bool m_KeepsGroup{};
    bool m_KillsGroupAtEnd = false;
    bool m_IsZombie = false; // has ended, and is not reaped: its ids are still its own
    rusage m_Used{};
    long m_CallerPeak{}; // the calling process's largest resident memory at the start
};

} // namespace tarnix_platform

#endif
