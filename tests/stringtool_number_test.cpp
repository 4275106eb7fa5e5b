// Numbers, bytes and uids as text, and back.
#include "cmnstringtool.h"

#include <climits>
#include <cstdlib>
#include <gtest/gtest.h>

using namespace std::string_literals;
using Tool = tarnix_cmn_4_4::CCmnStringTool;

namespace
{

TEST(StringToolNumber, PrintsAndReads)
{
    const std::int64_t least = INT64_MIN;
    const std::uint64_t greatest = UINT64_MAX;
    EXPECT_EQ(Tool::int2str(INT_MIN) + Tool::int2str(least), "-2147483648-9223372036854775808");
    EXPECT_EQ(Tool::int2wstr(INT_MIN) + Tool::int2wstr(least), L"-2147483648-9223372036854775808");
    EXPECT_EQ(Tool::uint2str(UINT_MAX) + Tool::uint2str(greatest),
              "429496729518446744073709551615");
    EXPECT_EQ(Tool::uint2wstr(UINT_MAX) + Tool::uint2wstr(greatest),
              L"429496729518446744073709551615");
    EXPECT_EQ(Tool::double2str(-12345678.0) + Tool::double2str(0.1), "-1.23457e+070.1");
    EXPECT_EQ(Tool::bool2str(true) + Tool::bool2str(false), "truefalse");

    int number = 7;
    unsigned int natural = 7;
    std::uint64_t large = 7;
    double real = 7;
    const auto read = [&](const char* integer, const char* unsignedOne, const char* most,
                          const char* fraction) {
        return Tool::str2int(integer, number) + Tool::str2uint(unsignedOne, natural) +
               Tool::str2uint64(most, large) + Tool::str2double(fraction, real);
    };
    EXPECT_EQ(read("", "", "", ""), -4); // and all stay
    EXPECT_TRUE(number == 7 && natural == 7 && large == 7 && real == 7);
    EXPECT_EQ(read(" \t-012abc", "-1", "18446744073709551615", "-2.5e3x"), 0);
    EXPECT_TRUE(number == -12 && natural == UINT_MAX && large == UINT64_MAX && real == -2500);
    EXPECT_EQ(read("abc", "+010x", "", "x"), -1);
    EXPECT_TRUE(number == 0 && natural == 10 && large == UINT64_MAX && real == 0);
}

TEST(StringToolHex, AgreesWithTheCLibraryAndStoresWhatFits)
{
    for (unsigned int i = 0; i < 0x10000; ++i) {
        const std::string pair = {static_cast<char>(i), static_cast<char>(i >> 8)};
        unsigned char byte = 0;
        int size = 1;
        ASSERT_EQ(Tool::str2binary(&byte, &size, pair), 0);
        ASSERT_EQ(byte, std::strtol(pair.c_str(), nullptr, 16) & 0xFF) << i;
    }
    // The status, the size afterwards and the bytes.
    const auto store = [](const std::string& text, int size) {
        unsigned char out[] = "....";
        const std::string status = std::to_string(Tool::str2binary(out, &size, text));
        return status + " " + std::to_string(size) + " " + std::string(out, out + 4);
    };
    EXPECT_EQ(store("00abc", 2) + store("00ab", 1), "0 2 \x00\xAB..-1 1 ...."s);
    EXPECT_EQ(store("a", 4) + store("", -1), "0 0 ....-1 -1 ....");
    unsigned char bytes[] = {'a', 'b', 0xE4};
    int size = 1;
    EXPECT_EQ(Tool::str2binary(bytes, nullptr, "ab") + Tool::str2binary(nullptr, &size, "ab"), -2);
    EXPECT_EQ(Tool::binary2str(bytes, 3) + Tool::binary2str(bytes, INT_MIN), "6162e4");
    EXPECT_EQ(Tool::binary2wstr(nullptr, 1) + Tool::binary2uid(1, bytes, 2), L"00016162");
    EXPECT_EQ(Tool::binary2uid(0xABCDEF01, bytes, -1), L"abcdef01");
    EXPECT_EQ(Tool::str2uid(0x12345, "") + Tool::wstr2uid(0xFFFF, L"ab"), "12345ffff6162");
    EXPECT_EQ(Tool::str2uid(1, "\xE4\0\x7F\x80"s), "0001ffffffe4007fffffff80");
}

} // namespace
