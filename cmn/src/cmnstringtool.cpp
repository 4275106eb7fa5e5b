// CCmnStringTool: conversions between the string kinds, and raw duplicates.
#include "cmnstringtool.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <limits>
#include <new>
#include <unicode/uchar.h>
#include <unicode/ustring.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

namespace tarnix_cmn_4_4
{
namespace
{

// Units of a stack buffer that a conversion fills again and again. The copy out of it stays in the
// cache, where sizing the result for the worst case would clear and then touch all of it.
constexpr std::size_t kChunk = 1024;

// What mbsrtowcs and wcsrtombs return for text that cannot be converted.
constexpr auto kConversionFailed = static_cast<std::size_t>(-1);

// A UTF-16 unit takes at most three bytes of UTF-8; a surrogate pair takes four.
constexpr std::size_t kUtf8PerUnit = 3;

// A little less than a UnicodeString can hold, which differs between versions.
constexpr std::size_t kMaxUstr = 0x7FFFFF00;

// ICU counts bytes in 32 bits, so longer UTF-8 is handed over in pieces.
constexpr std::size_t kMaxUtf8Piece = 0x40000000;

// Opens the buffer of a ustr for writing; releaseBuffer must follow before the ustr is used.
char16_t* openBuffer(icu::UnicodeString& text, std::size_t capacity)
{
    char16_t* const units = text.getBuffer(static_cast<std::int32_t>(capacity));
    if (!units)
        throw std::bad_alloc();
    return units;
}

// A tstr that gets no memory does not tell, and must not be used.
void requireLength(const tstr& text, std::size_t length)
{
    if (text.length() != length)
        throw std::bad_alloc();
}

std::size_t terminatedLength(const tstr& text)
{
    return wcsnlen(text.c_str(), text.length());
}

// Converts a piece of UTF-8 (length -1: up to its terminator) and returns the units written, -1 if
// it is not valid or does not fit.
std::int32_t convertUtf8(const char* text, std::int32_t length, char16_t* units,
                         std::size_t capacity)
{
    std::int32_t written = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strFromUTF8(units, static_cast<std::int32_t>(capacity), &written, text, length, &status);
    return U_SUCCESS(status) ? written : -1;
}

// Text whose bytes bound its units: one pass, which finds the terminator itself.
icu::UnicodeString fromShortUtf8(const std::string& text)
{
    icu::UnicodeString result;
    char16_t* const units = openBuffer(result, text.size());
    result.releaseBuffer(std::max(convertUtf8(text.c_str(), -1, units, text.size()), 0));
    return result;
}

// The units that valid UTF-8 becomes.
std::size_t countUtf16(const char* text)
{
    std::size_t units = 0;
    for (; *text; ++text)
        units += (U8_IS_TRAIL(*text) ? 0U : 1U) + (static_cast<unsigned char>(*text) >= 0xF0);
    return units;
}

// The bytes of the next piece: up to the terminator, but whole characters.
std::size_t utf8Piece(const char* text)
{
    std::size_t piece = strnlen(text, kMaxUtf8Piece);
    if (piece == kMaxUtf8Piece) {
        while (piece > kMaxUtf8Piece - U8_MAX_LENGTH && U8_IS_TRAIL(text[piece]))
            --piece;
    }
    return piece;
}

icu::UnicodeString fromLongUtf8(const char* text)
{
    icu::UnicodeString result;
    const std::size_t capacity = countUtf16(text);
    if (capacity > kMaxUstr)
        return result;
    char16_t* const units = openBuffer(result, capacity);
    std::size_t filled = 0;
    for (std::size_t piece = utf8Piece(text); piece > 0; piece = utf8Piece(text)) {
        const std::int32_t written =
            convertUtf8(text, static_cast<std::int32_t>(piece), units + filled, capacity - filled);
        if (written < 0) {
            filled = 0;
            break;
        }
        filled += static_cast<std::size_t>(written);
        text += piece;
    }
    result.releaseBuffer(static_cast<std::int32_t>(filled));
    return result;
}

// The units of the next piece, which must not end within a surrogate pair.
std::size_t utf16Piece(const char16_t* text, std::size_t length)
{
    if (length <= kChunk)
        return length;
    return U16_IS_LEAD(text[kChunk - 1]) ? kChunk - 1 : kChunk;
}

bool isCodePoint(wchar_t unit)
{
    return static_cast<std::uint32_t>(unit) <= UCHAR_MAX_VALUE;
}

bool needsTwoUnits(wchar_t unit)
{
    return isCodePoint(unit) && unit > 0xFFFF;
}

// Without an early end, so that the compiler takes many units at once: nearly all texts fit.
bool fitsOneUnitEach(const wchar_t* first, const wchar_t* last)
{
    std::uint32_t all = 0;
    for (; first != last; ++first)
        all |= static_cast<std::uint32_t>(*first);
    return all <= 0xFFFF;
}

// Neither a surrogate nor a zero among the units; again without an early end.
bool isPlain(const char16_t* units, std::int32_t length)
{
    bool found = false;
    for (std::int32_t i = 0; i < length; ++i)
        found |= (U16_IS_SURROGATE(units[i]) | (units[i] == 0)) != 0;
    return !found;
}

char16_t* appendUtf16(char16_t* target, wchar_t unit)
{
    if (!isCodePoint(unit)) {
        *target++ = 0xFFFD;
    } else if (unit <= 0xFFFF) {
        *target++ = static_cast<char16_t>(unit);
    } else {
        *target++ = U16_LEAD(unit);
        *target++ = U16_TRAIL(unit);
    }
    return target;
}

template <class Char>
Char* duplicate(const Char* text, std::size_t length, CCmnStringTool::Allocator allocator)
{
    if (length >= std::numeric_limits<std::size_t>::max() / sizeof(Char))
        return nullptr;
    const std::size_t bytes = (length + 1) * sizeof(Char);
    const auto copy = static_cast<Char*>(allocator ? allocator(bytes) : std::malloc(bytes));
    if (!copy)
        return nullptr;
    std::char_traits<Char>::copy(copy, text, length);
    copy[length] = Char{};
    return copy;
}

using LocaleToWide = std::size_t (*)(wchar_t*, const char**, std::size_t, std::mbstate_t*);
using WideToLocale = std::size_t (*)(char*, const wchar_t**, std::size_t, std::mbstate_t*);

// Sizes the result for a rest of the input that goes on like the part before it, with some room to
// spare, and returns the size that was foreseen.
template <class String>
std::size_t reserveForRest(String& result, std::size_t consumed, std::size_t rest)
{
    const auto more =
        static_cast<std::size_t>(static_cast<double>(result.size()) * static_cast<double>(rest) /
                                 static_cast<double>(consumed));
    result.reserve(result.size() + more + more / 16 + kChunk);
    return result.size() + more;
}

// Converts terminated text with mbsrtowcs or wcsrtombs, whose state is the call's own. Short text
// goes over the stack. For the rest of a longer one the result is sized by what came before: for
// the worst case most of it would be cleared in vain, and measuring first would convert twice.
template <class To, class From, class Convert>
std::basic_string<To> convertByLocale(const std::basic_string<From>& text, Convert convert)
{
    const From* rest = text.c_str();
    std::mbstate_t state{};
    To chunk[kChunk];
    std::size_t written = convert(chunk, &rest, kChunk, &state);
    if (written == kConversionFailed)
        return {};
    std::basic_string<To> result(chunk, written);
    while (rest) {
        const auto consumed = static_cast<std::size_t>(rest - text.c_str());
        const std::size_t filled = result.size();
        result.resize(reserveForRest(result, consumed, text.size() - consumed) + kChunk);
        written = convert(&result[filled], &rest, result.size() - filled, &state);
        if (written == kConversionFailed)
            return {};
        result.resize(filled + written);
    }
    return result;
}

} // namespace

icu::UnicodeString CCmnStringTool::str2ustr(const std::string& text)
{
    if (text.empty())
        return {};
    return text.size() <= kMaxUtf8Piece ? fromShortUtf8(text) : fromLongUtf8(text.c_str());
}

std::string CCmnStringTool::ustr2str(const icu::UnicodeString& text)
{
    std::string result;
    const char16_t* rest = text.getBuffer();
    auto length = static_cast<std::size_t>(text.length());
    char chunk[kChunk * kUtf8PerUnit];
    while (length > 0) {
        const std::size_t piece = utf16Piece(rest, length);
        std::int32_t written = 0;
        UErrorCode status = U_ZERO_ERROR;
        u_strToUTF8(chunk, sizeof chunk, &written, rest, static_cast<std::int32_t>(piece), &status);
        if (U_FAILURE(status))
            return {};
        const bool first = result.empty();
        result.append(chunk, static_cast<std::size_t>(written));
        rest += piece;
        length -= piece;
        if (first && length > 0)
            reserveForRest(result, piece, length);
    }
    result.resize(std::strlen(result.c_str()));
    return result;
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
    if (capacity == 0 || capacity > kMaxUstr)
        return result;
    char16_t* target = openBuffer(result, capacity);
    if (oneUnitEach) {
        std::transform(first, last, target,
                       [](wchar_t unit) { return static_cast<char16_t>(unit); });
    } else {
        for (const wchar_t* unit = first; unit != last; ++unit)
            target = appendUtf16(target, *unit);
    }
    result.releaseBuffer(static_cast<std::int32_t>(capacity));
    return result;
}

tstr CCmnStringTool::ustr2tstr(const icu::UnicodeString& text)
{
    tstr result;
    const char16_t* const units = text.getBuffer();
    const bool plain = isPlain(units, text.length());
    const std::int32_t zero = plain ? -1 : text.indexOf(char16_t{0});
    const std::int32_t length = zero < 0 ? text.length() : zero;
    wchar_t chunk[kChunk];
    for (std::int32_t i = 0; i < length;) {
        std::size_t filled = 0;
        if (plain) {
            filled = std::min(kChunk, static_cast<std::size_t>(length - i));
            std::copy_n(units + i, filled, chunk);
            i += static_cast<std::int32_t>(filled);
        } else {
            for (; filled < kChunk && i < length; ++filled)
                U16_NEXT(units, i, length, chunk[filled]);
        }
        const std::size_t expected = result.length() + filled;
        result.append(chunk, filled);
        requireLength(result, expected);
    }
    return result;
}

std::wstring CCmnStringTool::str2wstr(const std::string& text)
{
    return convertByLocale<wchar_t>(text, LocaleToWide{std::mbsrtowcs});
}

std::wstring CCmnStringTool::mbs2wcs(const std::string& text)
{
    return str2wstr(text);
}

std::string CCmnStringTool::wstr2str(const std::wstring& text)
{
    return convertByLocale<char>(text, WideToLocale{std::wcsrtombs});
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
    return wstr2tstr(str2wstr(text));
}

std::string CCmnStringTool::tstr2str(const tstr& text)
{
    return wstr2str(tstr2wstr(text));
}

std::string CCmnStringTool::tstr2str(const char* text)
{
    return text ? text : std::string();
}

tstr CCmnStringTool::wstr2tstr(const std::wstring& text)
{
    const std::size_t length = std::wcslen(text.c_str());
    tstr result(text.c_str(), length);
    requireLength(result, length);
    return result;
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
    // Cleared, so that the list is ended by a null pointer at any time.
    auto copies = static_cast<wchar_t**>(std::calloc(list.size() + 1, sizeof(wchar_t*)));
    if (!copies)
        return nullptr;
    for (std::size_t i = 0; i < list.size(); ++i) {
        copies[i] = tstrdup(list[i], nullptr);
        if (!copies[i]) {
            tstrfreelist(copies);
            return nullptr;
        }
    }
    return copies;
}

void CCmnStringTool::tstrfreelist(wchar_t**& list)
{
    if (!list)
        return;
    for (wchar_t** entry = list; *entry; ++entry)
        std::free(*entry);
    std::free(list);
    list = nullptr;
}

} // namespace tarnix_cmn_4_4
