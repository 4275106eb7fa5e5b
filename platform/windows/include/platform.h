// SPDX-License-Identifier: LicenseRef-Tarnix
/// @file
/// The operations that the command runner is written against, on the system that provides them
/// itself.
/// In the include path it comes before the header of the same name in platform/include.
#ifndef TARNIX_PLATFORM_H
#define TARNIX_PLATFORM_H

#include "platform_types.h"

#include <psapi.h>

#include <cstddef>

namespace tarnix_platform
{

/// Has no effect: the system keeps the accounts' rights itself.
inline void setRightsFile(const char* /*path*/) {}

/// Has no effect: the system starts the child itself.
inline void setUserStartLimit(DWORD /*milliseconds*/) {}

/// Always 0: the system reads nothing ahead.
inline std::size_t takeLine(HANDLE /*file*/, char* /*buffer*/, std::size_t /*size*/)
{
    return 0;
}

/// Always false: no signal ends a process of this system.
inline bool endingSignal(HANDLE /*process*/, int& /*signal*/, bool& /*coreDumped*/)
{
    return false;
}

/// Always invalid: descriptors of the C library are not passed on.
inline HANDLE openDescriptor(int /*fd*/)
{
    return INVALID_HANDLE_VALUE;
}

/// They have no effect: this system has no umask, and no parent that a process could end with.
struct TxStartAttributes {
    int Umask;
    bool EndsWithCaller;
    bool KeepsGroup;
};
inline void setStartAttributes(STARTUPINFOEXA& /*startup*/, const TxStartAttributes& /*attributes*/)
{
}

/// SIGINT is Ctrl-C; every other signal is Ctrl-Break.
inline BOOL sendSignal(HANDLE process, int signal)
{
    constexpr int interrupt = 2;
    return GenerateConsoleCtrlEvent(signal == interrupt ? CTRL_C_EVENT : CTRL_BREAK_EVENT,
                                    GetProcessId(process));
}

/// Has no effect.
inline void killGroupAtEnd(HANDLE /*process*/) {}

/// Always null: the blocks of accounts are wide.
inline char* accountEnvironment(HANDLE /*token*/)
{
    return nullptr;
}

} // namespace tarnix_platform

#endif
