// What ACE_Registry_ImpExp may not be given.
#include "platform_registry.h"
#include "uniquefd.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr long mostLevels = 128;
constexpr long mostOfAll = 50000;
constexpr long mostZeros = 8; // some stand in good files that something damaged
constexpr long longestLine = 16L * 1024 * 1024;

// Takes a file piece by piece, and counts the levels of its sections.
class ImportCheck
{
public:
    bool accepts(const char* piece, const char* end)
    {
        m_Zeros += std::count(piece, end, '\0');
        if (m_Zeros > mostZeros)
            return false;
        while (piece != end) {
            if (m_AtStart)
                m_Levels = 0;
            m_InSection = m_AtStart ? *piece == '[' : m_InSection;
            const auto* newline = static_cast<const char*>(
                std::memchr(piece, '\n', static_cast<std::size_t>(end - piece)));
            const char* const lineEnd = newline != nullptr ? newline + 1 : end;
            m_Length = (m_AtStart ? 0 : m_Length) + (lineEnd - piece);
            if (m_Length > longestLine || (m_InSection && !countLevels(piece, lineEnd)))
                return false;
            m_AtStart = newline != nullptr;
            piece = lineEnd;
        }
        return true;
    }

private:
    bool countLevels(const char* line, const char* end)
    {
        const auto opened =
            (m_AtStart ? 1 : 0) + std::count(line, end, '\\') + std::count(line, end, '/');
        m_Levels += opened;
        m_AllLevels += opened;
        return m_Levels <= mostLevels && m_AllLevels <= mostOfAll;
    }

    bool m_AtStart = true;
    bool m_InSection = false;
    long m_Levels = 0;
    long m_AllLevels = 0;
    long m_Length = 0; // of the line
    long m_Zeros = 0;
};

} // namespace

bool TxMayImport(const char* path)
{
    // Without O_NONBLOCK a pipe without a writer would be waited for.
    const tarnix_platform::UniqueFd file = tarnix_platform::openFile(path, O_RDONLY | O_NONBLOCK);
    if (!file)
        return true; // the import will tell
    struct stat info {
    };
    if (::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode))
        return false;
    ImportCheck check;
    char piece[16 * 1024];
    for (;;) {
        const ssize_t got = ::read(file.get(), piece, sizeof piece);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return true;
        if (!check.accepts(piece, piece + got))
            return false;
    }
}
