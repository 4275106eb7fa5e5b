// Starts one child. Everything is prepared before the child exists.
#ifndef TARNIX_PLATFORM_SPAWN_H
#define TARNIX_PLATFORM_SPAWN_H

#include "uniquefd.h"

#include <sys/types.h>

#include <string>
#include <vector>

namespace tarnix_platform
{

// Whom the child runs as.
struct Identity {
    uid_t uid;
    gid_t gid;
    std::vector<gid_t> groups;
};

struct ChildPlan {
    std::vector<std::string> words;
    std::string directory;              // empty: the caller's
    int standard[3];                    // all above 2
    const Identity* identity = nullptr; // null: the caller
};

struct Child {
    pid_t pid = -1;
    UniqueFd pidfd;
};

// False with the last error set, and no child left, when any step up to the program's start failed.
bool spawn(const ChildPlan& plan, Child& child);

} // namespace tarnix_platform

#endif
