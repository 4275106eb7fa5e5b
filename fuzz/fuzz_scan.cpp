// Fuzzer of the scanner. The input is a format, a zero, one byte for the size of each target, and
// the text. Where the standard scanner should agree, the two are compared.
#include "TX_sscanf.h"
#include "fuzzinput.h"

#include <cstring>

constexpr std::size_t kMostTargets = 8;
constexpr std::size_t kMostText = 500; // in comparisons: a number has at most 512 characters
constexpr char kFill = '\xA5';

constexpr char kStandard[] =
    "|d|i|u|x|o|hd|hhu|lld|llx|1d|3u|2o|5i|6x|*d|*i|n|hhn|lln|s|4s|*s|c|*c|*3c|f|lf|2lf|5f|*f|e|g|"
    "[ab]|3[^ b]|*[]1-3]|";

using Blocks = std::vector<std::vector<char>>;

// Adds a target for each directive of the format that stores. Returns whether the standard scanner
// understands all directives in the same way.
static bool makeBlocks(const std::string& format, FuzzInput& input, Blocks& blocks)
{
    bool isStandard = std::all_of(format.begin(), format.end(), [](char c) { return c > '\0'; });
    for (const char* at = std::strchr(format.c_str(), '%'); at; at = std::strchr(at, '%')) {
        const char* const first = ++at;
        at += std::strspn(at, "*0123456789hlLqjtzI");
        const bool suppressed = std::find(first, at, '*') != at;
        const char conversion = *at;
        at += conversion != '\0';
        if (conversion == '[') {
            at += *at == '^';
            at += *at != '\0';
            at += std::strcspn(at, "]");
            at += *at != '\0';
        }
        const std::string directive = "|" + std::string(first, at) + "|";
        isStandard = isStandard && std::strstr(kStandard, directive.c_str());
        if (conversion == '%' || conversion == '\0' || suppressed)
            continue;
        const std::size_t wanted = 1 + input.byte() % 32;
        const bool isText = conversion == 's' || conversion == '[';
        blocks.emplace_back(isText ? wanted : sizeof(std::int64_t), kFill);
    }
    return isStandard;
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

static bool hasExponentWithoutDigits(const std::string& text)
{
    for (std::size_t at = text.find_first_of("eE"); at < text.size();
         at = text.find_first_of("eE", at + 1)) {
        const std::size_t digits = text.find_first_not_of("+-", at + 1);
        if (digits > at + 2 || text.find_first_of("0123456789", digits) != digits)
            return true;
    }
    return false;
}

// Prefixes and exponents without digits, "inf" and "nan". A width may cut the digits off.
static bool differsFromStandard(const std::string& format, const std::string& text)
{
    if (format.find_first_of("ixfeg") >= format.size())
        return false;
    const bool isCut = format.find_first_of("23456789") < format.size();
    return text.find_first_of(isCut ? "xXeEiInN" : "xXiInN") < text.size() ||
           hasExponentWithoutDigits(text);
}

void fuzz(FuzzInput input)
{
    const std::string format = input.until('\0');
    Blocks blocks;
    const bool isStandard = makeBlocks(format, input, blocks);
    if (blocks.size() > kMostTargets)
        return;
    blocks.resize(kMostTargets);
    const std::string bytes = input.rest(), text = bytes.c_str();
    scanInto(blocks, bytes, format);
    if (!isStandard || text.size() > kMostText || differsFromStandard(format, text))
        return;
    blocks.assign(kMostTargets, std::vector<char>(kMostText + 1, kFill));
    Blocks peer = blocks;
    const auto p = [&](std::size_t i) { return peer[i].data(); };
    const int wanted =
        std::sscanf(text.c_str(), format.c_str(), p(0), p(1), p(2), p(3), p(4), p(5), p(6), p(7));
    require(scanInto(blocks, text, format) == wanted && blocks == peer,
            "reads the same as the standard");
}
