// Conversions from and to UTF-16 that write directly to the target, without a temporary string.
#ifndef TARNIX_CMNUTF16_H
#define TARNIX_CMNUTF16_H

#include "cmnstringtool.h"
#include "cmntstr.h"

#include <unicode/unistr.h>
#include <unicode/ustring.h>
#include <unicode/utf16.h>

#include <algorithm>
#include <new>
#include <string>
#include <string_view>

namespace tarnix_cmn_4_4
{

// Units that are converted at a time, in a buffer on the stack.
constexpr std::int32_t kUtf16Piece = 1024;

// Copies all units; true if none of them is a surrogate or zero. The loop has no early exit and
// computes in the width of a unit, so that the compiler can vectorize it.
inline bool copyPlainUtf16(const char16_t* units, std::int32_t length, wchar_t* wide)
{
    char16_t found = 0;
    for (std::int32_t i = 0; i < length; ++i) {
        const char16_t unit = units[i];
        const auto block = static_cast<char16_t>(unit & 0xF800);
        wide[i] = unit;
        found |= block == 0xD800 || unit == 0 ? char16_t{1} : char16_t{0};
    }
    return found == 0;
}

// The next wide unit: a code point, or a UTF-16 unit where wchar_t has 16 bits.
inline wchar_t nextWide(const char16_t* units, std::int32_t& at, std::int32_t length)
{
    if constexpr (sizeof(wchar_t) == sizeof(char16_t)) {
        return static_cast<wchar_t>(units[at++]);
    } else {
        UChar32 character = 0;
        U16_NEXT(units, at, length, character);
        return static_cast<wchar_t>(character);
    }
}

// Converts the text from unit `at` on, until a zero or until `room` units are written, and returns
// the number of units written. Moves `at` past the converted units, or to the end of the text at a
// zero. A lone surrogate is copied unchanged.
inline std::int32_t decodeUtf16(const char16_t* units, std::int32_t& at, std::int32_t length,
                                wchar_t* wide, std::int32_t room)
{
    const std::int32_t piece = std::min(room, length - at);
    if (copyPlainUtf16(units + at, piece, wide)) {
        at += piece;
        return piece;
    }
    std::int32_t filled = 0;
    for (; filled < room && at < length && units[at] != 0; ++filled) {
        wide[filled] = nextWide(units, at, length);
    }
    if (at < length && units[at] == 0) {
        at = length;
    }
    return filled;
}

// As CCmnStringTool::ustr2tstr, but appends to the target. Allocates nothing if the target has room
// for as many units as the text has.
inline void appendWide(tstr& target, const icu::UnicodeString& text)
{
    wchar_t wide[kUtf16Piece];
    for (std::int32_t at = 0; at < text.length();) {
        const std::int32_t filled =
            decodeUtf16(text.getBuffer(), at, text.length(), wide, kUtf16Piece);
        append(target, wide, static_cast<std::size_t>(filled));
    }
}

// As CCmnStringTool::ustr2str, but appends to the target.
inline void appendUtf8(std::string& target, const icu::UnicodeString& text)
{
    const std::size_t start = target.size();
    const char16_t* rest = text.getBuffer();
    char utf8[3 * kUtf16Piece];
    for (std::int32_t length = text.length(), piece = 0; length > 0; length -= piece) {
        piece = std::min(kUtf16Piece, length);
        if (piece < length && U16_IS_LEAD(rest[piece - 1])) {
            --piece; // do not split a surrogate pair
        }
        std::int32_t written = 0;
        UErrorCode status = U_ZERO_ERROR;
        u_strToUTF8(utf8, sizeof utf8, &written, rest, piece, &status);
        if (U_FAILURE(status)) {
            target.resize(start);
            return;
        }
        target.append(utf8, static_cast<std::size_t>(written));
        rest += piece;
    }
    target.resize(std::min(target.find('\0', start), target.size()));
}

// As CCmnStringTool::str2ustr, for a text without a zero byte.
inline icu::UnicodeString fromUtf8(std::string_view text)
{
    constexpr std::size_t maxSize = 0x40000000;
    if (text.size() > maxSize) {
        return CCmnStringTool::str2ustr(std::string(text)); // too long for one call of ICU
    }
    icu::UnicodeString result;
    const auto length = static_cast<std::int32_t>(text.size());
    char16_t* const units = result.getBuffer(length);
    if (units == nullptr) {
        throw std::bad_alloc();
    }
    std::int32_t written = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strFromUTF8(units, length, &written, text.data(), length, &status);
    result.releaseBuffer(U_SUCCESS(status) ? written : 0);
    return result;
}

} // namespace tarnix_cmn_4_4

#endif
