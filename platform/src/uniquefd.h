// SPDX-License-Identifier: LicenseRef-Tarnix
// Owner of one file descriptor.
#ifndef TARNIX_PLATFORM_UNIQUEFD_H
#define TARNIX_PLATFORM_UNIQUEFD_H

#include <unistd.h>

#include <utility>

namespace tarnix_platform
{

class UniqueFd
{
    static constexpr int kNone = -1; // as the system returns instead of a descriptor

public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : m_Fd(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : m_Fd(std::exchange(other.m_Fd, kNone)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept
    {
        reset(std::exchange(other.m_Fd, kNone));
        return *this;
    }
    ~UniqueFd() { reset(); }

    int get() const { return m_Fd; }
    explicit operator bool() const { return m_Fd != kNone; }

    // The caller closes it.
    int release() { return std::exchange(m_Fd, kNone); }

    // Linux closes the descriptor even when close reports EINTR: closing again could hit one that
    // another thread has just opened.
    void reset(int fd = kNone)
    {
        if (m_Fd != kNone) {
            ::close(m_Fd);
        }
        m_Fd = fd;
    }

private:
    int m_Fd = kNone;
};

} // namespace tarnix_platform

#endif
