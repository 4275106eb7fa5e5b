// What a PSID points to.
#ifndef TARNIX_PLATFORM_ACCOUNTID_H
#define TARNIX_PLATFORM_ACCOUNTID_H

#include "platform_types.h"

#include <cstdint>
#include <string>

namespace tarnix_platform
{

struct Sid {
    std::uint32_t size; // of the structure and the whole name
    std::uint32_t uid;
    char name[1]; // terminated; longer than declared, in memory that the creator allocates
};

// Empty for null.
inline std::string accountOf(PSID sid)
{
    return sid == nullptr ? std::string() : static_cast<const Sid*>(sid)->name;
}

} // namespace tarnix_platform

#endif
