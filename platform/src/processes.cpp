// Starting, signalling, killing and reaping children.
#include "processes.h"

#include "commandline.h"
#include "waits.h"

#include <csignal>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <vector>

namespace tarnix_platform
{

namespace
{

enum class Reaped { no, yes, elsewhere };

Reaped reap(int pidfd, siginfo_t& info)
{
    info = siginfo_t{};
    int result = 0;
    do {
        result = waitid(static_cast<idtype_t>(P_PIDFD), static_cast<id_t>(pidfd), &info,
                        WEXITED | WNOHANG);
    } while (result != 0 && errno == EINTR);
    if (result != 0) {
        return Reaped::elsewhere;
    }
    return info.si_pid == 0 ? Reaped::no : Reaped::yes;
}

// Children whose last handle was closed while they ran. Nobody waits for them any more, but they
// must not stay behind as zombies: each later start and each later end of a handle looks after
// them.
class Orphans
{
public:
    void add(UniqueFd pidfd)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_PidFds.push_back(std::move(pidfd));
    }

    void reapEnded()
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        std::vector<UniqueFd> running;
        for (UniqueFd& pidfd : m_PidFds) {
            siginfo_t info;
            if (reap(pidfd.get(), info) == Reaped::no) {
                running.push_back(std::move(pidfd));
            }
        }
        m_PidFds = std::move(running);
    }

private:
    std::mutex m_Mutex;
    std::vector<UniqueFd> m_PidFds;
};

Orphans& orphans()
{
    static Orphans& instance = *std::make_unique<Orphans>().release();
    return instance;
}

// SIGKILL takes effect at once unless the child sits in the kernel, on a dead disk for example.
constexpr DWORD killPatience = 2000;

} // namespace

Process::Process(Child child, std::weak_ptr<Pipe> output, std::weak_ptr<Pipe> error)
    : m_Child(std::move(child)), m_Outputs{std::move(output), std::move(error)}
{
}

Process::~Process()
{
    if (!m_Ended && m_Killed) {
        awaitDescriptor(m_Child.pidfd.get(), killPatience);
    }
    if (!ended()) {
        orphans().add(std::move(m_Child.pidfd));
    }
    orphans().reapEnded();
}

bool Process::ended()
{
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        if (m_Ended || !look()) {
            return m_Ended;
        }
    }
    for (const std::weak_ptr<Pipe>& output : m_Outputs) {
        if (const std::shared_ptr<Pipe> pipe = output.lock()) {
            pipe->seal();
        }
    }
    return true;
}

bool Process::look()
{
    siginfo_t info;
    switch (reap(m_Child.pidfd.get(), info)) {
    case Reaped::no:
        return false;
    case Reaped::elsewhere: // the host reaped it, or ignores SIGCHLD
        break;
    case Reaped::yes:
        m_StatusKnown = true;
        m_Status = static_cast<DWORD>(info.si_status);
        if (info.si_code != CLD_EXITED) {
            m_Status = m_Killed && info.si_status == SIGKILL ? m_KillStatus : m_Status + 128;
        }
    }
    m_Ended = true;
    return true;
}

bool Process::isRunning(DWORD pid) const
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return !m_Ended && static_cast<DWORD>(m_Child.pid) == pid;
}

bool Process::signalGroup(int signal)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return !m_Ended ? send(signal) : fail(ESRCH);
}

bool Process::send(int signal)
{
    // The child itself too: it may have moved to another group.
    const bool group = ::kill(-m_Child.pid, signal) == 0;
    const bool leader =
        syscall(SYS_pidfd_send_signal, m_Child.pidfd.get(), signal, nullptr, 0) == 0;
    return group || leader ? true : fail(errno);
}

bool Process::kill(UINT status)
{
    if (ended()) {
        return fail(ESRCH);
    }
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_Ended) {
        return fail(ESRCH);
    }
    m_Killed = true;
    m_KillStatus = status;
    return send(SIGKILL);
}

BOOL Process::exitStatus(DWORD* status)
{
    if (!ended()) {
        return fail(EBUSY);
    }
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (!m_StatusKnown) {
        return fail(ECHILD);
    }
    *status = m_Status;
    return true;
}

