// SPDX-License-Identifier: LicenseRef-Tarnix
// Text to an unsigned 64-bit number.
#include "TX_strings.h"
#include "TX_strtoint.h"

std::uintmax_t TX_strtoumax(const char* text, char** end, int base)
{
    return TX_readNumber(text, end, base, TX_UnsignedLimits);
}
