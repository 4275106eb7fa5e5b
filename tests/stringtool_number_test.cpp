// Numbers, bytes and uids as text, and back.
#include "cmnstringtool.h"

#include <climits>
#include <cstdlib>
#include <gtest/gtest.h>

using namespace std::string_literals;
using Tool = tarnix_cmn_4_4::CCmnStringTool;

namespace
{

TEST(StringToolNumber, PrintsAsTheStandardPrinters)
{
    for (const std::uint64_t bits :
         {std::uint64_t{0}, UINT64_MAX, std::uint64_t{INT64_MAX}, std::uint64_t{1} << 63,
          std::uint64_t{INT32_MAX}, std::uint64_t{1} << 31}) {
        const int small = static_cast<int>(bits);
        const auto natural = static_cast<unsigned int>(bits);
        const auto large = static_cast<std::int64_t>(bits);
        const std::string all = std::to_string(small) + std::to_string(natural) +
                                std::to_string(large) + std::to_string(bits);
        EXPECT_EQ(Tool::int2str(small) + Tool::uint2str(natural) + Tool::int2str(large) +
                      Tool::uint2str(bits),
                  all);
        EXPECT_EQ(Tool::int2wstr(small) + Tool::uint2wstr(natural) + Tool::int2wstr(large) +
                      Tool::uint2wstr(bits),
                  std::wstring(all.begin(), all.end()));
    }
    EXPECT_EQ(Tool::double2str(-12345678.0) + Tool::double2str(0.1), "-1.23457e+070.1");
    EXPECT_EQ(Tool::bool2str(true) + Tool::bool2str(false), "truefalse");
}

// An empty text fails and leaves the number.
template <class Number>
void checkReader(int (*read)(const std::string&, Number&))
{
    for (const auto& [text, expected] :
         {std::pair("abc", 0), std::pair("12abc", 12), std::pair(" \t+010", 10),
          std::pair("-1", -1), std::pair("2147483647", 2147483647), std::pair("", 7)}) {
        Number number = 7;
        EXPECT_EQ(read(text, number), *text == '\0' ? -1 : 0);
        EXPECT_EQ(number, static_cast<Number>(expected)) << text;
    }
}

TEST(StringToolNumber, ReadsWhatTheReadersRead)
{
    checkReader<int>(Tool::str2int);
    checkReader<unsigned>(Tool::str2uint);
    checkReader<std::uint64_t>(Tool::str2uint64);
    checkReader<double>(Tool::str2double);
    std::uint64_t most = 0;
    EXPECT_TRUE(Tool::str2uint64("18446744073709551615", most) == 0 && most == UINT64_MAX);
    EXPECT_TRUE(Tool::str2double("-2.5e3x") == -2500 && Tool::str2double("") == 0);
    EXPECT_TRUE(Tool::str2int("") == 0 && Tool::str2uint("") == 0);
}

TEST(StringToolHex, AgreesWithTheCLibraryAndStoresWhatFits)
{
    for (unsigned int i = 0; i < 0x10000; ++i) {
        const std::string pair = {static_cast<char>(i), static_cast<char>(i >> 8)};
        unsigned char byte = 0;
        int size = 1;
        ASSERT_EQ(Tool::str2binary(&byte, &size, pair), 0);
        ASSERT_EQ(byte, std::strtol(pair.c_str(), nullptr, 16) & 0xFF) << i;
        ASSERT_EQ(std::stoi(Tool::binary2str(&byte, 1), nullptr, 16), byte);
    }

    // The status, the size afterwards and the bytes.
    const auto store = [](const std::string& text, int size) {
        unsigned char out[] = "....";
        const std::string status = std::to_string(Tool::str2binary(out, &size, text));
        return status + " " + std::to_string(size) + " " + std::string(out, out + 4);
    };
    EXPECT_EQ(store("00ab", 2) + store("00ab", 1), "0 2 \x00\xAB..-1 1 ...."s);
    EXPECT_EQ(store("abc", 1) + store("a", 4), "0 1 \xAB...0 0 ....");
    EXPECT_EQ(store("", -1) + store("1\0zz"s, 4), "-1 -1 ....0 2 \x01\x00.."s);
    unsigned char bytes[] = {'a', 'b', 0xE4};
    int size = 1;
    EXPECT_EQ(Tool::binary2wstr(bytes, 3) + Tool::binary2wstr(bytes, -1), L"6162e4");
    EXPECT_EQ(Tool::binary2str(bytes, 2) + Tool::binary2str(bytes, INT_MIN), "6162");
    EXPECT_EQ(Tool::binary2uid(1, bytes, 2), L"00016162");
    EXPECT_EQ(Tool::binary2uid(0xABCDEF01, bytes, 3), L"abcdef016162e4");
    EXPECT_EQ(Tool::str2uid(0x12345, "") + Tool::wstr2uid(0xFFFF, L"ab"), "12345ffff6162");
    EXPECT_EQ(Tool::str2uid(1, "\xE4\0\x7F\x80"s), "0001ffffffe4007fffffff80");
    EXPECT_EQ(Tool::str2binary(bytes, nullptr, "ab") + Tool::str2binary(nullptr, &size, "ab"), -2);
    EXPECT_TRUE(Tool::wstr2binary(bytes, &size, L"fE1", true) == 0 && bytes[0] == 0xFE);
}

} // namespace
