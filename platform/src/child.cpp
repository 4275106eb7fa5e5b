// The start of a child, at a cost that does not depend on the caller's memory.
//
// The child borrows the caller's memory and a piece of its stack (CLONE_VM), and the calling thread
// stands still until the child has started its program or ended (CLONE_VFORK). In between the child
// must neither allocate nor lock, nor call anything of the C library that keeps state: all of that
// belongs to the caller. It therefore makes system calls only.
#include "child.h"

#include "descriptors.h"
#include "reaping.h"
#include "runas.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/syscall.h>

#include <cerrno>
#include <csignal>

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

// The kernel's own structure and sizes of signal sets.
constexpr int kKernelSignals = 64;
using KernelSet = unsigned long;
struct KernelAction {
    void (*handler)(int);
    unsigned long flags;
    void (*restorer)();
    KernelSet mask;
};

TARNIX_CHILD_SIDE int giveUp(ChildSide& child, ChildStep step)
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

// If a directory of the search held the program and did not permit it, that is the error. One that
// may not be looked into is no error.
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
        return giveUp(child, ChildStep::prepare);
    }
    if (child.directory != nullptr && ::syscall(SYS_chdir, child.directory) != 0) {
        return giveUp(child, ChildStep::enterDirectory);
    }
    const KernelSet none = 0;
    ::syscall(SYS_rt_sigprocmask, SIG_SETMASK, &none, nullptr, sizeof none);
    execute(child);
    return giveUp(child, ChildStep::execute);
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

// A separate function, so that the child's stack ends with the call.
pid_t cloneChild(ChildSide& side, int& pidfd)
{
    constexpr std::size_t stackSize = 16 * 1024; // the deepest path has a few small frames
    alignas(16) unsigned char stack[stackSize];
    return __clone(runChild, stack + stackSize, CLONE_VM | CLONE_VFORK | CLONE_PIDFD | SIGCHLD,
                   &side, &pidfd);
}

} // namespace

bool startChild(ChildSide& side, Child& child)
{
    int pidfd = -1;
    {
        const SignalsBlocked blocked;
        child.pid = cloneChild(side, pidfd);
        if (child.pid < 0) {
            side.failedStep = ChildStep::create;
            side.error = errno;
            return false;
        }
    }
    child.pidfd.reset(pidfd);
    if (side.error != 0) {
        discardChild(child);
        return false;
    }
    moveAboveStandard(child.pidfd); // where it cannot, it stays
    return true;
}

void discardChild(Child& child)
{
    reapAtEnd(child.pidfd.get());
    child = Child{};
}

} // namespace tarnix_platform
