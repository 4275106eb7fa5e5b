// SPDX-License-Identifier: LicenseRef-Tarnix
// The text functions where the fuzzers do not reach, or have nothing to compare with.
#include "cmnasciirun.h"
#include "cmnstringtool.h"
#include "support/brief.h"
#include "support/repeat.h"
#include "support/testlocale.h"

#include <climits>

using namespace std::string_literals;
using namespace tarnix_cmn_4_4;
using Tool = CCmnStringTool;

TEST(StringTool, ConvertsUpToAZero)
{
    EXPECT_EQ(Tool::tstr2ustr(Tool::wstr2tstr({L'a', -1, 0x110000, 0x10FFFF})),
              icu::UnicodeString(u"a\uFFFD\uFFFD\U0010FFFF"));
    const tstr cut(L"ab\0c", 4), open(L"abc", 2, nullptr, false); // not terminated
    for (const tstr* text : {&cut, &open}) {
        EXPECT_EQ(Tool::tstr2ustr(*text), icu::UnicodeString(u"ab"));
        EXPECT_EQ(Tool::tstr2str(*text), "ab");
        EXPECT_EQ(Tool::tstr2wstr(*text), L"ab");
    }
    EXPECT_EQ(Tool::wstr2tstr(L"ab\0c"s).length(), 2u);
    EXPECT_EQ(Tool::str2wstr(L"a\0b"s), L"a\0b"s);
    EXPECT_EQ(Tool::wstr2str("a\0b"s), "a\0b"s);
    EXPECT_EQ(Tool::tstr2str("ab") + Tool::tstr2str(static_cast<const char*>(nullptr)), "ab");
}

TEST(StringTool, CopiesInRawMemory)
{
    static wchar_t units[] = L"####";
    const auto allocate = [](std::size_t size) -> void* { return size == 16 ? units : nullptr; };
    EXPECT_EQ(Tool::strdup("a\0b"s, allocate), nullptr);
    EXPECT_EQ(Tool::wstrdup(L"a\0b"s, allocate), units);
    EXPECT_EQ(std::wstring(units, 4), L"a\0b\0"s);
    EXPECT_EQ(Tool::tstrdup(tstr(L"abc\0d", 5), allocate), units);
    EXPECT_STREQ(units, L"abc");
    char* const bytes = Tool::strdup("a\0b"s, nullptr);
    EXPECT_EQ(std::string(bytes, 4), "a\0b\0"s);
    std::free(bytes);
    wchar_t** list = Tool::tstrduplist({tstr(), tstr(L"b\0c", 3), tstr()});
    EXPECT_EQ(std::wstring(list[0]) + L"," + list[1], L",b");
    EXPECT_EQ(list[3], nullptr);
    Tool::tstrfreelist(list);
    Tool::tstrfreelist(list); // it is null now
}

TEST(StringTool, ConvertsLongTextsWithoutSplittingCharacters)
{
    for (const std::size_t start : {0U, 59U}) { // blocks end within a character, or are one unit
        const std::string text =
            std::string(start, 'a') + repeated("\U0001F600", (1 << 24) / 3 - 30) + "aa";
        const icu::UnicodeString units = Tool::str2ustr(text);
        EXPECT_LT(units.getCapacity(), units.length() + 64); // no memory for the bytes
        EXPECT_TRUE(Tool::ustr2str(units) == text);
        EXPECT_TRUE(Tool::ustr2str(units + icu::UnicodeString(u"\0b", 2)) == text);
        EXPECT_TRUE(Tool::str2ustr(text + "\xFF").isEmpty());
        EXPECT_TRUE(Tool::ustr2str(units + icu::UnicodeString(char16_t(0xD800))).empty());
    }
}

// A run that ends at each place, or goes on after the text. What follows it is not written.
template <class From, class To>
static void copiesRunsBefore(const std::basic_string<From>& others)
{
    for (std::size_t length = 0; length < 600; length += length < 40 ? 1 : 73)
        for (std::size_t end = 0; end <= length + 256; end += end < length ? 1 : 64)
            for (const From other : others) {
                std::basic_string<From> text(601 + length + 257, From(1)); // 1 is next to the zero
                text[601 + end] = other;
                std::basic_string<To> copy(length + 1, To('#')), expected = copy;
                const std::size_t run = copyAsciiRun(text.data() + 601, length, copy.data() + 1);
                ASSERT_EQ((std::min(end, length) - run) / 16, 0U) << run << " of " << end;
                ASSERT_TRUE(copy == expected.replace(1, run, run, To(1))) << run << " of " << end;
            }
}

