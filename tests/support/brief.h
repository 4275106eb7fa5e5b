// SPDX-License-Identifier: LicenseRef-Tarnix
// Texts as a reader of a failing test wants them.
#ifndef TARNIX_SUPPORT_BRIEF_H
#define TARNIX_SUPPORT_BRIEF_H

#include <gtest/gtest.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <ostream>
#include <string>
#include <vector>

// The text with only the first 40 of a longer run of one character, and "(5000 times)". Different
// texts stay different, unless one contains such a count itself.
inline std::string brief(const std::string& text)
{
    std::string result;
    for (std::size_t at = 0, end = 0; at < text.size(); at = end) {
        end = std::min(text.find_first_not_of(text[at], at), text.size());
        result += text.substr(at, std::min<std::size_t>(end - at, 40));
        result += end - at > 40 ? "(" + std::to_string(end - at) + " times)" : "";
    }
    return result;
}
inline std::vector<std::string> brief(std::vector<std::string> texts)
{
    for (std::string& text : texts)
        text = brief(text);
    return texts;
}

U_NAMESPACE_BEGIN
// For GoogleTest, which prints the bytes of the object otherwise.
inline void PrintTo(const UnicodeString& text, std::ostream* out)
{
    std::string utf8;
    *out << testing::PrintToString(text.toUTF8String(utf8));
}
U_NAMESPACE_END

#endif
