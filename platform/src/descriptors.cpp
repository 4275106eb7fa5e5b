// SPDX-License-Identifier: LicenseRef-Tarnix
// Operations on file descriptors.
#include "descriptors.h"

#include "retry.h"

#include <fcntl.h>
#include <sys/resource.h>

#include <cerrno>
#include <csignal>
#include <ctime>
#include <utility>

namespace tarnix_platform
{

UniqueFd openFile(const char* path, int flags, mode_t mode)
{
    return openFileAt(AT_FDCWD, path, flags, mode);
}

UniqueFd openFileAt(int directory, const char* path, int flags, mode_t mode)
{
    return UniqueFd(
        retryInterrupted([&] { return ::openat(directory, path, flags | O_CLOEXEC, mode); }));
}

ssize_t readSome(int fd, void* buffer, std::size_t size)
{
    return retryInterrupted([&] { return ::read(fd, buffer, size); });
}

bool writeAll(int fd, const void* bytes, std::size_t size)
{
    const char* at = static_cast<const char*>(bytes);
    while (size > 0) {
        const ssize_t written = retryInterrupted([&] { return ::write(fd, at, size); });
        if (written <= 0) {
            return false;
        }
        at += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

bool isWithinFileSizeLimit(std::size_t size)
{
    rlimit limit{};
    ::getrlimit(RLIMIT_FSIZE, &limit); // cannot fail: the pointer is valid
    if (limit.rlim_cur < size) {
        errno = EFBIG;
        return false;
    }
    return true;
}

ssize_t writeSome(int fd, const void* bytes, std::size_t size)
{
    sigset_t pipeSignal;
    sigset_t former;
    sigset_t pending;
    ::sigemptyset(&pipeSignal);
    ::sigaddset(&pipeSignal, SIGPIPE);
    ::sigpending(&pending);
    ::pthread_sigmask(SIG_BLOCK, &pipeSignal, &former);
    const ssize_t written = retryInterrupted([&] { return ::write(fd, bytes, size); });
    const int error = errno;
    if (written == -1 && error == EPIPE && ::sigismember(&pending, SIGPIPE) == 0) {
        // The write has sent the signal to this thread. Taken here, it is not delivered below, or
        // later to a caller that blocks it itself. One that was pending before stays.
        const timespec none{};
        retryInterrupted([&] { return ::sigtimedwait(&pipeSignal, nullptr, &none); });
    }
    ::pthread_sigmask(SIG_SETMASK, &former, nullptr);
    errno = error;
    return written;
}

bool makeNonBlocking(int fd)
{
    return ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK) == 0;
}

bool moveAbove(UniqueFd& fd, int number)
{
    if (fd.get() > number) {
        return true;
    }
    UniqueFd moved(::fcntl(fd.get(), F_DUPFD_CLOEXEC, number + 1));
    if (!moved) {
        return false;
    }
    fd = std::move(moved);
    return true;
}

bool openPipe(UniqueFd& reader, UniqueFd& writer)
{
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        return false;
    }
    reader.reset(fds[0]);
    writer.reset(fds[1]);
    return moveAboveStandard(reader) && moveAboveStandard(writer);
}

} // namespace tarnix_platform
