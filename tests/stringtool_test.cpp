// The text functions where the fuzzers do not reach, or have nothing to compare with.
#include "cmnasciirun.h"
#include "cmnstringtool.h"
#include "support/repeat.h"
#include "support/testlocale.h"

#include <gtest/gtest.h>

#include <climits>
#include <iomanip>
#include <sstream>
#include <tuple>

using namespace std::string_literals;
using namespace tarnix_cmn_4_4;
using Tool = CCmnStringTool;

TEST(StringTool, ConvertsAndCopiesUpToAZero)
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
    EXPECT_TRUE(Tool::str2wstr(L"a\0b"s) == L"a\0b"s && Tool::wstr2str("a\0b"s) == "a\0b"s);
    EXPECT_EQ(Tool::tstr2str("ab") + Tool::tstr2str(static_cast<const char*>(nullptr)), "ab");

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
    wchar_t** list = Tool::tstrduplist({tstr(), tstr(L"b\0c", 3)});
    EXPECT_EQ(list[0] + std::wstring(L"|") + list[1], L"|b");
    EXPECT_EQ(list[2], nullptr);
    Tool::tstrfreelist(list);
    Tool::tstrfreelist(list); // it is null now
}

TEST(StringTool, ConvertsLongTextsWithoutSplittingCharacters)
{
    for (const std::string start : {"", "a"}) { // a block ends within a character, or within a pair
        const std::string text = start + repeated("\U0001F600", 5 << 20);
        const icu::UnicodeString units = Tool::str2ustr(text);
        EXPECT_TRUE(Tool::ustr2str(units) == text);
        EXPECT_TRUE(Tool::str2ustr(text + "\xFF").isEmpty());
        EXPECT_TRUE(Tool::ustr2str(units + icu::UnicodeString(char16_t(0xD800))).empty());
    }
}

// A run that ends at each place, in texts that are not aligned. What follows it is not written.
template <class From, class To>
static void copiesRunsBefore(const std::basic_string<From>& others)
{
    for (std::size_t length = 0; length < 600; length += length < 40 ? 1 : 73)
        for (std::size_t end = 0; end <= length; ++end)
            for (const From other : others) {
                std::basic_string<From> text(length + 2, From('a'));
                text[end + 1] = other;
                std::basic_string<To> copy(length + 1, To('#')), expected = copy;
                const std::size_t run = copyAsciiRun(text.data() + 1, length, copy.data() + 1);
                ASSERT_TRUE(run <= end && end - run < 16) << run << " of " << end;
                ASSERT_TRUE(copy == expected.replace(1, run, run, To('a'))) << run << " of " << end;
            }
}

TEST(StringTool, CopiesAsciiUpToAnotherCharacter)
{
    copiesRunsBefore<char, char16_t>("\0\x80\xFF"s);
    copiesRunsBefore<char16_t, char>(u"\0\u0080\u0100\u0161\x8061\uFFFF"s);
    copiesRunsBefore<char, wchar_t>("\0\x80\xFF"s);
    copiesRunsBefore<wchar_t, char>({0, 0x80, 0x161, 0x10000, 0x10061, -1, WCHAR_MIN});
}

// Encodings with one to three bytes per character, one in which one character becomes two, and one
// in which the codes of ASCII are those of other characters. The test compiles the locales: it does
// not depend on those that the machine has.
TEST(StringTool, ConvertsAsTheLocaleDoes)
{
    MadeLocales locales;
    const std::tuple<std::string, std::string, std::wstring> cases[] = {
        {"ISO-8859-1", "a\xE4", L"a\u00E4"},
        {"EUC-JP", "a\xA4\xA2\x8F\xB0\xA1", L"a\u3042\u4E02"},
        {"EBCDIC-US", "a\x81", L"/a"},
        {"BIG5-HKSCS", "\xA4\xA4\x88\x62", L"\u4E2D\u00CA\u0304"}};
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
        EXPECT_EQ(Tool::str2wstr(narrow).size(), MB_CUR_MAX == 1 ? narrow.size() : 0);
    }
}

