// SPDX-License-Identifier: LicenseRef-Tarnix
// Waiting for a descriptor.
#include "polling.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <iterator>

namespace tarnix_platform
{

Deadline::Deadline(DWORD milliseconds)
    : m_End(milliseconds == INFINITE ? Clock::time_point::max()
                                     : Clock::now() + std::chrono::milliseconds(milliseconds))
{
}

int Deadline::left() const
{
    const auto rest = std::chrono::ceil<std::chrono::milliseconds>(m_End - Clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(rest.count(), 0, INT_MAX));
}

bool awaitDescriptor(int fd, DWORD milliseconds)
{
    const Deadline deadline(milliseconds);
    for (;;) {
        pollfd one[] = {{fd, POLLIN, {}}};
        const int count = ::poll(one, std::size(one), deadline.left());
        if (count == 1) {
            return true;
        }
        if (count == -1 && errno != EINTR) {
            return false;
        }
        if (deadline.passed()) {
            errno = ETIMEDOUT;
            return false;
        }
    }
}

} // namespace tarnix_platform
