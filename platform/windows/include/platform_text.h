// SPDX-License-Identifier: LicenseRef-Tarnix
/// @file
/// Functions on text that the standard library lacks.
/// In the include path it comes before the header of the same name in platform/include.
#ifndef TARNIX_PLATFORM_TEXT_H
#define TARNIX_PLATFORM_TEXT_H

#include <clocale>
#include <cstring>

namespace tarnix_platform
{

/// Whether the decimal point of the calling thread's locale is ".".
inline bool isPointDecimal()
{
    return std::strcmp(std::localeconv()->decimal_point, ".") == 0;
}

/// Whether ASCII has its own codes in the encoding of the calling thread's locale, and conversions
/// keep no state. False means that this is not known.
inline bool isLocaleAsciiBased()
{
    return false;
}

/// The first such character of the text, or its terminator if there is none.
inline const char* findOrEnd(const char* text, char character)
{
    const char set[] = {character, '\0'};
    return text + std::strcspn(text, set);
}

} // namespace tarnix_platform

namespace tarnix_cmn_4_4
{

using tarnix_platform::findOrEnd;
using tarnix_platform::isLocaleAsciiBased;
using tarnix_platform::isPointDecimal;

} // namespace tarnix_cmn_4_4

#endif
