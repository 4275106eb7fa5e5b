// Reaping of children, so that no zombie is left.
#ifndef TARNIX_PLATFORM_REAPING_H
#define TARNIX_PLATFORM_REAPING_H

#include "uniquefd.h"

#include <csignal>

namespace tarnix_platform
{

// elsewhere: the calling process has reaped the child itself, or ignores SIGCHLD; there is no
// status.
enum class Reaped { no, yes, elsewhere };

// Reaps the child if it has ended; `info` is its status.
Reaped reap(int pidfd, siginfo_t& info);

// Waits for the child's end and reaps it.
void reapAtEnd(int pidfd);

// Adds a running child that has no handle any more.
void addOrphan(UniqueFd pidfd);

// Reaps the orphans that have ended. Every start, wait and close calls this; without orphans it
// costs one atomic load.
void reapOrphans();

} // namespace tarnix_platform

#endif
