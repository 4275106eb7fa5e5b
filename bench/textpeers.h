// SPDX-License-Identifier: LicenseRef-Tarnix
// What a careful user would write instead of the text functions, with the C library, ICU, Boost or
// the standard library.
#ifndef TARNIX_TEXTPEERS_H
#define TARNIX_TEXTPEERS_H

#include "cmntypes.h"

#include <boost/algorithm/string.hpp>
#include <unicode/unistr.h>
#include <unicode/ustring.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <cwctype>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

using tarnix_cmn_4_4::tstr;

template <class Number>
inline std::string toChars(Number number)
{
    char digits[24];
    return std::string(digits, std::to_chars(digits, std::end(digits), number).ptr);
}

// One pass of ICU, directly into the result. With a length of -1 it stops at the terminator, as the
// library promises. With the exact length a zero stays in the text.
template <bool upToTerminator>
icu::UnicodeString icuFromUtf8(const std::string& text)
{
    icu::UnicodeString result;
    const auto size = static_cast<std::int32_t>(text.size());
    char16_t* const units = result.getBuffer(size);
    std::int32_t written = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strFromUTF8(units, size, &written, text.c_str(), upToTerminator ? -1 : size, &status);
    result.releaseBuffer(U_SUCCESS(status) ? written : 0);
    return result;
}

template <bool upToTerminator>
inline std::string icuToUtf8(const icu::UnicodeString& text)
{
    std::string result(static_cast<std::size_t>(text.length()) * 3, '\0');
    std::int32_t written = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strToUTF8(result.data(), static_cast<std::int32_t>(result.size()), &written, text.getBuffer(),
                text.length(), &status);
    result.resize(U_SUCCESS(status) ? static_cast<std::size_t>(written) : 0);
    if (upToTerminator) {
        result.resize(std::strlen(result.c_str()));
    }
    return result;
}

constexpr auto kConversionFailed = static_cast<std::size_t>(-1);

// One pass of mbstowcs or wcstombs into room for the worst case, directly into the result where
// possible.
inline std::wstring onePassToWide(const std::string& text)
{
    std::wstring result(text.size(), L'\0');
    const std::size_t written = std::mbstowcs(result.data(), text.c_str(), result.size());
    result.resize(written == kConversionFailed ? 0 : written);
    return result;
}

inline std::string onePassToNarrow(const wchar_t* text, std::size_t length)
{
    const std::size_t room = length * MB_CUR_MAX + 1;
    const std::unique_ptr<char[]> buffer(new char[room]); // not cleared
    const std::size_t written = std::wcstombs(buffer.get(), text, room);
    return written == kConversionFailed ? std::string() : std::string(buffer.get(), written);
}

inline tstr onePassToTstr(const std::string& text)
{
    const std::size_t room = text.size() + 1;
    const std::unique_ptr<wchar_t[]> buffer(new wchar_t[room]);
    const std::size_t written = std::mbstowcs(buffer.get(), text.c_str(), room);
    return written == kConversionFailed ? tstr() : tstr(buffer.get(), written);
}

inline std::string replaceByFind(const std::string& text, const std::string& search,
                                 const std::string& replacement)
{
    std::string result;
    result.reserve(text.size());
    std::size_t start = 0;
    for (;;) {
        const std::size_t place = text.find(search, start);
        if (place == std::string::npos) {
            return result.append(text, start, std::string::npos);
        }
        result.append(text, start, place - start).append(replacement);
        start = place + search.size();
    }
}

struct Reference {
    char character;
    std::string_view text;
};

constexpr Reference kReferences[] = {
    {'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}, {'"', "&quot;"}, {'\'', "&#39;"}};

inline std::string escapeByFind(const std::string& text)
{
    std::string result;
    result.reserve(text.size() + text.size() / 8);
    std::size_t start = 0;
    for (;;) {
        const std::size_t place = text.find_first_of("&<>\"'", start);
        if (place == std::string::npos) {
            return result.append(text, start, std::string::npos);
        }
        result.append(text, start, place - start);
        for (const Reference& reference : kReferences) {
            if (reference.character == text[place]) {
                result.append(reference.text);
            }
        }
        start = place + 1;
    }
}

inline std::string escapeByCharacter(const std::string& text)
{
    std::string result;
    result.reserve(text.size() + text.size() / 8);
    for (const char c : text) {
        switch (c) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '"':
            result += "&quot;";
            break;
        case '\'':
            result += "&#39;";
            break;
        default:
            result += c;
        }
    }
    return result;
}

inline std::string escapeByBoost(std::string text)
{
    for (const Reference& reference : kReferences) {
        boost::replace_all(text, std::string_view(&reference.character, 1), reference.text);
    }
    return text;
}

inline std::string unescapeByFind(const std::string& text)
{
    std::string result;
    result.reserve(text.size());
    std::size_t start = 0;
    for (;;) {
        const std::size_t place = text.find('&', start);
        if (place == std::string::npos) {
            return result.append(text, start, std::string::npos);
        }
        result.append(text, start, place - start);
        const auto* const found =
            std::find_if(std::begin(kReferences), std::end(kReferences), [&](const Reference& one) {
                return text.compare(place, one.text.size(), one.text) == 0;
            });
        const bool known = found != std::end(kReferences);
        result += known ? found->character : '&';
        start = place + (known ? found->text.size() : 1);
    }
}

inline std::string unescapeByBoost(std::string text)
{
    for (auto reference = std::rbegin(kReferences); reference != std::rend(kReferences);
         ++reference) {
        boost::replace_all(text, reference->text, std::string_view(&reference->character, 1));
    }
    return text;
}

inline std::vector<std::string> splitByFind(const std::string& text)
{
    constexpr const char* delimiters = ",;";
    std::vector<std::string> tokens;
    std::size_t end = 0;
    for (;;) {
        const std::size_t start = text.find_first_not_of(delimiters, end);
        if (start == std::string::npos) {
            return tokens;
        }
        end = std::min(text.find_first_of(delimiters, start), text.size());
        tokens.push_back(text.substr(start, end - start));
    }
}

inline std::vector<std::string> splitByBoost(const std::string& text)
{
    std::vector<std::string> tokens;
    boost::split(tokens, text, boost::is_any_of(",;"), boost::token_compress_on);
    tokens.erase(std::remove(tokens.begin(), tokens.end(), std::string()), tokens.end());
    return tokens;
}

inline char lowerOf(char c)
{
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

inline wchar_t lowerOf(wchar_t c)
{
    return static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(c)));
}

template <class String>
String lowerByHand(String text)
{
    for (auto& c : text) {
        c = lowerOf(c);
    }
    return text;
}

template <class String>
inline bool equalInLowerCase(const String& left, const String& right)
{
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](auto a, auto b) { return lowerOf(a) == lowerOf(b); });
}

inline bool areEqual(char a, char b)
{
    const auto one = static_cast<unsigned char>(a);
    const auto other = static_cast<unsigned char>(b);
    return std::isalpha(one) && std::isalpha(other) ? std::toupper(one) == std::toupper(other)
                                                    : a == b;
}

inline bool areEqual(wchar_t a, wchar_t b)
{
    const auto one = static_cast<std::wint_t>(a);
    const auto other = static_cast<std::wint_t>(b);
    return std::iswalpha(one) && std::iswalpha(other) ? std::towupper(one) == std::towupper(other)
                                                      : a == b;
}

// Follows the library's rule: only letters change case.
template <class String>
inline bool equalByHand(const String& left, const String& right)
{
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](auto a, auto b) { return areEqual(a, b); });
}

#endif
