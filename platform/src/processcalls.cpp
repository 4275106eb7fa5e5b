// SPDX-License-Identifier: LicenseRef-Tarnix
// The operations on processes: start, status, signal, kill.
#include "commandline.h"
#include "environment.h"
#include "logon.h"
#include "openfile.h"
#include "pipeend.h"
#include "process.h"
#include "reaping.h"
#include "spawn.h"
#include "spawnuser.h"

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdint>

namespace tarnix_platform
{

namespace
{

// The object of hThread. It can only be closed.
class Thread : public Object
{
};

// Each is a pipe end or another file.
struct StandardHandle {
    std::shared_ptr<PipeEnd> end;
    std::shared_ptr<OpenFile> file;

    int fd() const { return end ? end->fd() : file->fd(); }
};

struct StandardHandles {
    StandardHandle input;
    StandardHandle output;
    StandardHandle error;
};

bool findHandle(HANDLE handle, StandardHandle& found)
{
    const std::shared_ptr<Object> object = objectOf(handle);
    found.end = std::dynamic_pointer_cast<PipeEnd>(object);
    found.file = std::dynamic_pointer_cast<OpenFile>(object);
    return found.end || found.file ? true : fail(EBADF, "standard handle is no pipe or file");
}

bool findHandles(const STARTUPINFOA& startup, StandardHandles& found)
{
    return findHandle(startup.hStdInput, found.input) &&
           findHandle(startup.hStdOutput, found.output) &&
           findHandle(startup.hStdError, found.error);
}

// The pipe whose output the runner reads, if the child gets its server end; otherwise null.
std::shared_ptr<Pipe> writtenPipe(const StandardHandle& handle)
{
    return handle.end && handle.end->side() == Side::server ? handle.end->pipe() : nullptr;
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

// The arguments of a start that both operations check and pass on.
struct StartRequest {
    const char* command;
    const char* environment;
    const char* directory;
    DWORD flags;
    const STARTUPINFOA* startup;
    bool lacking; // whether it needs what the layer lacks: a program of its own, attributes
};

bool planChild(const StartRequest& request, const StandardHandles& standard, ChildPlan& plan)
{
    if (!splitCommandLine(request.command, plan.words)) {
        return fail(EINVAL, "unterminated quote in command");
    }
    if (plan.words.empty()) {
        return fail(EINVAL, "command is empty");
    }
    plan.directory = request.directory == nullptr ? "" : request.directory;
    plan.standard = {standard.input.fd(), standard.output.fd(), standard.error.fd()};
    plan.inheritsEnvironment = request.environment == nullptr;
    if (request.environment != nullptr) {
        plan.environment = variablesOf(request.environment);
    }
    if ((request.flags & EXTENDED_STARTUPINFO_PRESENT) != 0) {
        const auto* extended = reinterpret_cast<const STARTUPINFOEXA*>(request.startup);
        if (const TxStartAttributes* attributes = extended->lpAttributeList) {
            plan.mask = attributes->Umask;
            plan.endsWithCaller = attributes->EndsWithCaller;
            plan.keepsGroup = attributes->KeepsGroup;
        }
    }
    return true;
}

// The child may open its pipes again by name (/dev/stdout), so its user must own them.
bool changeOwner(const StandardHandles& standard, const Identity& identity)
{
    for (const StandardHandle* handle : {&standard.input, &standard.output, &standard.error}) {
        if (handle->end && ::fchown(handle->fd(), identity.uid, identity.gid) != 0) {
            return fail(errno, "cannot change owner of pipe");
        }
    }
    return true;
}

FILETIME ticksOf(const timeval& time)
{
    using Ticks =
        std::chrono::duration<std::uint64_t, std::ratio_multiply<std::ratio<100>, std::nano>>;
    const std::uint64_t ticks =
        Ticks(std::chrono::seconds(time.tv_sec) + std::chrono::microseconds(time.tv_usec)).count();
    return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

bool usageOf(HANDLE process, rusage& usage)
{
    const std::shared_ptr<Process> found = find<Process>(process);
    return found && found->used(usage);
}

BOOL startProcess(const Identity* identity, const StartRequest& request,
                  PROCESS_INFORMATION* information)
{
    if (request.lacking || request.command == nullptr || request.startup == nullptr ||
        information == nullptr || (request.startup->dwFlags & STARTF_USESTDHANDLES) == 0) {
        return fail(EINVAL);
    }
    reapOrphans();
    StandardHandles standard;
    ChildPlan plan;
    if (!findHandles(*request.startup, standard) || !planChild(request, standard, plan) ||
        (identity != nullptr && !changeOwner(standard, *identity))) {
        return false;
    }
    const std::shared_ptr<Pipe> output = writtenPipe(standard.output);
    const auto process = std::make_shared<Process>(output, writtenPipe(standard.error));
    StartedHandles handles;
    Child child;
    const ChildGuard guard(child); // an allocation may fail while the start is still being watched
    if (!handles.open(process) ||
        !(identity == nullptr ? spawn(plan, child) : spawnAsUser(plan, *identity, child))) {
        return false;
    }
    information->dwProcessId = static_cast<DWORD>(child.pid);
    information->dwThreadId = information->dwProcessId;
    process->adopt(std::move(child), plan.keepsGroup);
    if (output) {
        output->setWriter(handles.process());
    }
    handles.release(*information);
    return true;
}

} // namespace

BOOL CreateProcessA(const char* application, char* command, SECURITY_ATTRIBUTES* process,
                    SECURITY_ATTRIBUTES* thread, BOOL /*inheritHandles*/, DWORD flags,
                    void* environment, const char* directory, STARTUPINFOA* startup,
                    PROCESS_INFORMATION* information)
{
    return startProcess(nullptr,
                        {command, static_cast<const char*>(environment), directory, flags, startup,
                         application != nullptr || process != nullptr || thread != nullptr},
                        information);
}

BOOL CreateProcessAsUserA(HANDLE token, const char* application, char* command,
                          SECURITY_ATTRIBUTES* process, SECURITY_ATTRIBUTES* thread,
                          BOOL /*inheritHandles*/, DWORD flags, void* environment,
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
    const Identity identity = identityOf(found->account());
    return startProcess(&identity,
                        {command, static_cast<const char*>(environment), directory, flags, startup,
                         application != nullptr || process != nullptr || thread != nullptr},
                        information);
}

BOOL GetExitCodeProcess(HANDLE process, DWORD* status)
{
    const std::shared_ptr<Process> found = find<Process>(process);
    return found && found->exitStatus(status);
}

bool endingSignal(HANDLE process, int& signal, bool& coreDumped)
{
    const auto found = std::dynamic_pointer_cast<const Process>(objectOf(process));
    return found && found->endingSignal(signal, coreDumped);
}

BOOL GetProcessTimes(HANDLE process, FILETIME* creation, FILETIME* exit, FILETIME* kernel,
                     FILETIME* user)
{
    rusage usage{};
    if (!usageOf(process, usage)) {
        return false;
    }
    *creation = *exit = FILETIME{};
    *kernel = ticksOf(usage.ru_stime);
    *user = ticksOf(usage.ru_utime);
    return true;
}

BOOL K32GetProcessMemoryInfo(HANDLE process, PROCESS_MEMORY_COUNTERS* counters, DWORD size)
{
    rusage usage{};
    if (counters == nullptr || size < sizeof *counters) {
        return fail(EINVAL);
    }
    if (!usageOf(process, usage)) {
        return false;
    }
    constexpr std::size_t kibibyte = 1024;
    counters->PeakWorkingSetSize = static_cast<std::size_t>(usage.ru_maxrss) * kibibyte;
    return true;
}

BOOL sendSignal(HANDLE process, int signal)
{
    const std::shared_ptr<Process> found = find<Process>(process);
    if (!found) {
        return false;
    }
    if (found->ended() || !found->signalGroup(signal)) {
        return fail(ESRCH);
    }
    found->signalGroup(SIGCONT); // a suspended child could not react
    return true;
}

void killGroupAtEnd(HANDLE process)
{
    if (const std::shared_ptr<Process> found = find<Process>(process)) {
        found->killGroupAtEnd();
    }
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
    return found && found->kill(status);
}

} // namespace tarnix_platform
