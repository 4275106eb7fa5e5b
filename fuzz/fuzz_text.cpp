// Fuzzer of the conversions between the kinds of text, in two locales, and of text editing. The
// input is a byte that chooses, two lines for the editing functions, and a text that may repeat a
// piece, across the ends of the conversions' own pieces.
#include "cmnstringtool.h"
#include "fuzzinput.h"

#include <clocale>
#include <cstring>

using Tool = tarnix_cmn_4_4::CCmnStringTool;
using tarnix_cmn_4_4::tstr;

namespace
{

std::string cut(const std::string& text) { return text.c_str(); }

void checkNarrow(const std::string& text)
{
    const icu::UnicodeString peer = icu::UnicodeString::fromUTF8(cut(text));
    std::string back;
    const bool valid = peer.toUTF8String(back) == cut(text); // otherwise U+FFFD has come in
    const icu::UnicodeString units = Tool::str2ustr(text);
    require(units == (valid ? peer : icu::UnicodeString()) &&
                Tool::ustr2str(units) == (valid ? cut(text) : ""),
            "UTF-8, whole or not at all");

    std::wstring wide(text.size(), L'\0');
    const std::size_t length = std::mbstowcs(wide.data(), text.c_str(), wide.size());
    const bool readable = length != static_cast<std::size_t>(-1);
    wide.resize(readable ? length : 0);
    require(Tool::str2wstr(text) == wide && Tool::str2tstr(text) == wide.c_str() &&
                Tool::wstr2str(wide) == (readable ? cut(text) : ""),
            "the locale's text");
}

void checkWide(const std::string& text)
{
    std::u16string units(text.size() / 2, u'\0');
    std::memcpy(units.data(), text.data(), units.size() * 2);
    const icu::UnicodeString ustr(units.data(), static_cast<std::int32_t>(units.size()));
    const icu::UnicodeString upToZero(units.c_str());
    const tstr wide = Tool::ustr2tstr(ustr);
    require(Tool::tstr2ustr(wide) == upToZero &&
                static_cast<std::int32_t>(wide.length()) == upToZero.countChar32(),
            "UTF-16 comes back");
    std::string utf8;
    const bool valid = icu::UnicodeString::fromUTF8(ustr.toUTF8String(utf8)) == ustr;
    require(Tool::ustr2str(ustr) == (valid ? cut(utf8) : ""), "UTF-16 to UTF-8");

    std::wstring points(text.size() / 4, L'\0'); // any 32 bits
    std::memcpy(points.data(), text.data(), points.size() * 4);
    const tstr copy = Tool::wstr2tstr(points);
    std::string narrow(points.size() * MB_CUR_MAX, '\0');
    const std::size_t length = std::wcstombs(narrow.data(), points.c_str(), narrow.size());
    narrow.resize(length == static_cast<std::size_t>(-1) ? 0 : length);
    require(Tool::tstr2wstr(copy) == points.c_str() && Tool::wstr2str(points) == narrow &&
                Tool::tstr2str(copy) == narrow,
            "wide text in the locale");
    require(Tool::tstr2ustr(copy).isEmpty() == (points.c_str()[0] == L'\0'), "nothing is dropped");
}

void checkXml(const std::string& text)
{
    const std::string escaped = Tool::convertToXmlSpecialCharacters(text);
    require(escaped.find_first_of("<>\"'") == std::string::npos &&
                Tool::convertFromXmlSpecialCharacters(escaped) == cut(text) &&
                Tool::convertFromXmlSpecialCharacters(text).size() <= text.size(),
            "XML comes back");
}

void checkEditing(const std::string& text, const std::string& set, const std::string& with)
{
    const std::string search = cut(set), same = Tool::searchreplace(text, search, search);
    require(same == (search.empty() ? text : cut(text)), "a replacement by itself");
    require(Tool::searchreplace(text, set, with) == cut(text) || set.empty() ||
                text.find(set) != std::string::npos,
            "no replacement");
    std::string joined, left;
    for (const std::string& token : Tool::tokenize(text, set)) {
        require(!token.empty(), "a token");
        joined += token;
    }
    for (const char c : cut(text))
        left += std::strchr(set.c_str(), c) ? "" : std::string(1, c);
    require(joined == left, "tokens are what is left");
    const std::string trimmed = Tool::trim(cut(text), set.c_str());
    require(trimmed.find_first_of(set.c_str()) != 0 &&
                (trimmed.empty() || trimmed.find_last_of(set.c_str()) + 1 != trimmed.size()),
            "a trimmed text");
    require(Tool::CompareNoCase(text, Tool::tostrupper(text)), "case");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const locale_t locales[] = {newlocale(LC_ALL_MASK, "C.UTF-8", nullptr),
                                       newlocale(LC_ALL_MASK, "C", nullptr)};
    FuzzInput input(data, size);
    const unsigned int choice = input.byte();
    uselocale(locales[choice % 2]);
    const std::string set = input.until('\n'), with = input.until('\n'),
                      text = input.expanded(8192);
    if (choice / 2 % 4 == 0)
        checkNarrow(text);
    else if (choice / 2 % 4 == 1)
        checkWide(text);
    else if (choice / 2 % 4 == 2)
        checkXml(text);
    else
        checkEditing(text, set, with);
    return 0;
}
