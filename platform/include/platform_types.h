// SPDX-License-Identifier: LicenseRef-Tarnix
/// @file
/// The few types of the platform layer that public classes use, on POSIX.
///
/// Names and sizes are those of the system that the logic of the runner was designed on. The types
/// are not in the global namespace, which belongs to the user's program: qualify their names, or
/// write `using namespace tarnix_cmn_4_4`. On that system itself, the header
/// of the same name in platform/windows/include takes the place of this one.
#ifndef TARNIX_PLATFORM_TYPES_H
#define TARNIX_PLATFORM_TYPES_H

#include <cstdint>

namespace tarnix_platform
{

using BOOL = int;            ///< 0 is false, anything else is true
using DWORD = std::uint32_t; ///< a number, or an error
using HANDLE = void*;        ///< an object of the layer, unless null or INVALID_HANDLE_VALUE
using LSA_HANDLE = void*;    ///< access to the rights of accounts
using PSID = void*;          ///< an account's security identifier

/// The handle of no object. As the result of GetCurrentProcess, it stands for the calling process.
static const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(~std::uintptr_t{0});

/// A text with its length.
struct LSA_UNICODE_STRING {
    std::uint16_t Length;        ///< in bytes, without the terminator
    std::uint16_t MaximumLength; ///< in bytes, with the terminator
    wchar_t* Buffer;             ///< the text, not owned
};

/// Has no effect: a child inherits only the handles that are passed when it is started.
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
