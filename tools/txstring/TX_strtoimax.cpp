// SPDX-License-Identifier: LicenseRef-Tarnix
// Text to a signed 64-bit number.
#include "TX_strings.h"
#include "TX_strtoint.h"

std::intmax_t TX_strtoimax(const char* text, char** end, int base)
{
    return static_cast<std::intmax_t>(TX_readNumber(text, end, base, TX_SignedLimits));
}
