// Waiting for a descriptor, on the monotonic clock.
#ifndef TARNIX_PLATFORM_POLLING_H
#define TARNIX_PLATFORM_POLLING_H

#include "platform.h"

#include <chrono>

namespace tarnix_platform
{

// The end of a wait of so many milliseconds; INFINITE has none.
class Deadline
{
public:
    explicit Deadline(DWORD milliseconds);

    // For poll: -1 without a limit; rounded up, so that a wait never ends early, and cut to what an
    // int holds.
    int left() const;

    bool passed() const { return left() == 0; }

private:
    using Clock = std::chrono::steady_clock;

    bool m_Limited;
    Clock::time_point m_End;
    bool m_Immediate;
};

// Waits until the descriptor is readable; false when the time was up first.
bool awaitDescriptor(int fd, DWORD milliseconds);

} // namespace tarnix_platform

#endif
