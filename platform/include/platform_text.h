// SPDX-License-Identifier: LicenseRef-Tarnix
/// @file
/// Functions on text that the standard library lacks. Any thread may call. On Windows, the header
/// of the same name in platform/windows/include takes the place of this one.
#ifndef TARNIX_PLATFORM_TEXT_H
#define TARNIX_PLATFORM_TEXT_H

#include <langinfo.h>

#include <cstring>

namespace tarnix_platform
{

/// Whether the decimal point of the calling thread's locale is ".".
inline bool isPointDecimal()
{
    return std::strcmp(::nl_langinfo(RADIXCHAR), ".") == 0;
}

/// Whether ASCII has its own codes in the encoding of the calling thread's locale, and conversions
/// keep no state. False means that this is not known.
inline bool isLocaleAsciiBased()
{
    const char* const encoding = ::nl_langinfo(CODESET);
    return std::strcmp(encoding, "UTF-8") == 0 || std::strcmp(encoding, "ANSI_X3.4-1968") == 0 ||
           std::strncmp(encoding, "ISO-8859-", 9) == 0;
}

/// The first such character of the text, or its terminator if there is none.
inline const char* findOrEnd(const char* text, char character)
{
    return ::strchrnul(text, character);
}

} // namespace tarnix_platform

namespace tarnix_cmn_4_4
{

using tarnix_platform::findOrEnd;
using tarnix_platform::isLocaleAsciiBased;
using tarnix_platform::isPointDecimal;

} // namespace tarnix_cmn_4_4

#endif
