// The start of a command as another user.
#ifndef TARNIX_PLATFORM_SPAWNUSER_H
#define TARNIX_PLATFORM_SPAWNUSER_H

#include "identity.h"
#include "spawn.h"

namespace tarnix_platform
{

// As spawn; the child takes the identity before it enters the directory. A user who stalls his
// child's start for too long has it killed (ETIMEDOUT).
bool spawnAsUser(const ChildPlan& plan, const Identity& identity, Child& child);

} // namespace tarnix_platform

#endif
