// SPDX-License-Identifier: LicenseRef-Tarnix
// System calls of a program that may have no C library.
#ifndef TARNIX_PLATFORM_SYSTEMCALL_H
#define TARNIX_PLATFORM_SYSTEMCALL_H

#ifndef TARNIX_BARE_PROGRAM
#include <unistd.h>

#include <cerrno>
#endif

#include <sys/syscall.h>

namespace tarnix_platform
{

// Whole words, whose upper halves count too.
template <typename Value>
long toWord(Value value)
{
    return static_cast<long>(value);
}

template <typename Value>
long toWord(Value* value)
{
    return reinterpret_cast<long>(value);
}

#ifdef TARNIX_BARE_PROGRAM

// The result of the system call, or -errno. No call of the program needs more values.
template <typename... Values>
long call(long number, Values... values)
{
    const long words[3] = {toWord(values)...};
    long result = number;
    asm volatile("syscall"
                 : "+a"(result)
                 : "D"(words[0]), "S"(words[1]), "d"(words[2])
                 : "rcx", "r11", "memory");
    return result;
}

inline int replaceProgram(const char* path, char** arguments, char** environment)
{
    return static_cast<int>(-call(SYS_execve, path, arguments, environment));
}

#else

template <typename... Values>
long call(long number, Values... values)
{
    const long result = ::syscall(number, toWord(values)...);
    return result == -1 ? -errno : result;
}

// A coverage build replaces this function by one that first writes the counters.
inline int replaceProgram(const char* path, char** arguments, char** environment)
{
    ::execve(path, arguments, environment);
    return errno;
}

#endif

} // namespace tarnix_platform

#endif
