// SPDX-License-Identifier: LicenseRef-Tarnix
// CCmnStringTool: conversions between string types, and copies in raw memory.
#include "cmnstringtool.h"

#include "cmnutf16.h"
#include "platform_text.h"

#include <unicode/utf.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>

namespace tarnix_cmn_4_4
{
namespace
{

// Bytes or units that count as a short text.
constexpr std::size_t kShort = kUtf16Piece;

// What mbsrtowcs and wcsnrtombs return for text that cannot be converted.
constexpr auto kConversionFailed = static_cast<std::size_t>(-1);

// A little less than a UnicodeString can hold; the exact limit differs between versions of ICU.
constexpr std::size_t kMaxUstr = 0x7FFFFF00;

// Longer text is converted in pieces, so that a gigabyte of text does not need a buffer for the
// worst case.
constexpr std::size_t kMaxUtf16Piece = kLongestPiece / kUtf8PerUnit;

// A buffer for the worst case of a conversion, from which the result is copied. A string would
// first be filled with zeros, and would keep the unused memory. Short text stays on the stack.
template <class Char>
class Room
{
public:
    explicit Room(std::size_t size)
        : m_Size(std::max(size, kStackSize)),
          m_Heap(size > kStackSize ? new Char[size] : nullptr),
          m_Data(m_Heap ? m_Heap.get() : m_Stack)
    {
    }
    Room(const Room&) = delete;
    Room& operator=(const Room&) = delete;

    Char* data() { return m_Data; }
    std::size_t size() const { return m_Size; }

private:
    static constexpr std::size_t kStackSize = kShort * sizeof(wchar_t) / sizeof(Char);

