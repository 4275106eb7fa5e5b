// SPDX-License-Identifier: LicenseRef-Tarnix
// This process: its descriptors and children, children that a test forks, and namespaces.
#ifndef TARNIX_SUPPORT_PROCESS_H
#define TARNIX_SUPPORT_PROCESS_H

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

// The number of open descriptors, and whether there are children, zombies included. In a chroot
// there may be no /proc.
inline std::pair<long, bool> processState()
{
    constexpr int most = 4096; // no test opens as many
    long open = 0;
    for (int fd = 0; fd < most; ++fd)
        open += ::fcntl(fd, F_GETFD) >= 0 ? 1 : 0;
    siginfo_t info;
    return {open, ::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT | __WALL) == 0};
}

// Runs the work in a child process, which exits with 0 if the work returns true; an exception ends
// it. While this process has other threads, the work must not take a lock: one that another thread
// holds at the fork is never released in the child.
inline pid_t forkChild(const std::function<bool()>& work) noexcept
{
    const pid_t child = ::fork();
    if (child == 0)
        ::_exit(work() ? 0 : 1);
    return child;
}

// Waits for the end of a child, and returns its status in the form of waitpid: 0 for an exit with
// 0.
inline int waitForChild(pid_t child)
{
    int status = -1;
    if (::waitpid(child, &status, 0) != child)
        throw std::system_error(errno, std::generic_category(), "cannot wait for a child");
    return status;
}

// Permanently gives this process a mount namespace in which these files replace the system's, and
// the other namespaces that are named. Returns the empty text, or the error: in a container root
// often lacks the right, and below a root that is no mount point (chroot) mounts stay shared.
inline std::string enterNamespaces(const std::vector<std::pair<std::string, const char*>>& files,
                                   int others = 0)
{
    bool good = ::unshare(CLONE_NEWNS | others) == 0 &&
                ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    for (const auto& [file, target] : files)
        good = good && ::mount(file.c_str(), target, nullptr, MS_BIND, nullptr) == 0;
    return good ? "" : std::string("cannot enter private namespaces: ") + std::strerror(errno);
}

#endif
