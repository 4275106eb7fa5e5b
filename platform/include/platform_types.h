/// @file
/// The few types of the platform layer that public classes name, on POSIX.
///
/// Their names and sizes are those of the system that the runner's logic was designed on. They are
/// not in the global namespace, which belongs to the program: a class derived from one of the
/// library's names them through `using namespace tarnix_cmn_4_4`, or qualified.
#ifndef TARNIX_PLATFORM_TYPES_H
#define TARNIX_PLATFORM_TYPES_H

#include <cstdint>

namespace tarnix_platform
{

using BOOL = int;            ///< 0 for false, anything else for true
using DWORD = std::uint32_t; ///< a number or an error
using HANDLE = void*;        ///< an object of the layer; null and INVALID_HANDLE_VALUE are none
using LSA_HANDLE = void*;    ///< the open store of the accounts' rights
using PSID = void*;          ///< an account's security identifier

/// Names no object.
static const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(~std::uintptr_t{0});

/// A counted text.
struct LSA_UNICODE_STRING {
    std::uint16_t Length;        ///< in bytes, without the terminator
    std::uint16_t MaximumLength; ///< in bytes, with the terminator
    wchar_t* Buffer;             ///< the text, not owned
};

/// Has no effect: what a child inherits is named at its start.
struct SECURITY_ATTRIBUTES {
    DWORD nLength;              ///< size of this structure in bytes
    void* lpSecurityDescriptor; ///< not used
    BOOL bInheritHandle;        ///< not used
};

} // namespace tarnix_platform

namespace tarnix_cmn_4_4
{

using tarnix_platform::BOOL;
using tarnix_platform::DWORD;
using tarnix_platform::HANDLE;
using tarnix_platform::INVALID_HANDLE_VALUE;
using tarnix_platform::LSA_HANDLE;
using tarnix_platform::LSA_UNICODE_STRING;
using tarnix_platform::PSID;
using tarnix_platform::SECURITY_ATTRIBUTES;

} // namespace tarnix_cmn_4_4

#endif
