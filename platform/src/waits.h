// Waiting on the monotonic clock.
#ifndef TARNIX_PLATFORM_WAITS_H
#define TARNIX_PLATFORM_WAITS_H

#include "pipes.h"

namespace tarnix_platform
{

// Waits until the descriptor is readable; false when the time was up first.
bool awaitDescriptor(int fd, DWORD milliseconds);

// Ends the pending read of the pipe, if there is one; false if it goes on and `wait` is false.
bool awaitRead(Pipe& pipe, bool wait);

} // namespace tarnix_platform

#endif
