// Numbers, bytes and uids as text, and back.
#include "cmnstringtool.h"

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <random>

using namespace std::string_literals;
using Tool = tarnix_cmn_4_4::CCmnStringTool;

namespace
{

template <class Number>
void expectDecimal(std::uint64_t bits, std::string (*print)(Number), std::wstring (*wide)(Number))
{
    char text[32];
    const auto number = static_cast<Number>(bits);
    const std::string expected(text, std::to_chars(text, std::end(text), number).ptr);
    ASSERT_EQ(print(number), expected);
    ASSERT_EQ(wide(number), std::wstring(expected.begin(), expected.end()));
}

TEST(StringToolNumber, PrintsAsTheStandardPrinters)
{
    std::vector<std::uint64_t> patterns = {0,          UINT64_MAX, INT64_MAX,
                                           1ULL << 63, INT32_MAX,  1U << 31};
    std::mt19937_64 engine(20240229);
    for (int i = 0; i < 2000; ++i)
        patterns.push_back(engine() >> (engine() % 64));
    for (const std::uint64_t bits : patterns) {
        expectDecimal<int>(bits, Tool::int2str, Tool::int2wstr);
        expectDecimal<unsigned int>(bits, Tool::uint2str, Tool::uint2wstr);
        expectDecimal<std::int64_t>(bits, Tool::int2str, Tool::int2wstr);
        expectDecimal<std::uint64_t>(bits, Tool::uint2str, Tool::uint2wstr);
        double real = 0;
        std::memcpy(&real, &bits, sizeof real);
        char expected[64];
        std::snprintf(expected, sizeof expected, "%g", real);
        ASSERT_EQ(Tool::double2str(real), expected);
    }
    EXPECT_EQ(Tool::bool2str(true) + Tool::bool2str(false), "truefalse");
}

template <class Number>
Number read(int (*reader)(const std::string&, Number&), const std::string& text)
{
    Number number = 7;
    EXPECT_EQ(reader(text, number), text.empty() ? -1 : 0) << text;
    return number;
}

TEST(StringToolNumber, ReadsWhatTheReadersRead)
{
    for (const auto& [text, number] : {std::pair("abc", 0),
                                       {"12abc", 12},
                                       {" \t+010", 10},
                                       {"-1", -1},
                                       {"2147483647", 2147483647}}) {
        EXPECT_EQ(read<int>(Tool::str2int, text), number);
        EXPECT_EQ(read<unsigned int>(Tool::str2uint, text), static_cast<unsigned int>(number));
        EXPECT_EQ(read<std::uint64_t>(Tool::str2uint64, text), static_cast<std::uint64_t>(number));
        EXPECT_EQ(read<double>(Tool::str2double, text), number);
        EXPECT_EQ(Tool::str2int(text), number);
        EXPECT_EQ(Tool::str2uint(text), static_cast<unsigned int>(number));
    }
    EXPECT_EQ(read<std::uint64_t>(Tool::str2uint64, "18446744073709551615"), UINT64_MAX);
    EXPECT_EQ(Tool::str2double("-2.5e3x"), -2500);
    EXPECT_TRUE(read<int>(Tool::str2int, "") == 7 && read<double>(Tool::str2double, "") == 7);
    EXPECT_TRUE(read<unsigned int>(Tool::str2uint, "") == 7 &&
                read<std::uint64_t>(Tool::str2uint64, "") == 7);
    EXPECT_TRUE(Tool::str2int("") == 0 && Tool::str2uint("") == 0 && Tool::str2double("") == 0);
}

TEST(StringToolHex, EveryByteAndEveryPair)
{
    for (int first = 0; first < 256; ++first) {
        const auto value = static_cast<unsigned char>(first);
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned int>(first));
        ASSERT_EQ(Tool::binary2str(&value, 1), digits);
        for (int second = 0; second < 256; ++second) {
            const std::string pair = {static_cast<char>(first), static_cast<char>(second)};
            unsigned char byte = 0;
            int size = 1;
            ASSERT_EQ(Tool::str2binary(&byte, &size, pair), 0);
            ASSERT_EQ(byte, std::strtol(pair.c_str(), nullptr, 16) & 0xFF)
                << first << ' ' << second;
        }
    }
    const unsigned char bytes[] = {0x00, 0xAB, 0xFF};
    EXPECT_EQ(Tool::binary2str(bytes, 2), "00ab");
    EXPECT_EQ(Tool::binary2wstr(bytes, 3), L"00abff");
    for (const int none : {0, -1, std::numeric_limits<int>::min()})
        EXPECT_EQ(Tool::binary2str(bytes, none), "");
}

TEST(StringToolHex, StoresWholePairsThatFit)
{
    // The status, the size afterwards and the bytes.
    const auto store = [](const std::string& text, int size) {
        std::string out = "....";
        const int status =
            Tool::str2binary(reinterpret_cast<unsigned char*>(out.data()), &size, text);
        return std::to_string(status) + " " + std::to_string(size) + " " + out;
    };
    EXPECT_EQ(store("00ab", 2), "0 2 \x00\xAB.."s);
    EXPECT_EQ(store("00ab", 1), "-1 1 ....");
    EXPECT_EQ(store("abc", 1), "0 1 \xAB...");
    EXPECT_EQ(store("a", 4), "0 0 ....");
    EXPECT_EQ(store("", -1), "-1 -1 ....");
    EXPECT_EQ(store("1\0zz"s, 4), "0 2 \x01\x00.."s);

    unsigned char byte = 0;
    int size = 1;
    EXPECT_EQ(Tool::str2binary(&byte, nullptr, "ab"), -1);
    EXPECT_EQ(Tool::str2binary(nullptr, &size, "ab"), -1);
    EXPECT_EQ(Tool::wstr2binary(&byte, &size, L"fE1", true), 0);
    EXPECT_EQ(byte, 0xFE);
}

TEST(StringToolHex, UidIsTheNumberThenTheBytes)
{
    const unsigned char bytes[] = {'a', 'b', 0xE4};
    EXPECT_EQ(Tool::binary2uid(1, bytes, 2), L"00016162");
    EXPECT_EQ(Tool::binary2uid(0xABCDEF01, bytes, 3), L"abcdef016162e4");
    EXPECT_EQ(Tool::str2uid(0x12345, ""), "12345");
    EXPECT_EQ(Tool::str2uid(1, "\xE4\0\x7F\x80"s), "0001ffffffe4007fffffff80");
    EXPECT_EQ(Tool::wstr2uid(0xFFFF, L"ab"), "ffff6162");
}

} // namespace
