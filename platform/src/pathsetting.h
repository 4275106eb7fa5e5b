// The path of a file that the process may name, instead of the one that was built in.
#ifndef TARNIX_PLATFORM_PATHSETTING_H
#define TARNIX_PLATFORM_PATHSETTING_H

#include <climits>
#include <cstring>
#include <mutex>
#include <string>
#include <type_traits>

namespace tarnix_platform
{

// For objects of the whole process: constant initialised, and nothing runs at unloading, so it can
// be used at any moment of the process. Any thread may call.
class PathSetting
{
public:
    constexpr PathSetting() = default;

    // The text is copied; null or an empty text names none. A path that is too long for the system
    // keeps one byte too many, and so stays a path that cannot be opened: cut to what the system
    // takes it would name another file.
    void set(const char* path)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        const std::size_t length = path == nullptr ? 0 : ::strnlen(path, sizeof m_Path - 1);
        std::memcpy(m_Path, path == nullptr ? "" : path, length);
        m_Path[length] = '\0';
    }

    std::string pathOr(const char* builtIn) const
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        return m_Path[0] != '\0' ? m_Path : builtIn;
    }

private:
    mutable std::mutex m_Mutex;
    char m_Path[PATH_MAX + 1] = {}; // the system's limit counts the terminator
};

static_assert(std::is_trivially_destructible_v<PathSetting>);

} // namespace tarnix_platform

#endif
