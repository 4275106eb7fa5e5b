// What the layer and the program that switches user agree on.
#ifndef TARNIX_PLATFORM_RUNAS_H
#define TARNIX_PLATFORM_RUNAS_H

#include <cerrno>

namespace tarnix_platform
{

// Descriptors of that program.
constexpr int kRunAsStatus = 3;
constexpr int kRunAsProgram = kRunAsStatus + 1; // itself

enum class RunAsStep : int { identity, directory, program };

struct RunAsFailure {
    RunAsStep step;
    int error;
};

// As execvp goes on: a directory of the search that lacks the program, or may not be looked into,
// is no reason to stop.
constexpr bool searchGoesOn(int error)
{
    return error == EACCES || error == ENOENT || error == ENOTDIR || error == ESTALE ||
           error == ENODEV || error == ETIMEDOUT;
}

} // namespace tarnix_platform

#endif
