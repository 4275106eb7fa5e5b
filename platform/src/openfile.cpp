// SPDX-License-Identifier: LicenseRef-Tarnix
// Files that are no pipes of this layer, as standard handles of a child.
#include "openfile.h"

#include "descriptors.h"

#include <fcntl.h>

#include <cerrno>

namespace tarnix_platform
{

namespace
{

HANDLE openHandleOf(UniqueFd fd, const char* failure)
{
    if (!fd || !moveAboveStandard(fd)) {
        fail(errno, failure);
        return INVALID_HANDLE_VALUE;
    }
    const HANDLE handle = openHandle(std::make_shared<OpenFile>(std::move(fd)));
    return handle == nullptr ? INVALID_HANDLE_VALUE : handle;
}

} // namespace

HANDLE openNullDevice()
{
    return openHandleOf(openFile("/dev/null", O_RDWR), "cannot open '/dev/null'");
}

HANDLE openDescriptor(int fd)
{
    return openHandleOf(UniqueFd(::fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO)),
                        "cannot use input descriptor");
}

} // namespace tarnix_platform
