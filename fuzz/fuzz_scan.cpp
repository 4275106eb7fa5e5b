// Fuzzer of the scanner. The input is a format, a zero, a byte for each target's size, and the
// text. Where the standard scanner must agree it is asked too, with the format in its own terms.
#include "TX_sscanf.h"
#include "fuzzinput.h"

#include <cctype>
#include <cstring>
#include <map>

namespace
{

constexpr std::size_t kMostTargets = 8;
constexpr std::size_t kMostText = 500; // that is compared: a number takes 512 characters
constexpr char kFill = '\xA5';

using Blocks = std::vector<std::vector<char>>;

struct Directive {
    bool suppressed = false;
    std::size_t width = 0;
    std::string modifiers; // H stands for hh, Q for a 64-bit number
    char conversion = 'd'; // of the standard scanner; 0 at the end of the format
    std::string set;
    bool closed = true;

    bool is(const char* conversions) const
    {
        return conversion != '\0' && std::strchr(conversions, conversion);
    }
    bool stores() const { return !suppressed && conversion != '%' && conversion != '\0'; }
    std::size_t size(unsigned int wanted) const
    {
        static const std::map<std::string, std::size_t> sizes = {
            {"H", 1}, {"h", 2}, {"Q", 8}, {"z", 8}, {"t", 8}};
        const bool isLong = modifiers == "l" || modifiers == "L";
        if (is("s["))
            return 1 + wanted % 32;
        if (is("c"))
            return 1;
        if (is("f"))
            return isLong ? sizeof(double) : sizeof(float);
        if (is("n") && modifiers == "j")
            return 8;
        return sizes.count(modifiers) ? sizes.at(modifiers) : 4;
    }
};

Directive parse(const char*& at)
{
    Directive result;
    char c = *at++;
    for (;; c = *at++) {
        if (c == '*') {
            result.suppressed = true;
        } else if (c >= '0' && c <= '9') {
            result.width = result.width * 10 + static_cast<std::size_t>(c - '0');
        } else if (c == 'I') {
            const bool is64 = at[0] == '6' && at[1] == '4';
            at += is64 ? 2 : 0;
            result.modifiers += is64 ? "Q" : "";
        } else if ((c == 'h' || c == 'l') && *at == c) {
            ++at;
            result.modifiers += c == 'h' ? 'H' : 'Q';
        } else if (c != '\0' && std::strchr("hlLqjtz", c)) {
            result.modifiers += c == 'q' ? 'Q' : c;
        } else {
            break;
        }
    }
    static constexpr char known[] = "%diouxXpefgEGs[cnO";
    static constexpr char meant[] = "%diouxxxfffffs[cno"; // the last place is the terminator's
    const char* const place = std::strchr(known, c);
    result.conversion = place ? meant[place - known] : 'd';
    if (c == 'p')
        result.modifiers = "Q";
    else if (c == 'O' || (!place && std::isupper(static_cast<unsigned char>(c))))
        result.modifiers += 'l';
    if (c == '[') {
        const char* const first = at + (*at == '^');
        const char* const end = *first ? std::strchr(first + 1, ']') : nullptr;
        result.closed = end != nullptr;
        result.set.assign(at, end ? end : at + std::strlen(at));
        at += result.set.size() + (end ? 1 : 0);
    }
    return result;
}

// For the standard scanner; its numbers are always of 64 bits.
std::string translated(const Directive& from)
{
    if (from.is("%"))
        return "%*1[%]"; // skips no white space
    if (from.is("n"))
        return from.suppressed ? "" : "%lln";
    std::string format = from.suppressed ? "%*" : "%";
    if (from.width > 0 && (from.suppressed || !from.is("c")))
        format += std::to_string(std::min(from.width, kMostText));
    format += from.is("f") ? "l" : from.is("dioux") ? "ll" : "";
    return format + from.conversion + (from.is("[") ? from.set + "]" : "");
}

// False for what the two scanners may read in different ways.
bool sameMeaning(const Directive& directive, std::size_t size, const std::string& text)
{
    const std::string& set = directive.set;
    if (directive.conversion == '\0' || !directive.closed || (directive.is("[") && size == 1))
        return false;
    for (std::size_t i = 1; i + 1 < set.size(); ++i) {
        if (set[i] == '-' && (set[i - 1] == set[i + 1] || set[i + 1] == '-' || set[i - 1] == '-'))
            return false;
    }
    if (!directive.is("ixf"))
        return true;
    // A prefix, a point or an exponent needs its digit, which a width may take away.
    const char* const leads = directive.is("f") ? ".eE" : "xX";
    const char* const good = directive.is("f") ? "0123456789" : "0123456789abcdefABCDEF";
    if (directive.is("f") && text.find_first_of("iInNxX") != std::string::npos)
        return false;
    for (std::size_t i = text.find_first_of(leads); i < text.size();
         i = text.find_first_of(leads, i + 1)) {
        if (directive.width > 0 || i + 1 == text.size() || !std::strchr(good, text[i + 1]))
            return false;
    }
    return true;
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

// What must stand in our target, by what stands in the standard scanner's. `cut` collects what was
// dropped of text fields, which our %n does not count.
std::vector<char> expected(const Directive& directive, std::size_t size, std::vector<char> found,
                           std::size_t& cut)
{
    const bool touched = found != std::vector<char>(found.size(), kFill);
    if (touched && directive.is("s[")) {
        const std::size_t length = std::strlen(found.data());
        const std::size_t stored = std::min(length, size - 1);
        cut += length - stored;
        found.assign(found.begin(), found.begin() + static_cast<std::ptrdiff_t>(stored));
        found.push_back('\0');
    } else if (touched && directive.is("f") && size == sizeof(float)) {
        double value = 0;
        std::memcpy(&value, found.data(), sizeof value);
        const float narrow = static_cast<float>(value);
        std::memcpy(found.data(), &narrow, sizeof narrow);
    } else if (touched && directive.is("n")) {
        std::uint64_t read = 0;
        std::memcpy(&read, found.data(), sizeof read);
        read -= cut;
        std::memcpy(found.data(), &read, sizeof read);
    }
    found.resize(size, kFill);
    return found;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzInput input(data, size);
    const std::string format = input.until('\0');
    std::string peerFormat;
    std::vector<Directive> directives;
    Blocks blocks;
    for (const char* at = format.c_str(); *at != '\0';) {
        peerFormat += *at;
        if (*at++ != '%')
            continue;
        directives.push_back(parse(at));
        const Directive& directive = directives.back();
        peerFormat.replace(peerFormat.size() - 1, 1, translated(directive));
        if (directive.modifiers.size() > 1)
            return 0;
        if (directive.conversion == '\0')
            break;
        if (directive.stores())
            blocks.emplace_back(directive.size(input.byte()), kFill);
    }
    if (blocks.size() > kMostTargets)
        return 0;
    blocks.resize(kMostTargets);
    const std::string bytes = input.rest(), text = bytes.c_str();

    // Any bytes, without a terminator; then the text.
    std::vector<unsigned char> raw(bytes.begin(), bytes.end());
    raw.reserve(1); // a place even for no byte
    TX_ScanSource source{raw.data(), static_cast<int>(raw.size()), TX_ScanLoaded};
    Blocks ofSource = blocks;
    const int sourceResult = scanInto(ofSource, scanSource, &source, format.c_str());
    require(source.position + source.remaining == raw.data() + raw.size(), "the source's place");
    const int result = scanInto(blocks, TX_sscanf, terminated(text).data(), format.c_str());
    require(text.size() < bytes.size() || (result == sourceResult && blocks == ofSource),
            "a text and a source");

    bool same = text.size() < kMostText &&
                std::all_of(format.begin(), format.end(), [](char c) { return c > '\0'; });
    std::size_t next = 0;
    for (const Directive& directive : directives) {
        const std::size_t room = directive.stores() ? blocks[next++].size() : 0;
        same = same && sameMeaning(directive, room, text);
    }
    if (!same)
        return 0;
    Blocks peer(kMostTargets, std::vector<char>(kMostText + 1, kFill));
    const auto p = [&](std::size_t i) { return peer[i].data(); };
    require(std::sscanf(text.c_str(), peerFormat.c_str(), p(0), p(1), p(2), p(3), p(4), p(5), p(6),
                        p(7)) == result,
            "the count");
    std::size_t cut = 0;
    next = 0;
    for (const Directive& directive : directives) {
        if (directive.stores()) {
            require(blocks[next] == expected(directive, blocks[next].size(), peer[next], cut),
                    "a target");
            ++next;
        }
    }
    return 0;
}