TEST(StringTool, PrintsAndReadsNumbersAndHex)
{
    EXPECT_EQ(Tool::int2str(INT_MIN) + Tool::uint2str(UINT_MAX), "-21474836484294967295");
    EXPECT_EQ(Tool::int2wstr(INT_MIN) + Tool::uint2wstr(UINT_MAX), L"-21474836484294967295");
    EXPECT_EQ(Tool::int2str(INT64_MIN) + Tool::uint2str(UINT64_MAX),
              "-922337203685477580818446744073709551615");
    EXPECT_EQ(Tool::int2str(-1LL) + Tool::uint2str(2ULL) + Tool::int2str(-3L), "-12-3");
    EXPECT_EQ(Tool::int2wstr(-1LL) + Tool::uint2wstr(2ULL), L"-12");
    EXPECT_EQ(Tool::double2str(-12345678.0) + Tool::double2str(0.1), "-1.23457e+070.1");

    int number = 0;
    unsigned int natural = 0;
    std::uint64_t large = 0;
    double real = 0;
    EXPECT_TRUE(Tool::str2int(" \t-012abc", number) == 0 && number == -12);
    EXPECT_TRUE(Tool::str2int("", number) == -1 && number == -12);
    EXPECT_TRUE(Tool::str2uint("-1", natural) == 0 && natural == UINT_MAX);
    EXPECT_TRUE(Tool::str2uint64("18446744073709551615x", large) == 0 && large == UINT64_MAX);
    EXPECT_TRUE(Tool::str2double("-2.5e3x", real) == 0 && real == -2500);

    unsigned char bytes[13] = {'a', 'b', 0xE4};
    int size = 1, negative = -1;
    EXPECT_EQ(Tool::str2binary(bytes, &size, "00ab") + Tool::str2binary(bytes, nullptr, "ab"), -2);
    EXPECT_EQ(Tool::str2binary(nullptr, &size, "ab") + Tool::str2binary(bytes, &negative, ""), -2);
    EXPECT_EQ(Tool::binary2str(bytes, 3) + Tool::binary2str(bytes, INT_MIN), "6162e4");
    EXPECT_EQ(Tool::binary2wstr(nullptr, 1) + Tool::binary2uid(1, bytes, 2), L"00016162");
    EXPECT_EQ(Tool::str2uid(0x12345, "") + Tool::wstr2uid(0xFFFF, L"ab"), "12345ffff6162");
    EXPECT_EQ(Tool::str2uid(1, "\xE4\0\x7F\x80"s), "0001ffffffe4007fffffff80");
    size = 13;
    EXPECT_EQ(Tool::str2binary(bytes, &size, "aAfF09 5-1+70x1/1:1@1G1`1gf"), 0);
    EXPECT_EQ(Tool::binary2str(bytes, size), "aaff0905ff0700010101010101");
}

// How a reader ended on a text: the number, or the kind of failure with the position.
template <class Number, class Read>
static std::string readBy(const std::string& text, Read read)
{
    const Number before = 77;
    Number number = before;
    const Tool::ReadResult result = read(std::string_view(text), number);
    EXPECT_EQ(number == before, !result || text == "77") << text;
    EXPECT_TRUE(result.position == 0 || result.failure == Tool::ReadFailure::badCharacter) << text;
    const char* const kinds[] = {"", "empty", "bad ", "range"};
    const std::string kind = kinds[static_cast<int>(result.failure)];
    std::ostringstream printed;
    printed << std::setprecision(17) << number;
    return result ? printed.str() : kind + (kind == "bad " ? std::to_string(result.position) : "");
}

