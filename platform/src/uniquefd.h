// Owner of one file descriptor.
#ifndef TARNIX_PLATFORM_UNIQUEFD_H
#define TARNIX_PLATFORM_UNIQUEFD_H

#include "errors.h"

#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
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
    explicit operator bool() const { return m_Fd >= 0; }

    // Linux closes the descriptor even when close reports EINTR: closing again could hit one that
    // another thread has just opened.
    void reset(int fd = -1)
    {
        if (m_Fd >= 0) {
            ::close(m_Fd);
        }
        m_Fd = fd;
    }

private:
    int m_Fd = -1;
};

// A file that no child inherits; empty, with errno told, if it cannot be opened.
inline UniqueFd openFile(const char* path, int flags, mode_t mode = 0)
{
    int fd = -1;
    do {
        fd = ::open(path, flags | O_CLOEXEC, mode);
    } while (fd < 0 && errno == EINTR);
    return UniqueFd(fd);
}

// In one call of the system, unless that is interrupted or the disk is full.
inline bool writeAll(int fd, const char* bytes, std::size_t size)
{
    while (size > 0) {
        const ssize_t written = ::write(fd, bytes, size);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return false;
        }
        bytes += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

// A file that is to have the rights of another, without an access list, must not keep the one that
// its directory gives to new files: the change of its mode would open it.
inline bool dropAccessList(int fd)
{
    return ::fremovexattr(fd, "system.posix_acl_access") == 0 || errno == ENODATA ||
           errno == ENOTSUP;
}

// Descriptors of the layer stay clear of 0, 1 and 2: a process that has closed one of these would
// otherwise get a pipe there, and a child's start could not put its standard handles in place.
inline bool moveAboveStandard(UniqueFd& fd)
{
    if (fd.get() > STDERR_FILENO) {
        return true;
    }
    const int moved = ::fcntl(fd.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (moved < 0) {
        return fail(errno);
    }
    fd.reset(moved);
    return true;
}

} // namespace tarnix_platform

#endif
