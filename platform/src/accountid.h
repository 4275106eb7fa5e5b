// SPDX-License-Identifier: LicenseRef-Tarnix
// What a PSID points to.
#ifndef TARNIX_PLATFORM_ACCOUNTID_H
#define TARNIX_PLATFORM_ACCOUNTID_H

#include "platform_types.h"

#include <string>

namespace tarnix_platform
{

// The account's name, terminated. Empty for null.
inline std::string accountOf(PSID sid)
{
    return sid == nullptr ? std::string() : static_cast<const char*>(sid);
}

} // namespace tarnix_platform

#endif