TEST(StringTool, ReadsDecimalNumbersStrictly)
{
    const struct {
        const char *text, *asInt, *asUnsigned, *asInt64, *asUint64, *asDouble;
    } cases[] = {
        {"", "empty", "empty", "empty", "empty", "empty"},
        {"0012", "12", "12", "12", "12", "12"},
        {"-1", "-1", "bad 0", "-1", "bad 0", "-1"},
        {"-", "bad 1", "bad 0", "bad 1", "bad 0", "bad 1"},
        {"+1", "bad 0", "bad 0", "bad 0", "bad 0", "bad 0"},
        {"2147483648", "range", "2147483648", "2147483648", "2147483648", "2147483648"},
        {"-2147483649", "range", "bad 0", "-2147483649", "bad 0", "-2147483649"},
        {"-9223372036854775808", "range", "bad 0", "-9223372036854775808", "bad 0",
         "-9.2233720368547758e+18"},
        {"18446744073709551616", "range", "range", "range", "range", "1.8446744073709552e+19"},
        {"99999999999999999999x", "bad 20", "bad 20", "bad 20", "bad 20", "bad 20"},
        {"0000000000000000000000012", "12", "12", "12", "12", "12"},
        {"1.", "bad 1", "bad 1", "bad 1", "bad 1", "1"},
        {"1e-2", "bad 1", "bad 1", "bad 1", "bad 1", "0.01"},
        {"1e", "bad 1", "bad 1", "bad 1", "bad 1", "bad 1"},
        {"-inf", "bad 1", "bad 0", "bad 1", "bad 0", "bad 1"},
        {"1e309", "bad 1", "bad 1", "bad 1", "bad 1", "range"},
        {"1e-400", "bad 1", "bad 1", "bad 1", "bad 1", "range"},
        {"0x1F", "bad 1", "bad 1", "bad 1", "bad 1", "bad 1"}};
    const auto read = [](auto text, auto& number) { return Tool::readNumber(text, number); };
    for (const auto& c : cases) {
        EXPECT_EQ(readBy<int>(c.text, read), c.asInt) << c.text;
        EXPECT_EQ(readBy<unsigned int>(c.text, read), c.asUnsigned) << c.text;
        EXPECT_EQ(readBy<long long>(c.text, read), c.asInt64) << c.text;
        EXPECT_EQ(readBy<unsigned long>(c.text, read), c.asUint64) << c.text;
        EXPECT_EQ(readBy<double>(c.text, read), c.asDouble) << c.text;
    }
}

TEST(StringTool, ReadsHexNumbersStrictly)
{
    const struct {
        const char *text, *asInt, *asUnsigned, *asInt64, *asUint64;
    } cases[] = {{"", "empty", "empty", "empty", "empty"},
                 {"0X1f", "31", "31", "31", "31"},
                 {"-0x1F", "-31", "bad 0", "-31", "bad 0"},
                 {"0x", "bad 2", "bad 2", "bad 2", "bad 2"},
                 {"ffffffff", "range", "4294967295", "4294967295", "4294967295"},
                 {"-80000000", "-2147483648", "bad 0", "-2147483648", "bad 0"},
                 {"-80000001", "range", "bad 0", "-2147483649", "bad 0"},
                 {"ffffffffffffffff", "range", "range", "range", "18446744073709551615"},
                 {"-8000000000000000", "range", "bad 0", "-9223372036854775808", "bad 0"},
                 {"10000000000000000", "range", "range", "range", "range"}};
    const auto read = [](auto text, auto& number) { return Tool::readHex(text, number); };
    for (const auto& c : cases) {
        EXPECT_EQ(readBy<int>(c.text, read), c.asInt) << c.text;
        EXPECT_EQ(readBy<unsigned int>(c.text, read), c.asUnsigned) << c.text;
        EXPECT_EQ(readBy<long>(c.text, read), c.asInt64) << c.text;
        EXPECT_EQ(readBy<unsigned long long>(c.text, read), c.asUint64) << c.text;
    }
}

TEST(StringTool, ReplacesWhatIsNotUtf8)
{
    const struct {
        std::string bytes;
        std::wstring wide;
        std::size_t bad; // where the first part is that is not UTF-8
    } cases[] = {{"a\0\xC2\x80"s, L"a\0\x80"s, std::string::npos},
                 {"\xF4\x8F\xBF\xBF", L"\U0010FFFF", std::string::npos},
                 {"\xC0\xAF\xE0\x80\xBF", L"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD", 0}, // overlong
                 {"a\xED\xA0\x80", L"a\uFFFD\uFFFD\uFFFD", 1},                   // a surrogate
                 {"\xF4\x91\x92\x93\xFF\x41", L"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFDA", 0},
                 {"\xE1\x80\xE2\xF0\x91\x92\xF1\xBF\x41", L"\uFFFD\uFFFD\uFFFD\uFFFDA", 0},
                 {"\xC3\xA9\xE2\x82", L"\u00E9\uFFFD", 2}}; // cut at the end
    for (const auto& c : cases) {
        const std::string start(40, 'a');
        EXPECT_TRUE(Tool::decodeUtf8(c.bytes) == c.wide) << c.bytes;
        EXPECT_EQ(Tool::findInvalidUtf8(c.bytes), c.bad) << c.bytes;
        EXPECT_TRUE(Tool::decodeUtf8(start + c.bytes) == std::wstring(40, L'a') + c.wide)
            << c.bytes;
    }
    EXPECT_EQ(Tool::encodeUtf8(std::wstring{L'a', 0, 0xD800, 0xDC00, 0x110000, -1, 0x10FFFF}),
              "a\0\uFFFD\uFFFD\uFFFD\uFFFD\U0010FFFF"s);
}

