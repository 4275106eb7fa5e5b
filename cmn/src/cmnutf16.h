// SPDX-License-Identifier: LicenseRef-Tarnix
// Conversions from and to UTF-16 that write directly to the target, without a temporary string.
#ifndef TARNIX_CMNUTF16_H
#define TARNIX_CMNUTF16_H

#include "cmnasciirun.h"
#include "cmnstringtool.h"
#include "cmntstr.h"

#include <unicode/unistr.h>
#include <unicode/ustring.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <string>
#include <string_view>

namespace tarnix_cmn_4_4
{

// Units that are converted at a time, in a buffer on the stack.
constexpr std::int32_t kUtf16Piece = 1024;

// A UTF-16 unit takes at most three bytes of UTF-8; a surrogate pair takes four.
constexpr std::size_t kUtf8PerUnit = 3;

// Copies all units; true if none of them is a surrogate or zero. The loop has no early exit and
// computes in the width of a unit, so that the compiler can vectorize it.
inline bool copyPlainUtf16(const char16_t* units, std::int32_t length, wchar_t* wide)
{
    char16_t found{};
    for (std::int32_t i = 0; i < length; ++i) {
        const char16_t unit = units[i];
        const auto block = static_cast<char16_t>(unit & 0xF800);
        wide[i] = unit;
        found |= static_cast<char16_t>(block == 0xD800 || unit == 0);
    }
    return found == 0;
}

// The number of units before the first that copyPlainUtf16 does not accept.
inline std::int32_t plainLength(const char16_t* units, std::int32_t length)
{
    const auto isOther = [](char16_t unit) { return unit == 0 || U16_IS_SURROGATE(unit); };
    return static_cast<std::int32_t>(std::find_if(units, units + length, isOther) - units);
}

// The next wide unit: a code point, or a UTF-16 unit where wchar_t has 16 bits.
inline wchar_t nextWide(const char16_t* units, std::int32_t& at, std::int32_t length)
{
    if constexpr (sizeof(wchar_t) == sizeof(char16_t)) {
        return static_cast<wchar_t>(units[at++]);
    } else {
        UChar32 character;
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
    std::int32_t piece = std::min(room, length - at);
    if (copyPlainUtf16(&units[at], piece, wide)) {
        at += piece;
        return piece;
    }
    constexpr std::int32_t block = 64; // what is copied past the next other unit is copied again
    for (std::int32_t filled = 0;; ++filled) {
        piece = std::min({block, room - filled, length - at});
        if (!copyPlainUtf16(&units[at], piece, &wide[filled])) {
            piece = plainLength(&units[at], piece);
        }
        at += piece;
        filled += piece;
        if (filled == room || at == length) {
            return filled;
        }
        if (units[at] == 0) {
            at = length;
            return filled;
        }
        wide[filled] = nextWide(units, at, length);
    }
}

// ---- UTF-8 -------------------------------------------------------------------------------------

// What the conversions return for a text that is not valid, or does not fit.
constexpr auto kNotConverted = std::string::npos;

// Texts of so many units are converted by ICU's macros, because a call of ICU takes as long as some
// 20 characters. Both decide in the same way what is valid.
constexpr std::size_t kShortText = 40;

// Up to a zero. Not inlined: the registers that it needs would be saved for ASCII too.
[[gnu::noinline]] inline std::size_t convertShort(const char* text, std::size_t length,
                                                  char16_t* units)
{
    char16_t* end = units;
    for (std::size_t at = 0; at < length && text[at];) {
        UChar32 character;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion" // within the macro
        U8_NEXT(text, at, length, character);
#pragma GCC diagnostic pop
        if (character < 0) {
            return kNotConverted;
        }
        if (U_IS_BMP(character)) {
            *end++ = static_cast<char16_t>(character);
        } else {
            *end++ = U16_LEAD(character);
            *end++ = U16_TRAIL(character);
        }
    }
    return static_cast<std::size_t>(end - units);
}

[[gnu::noinline]] inline std::size_t convertShort(const char16_t* text, std::size_t length,
                                                  char* utf8)
{
    char* end = utf8;
    for (std::size_t at = 0; at < length;) {
        if (text[at] <= 0x7F) {
            *end++ = static_cast<char>(text[at++]);
            continue;
        }
        UChar32 character;
        U16_NEXT(text, at, length, character);
        if (U_IS_SURROGATE(character)) {
            return kNotConverted;
        }
        std::size_t size = 0;
        U8_APPEND_UNSAFE(end, size, character);
        end += size;
    }
    return static_cast<std::size_t>(end - utf8);
}

// ICU counts in 32 bits.
constexpr std::size_t kLongestPiece = 0x1000000;

// The length of a text that ends at its terminator: in 32 bits, the -1 that ICU expects.
constexpr auto kUpToTerminator = std::string::npos;

inline std::size_t convertLong(const char* text, std::size_t length, char16_t* units,
                               std::size_t room)
{
    std::int32_t written{};
    UErrorCode status = U_ZERO_ERROR;
    u_strFromUTF8(units, static_cast<std::int32_t>(room), &written, text,
                  static_cast<std::int32_t>(length), &status);
    return U_SUCCESS(status) ? static_cast<std::size_t>(written) : kNotConverted;
}

inline std::size_t convertLong(const char16_t* text, std::size_t length, char* utf8,
                               std::size_t room)
{
    std::int32_t written{};
    UErrorCode status = U_ZERO_ERROR;
    u_strToUTF8(utf8, static_cast<std::int32_t>(room), &written, text,
                static_cast<std::int32_t>(length), &status);
    return U_SUCCESS(status) ? static_cast<std::size_t>(written) : kNotConverted;
}

// Whether a text can be cut before this unit without splitting a character.
inline bool startsCharacter(const char* unit)
{
    return !U8_IS_TRAIL(*unit);
}

inline bool startsCharacter(const char16_t* unit)
{
    return !U16_IS_LEAD(unit[-1]);
}

// The length of a piece of at most `most` units. A text that is not valid may be cut anywhere.
template <class From>
std::size_t pieceLength(const From* text, std::size_t length, std::size_t most)
{
    if (length <= most) {
        return length;
    }
    std::size_t piece = most;
    while (piece > most - U8_MAX_LENGTH && !startsCharacter(&text[piece])) {
        --piece;
    }
    return piece;
}

// A guess whether the text has long runs of ASCII: whether there is one in the middle.
template <class From>
bool hasLongRuns(const From* text, std::size_t length)
{
    constexpr std::size_t sample = 2 * kAsciiBlock;
    const std::size_t middle = length / 2;
    return middle >= sample && isAsciiBlock<sample>(&text[middle]);
}

// Converts a text in pieces, and copies the ASCII between them. The shortest piece reaches past the
// first character that is not ASCII after a run. While the runs are short, the pieces grow.
template <class From, class To>
[[gnu::noinline]] std::size_t convertPieces(const From* text, std::size_t length, To* target,
                                            std::size_t room)
{
    constexpr std::size_t shortest = kAsciiBlock + U8_MAX_LENGTH;
    std::size_t most = shortest;
    std::size_t filled = 0;
    while (length > 0) {
        const std::size_t piece = pieceLength(text, length, most);
        const std::size_t written = piece <= kShortText
                                        ? convertShort(text, piece, target + filled)
                                        : convertLong(text, piece, target + filled, room - filled);
        if (written == kNotConverted) {
            return kNotConverted;
        }
        filled += written;
        const std::size_t run = copyAsciiRun(text + piece, length - piece, target + filled);
        filled += run;
        text += piece + run;
        length -= piece + run;
        most = run < 2 * kAsciiBlock ? std::min(16 * most, kLongestPiece) : shortest;
    }
    return filled;
}

// Converts UTF-8 without a zero, or any UTF-16 text, of at most kLongestPiece units, and returns
// the units written. ASCII is only copied; ICU converts the rest and decides what is valid. The
// target must have room for the result of a valid text.
template <class From, class To>
std::size_t convertUnicode(const From* text, std::size_t length, To* target, std::size_t room)
{
    const std::size_t run = copyAsciiRun(text, length, target);
    text += run;
    length -= run;
    target += run;
    room -= run;
    std::size_t rest;
    if (length <= kShortText) {
        rest = convertShort(text, length, target);
    } else if (run != 0 || hasLongRuns(text, length)) {
        rest = convertPieces(text, length, target, room);
    } else {
        rest = convertLong(text, length, target, room);
    }
    return rest == kNotConverted ? kNotConverted : run + rest;
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
    char utf8[kUtf8PerUnit * kUtf16Piece];
    auto length = static_cast<std::size_t>(text.length());
    while (length > 0) {
        const std::size_t piece = pieceLength(rest, length, kUtf16Piece);
        const std::size_t written = convertUnicode(rest, piece, utf8, sizeof utf8);
        if (written == kNotConverted) {
            target.resize(start);
            return;
        }
        target.append(utf8, written);
        rest += piece;
        length -= piece;
    }
    target.resize(std::min(target.find('\0', start), target.size()));
}

// Opens the buffer of a ustr for writing; closeBuffer must follow before the ustr is used.
inline char16_t* openBuffer(icu::UnicodeString& text, std::size_t capacity)
{
    char16_t* const units = text.getBuffer(static_cast<std::int32_t>(capacity));
    if (units == nullptr) {
        throw std::bad_alloc();
    }
    return units;
}

// `written` is the result of a conversion into the buffer. A text that is not valid becomes empty.
inline void closeBuffer(icu::UnicodeString& text, std::size_t written)
{
    text.releaseBuffer(written == kNotConverted ? 0 : static_cast<std::int32_t>(written));
}

// As CCmnStringTool::str2ustr, for a text without a zero byte.
inline icu::UnicodeString fromUtf8(std::string_view text)
{
    if (text.size() > kLongestPiece) {
        return CCmnStringTool::str2ustr(std::string(text)); // takes less memory
    }
    icu::UnicodeString result;
    char16_t* const units = openBuffer(result, text.size());
    closeBuffer(result, convertUnicode(text.data(), text.size(), units, text.size()));
    return result;
}

} // namespace tarnix_cmn_4_4

#endif
