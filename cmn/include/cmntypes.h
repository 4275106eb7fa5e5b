/// @file
/// The wide string of the library's interfaces.
#ifndef TARNIX_CMNTYPES_H
#define TARNIX_CMNTYPES_H

#include <ace/SString.h>

namespace tarnix_cmn_4_4
{

/// One unit holds one code point: wchar_t is 32 bits wide here. It is never compiled with 16-bit
/// wide characters; only CCmnStringTool::tstr2ustr and ustr2tstr go to UTF-16 and back.
using tstr = ACE_String_Base<wchar_t>;

} // namespace tarnix_cmn_4_4

#endif
