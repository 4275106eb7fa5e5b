// SPDX-License-Identifier: LicenseRef-Tarnix
// The user that a child runs as.
#ifndef TARNIX_PLATFORM_IDENTITY_H
#define TARNIX_PLATFORM_IDENTITY_H

#include <sys/types.h>

#include <vector>

namespace tarnix_platform
{

struct Identity {
    uid_t uid;
    gid_t gid;
    std::vector<gid_t> groups;
};

} // namespace tarnix_platform

#endif