TEST(StringTool, CopiesAsciiUpToAnotherCharacter)
{
    copiesRunsBefore<char, char16_t>("\0\x80\xFF"s);
    copiesRunsBefore<char16_t, char>(u"\0\u0080\u0100\u0161\x8061\uFFFF"s);
    copiesRunsBefore<char, wchar_t>("\0\x80\xFF"s);
    copiesRunsBefore<wchar_t, char>({0, 0x80, 0x161, 0x10000, 0x10061, -1, WCHAR_MIN});
}

// Encodings with one to three bytes per character, two in which one character becomes two or three,
// and one in which the codes of ASCII are those of other characters. The test compiles the locales:
// it does not depend on those that the machine has.
TEST(StringTool, ConvertsAsTheLocaleDoes)
{
    MadeLocales locales;
    const struct {
        std::string encoding, narrow;
        std::wstring wide;
    } cases[] = {{"ISO-8859-1", "a\xE4", L"a\u00E4"},
                 {"EUC-JP", "a\xA4\xA2\x8F\xB0\xA1", L"a\u3042\u4E02"},
                 {"EBCDIC-US", "a\x81", L"/a"},
                 {"BIG5-HKSCS", "\xA4\xA4\x88\x62", L"\u4E2D\u00CA\u0304"},
                 {"TSCII", "a\x87", L"a\u0B95\u0BCD\u0BB7"}};
    for (auto [encoding, narrow, wide] : cases) {
        locales.make(encoding, encoding);
        const TestLocale locale(encoding, LC_CTYPE);
        ASSERT_TRUE(locale.isKnown()) << encoding;
        while (narrow.size() < 5000) {
            const std::string run(narrow.size(), 'a');
            const std::wstring wideRun(run.size(), encoding == "EBCDIC-US" ? L'/' : L'a');
            EXPECT_EQ(Tool::mbs2wcs(run + narrow), wideRun + wide);
            EXPECT_EQ(Tool::wcs2mbs(wideRun + wide), run + narrow);
            EXPECT_EQ(Tool::str2tstr(narrow).c_str(), wide);
            EXPECT_EQ(Tool::tstr2str(wide.c_str()), narrow);
            narrow += narrow;
            wide += wide;
        }
        narrow.pop_back(); // this cuts a character of more than one byte
        const std::size_t cutUnits = encoding == "TSCII" ? 3 : 1;
        EXPECT_EQ(Tool::str2wstr(narrow).size(), MB_CUR_MAX == 1 ? wide.size() - cutUnits : 0);
        if (encoding == "EUC-JP") { // no memory is kept for the bytes that became one unit
            EXPECT_LT(Tool::str2wstr(repeated("\x8F\xB0\xA1", 1000)).capacity(), 1500u);
        }
    }
}

TEST(StringTool, PrintsNumbers) // integers: see the fuzzer
{
    EXPECT_EQ(Tool::double2str(-12345678.0), "-1.23457e+07");
    EXPECT_EQ(Tool::bool2str(true) + Tool::bool2str(false), "truefalse");
}

template <class Number>
static void reads(int (*read)(const std::string&, Number&), const char* text, Number wanted)
{
    Number number = 77;
    EXPECT_EQ(read(text, number), *text == '\0' ? -1 : 0) << text;
    EXPECT_EQ(number, wanted) << text;
}

TEST(StringTool, ReadsNumbersAsTheCLibrary) // strictly: see the fuzzer
{
    reads<int>(Tool::str2int, " \t-012abc", -12);
    reads<int>(Tool::str2int, "", 77);
    reads<unsigned int>(Tool::str2uint, "-1", UINT_MAX);
    reads<std::uint64_t>(Tool::str2uint64, "18446744073709551614x", UINT64_MAX - 1);
    reads<double>(Tool::str2double, "-2.5e3x", -2500);
}