TEST(StringTool, TokensLinesAndCase)
{
    EXPECT_TRUE(Tool::isIpAddress("999.0.0.00001") && Tool::isIpAddress(".1..2.3.4."));
    for (const char* other : {"", "1.2.3", "1.2.3.4.5", "1.2.3.-4", "1.2.3.\xB2"})
        EXPECT_FALSE(Tool::isIpAddress(other)) << other;
    EXPECT_TRUE(Tool::isDigit("") && !Tool::isDigit("12\0"s));

    // Returns the offset and the line.
    const auto find = [](const char* pattern, std::size_t at, bool trim) {
        const auto offset =
            static_cast<long>(Tool::find({"one x ", "two", "x \r\n", "x y \t"}, pattern, at, trim));
        return std::to_string(offset) + " " + std::to_string(at) + "|";
    };
    EXPECT_EQ(find("x", 1, false) + find(" x ", 0, false), "0 2|3 0|");
    EXPECT_EQ(find("x ", 0, true) + find("y \t", 0, true), "0 3|-1 4|");
    EXPECT_EQ(find("", 1, true) + find("x", 9, true) + find(nullptr, 0, true), "0 1|-1 9|-1 4|");

    EXPECT_TRUE(Tool::CompareNoCase(L"H-1\0B"s, L"h-1\0b"s) && !Tool::CompareNoCase(L"@[", L"`{"));
    EXPECT_FALSE(Tool::CompareNoCase("@[ab", "`{ab") || Tool::CompareNoCase("@[ab", "@[abc"));
    {
        const TestLocale utf8("C.UTF-8");
        ASSERT_TRUE(utf8.isKnown());
        EXPECT_TRUE(Tool::CompareNoCase(L"\u00C4\u0429", L"\u00E4\u0449"));
        EXPECT_FALSE(Tool::CompareNoCase(L"\u00D7", L"\u00F7")); // not letters
    }
    EXPECT_EQ(Tool::tostrlower("Z[\0\xC4"s), "z[\0\xC4"s);
    EXPECT_EQ(Tool::tostrupper(L"aZ[{\0z"s) + Tool::tostrlower(L"aZ[\0Z"s), L"AZ[{\0Zaz[\0z"s);
}

TEST(StringTool, TrimsReplacesAndEscapes)
{
    EXPECT_EQ(Tool::ltrim("xaxbx", "xa") + Tool::rtrim("xaxbx", "xa"), "bxxaxb");
    EXPECT_EQ(Tool::ltrim(" a\0b "s, " ") + Tool::rtrim(" a\0b "s, " "), "a a\0b"s);
    EXPECT_EQ(Tool::trim("xbax", "xa") + Tool::trim(" a ", "") + Tool::ltrim(" \0b"s, " "), "b a ");
    EXPECT_EQ(Tool::trim(" a\0b "s, nullptr), " a\0b "s);

    EXPECT_EQ(Tool::searchreplace("a\0b\0b"s, "\0b"s, "c"), "acc"); // others: see the fuzzer
    EXPECT_EQ(Tool::convertToXmlSpecialCharacters("&<>\"'\0<"s), "&amp;&lt;&gt;&quot;&#39;");
    EXPECT_EQ(Tool::convertFromXmlSpecialCharacters("&#39&&a&l\0&lt;"s), "&#39&&a&l");
    EXPECT_EQ(Tool::xmlBracketValue("a&", "x<y"), "\t<a&>x&lt;y</a&>\n");
}
