// SPDX-License-Identifier: LicenseRef-Tarnix
// How ACE_Registry_ImpExp reads one line.
#ifndef TARNIX_PLATFORM_IMPORTLINE_H
#define TARNIX_PLATFORM_IMPORTLINE_H

#include <cstddef>
#include <string_view>

namespace tarnix_platform
{

constexpr std::size_t kMaxNameLength = 255; // of the store, in bytes

struct ImportLine {
    enum class Kind {
        other,   // neither of these
        section, // the name is its path
        value    // ACE may set a value of that name
    };

    std::string_view nameText() const { return {name, static_cast<std::size_t>(nameEnd - name)}; }

    enum class Fix {
        none,
        comment, // ACE would set another value than the line says: it must not read the line
        quote,   // ACE would take the newline into the text: it needs the closing quote
        cut      // ACE would take what follows for more bytes: from `rest`, it becomes a comment
    };

    Kind kind = Kind::other;
    Fix fix = Fix::none;
    bool endsImport{};             // ACE fails at this line
    bool isFixable{};              // with the fix, ACE reads the line as it is written
    const char* problem = nullptr; // why ACE does not read it as it is written
    const char* rest = nullptr;    // what follows the bytes of hex:
    const char* name = nullptr;
    const char* nameEnd = nullptr;
};

// `end` is the position of the newline, or of the zero byte after the last line. The line itself
// contains neither, so that the first character that does not fit ends each comparison.
ImportLine readImportLine(const char* begin, const char* end);

// Whether the store refuses the name of a value, or a part of the path of a section.
bool isRefusedName(const char* name, const char* end);

} // namespace tarnix_platform

#endif
