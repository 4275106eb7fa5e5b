/// @file
/// The operations that the command runner is written against, on the system that provides them
/// itself.
/// In the include path it comes before the header of the same name in platform/include.
#ifndef TARNIX_PLATFORM_H
#define TARNIX_PLATFORM_H

#include "platform_types.h"

namespace tarnix_platform
{

/// Has no effect: the system keeps the accounts' rights itself.
inline void setRightsFile(const char* /*path*/) {}

/// Has no effect: the system starts the child itself.
inline void setUserStartLimit(DWORD /*milliseconds*/) {}

/// Always false: no signal ends a process of this system.
inline bool endingSignal(HANDLE /*process*/, int& /*signal*/, bool& /*coreDumped*/)
{
    return false;
}

} // namespace tarnix_platform

#endif
