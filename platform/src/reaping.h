// The ends of children: their status is fetched, so that no zombie stays.
#ifndef TARNIX_PLATFORM_REAPING_H
#define TARNIX_PLATFORM_REAPING_H

#include "uniquefd.h"

#include <csignal>

namespace tarnix_platform
{

// elsewhere: the calling process has reaped the child itself, or ignores SIGCHLD.
enum class Reaped { no, yes, elsewhere };

// Fetches the child's status if it has ended. `info` is zeroed first.
Reaped reap(int pidfd, siginfo_t& info);

// Waits for the child's end.
void reapAtEnd(int pidfd);

// Takes over a child that runs and that nobody waits for any more.
void addOrphan(UniqueFd pidfd);

// Reaps the orphans that have ended. Called by each start, wait and closing; costs one load without
// orphans.
void reapOrphans();

} // namespace tarnix_platform

#endif
