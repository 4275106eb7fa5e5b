// SPDX-License-Identifier: LicenseRef-Tarnix
// The start of a command as another user.
#ifndef TARNIX_PLATFORM_SPAWNUSER_H
#define TARNIX_PLATFORM_SPAWNUSER_H

#include "identity.h"
#include "spawn.h"

namespace tarnix_platform
{

// As spawn, but the child switches user before it enters the directory. If the user stalls the
// start for too long, the child is killed and the start fails with ETIMEDOUT.
bool spawnAsUser(const ChildPlan& plan, const Identity& identity, Child& child);

} // namespace tarnix_platform

#endif
