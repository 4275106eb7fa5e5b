// Wide text to UTF-8 and back, whatever the locale: what the configuration store holds is UTF-8.
#ifndef TARNIX_CMNUTF8_H
#define TARNIX_CMNUTF8_H

#include "cmnstringtool.h"
#include "cmntypes.h"

#include <string>

namespace tarnix_cmn_4_4
{

// Null counts as the empty text. False, with `utf8` empty, for a text with a lone surrogate, which
// has no UTF-8; a unit that is no code point becomes U+FFFD. The names that the trace log looks up
// for each line are ASCII and take the loop.
inline bool wideToUtf8(const wchar_t* text, std::string& utf8)
{
    utf8.clear();
    for (const wchar_t* unit = text; unit && *unit; ++unit) {
        if (*unit < 0 || *unit > 0x7F) {
            utf8 = CCmnStringTool::ustr2str(CCmnStringTool::tstr2ustr(tstr(text)));
            return !utf8.empty();
        }
        utf8 += static_cast<char>(*unit);
    }
    return true;
}

// False, with `text` untouched, for bytes that are not UTF-8.
inline bool utf8ToWide(const std::string& utf8, tstr& text)
{
    const icu::UnicodeString units = CCmnStringTool::str2ustr(utf8);
    if (units.isEmpty() && !utf8.empty())
        return false;
    text = CCmnStringTool::ustr2tstr(units);
    return true;
}

} // namespace tarnix_cmn_4_4

#endif
