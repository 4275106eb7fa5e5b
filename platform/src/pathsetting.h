// SPDX-License-Identifier: LicenseRef-Tarnix
// A file path that is built in and that the process can change.
#ifndef TARNIX_PLATFORM_PATHSETTING_H
#define TARNIX_PLATFORM_PATHSETTING_H

#include <climits>
#include <cstdio>
#include <mutex>
#include <string>
#include <type_traits>

namespace tarnix_platform
{

// For global objects: constant initialised and trivially destructible, so it can be used at any
// moment of the process. Any thread may call.
class PathSetting
{
public:
    constexpr PathSetting() = default;

    // The text is copied; null or "" restores the built-in path. A path that is too long for the
    // system is stored with one byte more than the limit, so that it still cannot be opened: cut to
    // the limit it could name another file.
    void set(const char* path)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        std::snprintf(m_Path, sizeof m_Path, "%s", path == nullptr ? "" : path);
    }

    std::string pathOr(const char* builtIn) const
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        return *m_Path != '\0' ? m_Path : builtIn;
    }

private:
    mutable std::mutex m_Mutex;
    char m_Path[PATH_MAX + 1] = {}; // the system's limit counts the terminator
};

static_assert(std::is_trivially_destructible_v<PathSetting>);

} // namespace tarnix_platform

#endif
