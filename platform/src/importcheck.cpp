// Which files ACE_Registry_ImpExp cannot import without harm.
#include "descriptors.h"
#include "platform_registry.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>

namespace tarnix_platform
{

namespace
{

constexpr long kMaxLevels = 128;
constexpr long kMaxTotalLevels = 50000;
constexpr long kMaxZeros = 8; // a slightly damaged file is still imported
constexpr long kMaxLineLength = 16L * 1024 * 1024;

// Checks a file piece by piece.
class ImportCheck
{
public:
    // A piece is shorter than the longest line.
    bool accepts(const char* piece, const char* end)
    {
        if (!countZeros(piece, end) || !measureLines(piece, end)) {
            return false;
        }
        while (piece != end) {
            if (m_AtStart) {
                m_InSection = *piece == '[';
                m_Levels = 0;
            }
            const char* const next = m_InSection ? nextLine(piece, end) : nextSection(piece, end);
            if (m_InSection && !countLevels(piece, next)) {
                return false;
            }
            m_AtStart = next[-1] == '\n';
            piece = next;
        }
        return true;
    }

private:
    static const char* find(char wanted, const char* from, const char* end)
    {
        const void* found = std::memchr(from, wanted, static_cast<std::size_t>(end - from));
        return found != nullptr ? static_cast<const char*>(found) : end;
    }

    static const char* nextLine(const char* line, const char* end)
    {
        const char* const newline = find('\n', line, end);
        return newline == end ? end : newline + 1;
    }

    // Most lines are values. It is faster to search for the next '[' at the start of a line than
    // for the end of each line.
    static const char* nextSection(const char* line, const char* end)
    {
        const char* found = find('[', line + 1, end);
        while (found != end && found[-1] != '\n') {
            found = find('[', found + 1, end);
        }
        return found;
    }

    bool countZeros(const char* piece, const char* end)
    {
        for (piece = find('\0', piece, end); piece != end && m_Zeros <= kMaxZeros;
             piece = find('\0', piece + 1, end)) {
            ++m_Zeros;
        }
        return m_Zeros <= kMaxZeros;
    }

    bool measureLines(const char* piece, const char* end)
    {
        const char* const newline = find('\n', piece, end);
        m_Length += newline - piece;
        if (m_Length > kMaxLineLength) {
            return false;
        }
        if (newline != end) {
            const void* last = ::memrchr(newline, '\n', static_cast<std::size_t>(end - newline));
            m_Length = end - static_cast<const char*>(last) - 1;
        }
        return true;
    }

    bool countLevels(const char* line, const char* end)
    {
        const auto opened =
            (m_AtStart ? 1 : 0) + std::count(line, end, '\\') + std::count(line, end, '/');
        m_Levels += opened;
        m_AllLevels += opened;
        return m_Levels <= kMaxLevels && m_AllLevels <= kMaxTotalLevels;
    }

    bool m_AtStart = true;
    bool m_InSection = false;
    long m_Levels = 0;
    long m_AllLevels = 0;
    long m_Length = 0; // of the current line so far
    long m_Zeros = 0;
};

} // namespace

bool TxMayImport(const char* path)
{
    // Without O_NONBLOCK the open of a named pipe would wait for a writer.
    const UniqueFd file = openFile(path, O_RDONLY | O_NONBLOCK);
    if (!file) {
        return true; // the import reports it
    }
    struct stat info {
    };
    if (::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode)) {
        return false;
    }
    ImportCheck check;
    char piece[16 * 1024];
    for (;;) {
        const ssize_t got = readSome(file.get(), piece, sizeof piece);
        if (got <= 0) {
            return true;
        }
        if (!check.accepts(piece, piece + got)) {
            return false;
        }
    }
}

} // namespace tarnix_platform
