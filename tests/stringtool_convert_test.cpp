// Conversions between the string kinds where the fuzzer does not go, and raw duplicates.
#include "cmnstringtool.h"

#include "scratch.h"

#include <climits>
#include <clocale>

// newlocale keeps what it makes of LOCPATH for good.
extern "C" [[gnu::visibility("default")]] const char* __lsan_default_suppressions()
{
    return "leak:argz_add_sep\n";
}

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

TEST(StringToolUtf8, LongTextsComeInPiecesOfWholeCharacters)
{
    constexpr int count = 5 << 20;
    for (const std::string start : {"", "a"}) { // one cuts a character, one a surrogate pair
        const std::string text = start + repeated("\U0001F600", count);
        const UnicodeString units = Tool::str2ustr(text);
        EXPECT_EQ(units.length(), static_cast<int>(start.size()) + 2 * count);
        EXPECT_TRUE(Tool::ustr2str(units) == text);
        EXPECT_TRUE(Tool::str2ustr(text + "\xFF").isEmpty());
        EXPECT_TRUE(Tool::ustr2str(units + UnicodeString(char16_t(0xD800))).empty());
    }
}

// Encodings of one, two and three bytes, and one of several characters for one; made here, so that
// it does not matter what the machine has installed.
TEST(StringToolLocales, ConvertAsTheCLibraryDoes)
{
    const Scratch scratch;
    scratch.write("source", "LC_CTYPE\nupper <U0041>\nlower <U0061>\nEND LC_CTYPE\n");
    setenv("LOCPATH", scratch.path().c_str(), 1);
    for (const std::string encoding : {"ISO-8859-1", "EUC-JP", "BIG5-HKSCS"}) {
        const std::string command = "cd " + scratch.path() + " && localedef -c -i ./source -f ";
        // It finds much to warn of, which is not what it is asked for.
        EXPECT_NE(std::system((command + encoding + " ./" + encoding + " 2>&-").c_str()), -1);
        const locale_t made = newlocale(LC_CTYPE_MASK, encoding.c_str(), nullptr);
        ASSERT_TRUE(made) << encoding;
        const locale_t former = uselocale(made);
        std::string narrow;
        char bytes[MB_LEN_MAX];
        for (wchar_t unit = 1; unit < 0x30000; ++unit) {
            std::mbstate_t state{};
            const std::size_t size = std::wcrtomb(bytes, unit, &state);
            if (size != std::size_t(-1) && std::mbsinit(&state) != 0)
                narrow.append(bytes, size);
        }
        narrow += encoding[0] == 'B' ? "\x88\x62" : "";
        std::wstring all(2 * narrow.size(), L'\0');
        all.resize(std::mbstowcs(all.data(), narrow.c_str(), all.size()));
        EXPECT_GT(all.size(), 190U);
        EXPECT_EQ(Tool::str2wstr(narrow), all);
        EXPECT_EQ(wide(Tool::str2tstr(narrow)), all);
        EXPECT_EQ(Tool::wstr2str(all), narrow);
        EXPECT_EQ(Tool::tstr2str(all.c_str()), narrow);
        EXPECT_EQ(Tool::wstr2str(all + L"\x1F600"), ""); // nothing of it
        if (encoding[0] != 'I') {
            narrow.pop_back(); // a cut character
            EXPECT_EQ(Tool::str2wstr(narrow), L"");
        }
        uselocale(former);
        freelocale(made);
    }
    unsetenv("LOCPATH");
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
