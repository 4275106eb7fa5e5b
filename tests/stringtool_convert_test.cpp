// Conversions between the string kinds where the fuzzer does not go, and raw duplicates.
#include "cmnstringtool.h"

#include <gtest/gtest.h>

using namespace std::string_literals;
using icu::UnicodeString;
using tarnix_cmn_4_4::tstr;
using Tool = tarnix_cmn_4_4::CCmnStringTool;

namespace
{

std::wstring wide(const tstr& text) { return std::wstring(text.c_str(), text.length()); }

TEST(StringToolTstr, EdgesOfCodePointsAndCutTexts)
{
    for (const char16_t* text :
         {u"\uFFFF\U00010000\U0010FFFF\x80\x7F", u"a\uFFFD\uFFFD\xDC00\xD800"})
        EXPECT_EQ(Tool::tstr2ustr(Tool::ustr2tstr(text)), UnicodeString(text));
    EXPECT_EQ(wide(Tool::ustr2tstr(u"\U00010000\U0010FFFF\xDC00\xD800")),
              L"\x10000\x10FFFF\xDC00\xD800");
    EXPECT_EQ(Tool::tstr2ustr(Tool::wstr2tstr({L'a', -1, 0x110000, 0x10FFFF})),
              UnicodeString(u"a\uFFFD\uFFFD\U0010FFFF"));

    const tstr cut(L"ab\0c", 4), open(L"abc", 2, nullptr, false); // not terminated there
    for (const tstr* text : {&cut, &open}) {
        EXPECT_EQ(Tool::tstr2ustr(*text), UnicodeString(u"ab"));
        EXPECT_EQ(Tool::tstr2str(*text), "ab");
        EXPECT_EQ(Tool::tstr2wstr(*text), L"ab");
    }
    EXPECT_EQ(wide(Tool::wstr2tstr(L"ab\0c"s)), L"ab");
    EXPECT_TRUE(Tool::str2wstr(L"a\0b"s) == L"a\0b"s && Tool::wstr2str("a\0b"s) == "a\0b"s);
    EXPECT_EQ(Tool::tstr2str("ab") + Tool::tstr2str(static_cast<const char*>(nullptr)), "ab");
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
    wchar_t** list = Tool::tstrduplist({tstr(), tstr(L"b\0c", 3)});
    EXPECT_EQ(list[0] + std::wstring(L"|") + list[1], L"|b");
    EXPECT_EQ(list[2], nullptr);
    Tool::tstrfreelist(list);
    Tool::tstrfreelist(list); // null by now
}

} // namespace
