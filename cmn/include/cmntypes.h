/// @file
/// The wide string of the library's interfaces.
#ifndef TARNIX_CMNTYPES_H
#define TARNIX_CMNTYPES_H

#include <ace/SString.h>

namespace tarnix_cmn_4_4
{

/// One unit holds one code point: wchar_t is 32 bits wide here. On a system where it has 16 bits, a
/// unit is one of UTF-16.
using tstr = ACE_String_Base<wchar_t>;

} // namespace tarnix_cmn_4_4

#endif
