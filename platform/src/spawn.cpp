// The start of a child, at a cost that does not depend on the caller's memory.
//
// The child borrows the caller's memory and a piece of its stack (CLONE_VM), and the calling thread
// stands still until the child has started its program or ended (CLONE_VFORK). In between the child
// must neither allocate nor lock, nor call anything of the C library that keeps state: all of that
// belongs to the caller. It therefore makes system calls only.
#include "spawn.h"

#include "errors.h"
#include "runas.h"
#include "waits.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>

extern char** environ;

// The C library's own name of clone. The thread sanitizer takes clone itself for a fork, and would
// refuse this process new threads from then on.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" int __clone(int (*function)(void*), void* stack, int flags, void* argument, ...);

// A sanitizer's bookkeeping in the child would be left behind in the caller's memory, for the
// child's functions never return.
#if defined(__clang__)
#define TARNIX_CHILD_SIDE __attribute__((disable_sanitizer_instrumentation))
#else
#define TARNIX_CHILD_SIDE __attribute__((no_sanitize("address", "thread", "undefined")))
#endif

namespace tarnix_platform
{

namespace
{

enum class Step { prepare, enterDirectory, execute };

constexpr int kRunAsProgram = kRunAsStatus + 1; // descriptor, in the child

// What the child works on: plain pointers into what the caller holds.
struct ChildSide {
    const char* const* candidates; // paths of the program to try in turn, ending in null
    char* const* arguments;
    char* const* environment;
    const char* directory; // null: stay
    const int* standard;
    int runAs;  // the program that takes another identity, to be started instead; -1: none
    int status; // that program's way of telling what failed
    Step failedStep;
    int error; // 0: the program has started
};

// The kernel's own structure and sizes of signal sets.
constexpr int kKernelSignals = 64;
using KernelSet = unsigned long;
struct KernelAction {
    void (*handler)(int);
    unsigned long flags;
    void (*restorer)();
    KernelSet mask;
};

TARNIX_CHILD_SIDE int giveUp(ChildSide& child, Step step)
{
    child.failedStep = step;
    child.error = errno;
    return 127;
}

TARNIX_CHILD_SIDE bool prepare(const ChildSide& child)
{
    // A child of another user gets a session of its own as well: through the caller's terminal it
    // could type commands for the caller.
    if ((child.runAs < 0 ? ::syscall(SYS_setpgid, 0, 0) : ::syscall(SYS_setsid)) < 0) {
        return false;
    }
    const KernelAction byDefault{SIG_DFL, 0, nullptr, 0};
    for (int signal = 1; signal <= kKernelSignals; ++signal) {
        if (signal != SIGKILL && signal != SIGSTOP) {
            ::syscall(SYS_rt_sigaction, signal, &byDefault, nullptr, sizeof(KernelSet));
        }
    }
    for (int target = 0; target < 3; ++target) {
        if (::syscall(SYS_dup3, child.standard[target], target, 0) < 0) {
            return false;
        }
    }
    unsigned int first = STDERR_FILENO + 1;
    if (child.runAs >= 0) {
        if (::syscall(SYS_dup3, child.status, kRunAsStatus, 0) < 0 ||
            ::syscall(SYS_dup3, child.runAs, kRunAsProgram, O_CLOEXEC) < 0) {
            return false;
        }
        first = kRunAsProgram + 1;
    }
    return ::syscall(SYS_close_range, first, ~0U, 0U) == 0;
}

// If a directory of the search held the program and did not permit it, that is what is told. One
// that may not be looked into tells nothing.
TARNIX_CHILD_SIDE void execute(const ChildSide& child)
{
    if (child.runAs >= 0) {
        ::syscall(SYS_execveat, kRunAsProgram, "", child.arguments, child.environment,
                  AT_EMPTY_PATH);
        return;
    }
    const bool search = child.candidates[1] != nullptr;
    int error = ENOENT;
    for (const char* const* path = child.candidates; *path != nullptr; ++path) {
        ::syscall(SYS_execve, *path, child.arguments, child.environment);
        if (!search || !searchGoesOn(errno)) {
            return;
        }
        if (errno == EACCES && ::syscall(SYS_faccessat, AT_FDCWD, *path, F_OK) == 0) {
            error = EACCES;
        }
    }
    errno = error;
}

TARNIX_CHILD_SIDE int runChild(void* argument)
{
    ChildSide& child = *static_cast<ChildSide*>(argument);
    if (!prepare(child)) {
        return giveUp(child, Step::prepare);
    }
    if (child.directory != nullptr && ::syscall(SYS_chdir, child.directory) != 0) {
        return giveUp(child, Step::enterDirectory);
    }
    const KernelSet none = 0;
    ::syscall(SYS_rt_sigprocmask, SIG_SETMASK, &none, nullptr, sizeof none);
    execute(child);
    return giveUp(child, Step::execute);
}

// Blocks every signal of this thread, the C library's own among them: a handler must not run in a
// child that shares the caller's memory.
class SignalsBlocked
{
public:
    SignalsBlocked()
    {
        const KernelSet all = ~KernelSet{0};
        ::syscall(SYS_rt_sigprocmask, SIG_SETMASK, &all, &m_Former, sizeof all);
    }
    ~SignalsBlocked()
    {
        ::syscall(SYS_rt_sigprocmask, SIG_SETMASK, &m_Former, nullptr, sizeof m_Former);
    }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    KernelSet m_Former = 0;
};

std::string searchPath()
{
    if (const char* path = std::getenv("PATH")) {
        return path;
    }
    std::string path(::confstr(_CS_PATH, nullptr, 0), '\0');
    ::confstr(_CS_PATH, path.data(), path.size());
    path.resize(path.empty() ? 0 : path.size() - 1);
    return path;
}

std::vector<std::string> candidatesOf(const std::string& program)
{
    if (program.empty() || program.find('/') != std::string::npos) {
        return {program};
    }
    std::vector<std::string> candidates;
    const std::string path = searchPath();
    for (std::size_t begin = 0; begin <= path.size();) {
        const std::size_t end = std::min(path.find(':', begin), path.size());
        // An empty piece is the current directory.
        const std::string directory = end == begin ? "." : path.substr(begin, end - begin);
        candidates.push_back(directory + '/' + program);
        begin = end + 1;
    }
    return candidates;
}

std::vector<char*> pointersTo(const std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (const std::string& text : texts) {
        pointers.push_back(const_cast<char*>(text.c_str()));
    }
    pointers.push_back(nullptr);
    return pointers;
}

bool failStep(const ChildPlan& plan, Step step, int error)
{
    switch (step) {
    case Step::enterDirectory:
        return fail(error, "cannot enter directory '" + plan.directory + "'");
    case Step::execute:
        return fail(error, "cannot start program '" + plan.words.front() + "'");
    default:
        return fail(error, "cannot prepare the child process");
    }
}

// Reaps a child that has given up, or was killed.
void discard(Child& child)
{
    siginfo_t ended{};
    while (::waitid(static_cast<idtype_t>(P_PIDFD), static_cast<id_t>(child.pidfd.get()), &ended,
                    WEXITED) != 0 &&
           errno == EINTR) {
    }
    child = Child{};
}

// A separate function, so that the child's stack ends with the call.
pid_t cloneChild(ChildSide& side, int& pidfd)
{
    constexpr std::size_t stackSize = 16 * 1024; // the deepest road has a few small frames
    alignas(16) unsigned char stack[stackSize];
    return __clone(runChild, stack + stackSize, CLONE_VM | CLONE_VFORK | CLONE_PIDFD | SIGCHLD,
                   &side, &pidfd);
}

} // namespace

namespace
{

bool start(const ChildPlan& plan, ChildSide& side, Child& child)
{
    int pidfd = -1;
    int error = 0;
    {
        const SignalsBlocked blocked;
        child.pid = cloneChild(side, pidfd);
        error = errno;
    }
    if (child.pid < 0) {
        return fail(error, "cannot create a process");
    }
    child.pidfd.reset(pidfd);
    if (side.error == 0) {
        moveAboveStandard(child.pidfd); // where it cannot, it stays
        return true;
    }
    discard(child);
    return failStep(plan, side.failedStep, side.error);
}

// ---- As another user ---------------------------------------------------------------------------

extern "C" const unsigned char tarnix_runas_begin[] __attribute__((visibility("hidden")));
extern "C" const unsigned char tarnix_runas_end[] __attribute__((visibility("hidden")));
asm(".pushsection .rodata\n"
    ".balign 16\n"
    ".hidden tarnix_runas_begin\n"
    ".hidden tarnix_runas_end\n"
    ".globl tarnix_runas_begin, tarnix_runas_end\n"
    "tarnix_runas_begin:\n"
    ".incbin \"" TARNIX_RUNAS_PROGRAM "\"\n"
    "tarnix_runas_end:\n"
    ".popsection\n");

// Above the places that the child uses.
bool moveAboveChildsPlaces(UniqueFd& fd)
{
    const int moved = ::fcntl(fd.get(), F_DUPFD_CLOEXEC, kRunAsProgram + 1);
    if (moved < 0) {
        return fail(errno);
    }
    fd.reset(moved);
    return true;
}

// The program lies in the library and is started from memory: there is no file of it that could be
// missing or exchanged.
bool openRunAs(UniqueFd& program)
{
    // Where files in memory are not programs unless that is said. Older systems do not know the
    // word.
    constexpr unsigned int isProgram = 0x0010U; // MFD_EXEC
    program.reset(::memfd_create("tarnix-runas", MFD_CLOEXEC | isProgram));
    if (!program && errno == EINVAL) {
        program.reset(::memfd_create("tarnix-runas", MFD_CLOEXEC));
    }
    const auto size = static_cast<std::size_t>(tarnix_runas_end - tarnix_runas_begin);
    if (!program ||
        ::write(program.get(), tarnix_runas_begin, size) != static_cast<ssize_t>(size)) {
        return fail(errno, "cannot prepare the change of identity");
    }
    return moveAboveChildsPlaces(program);
}

std::vector<std::string> runAsArguments(const ChildPlan& plan,
                                        const std::vector<std::string>& paths)
{
    std::string groups;
    for (const gid_t group : plan.identity->groups) {
        groups += (groups.empty() ? "" : ",") + std::to_string(group);
    }
    std::vector<std::string> arguments{"tarnix-runas",
                                       std::to_string(plan.identity->uid),
                                       std::to_string(plan.identity->gid),
                                       groups,
                                       plan.directory,
                                       std::to_string(paths.size())};
    arguments.insert(arguments.end(), paths.begin(), paths.end());
    arguments.insert(arguments.end(), plan.words.begin(), plan.words.end());
    return arguments;
}

// The user can stop the child from the moment that it is his; a start must not wait for him.
constexpr DWORD kUserPatience = 10000;

// Killed first: it is the user's by now, and who stops it would stop this too.
void discardOfUser(Child& child)
{
    ::syscall(SYS_pidfd_send_signal, child.pidfd.get(), SIGKILL, nullptr, 0);
    discard(child);
}

// Whether the child has ended or runs another program than the one that takes the identity.
bool hasGoneOn(const Child& child, int program)
{
    struct stat now {
    };
    struct stat former {
    };
    const std::string link = "/proc/" + std::to_string(child.pid) + "/exe";
    if (::stat(link.c_str(), &now) == 0 && ::fstat(program, &former) == 0) {
        return now.st_ino != former.st_ino || now.st_dev != former.st_dev;
    }
    return awaitDescriptor(child.pidfd.get(), 0);
}

enum class Start { told, silent, heldUp };

// The status is told, or the pipe ends with the start of the command. That end does not come while
// a process that the host has forked meanwhile holds the pipe too: then the child is looked at.
Start awaitStatus(int status, int program, const Child& child)
{
    constexpr DWORD look = 100;
    for (DWORD waited = 0; waited < kUserPatience; waited += look) {
        if (awaitDescriptor(status, look)) {
            return Start::told;
        }
        if (hasGoneOn(child, program)) {
            return awaitDescriptor(status, 0) ? Start::told : Start::silent;
        }
    }
    return Start::heldUp;
}

bool awaitCommand(const ChildPlan& plan, int status, int program, Child& child)
{
    RunAsFailure failure{};
    ssize_t got = -1;
    switch (awaitStatus(status, program, child)) {
    case Start::silent:
        return true;
    case Start::heldUp:
        discardOfUser(child);
        return fail(ETIMEDOUT, "the start as the user did not come to its end");
    case Start::told:
        break;
    }
    do {
        got = ::read(status, &failure, sizeof failure);
    } while (got < 0 && errno == EINTR);
    if (got == 0) {
        return true; // closed by the start of the command
    }
    discardOfUser(child);
    switch (got == static_cast<ssize_t>(sizeof failure) ? failure.step : RunAsStep::identity) {
    case RunAsStep::directory:
        return failStep(plan, Step::enterDirectory, failure.error);
    case RunAsStep::program:
        return failStep(plan, Step::execute, failure.error);
    default:
        return fail(failure.error, "cannot take the user's identity");
    }
}

bool spawnAsUser(const ChildPlan& plan, const std::vector<std::string>& paths, Child& child)
{
    UniqueFd program;
    int ends[2];
    if (!openRunAs(program)) {
        return false;
    }
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        return fail(errno);
    }
    UniqueFd reader(ends[0]);
    UniqueFd writer(ends[1]);
    if (!moveAboveStandard(reader) || !moveAboveChildsPlaces(writer)) {
        return false;
    }
    const std::vector<std::string> texts = runAsArguments(plan, paths);
    const std::vector<char*> arguments = pointersTo(texts);
    ChildSide side{nullptr,       arguments.data(), environ,       nullptr, plan.standard,
                   program.get(), writer.get(),     Step::prepare, 0};
    if (!start(plan, side, child)) {
        return false;
    }
    writer.reset();
    return awaitCommand(plan, reader.get(), program.get(), child);
}

} // namespace

bool spawn(const ChildPlan& plan, Child& child)
{
    const std::vector<std::string> paths = candidatesOf(plan.words.front());
    if (plan.identity != nullptr) {
        return spawnAsUser(plan, paths, child);
    }
    const std::vector<char*> candidates = pointersTo(paths);
    const std::vector<char*> arguments = pointersTo(plan.words);
    ChildSide side{candidates.data(),
                   arguments.data(),
                   environ,
                   plan.directory.empty() ? nullptr : plan.directory.c_str(),
                   plan.standard,
                   -1,
                   -1,
                   Step::prepare,
                   0};
    return start(plan, side, child);
}

} // namespace tarnix_platform
