// SPDX-License-Identifier: LicenseRef-Tarnix
// Reaping of children, so that no zombie is left.
#ifndef TARNIX_PLATFORM_REAPING_H
#define TARNIX_PLATFORM_REAPING_H

#include "uniquefd.h"

#include <sys/resource.h>
#include <sys/wait.h>

#include <csignal>

namespace tarnix_platform
{

// elsewhere: the calling process has reaped the child itself, or ignores SIGCHLD; there is no
// status.
enum class Reaped { no, yes, elsewhere };

// Reaps the child if it has ended; `info` is its status, and `used` what it has used. With the
// option WNOWAIT as well the child stays to be reaped.
Reaped reap(int pidfd, siginfo_t& info, rusage* used = nullptr, int options = WNOHANG);

// How long to wait for the end of a child that was killed, in milliseconds. SIGKILL takes effect at
// once unless the child is blocked in the kernel: by a dead disk for example, or in a file system
// of its user that does not answer.
constexpr unsigned int kKillTimeout = 2000;

// Waits for the end of a child that is about to end or was killed, but no longer than kKillTimeout,
// and reaps it. A child that has not ended by then becomes an orphan.
void reapSoon(UniqueFd pidfd) noexcept;

// Adds a running child that has no handle any more.
void addOrphan(UniqueFd pidfd);

// Reaps the orphans that have ended. Every start, wait and close calls this; without orphans it
// costs one atomic load.
void reapOrphans();

} // namespace tarnix_platform

#endif