TEST(StringTool, WritesAndReadsHex) // and back: see the fuzzer
{
    unsigned char bytes[14] = {'a', 'b', 0xE4};
    EXPECT_EQ(Tool::binary2str(bytes, 3), "6162e4");
    EXPECT_EQ(Tool::binary2str(bytes, INT_MIN), "");
    EXPECT_EQ(Tool::binary2wstr(nullptr, 1), L"");
    EXPECT_EQ(Tool::binary2uid(1, bytes, 2), L"00016162");
    EXPECT_EQ(Tool::binary2uid(0xFFFFF, nullptr, 1), L"fffff");
    EXPECT_EQ(Tool::wstr2uid(0x12345, L"ab"), "123456162");
    EXPECT_EQ(Tool::str2uid(1, "\xE4\0\x7F\x80"s), "0001ffffffe4007fffffff80");

    int size = 1, negative = -1;
    EXPECT_EQ(Tool::str2binary(bytes, &size, "00ab"), -1);
    EXPECT_EQ(Tool::str2binary(bytes, nullptr, "ab"), -1);
    EXPECT_EQ(Tool::str2binary(nullptr, &size, "ab"), -1);
    EXPECT_EQ(Tool::str2binary(bytes, &negative, ""), -1);
    size = 13;
    EXPECT_EQ(Tool::str2binary(bytes, &size, "aAfF09 f-1+70x1/1:1@1G1`1gf"), 0);
    EXPECT_EQ(Tool::binary2str(bytes, size + 1), "aaff090fff070001010101010100");
}

TEST(StringTool, KnowsAddressesAndDigits)
{
    for (const char* address : {"999.0.0.00001", ".1..2.3.4."})
        EXPECT_TRUE(Tool::isIpAddress(address)) << address;
    for (const char* other : {"", "1.2.3", "1.2.3.4.5", "1.2.3.-4", "1.2.3.\xB2"})
        EXPECT_FALSE(Tool::isIpAddress(other)) << other;
    EXPECT_TRUE(Tool::isDigit(""));
    EXPECT_FALSE(Tool::isDigit("12\0"s));
}

TEST(StringTool, FindsALine)
{
    using Place = std::pair<std::size_t, std::size_t>; // the offset, and the line
    const auto find = [](const char* pattern, std::size_t line, bool trims) {
        const auto offset = Tool::find({"one x ", "two", "x \r\n", "x y \t"}, pattern, line, trims);
        return Place(offset, line);
    };
    constexpr std::size_t none = std::string::npos;
    EXPECT_EQ(find("x", 1, false), Place(0, 2));
    EXPECT_EQ(find(" x ", 0, false), Place(3, 0));
    EXPECT_EQ(find("x ", 0, true), Place(0, 3));
    EXPECT_EQ(find("y \t", 0, true), Place(none, 4));
    EXPECT_EQ(find("", 1, true), Place(0, 1));
    EXPECT_EQ(find("x", 9, true), Place(none, 9));
    EXPECT_EQ(find(nullptr, 0, true), Place(none, 4));
}

TEST(StringTool, IgnoresAndConvertsCase)
{
    EXPECT_TRUE(Tool::CompareNoCase(L"H-1\0B"s, L"h-1\0b"s));
    EXPECT_FALSE(Tool::CompareNoCase(L"@[", L"`{"));
    EXPECT_FALSE(Tool::CompareNoCase("@[ab", "@[ac"));
    EXPECT_FALSE(Tool::CompareNoCase("@[ab", "@[abc"));
    EXPECT_EQ(Tool::tostrlower("Z[\0\xC4"s), "z[\0\xC4"s);
    EXPECT_EQ(Tool::tostrupper(L"aZ[{\0z"s), L"AZ[{\0Z"s);
    EXPECT_EQ(Tool::tostrlower(L"aZ[\0Z"s), L"az[\0z"s);
    const TestLocale utf8("C.UTF-8");
    ASSERT_TRUE(utf8.isKnown());
    EXPECT_TRUE(Tool::CompareNoCase(L"\u00C4\u0429", L"\u00E4\u0449"));
    EXPECT_FALSE(Tool::CompareNoCase(L"\u00D7", L"\u00F7")); // not letters
}

TEST(StringTool, TrimsReplacesAndEscapes) // texts without a zero: see the fuzzer
{
    EXPECT_EQ(Tool::ltrim(" a\0b "s, " ") + Tool::ltrim(" \0b"s, " "), "a");
    EXPECT_EQ(Tool::rtrim(" a\0b "s, " "), " a\0b"s);
    EXPECT_EQ(Tool::trim(" a\0b "s, nullptr), " a\0b "s);
    EXPECT_EQ(Tool::searchreplace("a\0b\0b"s, "\0b"s, "c"), "acc");
    EXPECT_EQ(Tool::convertToXmlSpecialCharacters("&<>\"'\0<"s), "&amp;&lt;&gt;&quot;&#39;");
    EXPECT_EQ(Tool::convertFromXmlSpecialCharacters("&#39&&a&l\0&lt;"s), "&#39&&a&l");
    EXPECT_EQ(Tool::xmlBracketValue("a&", "x<y"), "\t<a&>x&lt;y</a&>\n");
}
