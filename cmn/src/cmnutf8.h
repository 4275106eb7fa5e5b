// SPDX-License-Identifier: LicenseRef-Tarnix
// Wide text to UTF-8 and back, independent of the locale. The configuration store holds UTF-8.
#ifndef TARNIX_CMNUTF8_H
#define TARNIX_CMNUTF8_H

#include "cmnstringtool.h"
#include "cmntypes.h"

#include <algorithm>
#include <cstddef>
#include <string>

namespace tarnix_cmn_4_4
{

// Copies an ASCII text, whose bytes are the same in UTF-8 and in every locale. For any other text
// it returns false and leaves `bytes` unchanged. Null counts as the empty text.
inline bool asciiToBytes(const wchar_t* text, std::string& bytes)
{
    const wchar_t* end = text;
    while (end != nullptr && *end > 0 && *end <= 0x7F) {
        ++end;
    }
    if (end != nullptr && *end) {
        return false;
    }
    bytes.resize(static_cast<std::size_t>(end - text));
    std::transform(text, end, bytes.begin(), [](wchar_t unit) { return static_cast<char>(unit); });
    return true;
}

// False, with `utf8` empty, for a text with a lone surrogate, which is not representable in UTF-8.
// A unit that is not a code point becomes U+FFFD. Null counts as the empty text.
inline bool wideToUtf8(const wchar_t* text, std::string& utf8)
{
    if (asciiToBytes(text, utf8)) {
        return true;
    }
    utf8 = CCmnStringTool::ustr2str(CCmnStringTool::tstr2ustr(tstr(text)));
    return !utf8.empty();
}

// False, with `text` unchanged, for bytes that are not UTF-8.
inline bool utf8ToWide(const std::string& utf8, tstr& text)
{
    const icu::UnicodeString units = CCmnStringTool::str2ustr(utf8);
    if (units.isEmpty() && !utf8.empty()) {
        return false;
    }
    tstr wide = CCmnStringTool::ustr2tstr(units);
    text.swap(wide);
    return true;
}

} // namespace tarnix_cmn_4_4

#endif
