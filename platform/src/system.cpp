// SPDX-License-Identifier: LicenseRef-Tarnix
// The system's version and clock, and sleeping.
#include "errors.h"

#include <sched.h>
#include <sys/utsname.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <thread>

namespace tarnix_platform
{

BOOL GetVersionExW(OSVERSIONINFOW* information)
{
    constexpr DWORD batchLogonBuild = 1057;
    utsname kernel{};
    if (information == nullptr || information->dwOSVersionInfoSize != sizeof(OSVERSIONINFOW)) {
        return fail(EINVAL);
    }
    ::uname(&kernel); // cannot fail: the pointer is valid
    *information = OSVERSIONINFOW{};
    information->dwOSVersionInfoSize = sizeof(OSVERSIONINFOW);
    std::sscanf(kernel.release, "%u.%u", &information->dwMajorVersion,
                &information->dwMinorVersion);
    information->dwBuildNumber = batchLogonBuild;
    information->dwPlatformId = VER_PLATFORM_WIN32_NT;
    return true;
}

void GetSystemTime(SYSTEMTIME* time)
{
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    std::tm parts{};
    ::gmtime_r(&now.tv_sec, &parts);
    time->wYear = static_cast<WORD>(parts.tm_year + 1900);
    time->wMonth = static_cast<WORD>(parts.tm_mon + 1);
    time->wDayOfWeek = static_cast<WORD>(parts.tm_wday);
    time->wDay = static_cast<WORD>(parts.tm_mday);
    time->wHour = static_cast<WORD>(parts.tm_hour);
    time->wMinute = static_cast<WORD>(parts.tm_min);
    time->wSecond = static_cast<WORD>(parts.tm_sec);
    time->wMilliseconds = static_cast<WORD>(
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::nanoseconds(now.tv_nsec))
            .count());
}

BOOL SystemTimeToFileTime(const SYSTEMTIME* time, FILETIME* ticks)
{
    constexpr std::uint64_t from1601To1970 = 11644473600; // seconds
    std::tm parts{};
    parts.tm_year = time->wYear - 1900;
    parts.tm_mon = time->wMonth - 1;
    parts.tm_mday = time->wDay;
    parts.tm_hour = time->wHour;
    parts.tm_min = time->wMinute;
    parts.tm_sec = time->wSecond;
    const std::uint64_t seconds = static_cast<std::uint64_t>(::timegm(&parts)) + from1601To1970;
    const std::uint64_t count = (seconds * 1000 + time->wMilliseconds) * 10000;
    ticks->dwLowDateTime = static_cast<DWORD>(count);
    ticks->dwHighDateTime = static_cast<DWORD>(count >> 32);
    return true;
}

void Sleep(DWORD milliseconds)
{
    if (milliseconds == 0) {
        ::sched_yield();
        return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

} // namespace tarnix_platform