    const std::size_t m_Size;
    const std::unique_ptr<Char[]> m_Heap;
    Char* const m_Data;
    Char m_Stack[kStackSize]; // not initialised
};

// A tstr does not report a failed allocation; it is then shorter and must not be used.
void requireLength(const tstr& text, std::size_t length)
{
    if (text.length() != length) {
        throw std::bad_alloc();
    }
}

// A tstr that owns its memory is terminated; one that does not own it need not be.
bool isTerminated(const tstr& text)
{
    return text.capacity() > text.length() && text.c_str()[text.length()] == L'\0';
}

template <class Text, class Char>
Text makeText(const Char* first, std::size_t length)
{
    Text text(first, length);
    if constexpr (std::is_same_v<Text, tstr>) {
        requireLength(text, length);
    }
    return text;
}

std::size_t terminatedLength(const tstr& text)
{
    return ::wcsnlen(text.c_str(), text.length());
}

// As convertUnicode, but up to a zero, and 0 for a text that is not valid. ICU is faster if it
// finds the terminator itself.
std::size_t convertUpToZero(const char* text, std::size_t size, char16_t* units)
{
    const std::size_t run = copyAsciiRun(text, size, units);
    text += run;
    size -= run;
    units += run;
    std::size_t rest;
    if (size <= kShortText) {
        rest = convertShort(text, size, units);
    } else if (run != 0 || hasLongRuns(text, size)) {
        rest = convertPieces(text, std::strlen(text), units, size);
    } else {
        rest = convertLong(text, kUpToTerminator, units, size);
    }
    return rest == kNotConverted ? 0 : run + rest;
}

// In one pass, because a text has no more units than bytes.
icu::UnicodeString fromShortUtf8(const std::string& text)
{
    icu::UnicodeString result;
    char16_t* const units = openBuffer(result, text.size());
    const std::size_t written = convertUpToZero(text.c_str(), text.size(), units);
    result.releaseBuffer(static_cast<std::int32_t>(written));
    return result;
}

// The number of units of a valid UTF-8 text. Counts in bytes, block by block, so that the compiler
// can vectorize the loop.
std::size_t countUtf16(const char* text, std::size_t length)
{
    constexpr std::size_t block = 120;
    std::size_t units = 0;
    for (std::size_t piece; length > 0; text += piece, length -= piece) {
        piece = std::min(length, block);
        std::uint8_t count = 0; // at most two for each byte
        for (std::size_t i = 0; i < piece; ++i) {
            const auto byte = static_cast<std::uint8_t>(text[i]);
            count = static_cast<std::uint8_t>(count + !U8_IS_TRAIL(byte) + (byte >= 0xF0));
        }
        units += count;
    }
    return units;
}

// Not inlined: the registers that it needs would be saved for short text too.
[[gnu::noinline]] icu::UnicodeString fromLongUtf8(const char* text)
{
    const std::size_t length = std::strlen(text);
    const std::size_t capacity = countUtf16(text, length);
    if (capacity > kMaxUstr) {
        return {};
    }
    icu::UnicodeString result;
    char16_t* const units = openBuffer(result, capacity);
    closeBuffer(result, convertPieces(text, length, units, capacity));
    return result;
}

[[gnu::noinline]] std::string fromLongUtf16(const char16_t* text, std::size_t length)
{
    std::string result;
    Room<char> room(kMaxUtf16Piece * kUtf8PerUnit);
    while (length > 0) {
        const std::size_t piece = pieceLength(text, length, kMaxUtf16Piece);
        const std::size_t written = convertUnicode(text, piece, room.data(), room.size());
        if (written == kNotConverted) {
            return {};
        }
        result.append(room.data(), written);
        text += piece;
        length -= piece;
    }
    result.resize(std::strlen(result.c_str()));
    return result;
}

// Wide units are taken as char32_t, because a negative one is no code point.
bool needsTwoUnits(char32_t unit)
{
    return U_IS_SUPPLEMENTARY(unit);
}

// No early exit, so that the compiler can vectorize the loop: nearly all texts fit.
bool fitsOneUnitEach(const wchar_t* first, const wchar_t* last)
{
    std::uint32_t all{};
    for (; first != last; ++first) {
        all |= static_cast<std::uint32_t>(*first);
    }
    return U_IS_BMP(all);
}

char16_t* appendUtf16(char16_t* target, char32_t unit)
{
    if (U_IS_BMP(unit)) {
        *target++ = static_cast<char16_t>(unit);
    } else if (needsTwoUnits(unit)) {
        *target++ = U16_LEAD(unit);
        *target++ = U16_TRAIL(unit);
    } else {
        *target++ = 0xFFFD;
    }
    return target;
}

template <class Char>
Char* duplicate(const Char* text, std::size_t length, CCmnStringTool::Allocator allocator)
{
    const std::size_t bytes = (length + 1) * sizeof(Char);
    const auto copy =
        static_cast<Char*>(allocator != nullptr ? allocator(bytes) : std::malloc(bytes));
    if (copy == nullptr) {
        return nullptr;
    }
    std::char_traits<Char>::copy(copy, text, length);
    copy[length] = Char{};
    return copy;
}

// As copyAsciiRun, where the locale's encoding has ASCII too. The others are left to the C library.
template <class From, class To>
std::size_t copyLocaleAscii(const From* text, std::size_t length, To* target)
{
    return startsWithAscii(text, length) && isLocaleAsciiBased()
               ? copyLongAsciiRun(text, length, target)
               : 0;
}

// Converts a text by convert(target, &rest, room, &state): mbsrtowcs or wcsrtombs, which set `rest`
// to null at the end of the text. To measure first would convert the text twice. `size` is a first
// guess, which is enough in nearly all encodings.
template <class Result, class To, class From, class Convert>
Result convertByLocale(const From* text, std::size_t length, std::size_t size, Convert convert)
{
    for (;; size *= 2) {
        Room<To> room(size);
        const std::size_t run = copyLocaleAscii(text, length, room.data());
        const From* rest = text + run;
        if (!*rest) {
            return makeText<Result>(room.data(), run);
        }
        std::mbstate_t state{};
        std::size_t written = convert(room.data() + run, &rest, room.size() - run, &state);
        if (written == kConversionFailed) {
            return {};
        }
        written += run;
        if (rest == nullptr) {
            return makeText<Result>(room.data(), written);
        }
        // In some encodings an incomplete character at the end of the text is no error, but the
        // conversion stops there. More room would not help.
        if (room.size() - written >= MB_LEN_MAX) {
            return {};
        }
    }
}

// The text must be terminated. wcsnrtombs, which needs no terminator, ends the process if the text
// converts to no byte at all.
std::string toNarrow(const wchar_t* text, std::size_t length)
{
    return convertByLocale<std::string, char>(text, length, length * MB_CUR_MAX + 1,
                                              std::wcsrtombs);
}

// A character takes at least one byte.
template <class Result>
Result toWide(const std::string& text)
{
    return convertByLocale<Result, wchar_t>(text.c_str(), text.size(), text.size() + 1,
                                            std::mbsrtowcs);
}

// Converts directly into the result. With a second buffer of this size, the C library would return
// memory to the system and request it again in each call.
std::wstring toLongWide(const std::string& text)
{
    std::wstring result(text.size() + 1, L'\0');
    const std::size_t run = copyLocaleAscii(text.c_str(), text.size(), result.data());
    const char* rest = text.c_str() + run;
    std::mbstate_t state{};
    std::size_t written = std::mbsrtowcs(result.data() + run, &rest, result.size() - run, &state);
    if (written == kConversionFailed) {
        return {};
    }
    written += run;
    if (rest != nullptr) {
        return toWide<std::wstring>(text);
    }
    result.resize(written);
    if (written < text.size() / 2) {
        result.shrink_to_fit();
    }
    return result;
}

} // namespace

icu::UnicodeString CCmnStringTool::str2ustr(const std::string& text)
{
    return text.size() <= kLongestPiece ? fromShortUtf8(text) : fromLongUtf8(text.c_str());
}

std::string CCmnStringTool::ustr2str(const icu::UnicodeString& text)
{
    const auto length = static_cast<std::size_t>(text.length());
    if (length > kMaxUtf16Piece) {
        return fromLongUtf16(text.getBuffer(), length);
    }
    Room<char> room(length * kUtf8PerUnit);
    const std::size_t written = convertUnicode(text.getBuffer(), length, room.data(), room.size());
    if (written == kNotConverted) {
        return {};
    }
    return std::string(room.data(), ::strnlen(room.data(), written));
}

icu::UnicodeString CCmnStringTool::tstr2ustr(const tstr& text)
{
    icu::UnicodeString result;
    const wchar_t* const first = text.c_str();
    const wchar_t* const last = first + terminatedLength(text);
    const bool oneUnitEach = fitsOneUnitEach(first, last);
    const auto length = static_cast<std::size_t>(last - first);
    const std::size_t capacity =
        oneUnitEach ? length
                    : length + static_cast<std::size_t>(std::count_if(first, last, needsTwoUnits));
    if (capacity > kMaxUstr) {
        return result;
    }
    char16_t* target = openBuffer(result, capacity);
    if (oneUnitEach) {
        std::transform(first, last, target,
                       [](wchar_t unit) { return static_cast<char16_t>(unit); });
    } else {
        for (const wchar_t* unit = first; unit != last; ++unit) {
            target = appendUtf16(target, static_cast<char32_t>(*unit));
        }
    }
    result.releaseBuffer(static_cast<std::int32_t>(capacity));
    return result;
}

tstr CCmnStringTool::ustr2tstr(const icu::UnicodeString& text)
{
    const std::int32_t length = text.length();
    Room<wchar_t> room(static_cast<std::size_t>(length));
    std::int32_t at = 0;
    const std::int32_t filled = decodeUtf16(text.getBuffer(), at, length, room.data(), length);
    return makeText<tstr>(room.data(), static_cast<std::size_t>(filled));
}

std::wstring CCmnStringTool::str2wstr(const std::string& text)
{
    return text.size() < kShort ? toWide<std::wstring>(text) : toLongWide(text);
}

std::wstring CCmnStringTool::mbs2wcs(const std::string& text)
{
    return str2wstr(text);
}

std::string CCmnStringTool::wstr2str(const std::wstring& text)
{
    return toNarrow(text.c_str(), text.size());
}

std::string CCmnStringTool::wcs2mbs(const std::wstring& text)
{
    return wstr2str(text);
}

std::wstring CCmnStringTool::str2wstr(const std::wstring& text)
{
    return text;
}

std::string CCmnStringTool::wstr2str(const std::string& text)
{
    return text;
}

tstr CCmnStringTool::str2tstr(const std::string& text)
{
    return toWide<tstr>(text);
}

std::string CCmnStringTool::tstr2str(const tstr& text)
{
    if (isTerminated(text)) {
        return toNarrow(text.c_str(), text.length());
    }
    // Copied to add a terminator. Without one, wcsnrtombs does not write what is still pending in a
    // stateful encoding, and reads before its target if the text converts to nothing.
    return wstr2str(tstr2wstr(text));
}

std::string CCmnStringTool::tstr2str(const char* text)
{
    return text != nullptr ? text : std::string();
}

tstr CCmnStringTool::wstr2tstr(const std::wstring& text)
{
    return makeText<tstr>(text.c_str(), std::wcslen(text.c_str()));
}

std::wstring CCmnStringTool::tstr2wstr(const tstr& text)
{
    return std::wstring(text.c_str(), terminatedLength(text));
}

char* CCmnStringTool::strdup(const std::string& text, Allocator allocator)
{
    return duplicate(text.c_str(), text.size(), allocator);
}

wchar_t* CCmnStringTool::wstrdup(const std::wstring& text, Allocator allocator)
{
    return duplicate(text.c_str(), text.size(), allocator);
}

wchar_t* CCmnStringTool::tstrdup(const tstr& text, Allocator allocator)
{
    return duplicate(text.c_str(), terminatedLength(text), allocator);
}

wchar_t** CCmnStringTool::tstrduplist(const std::vector<tstr>& list)
{
    // Zeroed, so that a null pointer ends the list at any time.
    auto copies = static_cast<wchar_t**>(std::calloc(list.size() + 1, sizeof(wchar_t*)));
    if (copies == nullptr) {
        return nullptr;
    }
    for (std::size_t i = 0; i < list.size(); ++i) {
        copies[i] = tstrdup(list[i], nullptr);
        if (copies[i] == nullptr) {
            tstrfreelist(copies);
            return nullptr;
        }
    }
    return copies;
}

void CCmnStringTool::tstrfreelist(wchar_t**& list)
{
    if (list == nullptr) {
        return;
    }
    for (wchar_t** entry = list; *entry != nullptr; ++entry) {
        std::free(*entry);
    }
    std::free(list);
    list = nullptr;
}

} // namespace tarnix_cmn_4_4
