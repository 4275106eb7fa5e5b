// SPDX-License-Identifier: LicenseRef-Tarnix
// CCmnStringTool: text editing and XML escaping.
#include "cmnstringtool.h"
#include "platform_text.h"

#include <ace/OS_NS_string.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <cwctype>
#include <string_view>

namespace tarnix_cmn_4_4
{
namespace
{

struct Escape {
    char character;
    std::string_view reference;
};

constexpr Escape kEscapes[] = {
    {'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}, {'"', "&quot;"}, {'\'', "&#39;"},
};

constexpr const char* kEscaped = "&<>\"'";

// The locale is asked only where locales differ. In all of them the same printable ASCII characters
// are letters, and a letter that already has the wanted case does not change. The conversion to the
// other case may differ (the Turkish capital of "i" keeps the dot), and in some old encodings
// control characters are letters.
template <class Char>
bool isPrintableAscii(Char c)
{
    return c >= ' ' && c <= '~';
}

template <class Char>
bool isAsciiLower(Char c)
{
    return c >= 'a' && c <= 'z';
}

template <class Char>
bool isAsciiUpper(Char c)
{
    return c >= 'A' && c <= 'Z';
}

// The functions of <cctype> take the value of an unsigned char; a plain char may be negative.
struct NarrowLocale {
    static bool isLetter(char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; }
    static char upper(char c)
    {
        return static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    static char lower(char c)
    {
        return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
};

struct WideLocale {
    static std::wint_t code(wchar_t c) { return static_cast<std::wint_t>(c); }
    static bool isLetter(wchar_t c) { return std::iswalpha(code(c)) != 0; }
    static wchar_t upper(wchar_t c) { return static_cast<wchar_t>(std::towupper(code(c))); }
    static wchar_t lower(wchar_t c) { return static_cast<wchar_t>(std::towlower(code(c))); }
};

template <class Locale, class Char>
struct LetterCase {
    static bool isLetter(Char c)
    {
        return isPrintableAscii(c) ? isAsciiLower(c) || isAsciiUpper(c) : Locale::isLetter(c);
    }
    static Char upper(Char c)
    {
        return isPrintableAscii(c) && !isAsciiLower(c) ? c : Locale::upper(c);
    }
    static Char lower(Char c)
    {
        return isPrintableAscii(c) && !isAsciiUpper(c) ? c : Locale::lower(c);
    }
};

using NarrowCase = LetterCase<NarrowLocale, char>;
using WideCase = LetterCase<WideLocale, wchar_t>;

template <class Case, class String>
bool equalButForCase(const String& left, const String& right)
{
    using Char = typename String::value_type;
    return std::equal(left.begin(), left.end(), right.begin(), right.end(), [](Char a, Char b) {
        return a == b ||
               (Case::isLetter(a) && Case::isLetter(b) && Case::upper(a) == Case::upper(b));
    });
}

template <class Case, auto convert, class String>
String convertLetters(String text)
{
    for (auto& c : text) {
        const auto converted = convert(c);
        if (converted != c && Case::isLetter(c)) {
            c = converted;
        }
    }
    return text;
}

// Moves `position` to the next match, or to the terminator if there is no match before it. One pass
// searches for both.
bool findMatch(const char*& position, const char* end, const std::string& search)
{
    for (;; ++position) {
        position = findOrEnd(position, search[0]);
        if (static_cast<std::size_t>(end - position) >= search.size() &&
            std::memcmp(position, search.data(), search.size()) == 0) {
            return true;
        }
        if (*position == '\0') {
            return false;
        }
    }
}

// An empty text with a little more capacity, so that a few longer replacements do not copy it
// again.
std::string makeResult(std::size_t length)
{
    std::string result;
    result.reserve(length + length / 16);
    return result;
}

std::string_view referenceOf(char character)
{
    return std::find_if(std::begin(kEscapes), std::end(kEscapes),
                        [=](const Escape& escape) { return escape.character == character; })
        ->reference;
}

// The escape whose reference the text starts with, or null.
const Escape* escapeAt(std::string_view text)
{
    for (const Escape& escape : kEscapes) {
        if (text.substr(0, escape.reference.size()) == escape.reference) {
            return &escape;
        }
    }
    return nullptr;
}

} // namespace

std::string CCmnStringTool::trim(const std::string& text, const char* set)
{
    return rtrim(ltrim(text, set), set);
}

std::string CCmnStringTool::ltrim(const std::string& text, const char* set)
{
    if (set == nullptr) {
        return text;
    }
    const std::size_t start = std::min(text.find_first_not_of(set), text.size());
    return text.c_str() + start;
}

std::string CCmnStringTool::rtrim(const std::string& text, const char* set)
{
    if (set == nullptr) {
        return text;
    }
    return text.substr(0, text.find_last_not_of(set) + 1);
}

std::string CCmnStringTool::searchreplace(const std::string& text, const std::string& search,
                                          const std::string& replacement)
{
    if (search.empty()) {
        return text;
    }
    const char* rest = text.c_str();
    const char* const end = rest + text.size();
    const char* match = rest;
    if (!findMatch(match, end, search)) {
        return std::string(rest, match);
    }
    const std::size_t kept = std::strlen(replacement.c_str());
    std::string result = makeResult(text.size());
    do {
        result.append(rest, static_cast<std::size_t>(match - rest)).append(replacement, 0, kept);
        if (kept < replacement.size()) {
            return result;
        }
        match += search.size();
        rest = match;
    } while (findMatch(match, end, search));
    result.append(rest, static_cast<std::size_t>(match - rest));
    return result;
}

std::vector<std::string> CCmnStringTool::tokenize(const std::string& text,
                                                  const std::string& delimiters)
{
    std::vector<std::string> tokens;
    std::string work = text.c_str();
    char* position = nullptr;
    for (char* token = ACE_OS::strtok_r(work.data(), delimiters.c_str(), &position);
         token != nullptr; token = ACE_OS::strtok_r(nullptr, delimiters.c_str(), &position)) {
        tokens.emplace_back(token);
    }
    return tokens;
}

std::string CCmnStringTool::quote(const std::string& text)
{
    static constexpr char plain[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"
                                    "_-+/.,:%@";
    if (!text.empty() && text.find_first_not_of(plain) == std::string::npos) {
        return text;
    }
    std::string quoted = "'";
    for (const char byte : text) {
        quoted += byte == '\'' ? std::string_view(R"('\'')") : std::string_view(&byte, 1);
    }
    return quoted + "'";
}

bool CCmnStringTool::isIpAddress(const std::string& text)
{
    const std::vector<std::string> tokens = tokenize(text, ".");
    return tokens.size() == 4 && std::all_of(tokens.begin(), tokens.end(), isDigit);
}

bool CCmnStringTool::isDigit(const std::string& text)
{
    return std::all_of(text.begin(), text.end(),
                       [](unsigned char c) { return std::isdigit(c) != 0; });
}

bool CCmnStringTool::CompareNoCase(const std::string& left, const std::string& right)
{
    return equalButForCase<NarrowCase>(left, right);
}

bool CCmnStringTool::CompareNoCase(const std::wstring& left, const std::wstring& right)
{
    return equalButForCase<WideCase>(left, right);
}

std::string CCmnStringTool::tostrupper(const std::string& text)
{
    return convertLetters<NarrowCase, NarrowCase::upper>(text);
}

std::wstring CCmnStringTool::tostrupper(const std::wstring& text)
{
    return convertLetters<WideCase, WideCase::upper>(text);
}

std::string CCmnStringTool::tostrlower(const std::string& text)
{
    return convertLetters<NarrowCase, NarrowCase::lower>(text);
}

std::wstring CCmnStringTool::tostrlower(const std::wstring& text)
{
    return convertLetters<WideCase, WideCase::lower>(text);
}

std::size_t CCmnStringTool::find(const std::vector<std::string>& lines, const char* pattern,
                                 std::size_t& index, bool trim)
{
    for (; (pattern != nullptr) && index < lines.size(); ++index) {
        std::string_view line = lines[index];
        if (trim) {
            line = line.substr(0, line.find_last_not_of(" \n\t\r") + 1);
        }
        const std::size_t offset = line.find(pattern);
        if (offset != std::string_view::npos) {
            return offset;
        }
    }
    index = std::max(index, lines.size());
    return std::string::npos;
}

std::string CCmnStringTool::xmlBracket(std::string name, bool opening, bool newline)
{
    return (opening ? "<" : "</") + name + (newline ? ">\n" : ">");
}

std::string CCmnStringTool::xmlBracketValue(std::string name, std::string value)
{
    return "\t" + xmlBracket(name, true, false) + convertToXmlSpecialCharacters(value) +
           xmlBracket(name, false, true);
}

// One pass gives the same result as one pass for each character with "&" first: no reference
// contains any other character that is replaced.
std::string CCmnStringTool::convertToXmlSpecialCharacters(const std::string& text)
{
    std::string result = makeResult(text.size());
    for (const char* rest = text.c_str();; ++rest) {
        const std::size_t run = std::strcspn(rest, kEscaped);
        result.append(rest, run);
        rest += run;
        if (*rest == '\0') {
            return result;
        }
        result.append(referenceOf(*rest));
    }
}

// One pass gives the same result as one pass for each reference with "&amp;" last: references
// cannot overlap, and of the replaced characters only "&" can start another reference.
std::string CCmnStringTool::convertFromXmlSpecialCharacters(const std::string& text)
{
    std::string_view rest = text.c_str();
    std::string result;
    result.reserve(rest.size());
    while (!rest.empty()) {
        const std::size_t run = std::min(rest.find('&'), rest.size());
        result.append(rest.substr(0, run));
        rest.remove_prefix(run);
        if (const Escape* escape = escapeAt(rest)) {
            result.push_back(escape->character);
            rest.remove_prefix(escape->reference.size());
        } else if (!rest.empty()) {
            result.push_back('&');
            rest.remove_prefix(1);
        }
    }
    return result;
}

} // namespace tarnix_cmn_4_4
