// SPDX-License-Identifier: LicenseRef-Tarnix
// CCmnStringTool: UTF-8 that need not be valid.
#include "cmnasciirun.h"
#include "cmnstringtool.h"

#include <unicode/utf16.h>

namespace tarnix_cmn_4_4
{
namespace
{

constexpr char32_t kReplacement = 0xFFFD;
constexpr std::size_t kAtOnce = 2 * kAsciiBlock;

// The next character of a text, or the next part that is not one.
struct Next {
    char32_t point = kReplacement;
    std::size_t size = 1;
    bool isValid = false;
};

// What may follow a first byte: how many bytes, and which ones directly after it. The limits of the
// second byte exclude overlong forms, surrogates and what is above U+10FFFF.
struct Rest {
    std::size_t size;
    unsigned char low;
    unsigned char high;
};

constexpr unsigned char kLow = 0x80;
constexpr unsigned char kHigh = 0xBF;

// The size is 0 if no character begins with the byte. Not for ASCII.
Rest restOf(unsigned char lead)
{
    if (lead < 0xC2 || lead > 0xF4) {
        return {0, kLow, kHigh};
    }
    if (lead < 0xE0) {
        return {1, kLow, kHigh};
    }
    if (lead < 0xF0) {
        return {2, static_cast<unsigned char>(lead == 0xE0 ? 0xA0 : kLow),
                static_cast<unsigned char>(lead == 0xED ? 0x9F : kHigh)};
    }
    return {3, static_cast<unsigned char>(lead == 0xF0 ? 0x90 : kLow),
            static_cast<unsigned char>(lead == 0xF4 ? 0x8F : kHigh)};
}

// `text` is not empty.
Next next(std::string_view text)
{
    const auto lead = static_cast<unsigned char>(text.front());
    if (lead < kLow) {
        return {lead, 1, true};
    }
    Rest rest = restOf(lead);
    Next found;
    char32_t point = lead & (0x3FU >> rest.size);
    for (; found.size <= rest.size; ++found.size) {
        const auto byte = found.size < text.size() ? static_cast<unsigned char>(text[found.size])
                                                   : static_cast<unsigned char>(0);
        if (byte < rest.low || byte > rest.high) {
            return found;
        }
        point = point << 6 | (byte & 0x3F);
        rest.low = kLow;
        rest.high = kHigh;
    }
    found.isValid = rest.size > 0;
    found.point = found.isValid ? point : kReplacement;
    return found;
}

// Skips ASCII other than zero, in whole blocks.
void skipAscii(std::string_view& text)
{
    while (text.size() >= kAtOnce && isAsciiBlock<kAtOnce>(text.data())) {
        text.remove_prefix(kAtOnce);
    }
}

wchar_t* putPoint(wchar_t* target, char32_t point)
{
    if constexpr (sizeof(wchar_t) == sizeof(char16_t)) {
        if (point > 0xFFFF) {
            *target++ = static_cast<wchar_t>(U16_LEAD(point));
            point = U16_TRAIL(point);
        }
    }
    *target++ = static_cast<wchar_t>(point);
    return target;
}

// The character at the offset, which moves past it.
char32_t takePoint(std::wstring_view text, std::size_t& at)
{
    const auto unit = static_cast<char32_t>(text[at++]);
    if constexpr (sizeof(wchar_t) == sizeof(char16_t)) {
        if (U16_IS_LEAD(unit) && at < text.size() && U16_IS_TRAIL(text[at])) {
            const auto second = static_cast<char32_t>(text[at++]);
            return static_cast<char32_t>(U16_GET_SUPPLEMENTARY(unit, second));
        }
    }
    return U_IS_SURROGATE(unit) || unit > 0x10FFFF ? kReplacement : unit;
}

void appendUtf8(std::string& text, char32_t point)
{
    if (point < 0x80) {
        text += static_cast<char>(point);
        return;
    }
    const int more = point < 0x800 ? 1 : point < 0x10000 ? 2 : 3;
    constexpr unsigned char leads[] = {0, 0xC0, 0xE0, 0xF0};
    text += static_cast<char>(leads[more] | point >> (6 * more));
    for (int i = more - 1; i >= 0; --i) {
        text += static_cast<char>(0x80 | (point >> (6 * i) & 0x3F));
    }
}

} // namespace

std::size_t CCmnStringTool::findInvalidUtf8(std::string_view text)
{
    std::string_view rest = text;
    for (skipAscii(rest); !rest.empty(); skipAscii(rest)) {
        const Next found = next(rest);
        if (!found.isValid) {
            return text.size() - rest.size();
        }
        rest.remove_prefix(found.size);
    }
    return std::string_view::npos;
}

std::wstring CCmnStringTool::decodeUtf8(std::string_view text)
{
    std::wstring wide(text.size(), L'\0'); // no part has more units than bytes
    wchar_t* end = wide.data();
    while (!text.empty()) {
        const std::size_t run = copyAsciiRun(text.data(), text.size(), end);
        end += run;
        text.remove_prefix(run);
        if (!text.empty()) {
            const Next found = next(text);
            end = putPoint(end, found.point);
            text.remove_prefix(found.size);
        }
    }
    wide.resize(static_cast<std::size_t>(end - wide.data()));
    return wide;
}

std::string CCmnStringTool::encodeUtf8(std::wstring_view text)
{
    std::string utf8;
    utf8.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        appendUtf8(utf8, takePoint(text, at));
    }
    return utf8;
}

} // namespace tarnix_cmn_4_4
