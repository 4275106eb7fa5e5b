// The operations on processes: start, status, signal, kill.
#include "commandline.h"
#include "logon.h"
#include "pipeend.h"
#include "process.h"
#include "reaping.h"
#include "spawn.h"
#include "spawnuser.h"

#include <unistd.h>

#include <csignal>

namespace tarnix_platform
{

namespace
{

// The object of hThread. It can only be closed.
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
            return fail(EBADF, "standard handle is not a pipe");
        }
    }
    return true;
}

// The pipe whose output the runner reads, if the child gets its server end.
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
        return fail(EINVAL, "unterminated quote in command");
    }
    if (plan.words.empty()) {
        return fail(EINVAL, "command is empty");
    }
    plan.directory = directory == nullptr ? "" : directory;
    for (int i = 0; i < 3; ++i) {
        plan.standard[i] = standard.ends[i]->fd();
    }
    return true;
}

// The child may open its standard handles again by name (/dev/stdout), so its user must own them.
bool changeOwner(const StandardEnds& standard, const Identity& identity)
{
    for (const std::shared_ptr<PipeEnd>& end : standard.ends) {
        if (::fchown(end->fd(), identity.uid, identity.gid) != 0) {
            return fail(errno, "cannot change owner of pipe");
        }
    }
    return true;
}

BOOL startProcess(const Identity* identity, const char* command, const char* directory,
                  const STARTUPINFOA& startup, PROCESS_INFORMATION& information)
{
    if ((startup.dwFlags & STARTF_USESTDHANDLES) == 0) {
        return fail(EINVAL);
    }
    reapOrphans();
    StandardEnds standard;
    ChildPlan plan;
    if (!findEnds(startup, standard) || !planChild(command, directory, standard, plan) ||
        (identity != nullptr && !changeOwner(standard, *identity))) {
        return false;
    }
    const PipeEnd& output = *standard.ends[1];
    const auto process =
        std::make_shared<Process>(writtenPipe(output), writtenPipe(*standard.ends[2]));
    StartedHandles handles;
    Child child;
    const ChildGuard guard(child); // an allocation may fail while the start is still being watched
    if (!handles.open(process) ||
        !(identity == nullptr ? spawn(plan, child) : spawnAsUser(plan, *identity, child))) {
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
    return startProcess(nullptr, command, directory, *startup, *information);
}

BOOL CreateProcessAsUserA(HANDLE token, const char* application, char* command,
                          SECURITY_ATTRIBUTES* process, SECURITY_ATTRIBUTES* thread,
                          BOOL /*inheritHandles*/, DWORD /*flags*/, void* environment,
                          const char* directory, STARTUPINFOA* startup,
                          PROCESS_INFORMATION* information)
{
    if (token == nullptr) {
        return failWithLastRefusal();
    }
    const auto found = find<Token>(token);
    if (!found) {
        return false;
    }
    if (application != nullptr || command == nullptr || process != nullptr || thread != nullptr ||
        environment != nullptr || startup == nullptr || information == nullptr) {
        return fail(EINVAL);
    }
    const Identity identity = identityOf(found->account());
    return startProcess(&identity, command, directory, *startup, *information);
}

BOOL GetExitCodeProcess(HANDLE process, DWORD* status)
{
    const std::shared_ptr<Process> found = find<Process>(process);
    return found ? found->exitStatus(status) : false;
}

bool endingSignal(HANDLE process, int& signal, bool& coreDumped)
{
    const auto found = std::dynamic_pointer_cast<const Process>(objectOf(process));
    return found && found->endingSignal(signal, coreDumped);
}

BOOL GenerateConsoleCtrlEvent(DWORD event, DWORD processId)
{
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) {
        return fail(EINVAL);
    }
    const auto matches = [processId](const Object& object) {
        const auto* process = dynamic_cast<const Process*>(&object);
        return process != nullptr && process->isRunning(processId);
    };
    // Ended children are skipped: one that nobody has waited for may come before a new child that
    // has got the same id.
    for (auto found = findIf(matches); found; found = findIf(matches)) {
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
