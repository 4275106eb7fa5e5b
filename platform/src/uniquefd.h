// Owner of one file descriptor.
#ifndef TARNIX_PLATFORM_UNIQUEFD_H
#define TARNIX_PLATFORM_UNIQUEFD_H

#include <unistd.h>

#include <utility>

namespace tarnix_platform
{

class UniqueFd
{
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : m_Fd(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : m_Fd(std::exchange(other.m_Fd, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept
    {
        reset(std::exchange(other.m_Fd, -1));
        return *this;
    }
    ~UniqueFd() { reset(); }

    int get() const { return m_Fd; }
    explicit operator bool() const { return m_Fd != -1; }

    // The caller closes it.
    int release() { return std::exchange(m_Fd, -1); }

    // Linux closes the descriptor even when close reports EINTR: closing again could hit one that
    // another thread has just opened.
    void reset(int fd = -1)
    {
        if (m_Fd != -1) {
            ::close(m_Fd);
        }
        m_Fd = fd;
    }

private:
    int m_Fd = -1;
};

} // namespace tarnix_platform

#endif
