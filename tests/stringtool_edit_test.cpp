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
    // text, set, without the set on the left, the right, both sides
    const std::vector<Texts> cases = {{"  ab c ", " ", "ab c ", "  ab c", "ab c"},
                                      {" \t ", " \t", "", "", ""},
                                      {"xaxbx", "xa", "bx", "xaxb", "b"},
                                      {" ab ", "", " ab ", " ab ", " ab "},
                                      {" a\0b "s, " ", "a", " a\0b"s, "a"},
                                      {" \0b"s, " ", "", " \0b"s, ""},
                                      {"\xE9", "\xE9", "", "", ""}};
    for (const Texts& c : cases) {
        EXPECT_EQ(Tool::ltrim(c[0], c[1].c_str()), c[2]);
        EXPECT_EQ(Tool::rtrim(c[0], c[1].c_str()), c[3]);
        EXPECT_EQ(Tool::trim(c[0], c[1].c_str()), c[4]);
    }
    EXPECT_EQ(Tool::trim(" a\0b "s, nullptr), " a\0b "s);
}

TEST(StringToolEdit, ReplacesInOneScanFromTheLeft)
{
    EXPECT_EQ(Tool::searchreplace("aXbXc", "X", "--"), "a--b--c");
    EXPECT_EQ(Tool::searchreplace("aaa", "a", "aa"), "aaaaaa");
    EXPECT_EQ(Tool::searchreplace("a\0b"s, "", "x"), "a\0b"s);

    std::mt19937 engine(20240229);
    const Texts parts = {"a", "b", "ab", "\0"s, "\xFF"};
    for (int i = 0; i < 20000; ++i) {
        const std::string text = compose(engine, parts, 12);
        const std::string search = compose(engine, parts, 2) + (i % 2 ? "a" : "\0"s);
        const std::string with = compose(engine, parts, 2);
        ASSERT_EQ(Tool::searchreplace(text, search, with), replaceAll(text, search, with));
    }
}

TEST(StringToolEdit, TokensAreNeverEmptyAndMakeAddresses)
{
    EXPECT_EQ(Tool::tokenize(",,a,,b,;,", ",;"), Texts({"a", "b"}));
    EXPECT_EQ(Tool::tokenize("a,b\0,c"s, ","), Texts({"a", "b"}));
    EXPECT_EQ(Tool::tokenize("a b", ""), Texts({"a b"}));
    EXPECT_EQ(Tool::tokenize("", ","), Texts());
    EXPECT_EQ(Tool::tokenize(",,", ","), Texts());

    for (const char* address : {"1.2.3.4", "999.0.0.00001", "1..2.3.4", ".1.2.3.4."})
        EXPECT_TRUE(Tool::isIpAddress(address)) << address;
    for (const char* other : {"", "1.2.3", "1.2.3.4.5", "1.2.3.a", "1.2.3.-4", "1.2.3.\xB2"})
        EXPECT_FALSE(Tool::isIpAddress(other)) << other;
    EXPECT_TRUE(Tool::isDigit(""));
    EXPECT_FALSE(Tool::isDigit("12\0"s));
}

TEST(StringToolEdit, CaseIsFoldedForLettersOnly)
{
    EXPECT_TRUE(Tool::CompareNoCase("Host-1\0B"s, "hOST-1\0b"s));
    EXPECT_TRUE(Tool::CompareNoCase(L"Host-1\0B"s, L"hOST-1\0b"s));
    EXPECT_TRUE(Tool::CompareNoCase("", ""));
    for (const char* other : {"`{ab", "@[a", "@[abc", "@[ac"})
        EXPECT_FALSE(Tool::CompareNoCase("@[ab", other)) << other;
    EXPECT_FALSE(Tool::CompareNoCase(L"@[ab", L"`{ab"));
    EXPECT_EQ(Tool::tostrupper("aZ[{\0z\xE4"s), "AZ[{\0Z\xE4"s);
    EXPECT_EQ(Tool::tostrlower("aZ[{\0Z\xC4"s), "az[{\0z\xC4"s);
    EXPECT_EQ(Tool::tostrupper(L"aZ[{\0z"s), L"AZ[{\0Z"s);
    EXPECT_EQ(Tool::tostrlower(L"aZ[{\0Z"s), L"az[{\0z"s);
}

TEST(StringToolEdit, FindStartsAtTheGivenLine)
{
    const Texts lines = {"one x ", "two", "x \r\n", "x y \t"};
    constexpr std::size_t npos = std::string::npos;
    using Place = std::pair<std::size_t, std::size_t>; // offset, line
    const auto find = [&](const char* pattern, std::size_t index, bool trim) {
        const std::size_t offset = Tool::find(lines, pattern, index, trim);
        return Place(offset, index);
    };
    EXPECT_EQ(find("x", 1, false), Place(0, 2));
    EXPECT_EQ(find("x ", 0, false), Place(4, 0));
    EXPECT_EQ(find("x ", 0, true), Place(0, 3));
    EXPECT_EQ(find("y \t", 0, true), Place(npos, 4));
    EXPECT_EQ(find("", 1, true), Place(0, 1));
    EXPECT_EQ(find("x", 9, true), Place(npos, 9));
    EXPECT_EQ(find(nullptr, 0, true), Place(npos, 4));
}

TEST(StringToolXml, EscapesAsFivePassesDo)
{
    const std::vector<Texts> passes = {
        {"&", "&amp;"}, {"<", "&lt;"}, {">", "&gt;"}, {"\"", "&quot;"}, {"'", "&#39;"}};
    const Texts parts = {"&", "<",   ">", "\"",    "'",     "amp;", "lt;",  "gt;",
                         "#", "39;", "a", "quot;", "&amp;", "\xFF", "&#39;"};
    std::mt19937 engine(20240229);
    for (int i = 0; i < 20000; ++i) {
        const std::string text = compose(engine, parts, 12);
        std::string escaped = text, unescaped = text;
        for (const Texts& pass : passes)
            escaped = replaceAll(escaped, pass[0], pass[1]);
        for (auto pass = passes.rbegin(); pass != passes.rend(); ++pass)
            unescaped = replaceAll(unescaped, (*pass)[1], (*pass)[0]);
        const std::string cut = text + "\0&lt;<"s;
        ASSERT_EQ(Tool::convertToXmlSpecialCharacters(cut), escaped);
        ASSERT_EQ(Tool::convertFromXmlSpecialCharacters(cut), unescaped) << text;
        ASSERT_EQ(Tool::convertFromXmlSpecialCharacters(escaped), text);
    }
    EXPECT_EQ(Tool::xmlBracket("a&", true, false) + Tool::xmlBracket("a", false, true),
              "<a&></a>\n");
    EXPECT_EQ(Tool::xmlBracketValue("a", "x<y"), "\t<a>x&lt;y</a>\n");
}

} // namespace
