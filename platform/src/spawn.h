// SPDX-License-Identifier: LicenseRef-Tarnix
// The start of a command as the calling user. All allocations are made before the child exists.
#ifndef TARNIX_PLATFORM_SPAWN_H
#define TARNIX_PLATFORM_SPAWN_H

#include "child.h"

#include <array>
#include <string>
#include <vector>

namespace tarnix_platform
{

struct ChildPlan {
    std::vector<std::string> words;
    std::string directory;       // empty: the caller's
    std::array<int, 3> standard; // all above 2
    bool inheritsEnvironment{};
    std::vector<std::string> environment{}; // if it does not inherit the caller's
    int mask = -1;                          // umask; -1: the caller's, or 022 for another user
    bool endsWithCaller = false;
    bool keepsGroup = false; // see Process::adopt
};

// False with the last error set if any step up to the start of the program failed; then no child is
// left.
bool spawn(const ChildPlan& plan, Child& child);

// The paths of the program to try in turn: the name itself if it has a slash, otherwise one for
// each directory of the search path, which is the child's PATH.
std::vector<std::string> candidatesOf(const ChildPlan& plan);

// The texts as the null-terminated array that exec needs. They must outlive it.
std::vector<char*> pointersTo(const std::vector<std::string>& texts);

// Sets the last error for a failed step and returns false.
bool failStep(const ChildPlan& plan, ChildStep step, int error);

} // namespace tarnix_platform

#endif
