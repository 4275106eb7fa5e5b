// One child process, from its creation to its program.
#ifndef TARNIX_PLATFORM_CHILD_H
#define TARNIX_PLATFORM_CHILD_H

#include "uniquefd.h"

#include <sys/types.h>

namespace tarnix_platform
{

struct Child {
    pid_t pid = -1;
    UniqueFd pidfd;
};

enum class ChildStep { create, prepare, enterDirectory, execute };

// What the child works on: plain pointers into what the caller holds, for it may not allocate.
struct ChildSide {
    const char* const* candidates = nullptr; // paths of the program to try in turn, ending in null
    char* const* arguments = nullptr;
    char* const* environment = nullptr;
    const char* directory = nullptr; // null: stay
    const int* standard = nullptr;   // three descriptors, all above 2
    int runAs = -1;                  // the program that switches user, to be started instead
    int status = -1;                 // where that program reports what failed
    ChildStep failedStep = ChildStep::prepare;
    int error = 0; // 0: the program has started
};

// False with the failed step and the error in `side`, and no child left, when any step up to the
// program's start failed.
bool startChild(ChildSide& side, Child& child);

// Reaps a child that ends by itself or was killed, and forgets it.
void discardChild(Child& child);

} // namespace tarnix_platform

#endif
