// SPDX-License-Identifier: LicenseRef-Tarnix
// The program that switches user and then becomes the command.
//
// If a child switched user while it shares the caller's memory, that user could stop the child and
// read the memory. So the child first executes this program, still as the caller. The program
// switches to the user, enters the directory as that user, and executes the command.
//
// It is started with the user's supplementary groups. Arguments: user id, group id, umask, id of
// the calling process if the command ends with it or 0, directory (may be empty), number of
// candidates, the candidates (paths to try in turn), then the command's own arguments. The
// environment is that of the command, with a mark in front of each variable. It writes reports to
// descriptor 3: one before it executes the command, and one if a step fails. The start of the
// command closes that descriptor.
//
// It uses neither the C library nor the C++ library: runasstart.cpp says why.
#include "runas.h"

#include "systemcall.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <linux/keyctl.h>
#include <linux/sched.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>

namespace tarnix_platform
{

namespace
{

bool writeReport(const RunAsReport& report)
{
    return call(SYS_write, kRunAsStatus, &report, sizeof report) ==
           static_cast<long>(sizeof report);
}

constexpr int kUnheard = 126; // the exit status if a report cannot be written

// Returns the exit status.
int failWith(const RunAsReport& report)
{
    return writeReport(report) ? 127 : kUnheard;
}

std::uint32_t number(const char* text)
{
    std::uint32_t value = 0;
    for (; *text >= '0' && *text <= '9'; ++text) {
        value = value * 10 + static_cast<std::uint32_t>(*text - '0');
    }
    return value;
}

// A command of another user must not be able to take the processor from everybody else. Returns 0
// or an errno.
int leaveRealTimeScheduling()
{
    const int priority{};
    switch (call(SYS_sched_getscheduler, 0) & ~long{SCHED_RESET_ON_FORK}) {
    case SCHED_FIFO:
    case SCHED_RR:
    case SCHED_DEADLINE:
        return static_cast<int>(-call(SYS_sched_setscheduler, 0, SCHED_NORMAL, &priority));
    default:
        return 0;
    }
}

// Whether the call says that the real, the effective and the saved id are this one.
bool areAllIds(long getIds, std::uint32_t id)
{
    std::uint32_t ids[3] = {};
    bool good = call(getIds, &ids[0], &ids[1], &ids[2]) == 0;
    for (const std::uint32_t each : ids) {
        good = good && each == id;
    }
    return good;
}

// The next three return 0 or an errno. A change of the user id leaves the inheritable capabilities.
// No capability stays ambient that is not inheritable.
int dropCapabilities()
{
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct sets[_LINUX_CAPABILITY_U32S_3] = {};
    if (const long error = -call(SYS_capget, &header, sets)) {
        return static_cast<int>(error);
    }
    for (__user_cap_data_struct& set : sets) {
        set.inheritable = {};
    }
    return static_cast<int>(-call(SYS_capset, &header, sets));
}

// A change of the user id also leaves the session keyring. Called after it, so that the new keyring
// belongs to the user. No keyring is left where the system has none (ENOSYS), or a filter of system
// calls keeps the child from using any (EPERM).
int leaveSessionKeyring()
{
    const long keyring = call(SYS_keyctl, KEYCTL_JOIN_SESSION_KEYRING, 0);
    switch (keyring) {
    case -ENOSYS:
    case -EPERM:
        return 0;
    default:
        return keyring < 0 ? static_cast<int>(-keyring) : 0;
    }
}

int becomeUser(uid_t uid, gid_t gid)
{
    if (const int error = dropCapabilities()) {
        return error;
    }
    if (const long error = -call(SYS_setresgid, gid, gid, gid)) {
        return static_cast<int>(error);
    }
    if (const long error = -call(SYS_setresuid, uid, uid, uid)) {
        return static_cast<int>(error);
    }
    const bool switched =
        (uid == 0 || call(SYS_setresuid, 0, 0, 0) != 0) && // it must not be possible to switch back
        areAllIds(SYS_getresuid, uid) && areAllIds(SYS_getresgid, gid);
    return switched ? 0 : EPERM;
}

// Called after the change of the user id, which cancels the request. Returns 0 or an errno.
int endWithCaller(std::uint32_t caller)
{
    if (caller == 0) {
        return 0;
    }
    if (const long error = -call(SYS_prctl, PR_SET_PDEATHSIG, SIGKILL)) {
        return static_cast<int>(error);
    }
    return call(SYS_getppid) == static_cast<long>(caller) ? 0 : ESRCH; // it has ended already
}

// What precedes the command: the step that has failed, or `command`.
RunAsReport prepare(char** argv)
{
    if (const int error = leaveRealTimeScheduling()) {
        return {RunAsStep::scheduling, error};
    }
    if (const int error = becomeUser(number(argv[1]), number(argv[2]))) {
        return {RunAsStep::identity, error};
    }
    if (const int error = leaveSessionKeyring()) {
        return {RunAsStep::keyring, error};
    }
    // A daemon's is often 0: the user's files would be writable for all.
    call(SYS_umask, number(argv[3]));
    if (const int error = endWithCaller(number(argv[4]))) {
        return {RunAsStep::identity, error};
    }
    const long error = argv[5][0] != '\0' ? -call(SYS_chdir, argv[5]) : 0;
    return {error != 0 ? RunAsStep::directory : RunAsStep::command, static_cast<int>(error)};
}

void unmarkEnvironment(char** environment)
{
    for (char** variable = environment; *variable != nullptr; ++variable) {
        ++*variable;
    }
}

// As executeFile in child.cpp: a program that has just been written may still be open for writing
// in a child that the caller is starting. Returns the errno.
int executeFile(const char* path, char** arguments, char** environment)
{
    constexpr long firstPause = 1000000; // nanoseconds
    constexpr long lastPause = 128 * firstPause;
    for (long pause = firstPause;; pause *= 2) {
        const int error = replaceProgram(path, arguments, environment);
        if (error != ETXTBSY || pause > lastPause) {
            return error;
        }
        const timespec interval{0, pause};
        call(SYS_nanosleep, &interval, 0);
    }
}

// Executes the first of the candidates that can be. Returns the errno.
int executeCandidate(char** candidates, int count, char** command, char** environment)
{
    int error = ENOENT;
    for (int i = 0; i < count; ++i) {
        const int refusal = executeFile(candidates[i], command, environment);
        if (count == 1 || !searchGoesOn(refusal)) {
            return refusal;
        }
        if (refusal == EACCES && call(SYS_faccessat, AT_FDCWD, candidates[i], F_OK) == 0) {
            error = EACCES;
        }
    }
    return error;
}

} // namespace

int runAs(int argc, char** argv, char** environment)
{
    constexpr int fixedArguments = 7;
    call(SYS_fcntl, kRunAsStatus, F_SETFD, FD_CLOEXEC); // if it fails, no report can be written
    const int candidates = argc > fixedArguments ? static_cast<int>(number(argv[6])) : 0;
    if (candidates < 1 || argc <= fixedArguments + candidates) {
        return failWith({RunAsStep::identity, EINVAL});
    }
    const RunAsReport prepared = prepare(argv);
    if (prepared.step != RunAsStep::command) {
        return failWith(prepared);
    }
    unmarkEnvironment(environment);
    if (!writeReport(prepared)) {
        return kUnheard;
    }
    char** const paths = argv + fixedArguments;
    return failWith(
        {RunAsStep::program, executeCandidate(paths, candidates, paths + candidates, environment)});
}

} // namespace tarnix_platform
