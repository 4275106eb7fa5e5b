// SPDX-License-Identifier: LicenseRef-Tarnix
// One child process, from its creation to the start of its program.
#ifndef TARNIX_PLATFORM_CHILD_H
#define TARNIX_PLATFORM_CHILD_H

#include "uniquefd.h"

#include <sys/types.h>

#include <cstddef>

namespace tarnix_platform
{

struct Child {
    pid_t pid = -1;
    UniqueFd pidfd;
};

enum class ChildStep { create, prepare, closeDescriptors, setGroups, enterDirectory, execute };

// The child's input and its result: plain pointers to memory of the caller, because the child must
// not allocate.
struct ChildSide {
    const char* const* candidates = nullptr; // paths of the program to try in turn; ends with null
    char* const* arguments = nullptr;
    char* const* environment = nullptr;
    const char* directory = nullptr; // null: the caller's
    const int* standard = nullptr;   // three descriptors, all above 2
    int runAs = -1;                  // if set: the program that switches user, started instead
    int status = -1;                 // where that program reports what failed
    const gid_t* groups = nullptr;   // the supplementary groups that it gets
    int mask = -1;                   // umask; -1: the caller's
    pid_t caller = 0;                // if set: the child is killed when this process's thread ends
    std::size_t groupCount{};
    ChildStep failedStep = ChildStep::prepare;
    int error = 0; // 0: the program has started
};

// False if any step up to the start of the program failed; then `side` has the step and the error,
// and no child is left.
bool startChild(ChildSide& side, Child& child);

// Reaps a child that is about to end or was killed. If it does not end soon, for example because
// its user stalls it in a file system, a later operation reaps it.
void discardChild(Child& child) noexcept;

// The same for a child that may go on. Its user can stop it, and waiting for its end would then
// never return.
void killAndDiscard(Child& child) noexcept;

// Kills and discards the child at the end of the scope, unless that has been moved from or
// discarded by then. It protects a started child from an exception: one that is lost would run on
// without anybody who waits for it.
class ChildGuard
{
public:
    explicit ChildGuard(Child& child) : m_Child(child) {}
    ~ChildGuard();
    ChildGuard(const ChildGuard&) = delete;
    ChildGuard& operator=(const ChildGuard&) = delete;

private:
    Child& m_Child;
};

} // namespace tarnix_platform

#endif
