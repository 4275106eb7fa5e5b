// SPDX-License-Identifier: LicenseRef-Tarnix
// The scanner: how it differs from the standard one, and how far it reads a source. The fuzzer
// compares the two where they agree.
#include "TX_sscanf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

TEST(TxScan, DiffersFromTheStandard)
{
    const std::string digits = std::string(511, '0') + '2' + std::string(88, '9');
    // Text, format, the size passed for each target, and the outcome: the result, followed by the
    // bytes of each target that was written, with dots for zeros. An int of 65 is "A...".
    const struct {
        const char *text, *format;
        int size;
        std::string outcome;
    } cases[] = {
        // Ends of the input and of the format.
        {"65", "%d%5l", 64, "-1|A..."},
        {"ab", "%[^\0a", 2, "1|a."}, // nothing is read after the end of the format
        // A literal percent sign skips no space; %c reads one character for any width.
        {"65 %", "%d%%", 64, "1|A..."},
        {"l  t%ab", "l t%%%5c%c", 64, "2|a|b"},
        // Text fields and their sizes.
        {"hello !", "%s%n %c", 4, "2|hel.|\3...|!"},
        {"abcdefghijklmnopqrstuvwxyz", "%17s%7s%c", 64, "3|abcdefghijklmnopq.|rstuvwx.|y"},
        {"hello", "%s", 1, "1|."},
        {"hello", "%s%n", 0, "1|...."},
        {"hello !", "%[a-z]", 1, "0"},
        {"hello", "%[a-z]", 1, "-1"},
        {"hello", "%5[a-z]", 1, "0"}, // its width ended it
        // Sets.
        {"z-abcdef\xff-\x80", "%[z-a+-]%[a-c-e]f%[\xff-\xff-\xff]%[^\x7f-\xff]", 64,
         "4|z-a.|bcde.|\xff.|-."},
        {"-.", "%[+--9]", 64, "1|-."},
        // Integers: prefixes, widths, characters that are put back, saturation.
        {"0x7 0x8", "%o%c%*s%1i%*s", 64, "3|....|x|...."},
        {"0XF", "%i", 64, "1|\17..."},
        {"0x1F 0xg 0101", "%2i%*s%xxg%n%i", 64, "3|....|....|\10...|A..."},
        {digits.c_str(), "%990lf%n%d%n", 64, "2|.......@|.\2..|\xff\xff\xff\xff|X\2.."},
        // Sizes of number targets: flags count by rank, not by position. The last two are
        // unknown directives.
        {"0x41 6667 68", "%lhX%2hI64d%qjd%hD", 64, "4|A...|B.......|C...|D..."},
        {"65 66", "%td%zd", 64, "2|A.......|B......."},
        {"101 0x41 66 67", "%hO%p%h:%I6hA", 64, "4|A...|A.......|B.|C..."},
        {"ab", "%c%*n%n%hhn%jn", 64, "1|a|\1...|\1|\1......."},
        {"ab", "%lln%Ln%lzn%hhlln", 64, "0|........|....|....|."},
        // Floating point.
        {"12.5e+ 1e+5 0x2 inf", "%lE%*s%3LG%*s%*f%c%*c%*f%c", 64, "3|......)@|......\xf0?|x"},
    };
    for (const auto& [text, format, size, outcome] : cases) {
        constexpr char untouched = 'U';
        std::vector<std::string> t(4, std::string(64, untouched));
        std::string shown = std::to_string(TX_sscanf(text, format, t[0].data(), size, t[1].data(),
                                                     size, t[2].data(), size, t[3].data(), size));
        for (std::string& target : t) {
            target.resize(target.find_last_not_of(untouched) + 1);
            std::replace(target.begin(), target.end(), '\0', '.');
            shown += target.empty() ? "" : "|" + target;
        }
        EXPECT_EQ(shown, outcome) << text << " by " << format;
    }
    EXPECT_EQ(TX_sscanf(nullptr, "x"), -1);
    EXPECT_EQ(TX_sscanf("x", nullptr), -1);
    char own[] = "  overlapping";
    EXPECT_EQ(TX_sscanf(own, "%s", own, 10), 1);
    EXPECT_STREQ(own, "overlappi");
}

TEST(TxScan, LeavesASourceAfterTheCharactersThatWereRead)
{
    std::va_list none = {};                                     // no directive stores
    const unsigned char bytes[] = {'4', '2', ' ', 0, 'x', '7'}; // the source ends before the 7
    TX_ScanSource source = {bytes, 5, TX_ScanLoaded};
    EXPECT_EQ(TX_vfscanf(&source, "%*d -", none), 0);
    EXPECT_EQ(source.position, bytes + 3);
    EXPECT_EQ(TX_vfscanf(&source, "%*s", none), 0);
    EXPECT_EQ(source.remaining, 0);
    source.remaining = -1;
    EXPECT_EQ(TX_vfscanf(&source, "7", none), -1);
    EXPECT_EQ(TX_vfscanf(nullptr, "", none), -1);
}
