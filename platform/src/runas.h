// The interface between the layer and the program that switches user.
#ifndef TARNIX_PLATFORM_RUNAS_H
#define TARNIX_PLATFORM_RUNAS_H

#include <cerrno>

namespace tarnix_platform
{

// Descriptors of that program.
constexpr int kRunAsStatus = 3;                 // where it reports a failure
constexpr int kRunAsProgram = kRunAsStatus + 1; // its own file, until it has started

// In front of each variable of its environment, which is that of the command. The variables must
// not take effect in this program, which starts as root, and no name begins with this character.
constexpr char kRunAsMark = '=';

enum class RunAsStep : int { identity, keyring, directory, program };

struct RunAsFailure {
    RunAsStep step;
    int error;
};

// As execvp: the search continues after a directory that lacks the program or may not be searched.
constexpr bool searchGoesOn(int error)
{
    return error == EACCES || error == ENOENT || error == ENOTDIR || error == ESTALE ||
           error == ENODEV || error == ETIMEDOUT;
}

} // namespace tarnix_platform

#endif
