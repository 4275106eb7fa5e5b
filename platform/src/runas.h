// SPDX-License-Identifier: LicenseRef-Tarnix
// The interface between the layer and the program that switches user.
#ifndef TARNIX_PLATFORM_RUNAS_H
#define TARNIX_PLATFORM_RUNAS_H

#include <cerrno>

namespace tarnix_platform
{

// Descriptors of that program.
constexpr int kRunAsStatus = 3;                 // where it writes its reports
constexpr int kRunAsProgram = kRunAsStatus + 1; // its own file, until it has started
constexpr char kRunAsProgramLink[] = "/proc/self/fd/4";

// In front of each variable of its environment, which is that of the command. The variables must
// not take effect in this program, which starts as root, and no name begins with this character.
constexpr char kRunAsMark = '=';

// A step that has failed; or `command`, the only other report: the user is switched, and the
// command is executed next.
enum class RunAsStep : int { command, scheduling, identity, keyring, directory, program };

struct RunAsReport {
    RunAsStep step;
    int error;
};

// What the program does. Returns its exit status; not at all if the command has started.
int runAs(int argc, char** argv, char** environment);

// As execvp: the search continues after a directory that lacks the program or may not be searched.
constexpr bool searchGoesOn(int error)
{
    switch (error) {
    case EACCES:
    case ENOENT:
    case ENOTDIR:
    case ESTALE:
    case ENODEV:
    case ETIMEDOUT:
        return true;
    default:
        return false;
    }
}

} // namespace tarnix_platform

#endif
