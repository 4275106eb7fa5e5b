// SPDX-License-Identifier: LicenseRef-Tarnix
// The start of a child, at a cost that does not depend on the size of the caller's memory.
//
// The child shares the caller's memory and runs on a piece of its stack (CLONE_VM), and the calling
// thread is suspended until the child has started its program or ended (CLONE_VFORK). In between
// the child must not allocate, lock, or call functions of the C library that keep state: all of
// that belongs to the caller. So the child makes system calls only.
#include "child.h"

#include "descriptors.h"
#include "reaping.h"
#include "runas.h"

#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <cerrno>
#include <csignal>
#include <ctime>

// The C library's internal name of clone. The thread sanitizer treats clone itself as a fork, and
// would not let this process create threads from then on.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" int __clone(int (*function)(void*), void* stack, int flags, void* argument, ...);

// The child's functions never return, so a sanitizer's bookkeeping for them would stay in the
// caller's memory.
#if defined(__clang__)
#define TARNIX_CHILD_SIDE __attribute__((disable_sanitizer_instrumentation))
#else
#define TARNIX_CHILD_SIDE __attribute__((no_sanitize("address", "thread", "undefined")))
#endif

namespace tarnix_platform
{

namespace
{

// The structure and the size of signal sets in the kernel, which differ from the C library's.
using KernelSet = unsigned long;
struct KernelAction {
    void (*handler)(int);
    unsigned long flags;
    void (*restorer)();
    KernelSet mask;
};

TARNIX_CHILD_SIDE void failAt(ChildSide& child, ChildStep step)
{
    child.failedStep = step;
    child.error = errno;
}

// The number that the text is. Of "." and "..", the entries that are no descriptors: 0.
TARNIX_CHILD_SIDE int descriptorIn(const char* text)
{
    int number = 0;
    for (const char* at = text; *at >= '0' && *at <= '9'; ++at) {
        number = number * 10 + (*at - '0');
    }
    return number;
}

// For systems without close_range, and for filters of system calls that do not know it. The first
// descriptor is above 0.
TARNIX_CHILD_SIDE bool closeListed(int first)
{
    const auto directory =
        static_cast<int>(::syscall(SYS_openat, AT_FDCWD, "/proc/self/fd", O_RDONLY | O_CLOEXEC));
    if (directory < 0) {
        return false;
    }
    alignas(dirent64) char entries[sizeof(dirent64)]; // room for the longest name
    for (;;) {
        const long size = ::syscall(SYS_getdents64, directory, entries, sizeof entries);
        if (size <= 0) {
            return size == 0; // the program's start closes the directory
        }
        for (long at = 0; at < size;) {
            const auto* entry = reinterpret_cast<const dirent64*>(entries + at);
            const int fd = descriptorIn(entry->d_name);
            if (fd >= first && fd != directory) {
                ::syscall(SYS_close, fd);
            }
            at += entry->d_reclen;
        }
    }
}

TARNIX_CHILD_SIDE bool closeFrom(int first)
{
    return ::syscall(SYS_close_range, first, ~0U, 0U) == 0 || closeListed(first);
}

TARNIX_CHILD_SIDE bool switchesUser(const ChildSide& child)
{
    return child.runAs >= 0;
}

// The descriptors that the program keeps: the standard ones, and those of the program of ours.
TARNIX_CHILD_SIDE int keptDescriptors(const ChildSide& child)
{
    return (switchesUser(child) ? kRunAsProgram : STDERR_FILENO) + 1;
}

TARNIX_CHILD_SIDE bool endWithCaller(pid_t caller)
{
    if (::syscall(SYS_prctl, PR_SET_PDEATHSIG, SIGKILL) != 0) {
        return false;
    }
    errno = ESRCH; // the caller has ended already
    return ::syscall(SYS_getppid) == caller;
}

TARNIX_CHILD_SIDE bool prepare(const ChildSide& child)
{
    // A child of another user gets a session of its own too: through the caller's terminal it could
    // type commands as the caller.
    if ((switchesUser(child) ? ::syscall(SYS_setsid) : ::syscall(SYS_setpgid, 0, 0)) < 0) {
        return false;
    }
    const KernelAction byDefault{};                 // SIG_DFL is null
    for (int signal = 1; signal < NSIG; ++signal) { // fails for SIGKILL and SIGSTOP
        ::syscall(SYS_rt_sigaction, signal, &byDefault, nullptr, sizeof(KernelSet));
    }
    for (int target = STDIN_FILENO; target <= STDERR_FILENO; ++target) {
        if (::syscall(SYS_dup3, child.standard[target], target, 0) != target) {
            return false;
        }
    }
    if (child.mask >= 0) {
        ::syscall(SYS_umask, child.mask);
    }
    if (child.caller != 0 && !endWithCaller(child.caller)) {
        return false;
    }
    return !switchesUser(child) ||
           (::syscall(SYS_dup3, child.status, kRunAsStatus, 0) == kRunAsStatus &&
            ::syscall(SYS_dup3, child.runAs, kRunAsProgram, O_CLOEXEC) == kRunAsProgram);
}

// A program that has just been written cannot be started (ETXTBSY) as long as a child that another
// thread is starting holds a copy of the writing descriptor. That child closes it soon.
TARNIX_CHILD_SIDE void executeFile(const char* path, const ChildSide& child)
{
    constexpr long firstPause = 1000000; // nanoseconds
    constexpr long lastPause = 128 * firstPause;
    for (long pause = firstPause;; pause *= 2) {
        ::syscall(SYS_execve, path, child.arguments, child.environment);
        if (errno != ETXTBSY || pause > lastPause) {
            return;
        }
        const timespec interval{0, pause};
        ::syscall(SYS_nanosleep, &interval, nullptr);
    }
}

// As execvp: if a directory of the search has the program but it may not be executed, the error is
// EACCES. A directory that may not be searched is skipped.
TARNIX_CHILD_SIDE void execute(const ChildSide& child)
{
    if (switchesUser(child)) {
        ::syscall(SYS_execveat, kRunAsProgram, "", child.arguments, child.environment,
                  AT_EMPTY_PATH);
        if (errno == ENOSYS || errno == EPERM) { // a filter of system calls may not know it
            ::syscall(SYS_execve, kRunAsProgramLink, child.arguments, child.environment);
        }
        return;
    }
    const bool search = child.candidates[1] != nullptr;
    int error = ENOENT;
    for (const char* const* path = child.candidates; *path != nullptr; ++path) {
        executeFile(*path, child);
        if (!search || !searchGoesOn(errno)) {
            return;
        }
        if (errno == EACCES && ::syscall(SYS_faccessat, AT_FDCWD, *path, F_OK) == 0) {
            error = EACCES;
        }
    }
    errno = error;
}

// Returns only if it fails.
TARNIX_CHILD_SIDE void startProgram(ChildSide& child)
{
    if (!prepare(child)) {
        return failAt(child, ChildStep::prepare);
    }
    if (!closeFrom(keptDescriptors(child))) {
        return failAt(child, ChildStep::closeDescriptors);
    }
    // An account may be in more groups than the arguments of a program can list. Unlike the ids,
    // groups do not let the user read a process, so they may change while memory is shared.
    if (switchesUser(child) && ::syscall(SYS_setgroups, child.groupCount, child.groups) != 0) {
        return failAt(child, ChildStep::setGroups);
    }
    if (child.directory != nullptr && ::syscall(SYS_chdir, child.directory) != 0) {
        return failAt(child, ChildStep::enterDirectory);
    }
    const KernelSet none = 0;
    ::syscall(SYS_rt_sigprocmask, SIG_SETMASK, &none, nullptr, sizeof none);
    execute(child);
    failAt(child, ChildStep::execute);
}

TARNIX_CHILD_SIDE int runChild(void* child)
{
    startProgram(*static_cast<ChildSide*>(child));
    return {}; // nobody looks at the exit status: the error says that it failed
}

// Blocks every signal of this thread, including those that the C library uses internally: a handler
// must not run in a child that shares the caller's memory.
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
    KernelSet m_Former{};
};

// A separate function, so that the child's stack is released when it returns.
pid_t cloneChild(ChildSide& side, int& pidfd)
{
    constexpr std::size_t stackSize = 0x4000; // the deepest path has a few small frames
    alignas(16) unsigned char stack[stackSize];
    return __clone(runChild, stack + stackSize, CLONE_VM | CLONE_VFORK | CLONE_PIDFD | SIGCHLD,
                   &side, &pidfd);
}

} // namespace

bool startChild(ChildSide& side, Child& child)
{
    int pidfd;
    {
        const SignalsBlocked blocked;
        child.pid = cloneChild(side, pidfd);
        if (child.pid == -1) {
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
    moveAboveStandard(child.pidfd); // if that fails, the descriptor still works where it is
    return true;
}

void discardChild(Child& child) noexcept
{
    reapSoon(std::move(child.pidfd));
    child = Child{};
}

void killAndDiscard(Child& child) noexcept
{
    ::syscall(SYS_pidfd_send_signal, child.pidfd.get(), SIGKILL, nullptr, 0);
    discardChild(child);
}

ChildGuard::~ChildGuard()
{
    if (m_Child.pidfd) {
        killAndDiscard(m_Child);
    }
}

} // namespace tarnix_platform
