// The start of a child, at a cost that does not depend on the caller's memory.
//
// The child borrows the caller's memory and a piece of its stack (CLONE_VM), and the calling thread
// stands still until the child has started its program or ended (CLONE_VFORK). In between the child
// must neither allocate nor lock, nor call anything of the C library that keeps state: all of that
// belongs to the caller. It therefore makes system calls only.
#include "spawn.h"

#include "errors.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

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

enum class Step { prepare, changeIdentity, enterDirectory, execute };

// What the child works on: plain pointers into what the caller holds.
struct ChildSide {
    const char* const* candidates; // paths of the program to try in turn, ending in null
    char* const* arguments;
    char* const* environment;
    const char* directory; // null: stay
    const int* standard;
    const Identity* identity; // null: stay
    Step failedStep;
    int error; // 0: the program has started
};

// The kernel's own structure and sizes of signal sets.
constexpr int kernelSignals = 64;
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
    if (syscall(SYS_setpgid, 0, 0) != 0) {
        return false;
    }
    const KernelAction byDefault{SIG_DFL, 0, nullptr, 0};
    for (int signal = 1; signal <= kernelSignals; ++signal) {
        if (signal != SIGKILL && signal != SIGSTOP) {
            syscall(SYS_rt_sigaction, signal, &byDefault, nullptr, sizeof(KernelSet));
        }
    }
    for (int target = 0; target < 3; ++target) {
        if (syscall(SYS_dup3, child.standard[target], target, 0) < 0) {
            return false;
        }
    }
    return syscall(SYS_close_range, 3U, ~0U, 0U) == 0;
}

// By the kernel's own calls: those of the C library would change the caller's other threads too,
// whose list lies in the shared memory.
TARNIX_CHILD_SIDE bool changeIdentity(const Identity& identity)
{
    const uid_t uid = identity.uid;
    const gid_t gid = identity.gid;
    if (syscall(SYS_setgroups, identity.groups.size(), identity.groups.data()) != 0 ||
        syscall(SYS_setresgid, gid, gid, gid) != 0 || syscall(SYS_setresuid, uid, uid, uid) != 0) {
        return false;
    }
    uid_t uids[3] = {};
    gid_t gids[3] = {};
    syscall(SYS_getresuid, &uids[0], &uids[1], &uids[2]);
    syscall(SYS_getresgid, &gids[0], &gids[1], &gids[2]);
    bool same = uid == 0 || syscall(SYS_setresuid, -1, 0, -1) != 0; // there is no way back
    for (int i = 0; i < 3; ++i) {
        same = same && uids[i] == uid && gids[i] == gid;
    }
    errno = EPERM;
    return same;
}

// As execvp goes on: a directory of the search that lacks the program, or may not be looked into,
// is no reason to stop; but if one held it and did not permit it, that is what is told.
TARNIX_CHILD_SIDE void execute(const ChildSide& child)
{
    bool forbidden = false;
    for (const char* const* path = child.candidates; *path != nullptr; ++path) {
        syscall(SYS_execve, *path, child.arguments, child.environment);
        if (errno == EACCES) {
            forbidden = true;
        } else if (errno != ENOENT && errno != ENOTDIR && errno != ESTALE && errno != ENODEV &&
                   errno != ETIMEDOUT) {
            return;
        }
    }
    errno = forbidden ? EACCES : errno;
}

TARNIX_CHILD_SIDE int runChild(void* argument)
{
    ChildSide& child = *static_cast<ChildSide*>(argument);
    if (!prepare(child)) {
        return giveUp(child, Step::prepare);
    }
    if (child.identity != nullptr && !changeIdentity(*child.identity)) {
        return giveUp(child, Step::changeIdentity);
    }
    if (child.directory != nullptr && syscall(SYS_chdir, child.directory) != 0) {
        return giveUp(child, Step::enterDirectory);
    }
    const KernelSet none = 0;
    syscall(SYS_rt_sigprocmask, SIG_SETMASK, &none, nullptr, sizeof none);
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
        syscall(SYS_rt_sigprocmask, SIG_SETMASK, &all, &m_Former, sizeof all);
    }
    ~SignalsBlocked()
    {
        syscall(SYS_rt_sigprocmask, SIG_SETMASK, &m_Former, nullptr, sizeof m_Former);
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
    std::string path(confstr(_CS_PATH, nullptr, 0), '\0');
    confstr(_CS_PATH, path.data(), path.size());
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

bool failStep(const ChildPlan& plan, const ChildSide& side)
{
    switch (side.failedStep) {
    case Step::changeIdentity:
        return fail(side.error, "cannot take the user's identity");
    case Step::enterDirectory:
        return fail(side.error, "cannot enter directory '" + plan.directory + "'");
    case Step::execute:
        return fail(side.error, "cannot start program '" + plan.words.front() + "'");
    default:
        return fail(side.error, "cannot prepare the child process");
    }
}

// A change of identity makes the memory of whoever makes it unreadable to debuggers of that
// identity. The child's memory is the caller's at that moment; once the child has its own, the
// caller gets back what it had.
class DumpableKept
{
public:
    explicit DumpableKept(bool needed) : m_Former(needed ? prctl(PR_GET_DUMPABLE) : -1) {}
    ~DumpableKept()
    {
        if (m_Former == 1) { // the only other value that can be set
            prctl(PR_SET_DUMPABLE, m_Former);
        }
    }
    DumpableKept(const DumpableKept&) = delete;
    DumpableKept& operator=(const DumpableKept&) = delete;

private:
    const int m_Former;
};

// A separate function, so that the child's stack ends with the call.
pid_t cloneChild(ChildSide& side, int& pidfd)
{
    constexpr std::size_t stackSize = 16 * 1024; // the deepest road has a few small frames
    alignas(16) unsigned char stack[stackSize];
    return __clone(runChild, stack + stackSize, CLONE_VM | CLONE_VFORK | CLONE_PIDFD | SIGCHLD,
                   &side, &pidfd);
}

} // namespace

bool spawn(const ChildPlan& plan, Child& child)
{
    const std::vector<std::string> paths = candidatesOf(plan.words.front());
    const std::vector<char*> candidates = pointersTo(paths);
    const std::vector<char*> arguments = pointersTo(plan.words);
    ChildSide side{candidates.data(), arguments.data(),
                   environ,           plan.directory.empty() ? nullptr : plan.directory.c_str(),
                   plan.standard,     plan.identity,
                   Step::prepare,     0};
    int pidfd = -1;
    pid_t pid = -1;
    int error = 0;
    {
        const SignalsBlocked blocked;
        const DumpableKept dumpable(plan.identity != nullptr);
        pid = cloneChild(side, pidfd);
        error = errno;
    }
    if (pid < 0) {
        return fail(error, "cannot create a process");
    }
    child.pid = pid;
    child.pidfd.reset(pidfd);
    if (side.error == 0) {
        moveAboveStandard(child.pidfd); // where it cannot, it stays
        return true;
    }
    siginfo_t ended{};
    while (waitid(static_cast<idtype_t>(P_PIDFD), static_cast<id_t>(pidfd), &ended, WEXITED) != 0 &&
           errno == EINTR) {
    }
    child = Child{};
    return failStep(plan, side);
}

} // namespace tarnix_platform
