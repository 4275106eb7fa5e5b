// Text editing and XML escaping.
#include "cmnstringtool.h"

#include <gtest/gtest.h>

#include <clocale>

using namespace std::string_literals;
using Tool = tarnix_cmn_4_4::CCmnStringTool;
using Texts = std::vector<std::string>;

namespace
{

TEST(StringToolEdit, TrimsTheSetFromTheEnds)
{
    const auto trim = [](const std::string& text, const char* set) {
        return Tool::ltrim(text, set) + "|" + Tool::rtrim(text, set) + "|" + Tool::trim(text, set);
    };
    EXPECT_EQ(trim("xaxbx", "xa") + trim(" a ", ""), "bx|xaxb|b a | a | a ");
    EXPECT_EQ(trim(" a\0b "s, " ") + trim(" \0b"s, " "), "a| a\0b|a| \0b|"s);
    EXPECT_EQ(Tool::trim(" a\0b "s, nullptr), " a\0b "s);
}

TEST(StringToolEdit, TokensAndCase)
{
    EXPECT_EQ(Tool::tokenize(",,a,,b\0c;,"s, ",;"), Texts({"a", "b"}));
    EXPECT_TRUE(Tool::isIpAddress("999.0.0.00001") && Tool::isIpAddress(".1..2.3.4."));
    for (const char* other : {"", "1.2.3", "1.2.3.4.5", "1.2.3.-4", "1.2.3.\xB2"})
        EXPECT_FALSE(Tool::isIpAddress(other)) << other;
    EXPECT_TRUE(Tool::isDigit("") && !Tool::isDigit("12\0"s));

    EXPECT_TRUE(Tool::CompareNoCase("Host-1\0B"s, "hOST-1\0b"s));
    EXPECT_TRUE(Tool::CompareNoCase(L"H-1\0B"s, L"h-1\0b"s) && !Tool::CompareNoCase(L"@[", L"`{"));
    for (const char* other : {"`{ab", "@[a", "@[abc", "@[ac"})
        EXPECT_FALSE(Tool::CompareNoCase("@[ab", other)) << other;
    ASSERT_NE(std::setlocale(LC_ALL, "C.UTF-8"), nullptr);
    EXPECT_TRUE(Tool::CompareNoCase(L"\u00C4\u0429", L"\u00E4\u0449"));
    EXPECT_FALSE(Tool::CompareNoCase(L"\u00D7", L"\u00F7")); // no letters
    std::setlocale(LC_ALL, "C");
    EXPECT_EQ(Tool::tostrupper("aZ[{\0z\xE4"s) + Tool::tostrlower("Z[\0\xC4"s),
              "AZ[{\0Z\xE4z[\0\xC4"s);
    EXPECT_EQ(Tool::tostrupper(L"aZ[{\0z"s) + Tool::tostrlower(L"aZ[\0Z"s), L"AZ[{\0Zaz[\0z"s);
}

TEST(StringToolEdit, FindStartsAtTheGivenLine)
{
    // The offset and the line.
    const Texts lines = {"one x ", "two", "x \r\n", "x y \t"};
    const auto find = [&](const char* pattern, std::size_t index, bool trim) {
        const auto offset = static_cast<long>(Tool::find(lines, pattern, index, trim));
        return std::to_string(offset) + " " + std::to_string(index);
    };
    EXPECT_EQ(find("x", 1, false) + find(" x ", 0, false), "0 23 0");
    EXPECT_EQ(find("x ", 0, true) + find("y \t", 0, true), "0 3-1 4");
    EXPECT_EQ(find("", 1, true) + find("x", 9, true) + find(nullptr, 0, true), "0 1-1 9-1 4");
}

TEST(StringToolEdit, ReplacesInOneScanFromTheLeft)
{
    const std::string cases[][4] = {{"aaaXaab", "aa", "bab", "babaXbabb"},
                                    {"aabaab", "ab", "", "aa"},
                                    {"ab", "abc", "x", "ab"},
                                    {"a\0a"s, "a", "b", "b"},
                                    {"a\0b\0b"s, "\0b"s, "c", "acc"},
                                    {"xayax", "a", "b\0c"s, "xb"},
                                    {"a\0b"s, "", "x", "a\0b"s}};
    for (const auto& [text, search, with, result] : cases)
        EXPECT_EQ(Tool::searchreplace(text, search, with), result) << text;
    EXPECT_EQ(Tool::convertToXmlSpecialCharacters("&<>\"'a\xFF\0<"s),
              "&amp;&lt;&gt;&quot;&#39;a\xFF");
    EXPECT_EQ(Tool::convertFromXmlSpecialCharacters("&amp;lt;&lt;&gt;&quot;&#39;&#39&&a&l\0&lt;"s),
              "&lt;<>\"'&#39&&a&l");
    EXPECT_EQ(Tool::xmlBracket("a&", true, false) + Tool::xmlBracket("b", false, true),
              "<a&></b>\n");
    EXPECT_EQ(Tool::xmlBracketValue("a", "x<y"), "\t<a>x&lt;y</a>\n");
}

} // namespace
