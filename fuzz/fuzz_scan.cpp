// Fuzzer of the scanner. The input is a format, a zero, a byte for each target's size, and the
// text. What the standard scanner reads alike it is asked too.
#include "TX_sscanf.h"
#include "fuzzinput.h"

#include <cstring>
#include <memory>
#include <set>

namespace
{

constexpr std::size_t kMostTargets = 8;
constexpr std::size_t kMostText = 500; // that is compared: a number takes 512 characters
constexpr char kFill = '\xA5';

using Blocks = std::vector<std::vector<char>>;

struct Directive {
    bool stores;
    bool isText;     // its size counts
    bool isStandard; // it means the same to the standard scanner
};

Directive parse(const char*& at)
{
    static const std::set<std::string> standard = {
        "d",   "i",  "u",  "x",   "o",  "hd",  "hhu", "lld", "llx",  "1d",     "3u",     "2o",
        "5i",  "6x", "*d", "*i",  "n",  "hhn", "lln", "s",   "4s",   "*s",     "c",      "*c",
        "*3c", "f",  "lf", "2lf", "5f", "*f",  "e",   "g",   "[ab]", "3[^ b]", "*[]1-3]"};
    const char* const first = at;
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
    return {conversion != '%' && conversion != '\0' && !suppressed,
            conversion == 's' || conversion == '[', standard.count(std::string(first, at)) > 0};
}

int scanSource(TX_ScanSource* source, const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    const int result = TX_vfscanf(source, format, arguments);
    va_end(arguments);
    return result;
}

template <class Scan, class Text>
int scanInto(Blocks& blocks, Scan scan, Text text, const char* format)
{
    const auto p = [&](std::size_t i) { return blocks[i].data(); };
    const auto n = [&](std::size_t i) { return static_cast<int>(blocks[i].size()); };
    return scan(text, format, p(0), n(0), p(1), n(1), p(2), n(2), p(3), n(3), p(4), n(4), p(5),
                n(5), p(6), n(6), p(7), n(7));
}

void compareWithStandard(const std::string& text, const char* format)
{
    Blocks blocks(kMostTargets, std::vector<char>(kMostText + 1, kFill)), peer = blocks;
    const auto p = [&](std::size_t i) { return peer[i].data(); };
    const int result = scanInto(blocks, TX_sscanf, text.c_str(), format);
    require(std::sscanf(text.c_str(), format, p(0), p(1), p(2), p(3), p(4), p(5), p(6), p(7)) ==
                    result &&
                blocks == peer,
            "what the standard scanner reads");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzInput input(data, size);
    const std::string format = input.until('\0');
    Blocks blocks;
    bool isStandard = std::all_of(format.begin(), format.end(), [](char c) { return c > '\0'; });
    for (const char* at = format.c_str(); *at != '\0';) {
        if (*at++ != '%')
            continue;
        const Directive directive = parse(at);
        isStandard = isStandard && directive.isStandard;
        if (directive.stores) {
            const std::size_t wanted = 1 + input.byte() % 32;
            blocks.emplace_back(directive.isText ? wanted : sizeof(std::int64_t), kFill);
        }
    }
    if (blocks.size() > kMostTargets)
        return 0;
    blocks.resize(kMostTargets);
    const std::string bytes = input.rest(), text = bytes.c_str();

    // Any bytes, without a terminator; then the text.
    const auto raw = std::make_unique<unsigned char[]>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), raw.get());
    TX_ScanSource source{raw.get(), static_cast<int>(bytes.size()), TX_ScanLoaded};
    Blocks ofSource = blocks;
    const int sourceResult = scanInto(ofSource, scanSource, &source, format.c_str());
    require(source.position + source.remaining == raw.get() + bytes.size(), "the source's place");
    const int result = scanInto(blocks, TX_sscanf, terminated(text).data(), format.c_str());
    require(text.size() < bytes.size() || (result == sourceResult && blocks == ofSource),
            "a text and a source");
    // They differ on a prefix or an exponent without a digit, and on words that are numbers.
    const char* const odd = format.find_first_of("ixfeg") < format.size() ? "xXeEiInN" : "";
    if (isStandard && text.size() < kMostText && text.find_first_of(odd) == std::string::npos)
        compareWithStandard(text, format.c_str());
    return 0;
}
