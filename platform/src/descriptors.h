// SPDX-License-Identifier: LicenseRef-Tarnix
// Operations on file descriptors, which no signal interrupts. No child inherits the descriptors.
//
// All report failure by their result, with the reason in errno.
#ifndef TARNIX_PLATFORM_DESCRIPTORS_H
#define TARNIX_PLATFORM_DESCRIPTORS_H

#include "uniquefd.h"

#include <sys/types.h>

#include <cstddef>

namespace tarnix_platform
{

// Empty if the file cannot be opened. The mode is for a file that is created.
UniqueFd openFile(const char* path, int flags, mode_t mode = 0);
UniqueFd openFileAt(int directory, const char* path, int flags, mode_t mode = 0);

// The number of bytes read, 0 at the end of the file; -1 on failure.
ssize_t readSome(int fd, void* buffer, std::size_t size);

// Makes one system call, unless that is interrupted or the disk is full.
bool writeAll(int fd, const void* bytes, std::size_t size);

// Whether a file of this size may be written. Checked before: a write beyond the limit ends the
// process by SIGXFSZ.
bool isWithinFileSizeLimit(std::size_t size);

// The number of bytes written; -1 on failure. A pipe without a reader is the error EPIPE and no
// signal to this process.
ssize_t writeSome(int fd, const void* bytes, std::size_t size);

// Duplicates the descriptor to one above that number and closes it, unless it is above already. On
// failure it is unchanged.
bool moveAbove(UniqueFd& fd, int number);

// Descriptors of the layer are never 0, 1 or 2: in a process that has closed one of these, a pipe
// would otherwise get its number, and the start of a child would overwrite it when it sets the
// child's standard descriptors.
inline bool moveAboveStandard(UniqueFd& fd)
{
    return moveAbove(fd, STDERR_FILENO);
}

// The descriptor returns instead of waiting. False on failure.
bool makeNonBlocking(int fd);

// A kernel pipe, both ends above the standard descriptors.
bool openPipe(UniqueFd& reader, UniqueFd& writer);

} // namespace tarnix_platform

#endif
