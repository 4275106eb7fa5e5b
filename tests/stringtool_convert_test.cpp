// Conversions between the string kinds, and raw duplicates.
#include "cmnstringtool.h"

#include <clocale>
#include <cstdlib>
#include <gtest/gtest.h>

using namespace std::string_literals;
using icu::UnicodeString;
using tarnix_cmn_4_4::tstr;
using Texts = std::vector<std::string>;
using Tool = tarnix_cmn_4_4::CCmnStringTool;

namespace
{

// The test program starts in the locale "C".
struct LocaleScope {
    explicit LocaleScope(const char* name) : set(std::setlocale(LC_ALL, name) != nullptr) {}
    ~LocaleScope() { std::setlocale(LC_ALL, "C"); }
    const bool set;
};

std::string repeat(const std::string& part, std::size_t count)
{
    std::string text;
    while (count-- > 0)
        text += part;
    return text;
}

UnicodeString ustr(const std::u16string& text)
{
    return UnicodeString(text.data(), static_cast<std::int32_t>(text.size()));
}

std::wstring wide(const tstr& text)
{
    return std::wstring(text.c_str(), text.length());
}

TEST(StringToolUtf8, ConvertsValidTextAndRefusesTheRest)
{
    EXPECT_EQ(Tool::str2ustr("\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80"),
              ustr(u"\u00E9\u4E2D\U0001F600"));
    EXPECT_EQ(Tool::ustr2str(ustr(u"\u00E9\u4E2D\U0001F600")),
              "\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80");
    EXPECT_EQ(Tool::str2ustr("ab\0\xFF"s), ustr(u"ab"));
    EXPECT_EQ(Tool::ustr2str(ustr(u"ab\0\u00E9"s)), "ab");
    for (const char* bad : {"a\x80", "a\xC3", "\xC0\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", ""})
        EXPECT_EQ(Tool::str2ustr(bad), UnicodeString()) << testing::PrintToString(bad);
    const std::u16string piece(1023, u'a');
    for (const std::u16string& bad :
         {u"ab\0\xD800"s, u"ab\xDC00"s, piece + u"\xD800", piece + u"\xD800z", u""s})
        EXPECT_EQ(Tool::ustr2str(ustr(bad)), "");
}

// Inner buffers end at different places within the characters of each text.
TEST(StringToolUtf8, LongTextComesBack)
{
    for (const char* part : {"a", "\xC3\xA9", "\xE4\xB8\xAD", "\xF0\x9F\x98\x80", "ab\xC3\xA9"}) {
        for (const std::size_t count : {1023U, 1024U, 5000U, 5001U, 2500000U}) {
            const std::string text = (count % 2 ? "x" : "") + repeat(part, count);
            ASSERT_TRUE(Tool::ustr2str(Tool::str2ustr(text)) == text) << part << count;
            ASSERT_TRUE(Tool::str2ustr(text + "\xFF").isEmpty()) << part << count;
        }
    }
}

TEST(StringToolTstr, EveryCodePointPassesBothWays)
{
    for (wchar_t point = 1; point <= 0x10FFFF; ++point) {
        const tstr text(&point, 1);
        const UnicodeString units = Tool::tstr2ustr(text);
        ASSERT_EQ(units, UnicodeString(static_cast<UChar32>(point))) << std::hex << point;
        ASSERT_TRUE(Tool::ustr2tstr(units) == text) << std::hex << point;
    }
    const std::wstring odd = {L'a', -1, 0x110000, 0xDC00, 0xD800};
    const UnicodeString units = ustr(u"a\uFFFD\uFFFD\xDC00\xD800");
    EXPECT_EQ(Tool::tstr2ustr(Tool::wstr2tstr(odd)), units);
    EXPECT_EQ(wide(Tool::ustr2tstr(units)), L"a\uFFFD\uFFFD\xDC00\xD800");
}

TEST(StringToolTstr, WhereTextIsCut)
{
    const tstr cut(L"ab\0c", 4);
    EXPECT_EQ(Tool::tstr2ustr(cut), ustr(u"ab"));
    EXPECT_EQ(Tool::tstr2wstr(cut), L"ab");
    EXPECT_EQ(Tool::tstr2str(cut), "ab");
    EXPECT_EQ(wide(Tool::ustr2tstr(ustr(u"ab\0c"s))), L"ab");
    EXPECT_EQ(wide(Tool::wstr2tstr(L"ab\0c"s)), L"ab");
    EXPECT_EQ(wide(Tool::str2tstr("ab\0c"s)), L"ab");
    EXPECT_EQ(Tool::str2wstr(L"ab\0c"s), L"ab\0c"s);
    EXPECT_EQ(Tool::wstr2str("ab\0c"s), "ab\0c"s);
    EXPECT_EQ(Tool::tstr2str("ab"), "ab");
    EXPECT_EQ(Tool::tstr2str(static_cast<const char*>(nullptr)), "");
    EXPECT_EQ(Tool::tstr2wstr(tstr(L"abc", 2, nullptr, false)), L"ab"); // not terminated there
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
    const std::string grin = "\xF0\x9F\x98\x80";
    const Texts texts = {
        "", "abc", "ab\0c"s, "\xC3\xA9", "\xE9", "a\xC3", "\xED\xA0\x80", repeat("a", 1023),
        repeat("a", 1024), repeat("a", 1025), repeat("\xE4\xB8\xAD", 1024),
        repeat("\xC3\xA9", 1023) + "\xFF", repeat("0123456789", 1000000),
        // The start foretells nothing of the rest.
        repeat("a", 3000) + repeat(grin, 40000) + repeat("a", 100000),
        repeat(grin, 3000) + repeat("a", 300000), repeat(grin, 3000) + repeat("a", 9000) + "\xFF"};
    for (const char* name : {"C", "C.UTF-8", "en_US.ISO-8859-1", "ja_JP.EUC-JP"}) {
        const LocaleScope locale(name);
        ASSERT_TRUE(locale.set || name[0] != 'C'); // the others are not on every system
        for (const std::string& text : locale.set ? texts : Texts{}) {
            const std::wstring wideText = expected<wchar_t>(text, std::mbstowcs);
            ASSERT_TRUE(Tool::str2wstr(text) == wideText) << name << text.substr(0, 20);
            ASSERT_TRUE(wide(Tool::str2tstr(text)) == wideText);

            // The code points, whether the locale has them or not.
            const tstr points = Tool::ustr2tstr(Tool::str2ustr(text));
            const std::string narrow = expected<char>(wide(points), std::wcstombs);
            ASSERT_TRUE(Tool::wstr2str(wide(points)) == narrow) << name << text.substr(0, 20);
            ASSERT_TRUE(Tool::tstr2str(points) == narrow);
        }
        for (const std::wstring& odd : {L"a\xD800"s, L"a\0\xD800"s, std::wstring{-1}})
            EXPECT_EQ(Tool::wstr2str(odd), expected<char>(odd, std::wcstombs)) << name;
    }
}

std::size_t g_Asked = 0;

void* allocate(std::size_t size)
{
    g_Asked = size;
    return std::malloc(size);
}

template <class Text, class Char>
void expectCopies(Char* (*duplicate)(const Text&, Tool::Allocator), const Text& text,
                  const std::basic_string<Char>& copied)
{
    EXPECT_EQ(duplicate(text, [](std::size_t) -> void* { return nullptr; }), nullptr);
    for (const Tool::Allocator allocator : {Tool::Allocator{allocate}, Tool::Allocator{nullptr}}) {
        Char* const copy = duplicate(text, allocator);
        EXPECT_EQ(std::basic_string<Char>(copy, copied.size() + 1), copied + Char{});
        EXPECT_EQ(g_Asked, (copied.size() + 1) * sizeof(Char));
        std::free(copy);
    }
}

TEST(StringToolDuplicates, CopyTheTerminatorToo)
{
    expectCopies(Tool::strdup, "a\0b"s, "a\0b"s);
    expectCopies(Tool::wstrdup, L"a\0b"s, L"a\0b"s);
    expectCopies(Tool::tstrdup, tstr(L"a\0b", 3), L"a"s);
    expectCopies(Tool::tstrdup, tstr(), L""s);

    for (const std::vector<tstr>& entries : {std::vector<tstr>{}, {tstr(), tstr(L"b\0c", 3)}}) {
        wchar_t** list = Tool::tstrduplist(entries);
        ASSERT_NE(list, nullptr);
        for (std::size_t i = 0; i < entries.size(); ++i)
            EXPECT_STREQ(list[i], entries[i].c_str());
        EXPECT_EQ(list[entries.size()], nullptr);
        Tool::tstrfreelist(list);
        EXPECT_EQ(list, nullptr);
        Tool::tstrfreelist(list);
    }
}

} // namespace
