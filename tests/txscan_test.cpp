// The scanner: a table of what it reads in its own way, and generated texts and formats on which it
// must agree with sscanf.
#include "TX_sscanf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace
{

constexpr char untouched = 'U';

struct Target {
    char bytes[640];

    Target() { std::memset(bytes, untouched, sizeof bytes); }

    template <typename Value>
    Value as() const
    {
        Value value;
        std::memcpy(&value, bytes, sizeof value);
        return value;
    }

    // What was stored and whether anything behind it was touched. The kind is the size in bytes of
    // an integer, or a letter; "-" is a target that must be untouched.
    std::string show(char kind) const
    {
        std::string text;
        std::size_t used = kind == '-' ? 0 : 1;
        if (kind >= '1' && kind <= '8') {
            used = static_cast<std::size_t>(kind - '0');
            const std::size_t unused = 64 - 8 * used; // bits, filled with the sign
            text =
                std::to_string(static_cast<std::int64_t>(as<std::uint64_t>() << unused) >> unused);
        } else if (kind == 'f' || kind == 'g') {
            used = kind == 'f' ? sizeof(float) : sizeof(double);
            text = std::to_string(kind == 'f' ? as<float>() : as<double>());
        } else if (kind == 'c' || kind == 's') {
            text = kind == 'c' ? std::string(1, bytes[0]) : std::string(bytes);
            used = kind == 'c' ? 1 : text.size() + 1;
        }
        const bool clean =
            std::all_of(bytes + used, std::end(bytes), [](char byte) { return byte == untouched; });
        return "|" + text + (clean ? "" : " and more");
    }
};

// The result and what each target holds.
std::string scan(const char* text, const char* format, const char* kinds, int size)
{
    Target t[4];
    const int result = TX_sscanf(text, format, t[0].bytes, size, t[1].bytes, size, t[2].bytes, size,
                                 t[3].bytes, size);
    std::string shown = std::to_string(result);
    for (std::size_t i = 0; kinds[i] != '\0'; ++i) {
        shown += t[i].show(kinds[i]);
    }
    return shown;
}

TEST(TxScan, ReadsInItsOwnWay)
{
    const std::string nines(600, '9');
    const struct {
        const char* text;
        const char* format;
        const char* kinds; // of the targets, see Target::show
        const char* outcome;
        int size = 64;
    } cases[] = {
        // Ends of the input and of the format.
        {"", "", "-", "0|"},
        {"7", "%d%", "4-", "-1|7|"},
        {"7", "%d%5l", "4-", "-1|7|"},
        {"a", "%[", "-", "0|"},
        {"ab", "%[^", "s", "1|ab"},
        {"50%x", "%d%%%c", "4c", "2|50|x"},
        {"50 %x", "%d%%%c", "4-", "1|50|"},
        // Text fields and their sizes.
        {"hello world", "%s%s", "ss", "2|hel|wor", 4},
        {"hello world", "%s", "s", "1|", 1},
        {"hello", "%s", "-", "1|", 0},
        {"hello", "%s", "-", "1|", INT_MIN},
        {"hello world", "%[a-z]", "-", "0|", 1},
        {"hello", "%[a-z]", "-", "-1|", 1},
        {"hello", "%5[a-z]", "-", "0|", 1},
        {"hello !", "%s%n %c", "s4c", "2|hel|3|!", 4},
        {"hello !", "%*s%n", "4", "0|5", 4},
        {"abc", "%5c%c", "cc", "2|a|b"},
        {"ab", "%ls%lc", "s-", "1|ab|"},
        // Sets.
        {"bc", "%[a-a]", "s", "1|b"},
        {"z-ab", "%[z-a]", "s", "1|z-a"},
        {"abcdef", "%[a-c-e]", "s", "1|abcde"},
        {"\xff\xfe", "%[\xff-\xff]", "s", "1|\xff"},
        {"\x80\xff", "%[^\x7f-\xff]", "-", "0|"},
        // Integers: prefixes, widths, give back, saturation.
        {"+", "%d", "-", "0|"},
        {"08", "%i%d", "44", "2|0|8"},
        {"+x10", "%x", "-", "0|"},
        {"0xz", "%i%c%c", "4cc", "3|0|x|z"},
        {"0x", "%x%n%c", "44c", "2|0|1|x"},
        {"0x1F", "%2i%s", "4s", "2|0|x1F"},
        {nines.c_str(), "%*d%n%*d%n", "44", "0|512|600"},
        {nines.c_str(), "%999lld%999lld", "88", "2|9223372036854775807|9223372036854775807"},
        {nines.c_str(), "%d", "4", "1|-1"},
        // Sizes of number targets: the first flag by rank counts, not by place.
        {"-2", "%lhd", "4", "1|-2"},
        {"-2", "%hlld", "8", "1|-2"},
        {"-2", "%lljd", "4", "1|-2"},
        {"-2 17", "%hD%hO", "44", "2|-2|15"},
        {"12", "%I64d", "8", "1|12"},
        {"0x1f", "%p", "8", "1|31"},
        {"ab", "%c%n%hhn%jn", "c418", "1|a|1|1|1"},
        {"ab", "%lln%zn%lzn%hhlln", "8841", "0|0|0|0|0"},
        // Unknown directives.
        {"-5 6", "%hy%hA", "24", "2|-5|6"},
        {"abc", "%y", "-", "0|"},
        // Floating point.
        {".", "%f", "-", "0|"},
        {"1e", "%f%c", "fc", "2|1.000000|e"},
        {"12.5e+", "%lf%s", "gs", "2|12.500000|e+"},
        {"1e+5", "%3Lf%s", "gs", "2|1.000000|e+5"},
        {"0x2", "%f%s", "fs", "2|0.000000|x2"},
        {"inf", "%f", "-", "0|"},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(scan(row.text, row.format, row.kinds, row.size), row.outcome)
            << row.text << " by " << row.format;
    }
    EXPECT_EQ(TX_sscanf(nullptr, "x"), -1);
}

int scanSource(TX_ScanSource* source, const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    const int result = TX_vfscanf(source, format, arguments);
    va_end(arguments);
    return result;
}

TEST(TxScan, LeavesASourceBehindWhatWasRead)
{
    const std::vector<unsigned char> bytes = {'4', '2', ' ', 0, 'x', '7'}; // not terminated
    TX_ScanSource source = {bytes.data(), 6, TX_ScanLoaded};
    int number = 0;
    EXPECT_EQ(scanSource(&source, "%d -", &number, 4), 1);
    EXPECT_EQ(source.remaining, 3);
    Target text;
    EXPECT_EQ(scanSource(&source, "%s", text.bytes, 64), 1);
    EXPECT_EQ(std::string(text.bytes, 4), std::string("\0x7\0", 4));
    EXPECT_EQ(source.position, bytes.data() + bytes.size());
    source.remaining = -1;
    source.flags = 0;
    EXPECT_EQ(scanSource(&source, "%d", &number, 4), -1);
    EXPECT_EQ(scanSource(nullptr, ""), -1);
}

struct Family {
    std::vector<std::string> pieces;     // of the text
    std::vector<std::string> directives; // of the format
};

std::string join(const std::vector<std::string>& pieces, std::size_t most, std::mt19937& random)
{
    std::string text;
    for (std::size_t count = random() % (most + 1); count > 0; --count) {
        text += pieces[random() % pieces.size()];
    }
    return text;
}

// Each family holds what both scanners read alike: no bad exponents, no prefix cut by a width.
TEST(TxScan, AgreesWithSscanf)
{
    const Family families[] = {
        {{"0", "7", "12", "089", "0x1f", "-", "+", " ", "\t\n", "y", "z", "fe", "99999999999",
          "18446744073709551616", "-9223372036854775809"},
         {"%d",       "%i",  "%u",   "%x",  "%o",  "%hd", "%hhu", "%lld",   "%llx",
          "%zu",      "%qd", "%td",  "%X",  "%*c", "%5i", "%6x",  "%*d",    "%1d",
          "%3u",      "%2o", "%s",   "%4s", "%*s", "%c",  "%*3c", "%[0-9]", "%3[^ y]",
          "%*[z0-8]", "%n",  "%hhn", " ",   "y",   "z"}},
        {{"0", "12", "3.", ".5", "-", "+", " ", ".", "1234567.125"},
         {"%f", "%lf", "%5f", "%2lf", "%*f", "%g", "%c", "%d", "%n", " ", "."}},
        {{"1e5 ", "-2.5E-3 ", ".5e+10 ", "1e400 ", "+"},
         {"%f", "%lf", "%*lf", "%e", "%E", " ", "%s"}},
    };
    std::mt19937 random(3);
    for (int i = 0; i < 90000; ++i) {
        const Family& family = families[i % 3];
        const std::string text = join(family.pieces, 6, random);
        const std::string format = join(family.directives, 4, random);
        Target a[4];
        Target b[4];
        const int result = TX_sscanf(text.c_str(), format.c_str(), a[0].bytes, 640, a[1].bytes, 640,
                                     a[2].bytes, 640, a[3].bytes, 640);
        ASSERT_EQ(result, std::sscanf(text.c_str(), format.c_str(), b[0].bytes, b[1].bytes,
                                      b[2].bytes, b[3].bytes))
            << "\"" << text << "\" by " << format;
        ASSERT_EQ(std::memcmp(a, b, sizeof a), 0) << "\"" << text << "\" by " << format;
    }
}

} // namespace
