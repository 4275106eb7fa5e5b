// SPDX-License-Identifier: LicenseRef-Tarnix
// Waiting for a descriptor, on the monotonic clock.
#ifndef TARNIX_PLATFORM_POLLING_H
#define TARNIX_PLATFORM_POLLING_H

#include "platform.h"

#include <chrono>

namespace tarnix_platform
{

// The end of a wait that starts now; INFINITE has none.
class Deadline
{
public:
    explicit Deadline(DWORD milliseconds);

    // The timeout for poll in milliseconds: rounded up, so that a wait never ends early, and
    // limited to the range of int, so that one without an end is begun again after some weeks.
    int left() const;

    bool passed() const { return left() == 0; }

private:
    using Clock = std::chrono::steady_clock;

    Clock::time_point m_End;
};

// Waits until the descriptor is readable. False if the time is up before (errno is ETIMEDOUT), or
// if the system refuses the wait.
bool awaitDescriptor(int fd, DWORD milliseconds);

} // namespace tarnix_platform

#endif
