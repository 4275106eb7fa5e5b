// Work on file descriptors that no signal interrupts and no child inherits.
//
// All of these report failure by their result, with the reason in errno.
#ifndef TARNIX_PLATFORM_DESCRIPTORS_H
#define TARNIX_PLATFORM_DESCRIPTORS_H

#include "uniquefd.h"

#include <sys/types.h>

#include <cstddef>

namespace tarnix_platform
{

// Empty if the file cannot be opened.
UniqueFd openFile(const char* path, int flags, mode_t mode = 0);

// The number of bytes read, 0 at the end of the file; -1 on failure.
ssize_t readSome(int fd, void* buffer, std::size_t size);

// One system call, unless that is interrupted or the disk is full.
bool writeAll(int fd, const void* bytes, std::size_t size);

// Waits for the exclusive lock of the open file.
bool lockFile(int fd);

// Moves the descriptor above that number, unless it is there already. On failure it stays.
bool moveAbove(UniqueFd& fd, int number);

// Descriptors of the layer stay clear of 0, 1 and 2: a process that has closed one of these would
// otherwise get a pipe there, and a child's start could not put its standard handles in place.
inline bool moveAboveStandard(UniqueFd& fd)
{
    return moveAbove(fd, STDERR_FILENO);
}

// A kernel pipe, both ends above the standard descriptors.
bool openPipe(UniqueFd& reader, UniqueFd& writer);

} // namespace tarnix_platform

#endif
