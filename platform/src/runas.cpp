// The program that switches user and then becomes the command.
//
// If a child switched user while it shares the caller's memory, that user could stop the child and
// read the memory. So the child first executes this program, still as the caller. The program
// switches to the user, enters the directory as that user, and executes the command.
//
// It is started with the user's supplementary groups. Arguments: user id, group id, directory (may
// be empty), number of candidates, the candidates (paths to try in turn), then the command's own
// arguments. The environment is that of the command, with a mark in front of each variable. It
// writes reports to descriptor 3: one when it begins, and one if a step fails. The start of the
// command closes that descriptor.
//
// It is linked statically and uses nothing of the C++ library, so that it starts fast.
#include "runas.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <ctime>

namespace tarnix_platform
{

namespace
{

bool report(RunAsStep step, int error = 0)
{
    const RunAsReport written{step, error};
    return ::write(kRunAsStatus, &written, sizeof written) == static_cast<ssize_t>(sizeof written);
}

[[noreturn]] void reportAndExit(RunAsStep step, int error)
{
    ::_exit(report(step, error) ? 127 : 126);
}

std::uint32_t number(const char* text)
{
    return static_cast<std::uint32_t>(std::strtoul(text, nullptr, 10));
}

// A change of the user id leaves the ambient and inheritable capabilities.
bool dropCapabilities()
{
    ::prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0);
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct sets[2] = {};
    if (::syscall(SYS_capget, &header, sets) != 0) {
        return false;
    }
    sets[0].inheritable = sets[1].inheritable = 0;
    return ::syscall(SYS_capset, &header, sets) == 0;
}

// A change of the user id also leaves the session keyring. Called after it, so that the new keyring
// belongs to the user. No keyring is left where the system has none (ENOSYS), or a filter of system
// calls keeps the child from using any (EPERM).
bool leaveSessionKeyring()
{
    constexpr int joinSessionKeyring = 1;
    return ::syscall(SYS_keyctl, joinSessionKeyring, nullptr) > 0 || errno == ENOSYS ||
           errno == EPERM;
}

bool becomeUser(uid_t uid, gid_t gid)
{
    if (!dropCapabilities() || ::setresgid(gid, gid, gid) != 0 || ::setresuid(uid, uid, uid) != 0) {
        return false;
    }
    uid_t uids[3] = {};
    gid_t gids[3] = {};
    if (::getresuid(&uids[0], &uids[1], &uids[2]) != 0 ||
        ::getresgid(&gids[0], &gids[1], &gids[2]) != 0) {
        return false;
    }
    bool switched = uid == 0 || ::setresuid(0, 0, 0) != 0; // it must not be possible to switch back
    for (int i = 0; i < 3; ++i) {
        switched = switched && uids[i] == uid && gids[i] == gid;
    }
    errno = EPERM;
    return switched;
}

void unmarkEnvironment()
{
    for (char** variable = environ; *variable != nullptr; ++variable) {
        ++*variable;
    }
}

// As executeFile in child.cpp: a program that has just been written may still be open for writing
// in a child that the caller is starting.
void executeFile(const char* path, char** arguments)
{
    constexpr long firstPause = 1000000; // nanoseconds
    constexpr long lastPause = 128 * firstPause;
    for (long pause = firstPause; pause <= lastPause; pause *= 2) {
        ::execve(path, arguments, environ);
        if (errno != ETXTBSY) {
            return;
        }
        const timespec interval{0, pause};
        ::nanosleep(&interval, nullptr);
    }
    ::execve(path, arguments, environ);
}

int becomeCommand(int argc, char** argv)
{
    constexpr int fixedArguments = 5;
    if (::fcntl(kRunAsStatus, F_SETFD, FD_CLOEXEC) != 0 || !report(RunAsStep::begin)) {
        return 126;
    }
    const int candidates = argc > fixedArguments ? static_cast<int>(number(argv[4])) : 0;
    if (candidates < 1 || argc <= fixedArguments + candidates) {
        reportAndExit(RunAsStep::identity, EINVAL);
    }
    if (!becomeUser(number(argv[1]), number(argv[2]))) {
        reportAndExit(RunAsStep::identity, errno);
    }
    if (!leaveSessionKeyring()) {
        reportAndExit(RunAsStep::keyring, errno);
    }
    ::umask(S_IWGRP | S_IWOTH); // a daemon's is often 0: the user's files would be writable for all
    if (argv[3][0] != '\0' && ::chdir(argv[3]) != 0) {
        reportAndExit(RunAsStep::directory, errno);
    }
    unmarkEnvironment();
    char** const command = argv + fixedArguments + candidates;
    int error = ENOENT;
    for (int i = 0; i < candidates; ++i) {
        const char* path = argv[fixedArguments + i];
        executeFile(path, command);
        if (candidates == 1 || !searchGoesOn(errno)) {
            reportAndExit(RunAsStep::program, errno);
        }
        if (errno == EACCES && ::access(path, F_OK) == 0) {
            error = EACCES;
        }
    }
    reportAndExit(RunAsStep::program, error);
}

} // namespace

} // namespace tarnix_platform

int main(int argc, char** argv)
{
    return tarnix_platform::becomeCommand(argc, argv);
}
