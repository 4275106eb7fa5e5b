// Conversions between the string kinds, and raw duplicates.
#include "cmnstringtool.h"
#include "scratch.h"

#include <clocale>

using namespace std::string_literals;
using icu::UnicodeString;
using tarnix_cmn_4_4::tstr;
using Tool = tarnix_cmn_4_4::CCmnStringTool;

namespace
{

UnicodeString ustr(const std::u16string& text)
{
    return UnicodeString(text.data(), static_cast<std::int32_t>(text.size()));
}

std::wstring wide(const tstr& text) { return std::wstring(text.c_str(), text.length()); }

// Inner buffers end at different places within the characters of each text.
TEST(StringToolUtf8, ValidTextComesBackAndTheRestIsRefused)
{
    for (const char* part : {"a", "\xC3\xA9", "\xE4\xB8\xAD", "\xF0\x9F\x98\x80", "ab\xC3\xA9"}) {
        for (const int count : {0, 1, 1023, 1024, 5001, 500000}) {
            const std::string text = (count % 2 ? "x" : "") + repeated(part, count);
            const UnicodeString units = UnicodeString::fromUTF8(text);
            ASSERT_TRUE(Tool::str2ustr(text + "\0\xFF"s) == units) << part << count;
            ASSERT_TRUE(Tool::ustr2str(units + ustr(u"\0z"s)) == text) << part << count;
            for (const char* bad : {"\x80", "\xC3", "\xC0\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80"})
                ASSERT_TRUE(Tool::str2ustr(text + bad).isEmpty()) << part << count;
            for (const std::u16string& bad : {u"\xD800"s, u"\xD800z"s, u"\0\xDC00"s})
                ASSERT_TRUE(Tool::ustr2str(units + ustr(bad)).empty()) << part << count;
        }
    }
}

TEST(StringToolTstr, EveryCodePointPassesBothWaysAndTextIsCut)
{
    for (wchar_t point = 1; point <= 0x10FFFF; ++point) {
        const tstr text(&point, 1);
        const UnicodeString units = Tool::tstr2ustr(text);
        ASSERT_EQ(units, UnicodeString(static_cast<UChar32>(point))) << std::hex << point;
        ASSERT_TRUE(Tool::ustr2tstr(units) == text) << std::hex << point;
    }
    const UnicodeString units = ustr(u"a\uFFFD\uFFFD\xDC00\xD800");
    EXPECT_EQ(Tool::tstr2ustr(Tool::wstr2tstr({L'a', -1, 0x110000, 0xDC00, 0xD800})), units);
    EXPECT_EQ(wide(Tool::ustr2tstr(units)), L"a\uFFFD\uFFFD\xDC00\xD800");

    const tstr cut(L"ab\0c", 4), open(L"abc", 2, nullptr, false); // not terminated there
    EXPECT_TRUE(Tool::tstr2ustr(cut) == ustr(u"ab") && Tool::tstr2str(cut) == "ab");
    EXPECT_TRUE(Tool::tstr2wstr(cut) == L"ab" && Tool::tstr2wstr(open) == L"ab");
    EXPECT_EQ(wide(Tool::ustr2tstr(ustr(u"ab\0c"s))), L"ab");
    EXPECT_EQ(wide(Tool::wstr2tstr(L"ab\0c"s)) + wide(Tool::str2tstr("ab\0c"s)), L"abab");
    EXPECT_TRUE(Tool::str2wstr(L"a\0b"s) == L"a\0b"s && Tool::wstr2str("a\0b"s) == "a\0b"s);
    EXPECT_EQ(Tool::tstr2str("ab") + Tool::tstr2str(static_cast<const char*>(nullptr)), "ab");
}

// What one call of the C library makes of the whole text; empty where it refuses.
template <class To, class From, class Convert>
std::basic_string<To> expected(const std::basic_string<From>& text, Convert convert)
{
    std::basic_string<To> result(text.size() * MB_CUR_MAX + 1, To{});
    const std::size_t length = convert(result.data(), text.c_str(), result.size());
    result.resize(length == static_cast<std::size_t>(-1) ? 0 : length);
    return result;
}

TEST(StringToolLocale, AgreesWithTheCLibrary)
{
    const std::string grin = repeated("\xF0\x9F\x98\x80", 3000);
    const std::vector<std::string> texts = {
        "", "ab\0c"s, "\xC3\xA9", "\xE9", "a\xC3", "\xED\xA0\x80", repeated("a", 1023),
        repeated("a", 1024), repeated("a", 1025), repeated("\xE4\xB8\xAD", 1024),
        repeated("\xC3\xA9", 1023) + "\xFF", repeated("0123456789", 1000000),
        // The start foretells nothing of the rest.
        grin + repeated("a", 300000),
        repeated("a", 3000) + repeated(grin, 13) + repeated("a", 100000),
        grin + repeated("a", 9000) + "\xFF"};
    for (const char* name : {"C", "C.UTF-8", "en_US.ISO-8859-1", "ja_JP.EUC-JP"}) {
        if (std::setlocale(LC_ALL, name) == nullptr && name[0] != 'C')
            continue; // not on every system
        ASSERT_STREQ(std::setlocale(LC_ALL, nullptr), name);
        for (const std::string& text : texts) {
            const std::wstring whole = expected<wchar_t>(text, std::mbstowcs);
            EXPECT_TRUE(Tool::str2wstr(text) == whole && wide(Tool::str2tstr(text)) == whole)
                << name;
            // The code points, whether the locale has them or not.
            const tstr points = Tool::ustr2tstr(Tool::str2ustr(text));
            const std::string narrow = expected<char>(wide(points), std::wcstombs);
            EXPECT_TRUE(Tool::wstr2str(wide(points)) == narrow && Tool::tstr2str(points) == narrow);
        }
        // A text of tags alone, as the last one, becomes no byte at all in most encodings.
        for (const std::wstring& odd :
             {L"a\xD800"s, L"a\0\xD800"s, std::wstring{-1}, L"a\u00ca"s, L"\U000e0041"s}) {
            const std::string narrow = expected<char>(odd, std::wcstombs);
            EXPECT_TRUE(Tool::wstr2str(odd) == narrow &&
                        Tool::tstr2str(Tool::wstr2tstr(odd)) == narrow)
                << name;
        }
    }
    std::setlocale(LC_ALL, "C"); // as the program started
}

std::size_t g_Asked = 0;

template <class Text, class Char>
void expectCopies(Char* (*duplicate)(const Text&, Tool::Allocator), const Text& text,
                  const std::basic_string<Char>& copied)
{
    EXPECT_EQ(duplicate(text, [](std::size_t) -> void* { return nullptr; }), nullptr);
    std::free(duplicate(text, [](std::size_t size) { return std::malloc(g_Asked = size); }));
    EXPECT_EQ(g_Asked, (copied.size() + 1) * sizeof(Char));
    Char* const copy = duplicate(text, nullptr);
    EXPECT_EQ(std::basic_string<Char>(copy, copied.size() + 1), copied + Char{});
    std::free(copy);
}

TEST(StringToolDuplicates, CopyTheTerminatorToo)
{
    expectCopies(Tool::strdup, "a\0b"s, "a\0b"s);
    expectCopies(Tool::wstrdup, L"a\0b"s, L"a\0b"s);
    expectCopies(Tool::tstrdup, tstr(L"a\0b", 3), L"a"s);
    for (const std::vector<tstr>& entries : {std::vector<tstr>{}, {tstr(), tstr(L"b\0c", 3)}}) {
        wchar_t** list = Tool::tstrduplist(entries);
        for (std::size_t i = 0; i < entries.size(); ++i)
            EXPECT_STREQ(list[i], entries[i].c_str());
        EXPECT_EQ(list[entries.size()], nullptr);
        Tool::tstrfreelist(list);
        Tool::tstrfreelist(list); // null by now
    }
}

} // namespace
