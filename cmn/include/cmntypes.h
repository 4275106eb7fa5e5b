// SPDX-License-Identifier: LicenseRef-Tarnix
/// @file
/// The wide string of the library's interfaces.
#ifndef TARNIX_CMNTYPES_H
#define TARNIX_CMNTYPES_H

#include <ace/SString.h>

namespace tarnix_cmn_4_4
{

/// Each unit is a code point, because wchar_t has 32 bits here. On a system where wchar_t has 16
/// bits, each unit is one of UTF-16.
using tstr = ACE_String_Base<wchar_t>;

} // namespace tarnix_cmn_4_4

#endif
