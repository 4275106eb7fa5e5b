// The scanner: a table of what it reads otherwise than the standard one, and what it leaves of a
// source. Where the two agree, the fuzzer compares them.
#include "TX_sscanf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <string>

namespace
{

constexpr char untouched = 'U';

struct Target {
    std::string bytes = std::string(64, untouched);

    // What was stored: text ('t'), with a dot for the terminator, or a number's size and bits
    // ('n').
    std::string show(char kind) const
    {
        std::string stored = bytes.substr(0, bytes.find_last_not_of(untouched) + 1);
        if (kind == 't' || stored.empty()) {
            std::replace(stored.begin(), stored.end(), '\0', '.');
            return stored;
        }
        std::int64_t number = stored.back() < 0 ? -1 : 0; // the sign fills it up
        std::memcpy(&number, stored.data(), std::min(stored.size(), sizeof number));
        return std::to_string(stored.size()) + ":" + std::to_string(number);
    }
};

TEST(TxScan, ReadsInItsOwnWay)
{
    const std::string nines(600, '9');
    const struct {
        const char *text, *format, *kinds, *outcome;
        int size = 64; // of each target, as it is told
    } cases[] = {
        // Ends of the input and of the format.
        {"7", "%d%5l", "nt", "-1|4:7|"},
        {"ab", "%[^", "t", "1|ab."},
        {"50%x", "%d%%%c", "nt", "2|4:50|x"},
        // Text fields and their sizes.
        {"hello world", "%s%s", "tt", "2|hel.|wor.", 4},
        {"hello world", "%s", "t", "1|.", 1},
        {"hello", "%s", "t", "1|", INT_MIN},
        {"hello world", "%[a-z]", "t", "0|", 1},
        {"hello", "%[a-z]", "t", "-1|", 1},
        {"hello !", "%s%n %c", "tnt", "2|hel.|4:3|!", 4},
        {"hello !", "%*s%n", "n", "0|4:5", 4},
        {"abc", "%5c%c", "tt", "2|a|b"},
        // Sets.
        {"z-ab", "%[z-a]", "t", "1|z-a."},
        {"abcdef", "%[a-c-e]", "t", "1|abcde."},
        {"\xff\xfe", "%[\xff-\xff]", "t", "1|\xff."},
        {"\x80\xff", "%[^\x7f-\xff]", "t", "0|"},
        // Integers: prefixes, widths, what is given back, saturation.
        {"0x", "%x%n%c", "nnt", "2|4:0|4:1|x"},
        {"0x1F", "%2i%s", "nt", "2|4:0|x1F."},
        {nines.c_str(), "%999lld%n%d%n", "nnnn", "2|8:9223372036854775807|4:512|4:-1|4:600"},
        // Sizes of number targets: the first flag by rank counts, not by place.
        {"-2 -2 -2", "%lhd%hlld%lljd", "nnn", "3|4:-2|8:-2|4:-2"},
        {"-2 17 0x1f", "%hD%hO%p", "nnn", "3|4:-2|4:15|8:31"},
        {"ab", "%c%n%hhn%jn", "tnnn", "1|a|4:1|1:1|8:1"},
        {"ab", "%lln%zn%lzn%hhlln", "nnnn", "0|8:0|8:0|4:0|1:0"},
        // Unknown directives.
        {"-5 6", "%hy%hA", "nn", "2|2:-5|4:6"},
        // Floating point.
        {"12.5e+", "%lf%s", "nt", "2|8:4623226492472524800|e+."},
        {"1e+5", "%3Lf%s", "nt", "2|8:4607182418800017408|e+5."},
        {"0x2", "%lf%s", "nt", "2|8:0|x2."},
        {"inf", "%f", "t", "0|"}};
    for (const auto& [text, format, kinds, outcome, size] : cases) {
        Target t[4];
        std::string shown =
            std::to_string(TX_sscanf(text, format, t[0].bytes.data(), size, t[1].bytes.data(), size,
                                     t[2].bytes.data(), size, t[3].bytes.data(), size));
        for (std::size_t i = 0; kinds[i] != '\0'; ++i)
            shown += "|" + t[i].show(kinds[i]);
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
    const unsigned char bytes[] = {'4', '2', ' ', 0, 'x', '7'}; // not terminated
    TX_ScanSource source = {bytes, 6, TX_ScanLoaded};
    Target target;
    EXPECT_EQ(scanSource(&source, "%*d -"), 0);
    EXPECT_EQ(source.remaining, 3);
    EXPECT_EQ(scanSource(&source, "%s", target.bytes.data(), 64), 1);
    EXPECT_EQ(target.show('t'), ".x7.");
    EXPECT_EQ(source.position, bytes + 6);
    source = {bytes, -1, 0};
    EXPECT_EQ(scanSource(&source, "%*d"), -1);
    EXPECT_EQ(scanSource(nullptr, ""), -1);
}

} // namespace
