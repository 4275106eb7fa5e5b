// The scanner: a table of what it reads in its own way, and generated texts and formats on which it
// must agree with sscanf.
#include "TX_sscanf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
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

    // What was stored and whether anything behind it was touched. The kind is the size in bytes of
    // an integer, 'g' (a double), 'c', 's', or '-': a target that must be untouched.
    std::string show(char kind) const
    {
        std::size_t used = kind == '-' ? 0 : kind == 'g' ? 8 : 1;
        std::string text(bytes, kind == 'c' ? 1 : 0);
        std::int64_t number = 0;
        double real = 0;
        if (kind == 's') {
            text = bytes;
            used = text.size() + 1;
        } else if (kind == 'g') {
            std::memcpy(&real, bytes, used);
            text = std::to_string(real);
        } else if (std::isdigit(kind) != 0) {
            used = static_cast<std::size_t>(kind - '0');
            number = bytes[used - 1] < 0 ? -1 : 0; // the sign fills it up
            std::memcpy(&number, bytes, used);
            text = std::to_string(number);
        }
        const bool clean = std::count(bytes + used, bytes + 640, untouched) == 640 - int(used);
        return "|" + text + (clean ? "" : " and more");
    }
};

TEST(TxScan, ReadsInItsOwnWay)
{
    const std::string nines(600, '9');
    const auto row = [](auto text, auto format, auto kinds, auto outcome, int size = 64) {
        return std::tuple(text, format, kinds, outcome, size);
    };
    // The text, the format, the kinds of the targets (see Target::show), the outcome and the sizes.
    for (const auto& [text, format, kinds, outcome, size] :
         {// Ends of the input and of the format.
          row("", "", "-", "0|"), row("7", "%d%5l", "4-", "-1|7|"), row("ab", "%[^", "s", "1|ab"),
          row("50%x", "%d%%%c", "4c", "2|50|x"),
          // Text fields and their sizes.
          row("hello world", "%s%s", "ss", "2|hel|wor", 4), row("hello world", "%s", "s", "1|", 1),
          row("hello", "%s", "-", "1|", INT_MIN), row("hello world", "%[a-z]", "-", "0|", 1),
          row("hello", "%[a-z]", "-", "-1|", 1), row("hello !", "%s%n %c", "s4c", "2|hel|3|!", 4),
          row("hello !", "%*s%n", "4", "0|5", 4), row("abc", "%5c%c", "cc", "2|a|b"),
          row("ab", "%ls%lc", "s-", "1|ab|"),
          // Sets.
          row("bc", "%[a-a]", "s", "1|b"), row("z-ab", "%[z-a]", "s", "1|z-a"),
          row("abcdef", "%[a-c-e]", "s", "1|abcde"), row("\xff\xfe", "%[\xff-\xff]", "s", "1|\xff"),
          row("\x80\xff", "%[^\x7f-\xff]", "-", "0|"),
          // Integers: prefixes, widths, give back, saturation.
          row("+x10", "%x", "-", "0|"), row("0xz", "%i%c%c", "4cc", "3|0|x|z"),
          row("0x", "%x%n%c", "44c", "2|0|1|x"), row("0x1F", "%2i%s", "4s", "2|0|x1F"),
          row(nines.c_str(), "%*d%n%*d%n", "44", "0|512|600"),
          row(nines.c_str(), "%999lld", "8", "1|9223372036854775807"),
          row(nines.c_str(), "%d", "4", "1|-1"),
          // Sizes of number targets: the first flag by rank counts, not by place.
          row("-2", "%lhd", "4", "1|-2"), row("-2", "%hlld", "8", "1|-2"),
          row("-2", "%lljd", "4", "1|-2"), row("-2 17", "%hD%hO", "44", "2|-2|15"),
          row("0x1f", "%p", "8", "1|31"), row("ab", "%c%n%hhn%jn", "c418", "1|a|1|1|1"),
          row("ab", "%lln%zn%lzn%hhlln", "8841", "0|0|0|0|0"),
          // Unknown directives.
          row("-5 6", "%hy%hA", "24", "2|-5|6"), row("abc", "%y", "-", "0|"),
          // Floating point.
          row("1e", "%lf%c", "gc", "2|1.000000|e"), row("12.5e+", "%lf%s", "gs", "2|12.500000|e+"),
          row("1e+5", "%3Lf%s", "gs", "2|1.000000|e+5"), row("0x2", "%lf%s", "gs", "2|0.000000|x2"),
          row("inf", "%f", "-", "0|")}) {
        Target t[4];
        std::string shown = std::to_string(TX_sscanf(text, format, t[0].bytes, size, t[1].bytes,
                                                     size, t[2].bytes, size, t[3].bytes, size));
        for (std::size_t i = 0; kinds[i] != '\0'; ++i)
            shown += t[i].show(kinds[i]);
        EXPECT_EQ(shown, outcome) << text << " by " << format;
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
    EXPECT_EQ(source.position, bytes.data() + 6);
    source = {bytes.data(), -1, 0};
    EXPECT_EQ(scanSource(&source, "%d", &number, 4), -1);
    EXPECT_EQ(scanSource(nullptr, ""), -1);
}

std::string join(const std::vector<std::string>& pieces, std::size_t most, std::mt19937& random)
{
    std::string text;
    for (std::size_t count = random() % (most + 1); count > 0; --count)
        text += pieces[random() % pieces.size()];
    return text;
}

// Pieces of texts and of formats, which both scanners read alike: no bad exponents, no prefix cut
// by a width.
TEST(TxScan, AgreesWithSscanf)
{
    const std::vector<std::string> families[][2] = {
        {{"0", "7", "12", "089", "0x1f", "-", "+", " ", "\t\n", "y", "z", "fe", "99999999999",
          "18446744073709551616", "-9223372036854775809"},
         {"%d",       "%i",  "%u",   "%x",  "%o",  "%hd", "%hhu", "%lld",   "%llx",
          "%zu",      "%qd", "%td",  "%X",  "%*c", "%5i", "%6x",  "%*d",    "%1d",
          "%3u",      "%2o", "%s",   "%4s", "%*s", "%c",  "%*3c", "%[0-9]", "%3[^ y]",
          "%*[z0-8]", "%n",  "%hhn", " ",   "y",   "z"}},
        {{"0", "12", "3.", ".5", "-", "+", " ", ".", "1234567.125"},
         {"%f", "%lf", "%5f", "%2lf", "%*f", "%g", "%c", "%d", "%n", " ", "."}},
        {{"1e5 ", "-2.5E-3 ", ".5e+10 ", "1e400 ", "+"},
         {"%f", "%lf", "%*lf", "%e", "%E", " ", "%s"}}};
    std::mt19937 random(3);
    for (int i = 0; i < 90000; ++i) {
        const std::string text = join(families[i % 3][0], 6, random);
        const std::string format = join(families[i % 3][1], 4, random);
        Target a[4], b[4];
        ASSERT_EQ(TX_sscanf(text.c_str(), format.c_str(), a[0].bytes, 640, a[1].bytes, 640,
                            a[2].bytes, 640, a[3].bytes, 640),
                  std::sscanf(text.c_str(), format.c_str(), b[0].bytes, b[1].bytes, b[2].bytes,
                              b[3].bytes))
            << "\"" << text << "\" by " << format;
        ASSERT_EQ(std::memcmp(a, b, sizeof a), 0) << "\"" << text << "\" by " << format;
    }
}

} // namespace
