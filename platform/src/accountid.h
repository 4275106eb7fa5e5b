// What a PSID points to.
#ifndef TARNIX_PLATFORM_ACCOUNTID_H
#define TARNIX_PLATFORM_ACCOUNTID_H

#include "platform_types.h"

#include <cstdint>
#include <string>

namespace tarnix_platform
{

// The account's name, terminated, after its size. Whoever makes one takes the memory for the name.
struct Sid {
    std::uint32_t size; // of the whole
    std::uint32_t uid;
    char name[1];
};

// Empty for null.
inline std::string accountOf(PSID sid)
{
    return sid == nullptr ? std::string() : static_cast<const Sid*>(sid)->name;
}

} // namespace tarnix_platform

#endif
