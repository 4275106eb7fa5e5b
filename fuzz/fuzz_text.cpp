// SPDX-License-Identifier: LicenseRef-Tarnix
// Fuzzer of the conversions between types of text, in two locales, and of text editing. The input
// is a byte that selects the test, two lines for the editing functions, and a text. The text can be
// longer than the blocks in which a conversion works.
#include "cmnstringtool.h"
#include "fuzzinput.h"

#include <clocale>
#include <cstring>

using Tool = tarnix_cmn_4_4::CCmnStringTool;

static std::string cut(const std::string& text) { return text.c_str(); }

// Any units: the bytes of the text.
template <class Unit>
static std::basic_string<Unit> unitsOf(const std::string& text)
{
    std::basic_string<Unit> units(text.size() / sizeof(Unit), Unit());
    std::memcpy(units.data(), text.data(), units.size() * sizeof(Unit));
    return units;
}

static void checkNarrow(const std::string& text)
{
    const icu::UnicodeString peer = icu::UnicodeString::fromUTF8(cut(text));
    std::string back;
    const bool valid = peer.toUTF8String(back) == cut(text); // otherwise it contains U+FFFD
    const icu::UnicodeString units = Tool::str2ustr(text);
    require(units == (valid ? peer : icu::UnicodeString()) &&
                Tool::ustr2str(units) == (valid ? cut(text) : ""),
            "UTF-8 is converted entirely or not at all");

    std::wstring wide(text.size(), L'\0');
    const std::size_t length = std::mbstowcs(wide.data(), text.c_str(), wide.size());
    wide.resize(length == static_cast<std::size_t>(-1) ? 0 : length);
    require(Tool::str2wstr(text) == wide && Tool::str2tstr(text) == wide.c_str() &&
                Tool::wstr2str(wide) == (wide.empty() ? "" : cut(text)),
            "narrow text is converted as the locale does");
}

// Text that need not be valid, zeros included.
static void checkReplacing(const std::string& text)
{
    const icu::UnicodeString peer = icu::UnicodeString::fromUTF8(text);
    std::wstring expected;
    for (std::int32_t at = 0; at < peer.length(); at = peer.moveIndex32(at, 1))
        expected += static_cast<wchar_t>(peer.char32At(at));
    std::string back;
    const bool valid = peer.toUTF8String(back) == text;
    require(Tool::decodeUtf8(text) == expected, "replaces the maximal subparts");
    require(Tool::encodeUtf8(expected) == back, "encodes what was decoded");
    const std::size_t bad = Tool::findInvalidUtf8(text);
    require((bad == std::string::npos) == valid, "knows UTF-8");
    if (!valid) {
        const icu::UnicodeString rest = icu::UnicodeString::fromUTF8(text.substr(bad));
        require(text.compare(0, bad, back, 0, bad) == 0, "what precedes the bad byte is UTF-8");
        require(rest[0] == 0xFFFD && text.compare(bad, 3, "\uFFFD") != 0,
                "the bad byte is the first");
    }

    const std::wstring points = unitsOf<wchar_t>(text);
    std::string utf8;
    const auto* const units = reinterpret_cast<const UChar32*>(points.data());
    icu::UnicodeString::fromUTF32(units, static_cast<std::int32_t>(points.size()))
        .toUTF8String(utf8);
    require(Tool::encodeUtf8(points) == utf8, "replaces what is no character");
}

static void checkWide(const std::string& text)
{
    const std::u16string units = unitsOf<char16_t>(text);
    const icu::UnicodeString ustr(units.data(), static_cast<std::int32_t>(units.size()));
    const icu::UnicodeString upToZero(units.c_str());
    const auto wide = Tool::ustr2tstr(ustr);
    require(Tool::tstr2ustr(wide) == upToZero &&
                static_cast<std::int32_t>(wide.length()) == upToZero.countChar32(),
            "UTF-16 survives a round trip");
    std::string utf8;
    const bool valid = icu::UnicodeString::fromUTF8(ustr.toUTF8String(utf8)) == ustr;
    require(Tool::ustr2str(ustr) == (valid ? cut(utf8) : ""), "UTF-16 is converted to UTF-8");

    const std::wstring points = unitsOf<wchar_t>(text);
    const auto copy = Tool::wstr2tstr(points);
    std::string narrow(points.size() * MB_CUR_MAX, '\0');
    const std::size_t length = std::wcstombs(narrow.data(), points.c_str(), narrow.size());
    narrow.resize(length == static_cast<std::size_t>(-1) ? 0 : length);
    require(Tool::tstr2wstr(copy) == points.c_str() && Tool::wstr2str(points) == narrow &&
                Tool::tstr2str(copy) == narrow,
            "wide text is converted as the locale does");
}

static void checkEditing(const std::string& text, const std::string& set, const std::string& with)
{
    constexpr std::size_t none = std::string::npos;
    const std::string plain = cut(text), escaped = Tool::convertToXmlSpecialCharacters(text);
    require(escaped.find_first_of("<>\"'") == none &&
                Tool::convertFromXmlSpecialCharacters("& " + escaped) == "& " + plain,
            "XML survives a round trip");
    std::string replaced = plain, trimmed = plain;
    for (std::size_t at = 0; !set.empty() && (at = replaced.find(set, at)) != none;
         at += with.size())
        replaced.replace(at, set.size(), with);
    require(Tool::searchreplace(text, set, with) == (set.empty() ? text : cut(replaced)),
            "replaces all matches");
    std::vector<std::string> tokens;
    for (std::size_t at = 0, end = 0; (at = plain.find_first_not_of(set, end)) != none;) {
        end = std::min(plain.find_first_of(set, at), plain.size());
        tokens.push_back(plain.substr(at, end - at));
    }
    require(Tool::tokenize(text, set) == tokens, "splits into tokens");
    trimmed.erase(trimmed.find_last_not_of(set) + 1);
    trimmed.erase(0, trimmed.find_first_not_of(set));
    require(Tool::trim(plain, set.c_str()) == trimmed, "trims both ends");
    require(Tool::CompareNoCase(text, Tool::tostrupper(text)), "comparison ignores case");
}

void fuzz(FuzzInput input)
{
    static const locale_t locales[] = {newlocale(LC_ALL_MASK, "C.UTF-8", nullptr),
                                       newlocale(LC_ALL_MASK, "C", nullptr)};
    const unsigned int choice = input.byte();
    uselocale(locales[choice % 2]);
    const std::string set = cut(input.until('\n')), with = input.until('\n'),
                      text = input.expanded(8192);
    if (choice / 2 % 4 == 0)
        checkNarrow(text), checkReplacing(text);
    else if (choice / 2 % 4 == 1)
        checkWide(text);
    else
        checkEditing(text, set, with);
}
