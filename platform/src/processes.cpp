// Starting, signalling, killing and reaping children.
#include "processes.h"

#include "commandline.h"
#include "logon.h"
#include "waits.h"

#include <sys/syscall.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <new>
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
        result = ::waitid(static_cast<idtype_t>(P_PIDFD), static_cast<id_t>(pidfd), &info,
                          WEXITED | WNOHANG);
    } while (result != 0 && errno == EINTR);
    if (result != 0) {
        return Reaped::elsewhere;
    }
    return info.si_pid == 0 ? Reaped::no : Reaped::yes;
}

// Children whose last handle was closed while they ran. Nobody waits for them any more, but they
// must not stay behind as zombies: each later start, wait and closing looks after them.
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

Orphans& orphans()
{
    static Orphans& instance = *std::make_unique<Orphans>().release();
    return instance;
}

// SIGKILL takes effect at once unless the child sits in the kernel, on a dead disk for example.
constexpr DWORD kKillPatience = 2000;

} // namespace

void reapOrphans()
{
    orphans().reapEnded();
}

Process::Process(std::weak_ptr<Pipe> output, std::weak_ptr<Pipe> error)
    : m_Outputs{std::move(output), std::move(error)}
{
}

void Process::adopt(Child child)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Child = std::move(child);
    m_Ended = false;
}

Process::~Process()
{
    if (!m_Ended && m_Killed) {
        awaitDescriptor(m_Child.pidfd.get(), kKillPatience);
    }
    try {
        if (!ended()) {
            orphans().add(std::move(m_Child.pidfd));
        }
    } catch (const std::bad_alloc&) {
        // The child stays with the system until this process ends.
    }
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
    const auto sendToChild = [this](int number) {
        return ::syscall(SYS_pidfd_send_signal, m_Child.pidfd.get(), number, nullptr, 0) == 0;
    };
    // A host that has reaped the child itself has given its id, and that of the group, away.
    if (!sendToChild(0) && errno == ESRCH) {
        return fail(ESRCH);
    }
    const bool group = ::kill(-m_Child.pid, signal) == 0;
    // Once only: a second Ctrl-C means something else to many programs. A child that has moved to
    // another group is not reached by that of its own.
    const bool moved = ::getpgid(m_Child.pid) != m_Child.pid;
    const bool child = (group && !moved) || sendToChild(signal);
    return group || child ? true : fail(errno);
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
    if (!send(SIGKILL)) {
        return false;
    }
    m_Killed = true;
    m_KillStatus = status;
    return true;
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

// The handles of a start, closed again unless it succeeds.
class StartedHandles
{
public:
    StartedHandles() = default;
    ~StartedHandles()
    {
        for (const HANDLE handle : {m_Process, m_Thread}) {
            if (handle != nullptr) {
                CloseHandle(handle);
            }
        }
    }
    StartedHandles(const StartedHandles&) = delete;
    StartedHandles& operator=(const StartedHandles&) = delete;

    bool open(const std::shared_ptr<Process>& process)
    {
        m_Process = openHandle(process);
        m_Thread = m_Process != nullptr ? openHandle(std::make_shared<Thread>()) : nullptr;
        return m_Thread != nullptr;
    }

    HANDLE process() const { return m_Process; }

    void release(PROCESS_INFORMATION& information)
    {
        information.hProcess = std::exchange(m_Process, nullptr);
        information.hThread = std::exchange(m_Thread, nullptr);
    }

private:
    HANDLE m_Process = nullptr;
    HANDLE m_Thread = nullptr;
};

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

// The ends that the child gets must be its user's: it may open them again by name (/dev/stdout).
bool giveEnds(const StandardEnds& standard, const Identity& identity)
{
    for (const std::shared_ptr<PipeEnd>& end : standard.ends) {
        if (::fchown(end->fd(), identity.uid, identity.gid) != 0) {
            return fail(errno, "cannot give the pipe to the user");
        }
    }
    return true;
}

// Nothing that can fail comes behind the start: a child must not be lost.
BOOL startChild(const Identity* identity, const char* command, const char* directory,
                const STARTUPINFOA& startup, PROCESS_INFORMATION& information)
{
    if ((startup.dwFlags & STARTF_USESTDHANDLES) == 0) {
        return fail(EINVAL);
    }
    reapOrphans();
    StandardEnds standard;
    ChildPlan plan;
    plan.identity = identity;
    if (!findEnds(startup, standard) || !planChild(command, directory, standard, plan) ||
        (identity != nullptr && !giveEnds(standard, *identity))) {
        return false;
    }
    const PipeEnd& output = *standard.ends[1];
    const auto process =
        std::make_shared<Process>(writtenPipe(output), writtenPipe(*standard.ends[2]));
    StartedHandles handles;
    Child child;
    if (!handles.open(process) || !spawn(plan, child)) {
        return false;
    }
    information.dwProcessId = static_cast<DWORD>(child.pid);
    information.dwThreadId = information.dwProcessId;
    process->adopt(std::move(child));
    if (output.side() == Side::server) {
        output.pipe()->setWriter(handles.process());
    }
    handles.release(information);
    return true;
}

} // namespace

BOOL CreateProcessA(const char* application, char* command, SECURITY_ATTRIBUTES* process,
                    SECURITY_ATTRIBUTES* thread, BOOL /*inheritHandles*/, DWORD /*flags*/,
                    void* environment, const char* directory, STARTUPINFOA* startup,
                    PROCESS_INFORMATION* information)
{
    if (application != nullptr || command == nullptr || process != nullptr || thread != nullptr ||
        environment != nullptr || startup == nullptr || information == nullptr) {
        return fail(EINVAL);
    }
    return startChild(nullptr, command, directory, *startup, *information);
}

BOOL CreateProcessAsUserA(HANDLE token, const char* application, char* command,
                          SECURITY_ATTRIBUTES* process, SECURITY_ATTRIBUTES* thread,
                          BOOL /*inheritHandles*/, DWORD /*flags*/, void* environment,
                          const char* directory, STARTUPINFOA* startup,
                          PROCESS_INFORMATION* information)
{
    if (token == nullptr) {
        return failAsLogonDid();
    }
    const auto identity = find<Token>(token);
    if (!identity) {
        return false;
    }
    if (application != nullptr || command == nullptr || process != nullptr || thread != nullptr ||
        environment != nullptr || startup == nullptr || information == nullptr) {
        return fail(EINVAL);
    }
    return startChild(&identity->identity(), command, directory, *startup, *information);
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
    const auto runs = [processId](const Object& object) {
        const auto* process = dynamic_cast<const Process*>(&object);
        return process != nullptr && process->isRunning(processId);
    };
    // A child that has ended unnoticed may stand in front of another that got its id.
    for (auto found = findIf(runs); found; found = findIf(runs)) {
        auto& process = static_cast<Process&>(*found);
        if (!process.ended()) {
            return process.signalGroup(event == CTRL_C_EVENT ? SIGINT : SIGTERM);
        }
    }
    return fail(ESRCH);
}

BOOL TerminateProcess(HANDLE process, UINT status)
{
    const std::shared_ptr<Process> found = find<Process>(process);
    return found ? found->kill(status) : false;
}

} // namespace tarnix_platform