namespace
{

// Only closed: the child's first thread has no life of its own here.
class Thread : public Object
{
};

struct StandardEnds {
    std::shared_ptr<PipeEnd> ends[3];
};

bool findEnds(const STARTUPINFOA& startup, StandardEnds& found)
{
    const HANDLE handles[3] = {startup.hStdInput, startup.hStdOutput, startup.hStdError};
    for (int i = 0; i < 3; ++i) {
        found.ends[i] = find<PipeEnd>(handles[i]);
        if (!found.ends[i]) {
            return fail(EBADF, "a standard handle is no pipe end");
        }
    }
    return true;
}

// The output that the runner reads: the server end that the child writes to.
std::weak_ptr<Pipe> writtenPipe(const PipeEnd& end)
{
    return end.side() == Side::server ? std::weak_ptr<Pipe>(end.pipe()) : std::weak_ptr<Pipe>();
}

bool makeHandles(const std::shared_ptr<Process>& process, PROCESS_INFORMATION& information)
{
    information.hProcess = openHandle(process);
    if (information.hProcess == nullptr) {
        process->kill(0);
        return false;
    }
    information.hThread = openHandle(std::make_shared<Thread>());
    if (information.hThread == nullptr) {
        process->kill(0);
        CloseHandle(information.hProcess);
        return false;
    }
    return true;
}

bool planChild(const char* command, const char* directory, const StandardEnds& standard,
               ChildPlan& plan)
{
    if (!splitCommandLine(command, plan.words)) {
        return fail(EINVAL, "a quote is not closed in the command");
    }
    if (plan.words.empty()) {
        return fail(EINVAL, "the command is empty");
    }
    plan.directory = directory == nullptr ? "" : directory;
    for (int i = 0; i < 3; ++i) {
        plan.standard[i] = standard.ends[i]->fd();
    }
    return true;
}

} // namespace

} // namespace tarnix_platform

using tarnix_platform::fail;
using tarnix_platform::find;
using tarnix_platform::Process;

BOOL CreateProcessA(const char* application, char* command, SECURITY_ATTRIBUTES* process,
                    SECURITY_ATTRIBUTES* thread, BOOL /*inheritHandles*/, DWORD /*flags*/,
                    void* environment, const char* directory, STARTUPINFOA* startup,
                    PROCESS_INFORMATION* information)
{
    using namespace tarnix_platform;
    if (application != nullptr || command == nullptr || process != nullptr || thread != nullptr ||
        environment != nullptr || startup == nullptr || information == nullptr ||
        (startup->dwFlags & STARTF_USESTDHANDLES) == 0) {
        return fail(EINVAL);
    }
    orphans().reapEnded();
    StandardEnds standard;
    ChildPlan plan;
    Child child;
    if (!findEnds(*startup, standard) || !planChild(command, directory, standard, plan) ||
        !spawn(plan, child)) {
        return false;
    }
    const pid_t pid = child.pid;
    const PipeEnd& output = *standard.ends[1];
    auto started = std::make_shared<Process>(std::move(child), writtenPipe(output),
                                             writtenPipe(*standard.ends[2]));
    if (!makeHandles(started, *information)) {
        return false;
    }
    if (output.side() == Side::server) {
        ReadAhead* ahead = output.pipe()->ahead();
        if (ahead != nullptr) {
            ahead->writer.store(information->hProcess, std::memory_order_relaxed);
            fastSlot(information->hProcess).ahead.store(ahead, std::memory_order_release);
        }
    }
    information->dwProcessId = static_cast<DWORD>(pid);
    information->dwThreadId = static_cast<DWORD>(pid);
    return true;
}

BOOL GetExitCodeProcess(HANDLE process, DWORD* status)
{
    const std::shared_ptr<Process> found = find<Process>(process);
    return found ? found->exitStatus(status) : false;
}

BOOL GenerateConsoleCtrlEvent(DWORD event, DWORD processId)
{
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) {
        return fail(EINVAL);
    }
    const auto found = tarnix_platform::findIf([processId](const tarnix_platform::Object& object) {
        const auto* process = dynamic_cast<const Process*>(&object);
        return process != nullptr && process->isRunning(processId);
    });
    if (!found) {
        return fail(ESRCH);
    }
    auto& process = static_cast<Process&>(*found);
    return process.ended() ? fail(ESRCH)
                           : process.signalGroup(event == CTRL_C_EVENT ? SIGINT : SIGTERM);
}

BOOL TerminateProcess(HANDLE process, UINT status)
{
    const std::shared_ptr<Process> found = find<Process>(process);
    return found ? found->kill(status) : false;
}
