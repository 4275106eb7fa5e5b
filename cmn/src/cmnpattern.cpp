// SPDX-License-Identifier: LicenseRef-Tarnix
// The nesting of patterns. Follows the braces and quotes of a pattern as ICU's MessagePattern does:
// what an apostrophe means depends on the kind of argument that it is in.
#include "cmnpattern.h"

#include <algorithm>
#include <cwchar>
#include <string_view>
#include <vector>

namespace tarnix_cmn_4_4
{
namespace
{

using Text = std::wstring_view;

// What a pair of braces, or the whole pattern, contains.
enum class Level : unsigned char {
    text,
    pluralText,
    choice,      // numbers and texts
    pluralTexts, // the selectors of a plural; each has a text in braces
    selectTexts,
    style // an argument without texts, or braces in its style
};

struct ComplexArgument {
    Text type;
    Level level;
};

constexpr ComplexArgument kComplexArguments[] = {{L"plural", Level::pluralTexts},
                                                 {L"selectordinal", Level::pluralTexts},
                                                 {L"select", Level::selectTexts},
                                                 {L"choice", Level::choice}};

// Of an ASCII letter; no other unit becomes one.
wchar_t lowered(wchar_t unit)
{
    constexpr wchar_t lowerCase = 0x20;
    return unit | lowerCase;
}

bool isLetter(wchar_t unit)
{
    return lowered(unit) >= L'a' && lowered(unit) <= L'z';
}

bool isType(Text word, Text type)
{
    return std::equal(word.begin(), word.end(), type.begin(), type.end(),
                      [](wchar_t unit, wchar_t lower) { return lowered(unit) == lower; });
}

// What an argument contains; `rest` starts after its brace. Between the comma and the type there is
// at most white space.
Level argumentLevel(Text rest)
{
    const Text head = rest.substr(0, rest.find_first_of(L"{}"));
    const auto comma = std::find(head.begin(), head.end(), L',');
    const auto first = std::find_if(comma, head.end(), isLetter);
    const auto last = std::find_if_not(first, head.end(), isLetter);
    const Text word = head.substr(static_cast<std::size_t>(first - head.begin()),
                                  static_cast<std::size_t>(last - first));
    for (const ComplexArgument& argument : kComplexArguments) {
        if (isType(word, argument.type)) {
            return argument.level;
        }
    }
    return Level::style;
}

// What the braces contain that open in a level.
Level levelInside(Level outer, Text rest)
{
    switch (outer) {
    case Level::pluralTexts:
        return Level::pluralText;
    case Level::selectTexts:
        return Level::text;
    case Level::style:
        return Level::style;
    default:
        return argumentLevel(rest);
    }
}

bool startsQuote(wchar_t next, Level level)
{
    return next == L'{' || next == L'}' || (next == L'#' && level == Level::pluralText) ||
           (next == L'|' && level == Level::choice);
}

// The last unit that belongs to the apostrophe at `at`: itself, a second one, or the end of the
// quoted text.
std::size_t quoteEnd(Text pattern, std::size_t at, Level level)
{
    const Text rest = pattern.substr(at + 1);
    const wchar_t next = rest.empty() ? L'\0' : rest.front();
    if (level == Level::style) {
        return std::min(pattern.find(L'\'', at + 1), pattern.size());
    }
    if (next == L'\'') {
        return at + 1;
    }
    if (!startsQuote(next, level)) {
        return at;
    }
    std::size_t end = pattern.find(L'\'', at + 1);
    while (end != Text::npos && pattern.substr(end + 1, 1) == L"'") {
        end = pattern.find(L'\'', end + 2);
    }
    return std::min(end, pattern.size());
}

} // namespace

bool nestsDeeper(const tstr& pattern, std::size_t limit)
{
    const Text text(pattern.c_str(), pattern.length());
    if (std::count(text.begin(), text.end(), L'{') <= static_cast<std::ptrdiff_t>(limit)) {
        return false; // nearly always
    }
    std::vector<Level> levels = {Level::text};
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == L'\'') {
            at = quoteEnd(text, at, levels.back());
        } else if (text[at] == L'{') {
            if (levels.size() > limit) {
                return true;
            }
            levels.push_back(levelInside(levels.back(), text.substr(at + 1)));
        } else if (text[at] == L'}' && levels.size() > 1) {
            levels.pop_back();
        }
    }
    return false;
}

} // namespace tarnix_cmn_4_4
