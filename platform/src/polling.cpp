// Waiting for a descriptor.
#include "polling.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <climits>

namespace tarnix_platform
{

Deadline::Deadline(DWORD milliseconds)
    : m_Limited(milliseconds != INFINITE),
      m_End(m_Limited && milliseconds > 0 ? Clock::now() + std::chrono::milliseconds(milliseconds)
                                          : Clock::time_point{}),
      m_Immediate(milliseconds == 0)
{
}

int Deadline::left() const
{
    if (!m_Limited) {
        return -1;
    }
    if (m_Immediate) {
        return 0;
    }
    const auto rest = std::chrono::ceil<std::chrono::milliseconds>(m_End - Clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(rest.count(), 0, INT_MAX));
}

bool awaitDescriptor(int fd, DWORD milliseconds)
{
    const Deadline deadline(milliseconds);
    for (;;) {
        pollfd one{fd, POLLIN, 0};
        const int count = ::poll(&one, 1, deadline.left());
        if (count > 0) {
            return true;
        }
        if (count < 0 && errno != EINTR) {
            return false;
        }
        if (deadline.passed()) {
            errno = ETIMEDOUT;
            return false;
        }
    }
}

} // namespace tarnix_platform
