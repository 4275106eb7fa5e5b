// SPDX-License-Identifier: LicenseRef-Tarnix
// Fuzzer of the scanner. The input is a format, a zero, the sizes of eight targets, and the text.
// Where the standard scanner should agree, the two are compared.
#include "TX_sscanf.h"
#include "fuzzinput.h"

#include <algorithm>

constexpr std::size_t kTargets = 8;
constexpr std::size_t kMostText = 500; // in comparisons: a number has at most 512 characters
constexpr char kFill = '\xA5';

constexpr std::string_view kStandard[] = {
    "d",   "i",  "u",  "x",   "o",  "hd",  "hhu", "lld", "llx",  "1d",     "3u",     "2o",
    "5i",  "6x", "*d", "*i",  "n",  "hhn", "lln", "s",   "4s",   "*s",     "c",      "*c",
    "*3c", "f",  "lf", "2lf", "5f", "*f",  "e",   "g",   "[ab]", "3[^ b]", "*[]1-3]"};

using Blocks = std::vector<std::vector<char>>;

// Whether the standard scanner understands all directives in the same way.
static bool isStandard(std::string_view format)
{
    for (std::size_t at = 0; at < format.size();) {
        if (format[at] < 0)
            return false;
        if (format[at++] != '%')
            continue;
        const auto isNext = [=](std::string_view directive) {
            return format.substr(at, directive.size()) == directive;
        };
        const auto* const known = std::find_if(std::begin(kStandard), std::end(kStandard), isNext);
        if (known == std::end(kStandard))
            return false;
        at += known->size();
    }
    return true;
}

static int scanSource(TX_ScanSource* source, const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    const int result = TX_vfscanf(source, format, arguments);
    va_end(arguments);
    return result;
}

// The text has no terminator.
static int scanInto(Blocks& blocks, const std::string& text, const std::string& format)
{
    const auto p = [&](std::size_t i) { return blocks[i].data(); };
    const auto n = [&](std::size_t i) { return static_cast<int>(blocks[i].size()); };
    const std::vector<unsigned char> raw(text.begin(), text.end());
    TX_ScanSource source{raw.data(), static_cast<int>(raw.size()), TX_ScanLoaded};
    const int result = scanSource(&source, format.c_str(), p(0), n(0), p(1), n(1), p(2), n(2), p(3),
                                  n(3), p(4), n(4), p(5), n(5), p(6), n(6), p(7), n(7));
    require(source.position + source.remaining == raw.data() + raw.size(), "the source's position");
    return result;
}

// Prefixes and exponents without digits, "inf" and "nan". A width may cut the digits off.
static bool differsFromStandard(const std::string& format, const std::string& text)
{
    if (format.find_first_of("ixfeg") >= format.size())
        return false;
    const bool isCut = format.find_first_of("23456789") < format.size();
    for (std::size_t at = 0; (at = text.find_first_of("xXeEiInN", at)) < text.size(); ++at) {
        const std::size_t digits = at + (text.find_first_of("+-", at) == at + 1 ? 2 : 1);
        const bool hasDigits = text.find_first_of("0123456789", digits) == digits;
        if (isCut || !hasDigits || (text[at] | 0x20) != 'e')
            return true;
    }
    return false;
}

void fuzz(FuzzInput input)
{
    const std::string format = input.until('\0');
    if (std::count(format.begin(), format.end(), '%') > std::ptrdiff_t{kTargets})
        return;
    Blocks blocks(kTargets);
    for (std::vector<char>& block : blocks)
        block.assign(sizeof(std::int64_t) + input.byte() % 32, kFill);
    const std::string bytes = input.rest(), text = bytes.c_str();
    scanInto(blocks, bytes, format);
    if (!isStandard(format) || text.size() > kMostText || differsFromStandard(format, text))
        return;
    blocks.assign(kTargets, std::vector<char>(kMostText + 1, kFill));
    Blocks peer = blocks;
    const auto p = [&](std::size_t i) { return peer[i].data(); };
    const int wanted =
        std::sscanf(text.c_str(), format.c_str(), p(0), p(1), p(2), p(3), p(4), p(5), p(6), p(7));
    require(scanInto(blocks, text, format) == wanted && blocks == peer,
            "reads the same as the standard");
}
