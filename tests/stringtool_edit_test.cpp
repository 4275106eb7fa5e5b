// Text editing and XML escaping.
#include "cmnstringtool.h"

#include <gtest/gtest.h>
#include <random>

using namespace std::string_literals;
using Tool = tarnix_cmn_4_4::CCmnStringTool;
using Texts = std::vector<std::string>;

namespace
{

// One plain pass of find and append, cut as terminated text.
std::string replaceAll(std::string text, const std::string& search, const std::string& replacement)
{
    for (std::size_t at = text.find(search); at != std::string::npos;
         at = text.find(search, at + replacement.size()))
        text.replace(at, search.size(), replacement);
    return text.c_str();
}

// Few parts in many orders, so that matches touch, overlap and stand at the ends.
std::string compose(std::mt19937& engine, const Texts& parts, unsigned maxParts)
{
    std::string result;
    for (auto count = engine() % (maxParts + 1); count > 0; --count)
        result += parts[engine() % parts.size()];
    return result;
}

TEST(StringToolEdit, TrimsTheSetFromTheEnds)
{
    const auto trim = [](const std::string& text, const char* set) {
        return Tool::ltrim(text, set) + "|" + Tool::rtrim(text, set) + "|" + Tool::trim(text, set);
    };
    EXPECT_EQ(trim("  ab c ", " "), "ab c |  ab c|ab c");
    EXPECT_EQ(trim(" \t ", " \t") + trim("\xE9", "\xE9"), "||||");
    EXPECT_EQ(trim("xaxbx", "xa") + trim(" a ", ""), "bx|xaxb|b a | a | a ");
    EXPECT_EQ(trim(" a\0b "s, " ") + trim(" \0b"s, " "), "a| a\0b|a| \0b|"s);
    EXPECT_EQ(Tool::trim(" a\0b "s, nullptr), " a\0b "s);
}

TEST(StringToolEdit, TokensAndCase)
{
    EXPECT_EQ(Tool::tokenize(",,a,,b\0c;,"s, ",;"), Texts({"a", "b"}));
    EXPECT_TRUE(Tool::tokenize("a b", "") == Texts({"a b"}) && Tool::tokenize(",,", ",").empty());
    for (const char* address : {"1.2.3.4", "999.0.0.00001", "1..2.3.4", ".1.2.3.4."})
        EXPECT_TRUE(Tool::isIpAddress(address)) << address;
    for (const char* other : {"", "1.2.3", "1.2.3.4.5", "1.2.3.a", "1.2.3.-4", "1.2.3.\xB2"})
        EXPECT_FALSE(Tool::isIpAddress(other)) << other;
    EXPECT_TRUE(Tool::isDigit("") && !Tool::isDigit("12\0"s));

    EXPECT_TRUE(Tool::CompareNoCase("Host-1\0B"s, "hOST-1\0b"s));
    EXPECT_TRUE(Tool::CompareNoCase(L"H-1\0B"s, L"h-1\0b"s) && !Tool::CompareNoCase(L"@[", L"`{"));
    for (const char* other : {"`{ab", "@[a", "@[abc", "@[ac"})
        EXPECT_FALSE(Tool::CompareNoCase("@[ab", other)) << other;
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

// XML is escaped as five passes do.
TEST(StringToolEdit, ReplacesInOneScanFromTheLeft)
{
    const std::vector<Texts> passes = {
        {"&", "&amp;"}, {"<", "&lt;"}, {">", "&gt;"}, {"\"", "&quot;"}, {"'", "&#39;"}};
    const Texts parts = {"&",   "<",    ">", "\"",    "'",     "amp;", "lt;",
                         "gt;", "#39;", "a", "quot;", "&amp;", "\xFF", "&#39;"};
    const Texts few = {"a", "b", "ab", "\0"s, "\xFF"};
    std::mt19937 engine(20240229);
    for (int i = 0; i < 20000; ++i) {
        const std::string line = compose(engine, few, 12), with = compose(engine, few, 2);
        const std::string search = compose(engine, few, 2) + (i % 2 ? "a" : "\0"s);
        ASSERT_EQ(Tool::searchreplace(line, search, with), replaceAll(line, search, with));
        const std::string text = compose(engine, parts, 12), cut = text + "\0&lt;<"s;
        std::string escaped = text, unescaped = text;
        for (std::size_t pass = 0; pass < 5; ++pass) {
            escaped = replaceAll(escaped, passes[pass][0], passes[pass][1]);
            unescaped = replaceAll(unescaped, passes[4 - pass][1], passes[4 - pass][0]);
        }
        ASSERT_EQ(Tool::convertToXmlSpecialCharacters(cut), escaped);
        ASSERT_EQ(Tool::convertFromXmlSpecialCharacters(cut), unescaped) << text;
    }
    EXPECT_EQ(Tool::searchreplace("a\0b"s, "", "x"), "a\0b"s);
    EXPECT_EQ(Tool::xmlBracket("a&", true, false) + Tool::xmlBracket("b", false, true),
              "<a&></b>\n");
    EXPECT_EQ(Tool::xmlBracketValue("a", "x<y"), "\t<a>x&lt;y</a>\n");
}

} // namespace
