// The start of a command as the calling user. Everything is prepared before the child exists.
#ifndef TARNIX_PLATFORM_SPAWN_H
#define TARNIX_PLATFORM_SPAWN_H

#include "child.h"

#include <string>
#include <vector>

namespace tarnix_platform
{

struct ChildPlan {
    std::vector<std::string> words;
    std::string directory; // empty: the caller's
    int standard[3];       // all above 2
};

// False with the last error set, and no child left, when any step up to the program's start failed.
bool spawn(const ChildPlan& plan, Child& child);

// The paths of the program to try in turn: itself, or what the search path makes of it.
std::vector<std::string> candidatesOf(const std::string& program);

// What the system takes for a list of texts, which must outlive it.
std::vector<char*> pointersTo(const std::vector<std::string>& texts);

// Sets the last error of a step that failed and returns false.
bool failStep(const ChildPlan& plan, ChildStep step, int error);

} // namespace tarnix_platform

#endif
