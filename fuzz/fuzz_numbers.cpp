// SPDX-License-Identifier: LicenseRef-Tarnix
// Fuzzer of the readers of numbers, strict ones too, against those of the C library, and of hex.
// The input is a base and a text, whose bytes are also converted to hex and back.
#include "TX_strings.h"
#include "cmnstringtool.h"
#include "fuzzinput.h"

#include <cctype>
#include <cerrno>
#include <cinttypes>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <tuple>

using Tool = tarnix_cmn_4_4::CCmnStringTool;

template <class Read, class Peer>
static void compareReaders(const std::string& text, int base, bool agree, Read read, Peer peer)
{
    const std::vector<char> exact = terminated(text);
    const auto outcome = [&](auto reader) {
        char* end = nullptr;
        errno = 0;
        const auto number = reader(exact.data(), &end, base);
        return std::tuple(number, end - exact.data(), errno);
    };
    const auto used = std::get<1>(outcome(read));
    require(used >= 0 && used <= std::ptrdiff_t(text.size()), "the end is within the text");
    require(!agree || outcome(read) == outcome(peer), "reads the same number as the standard");
}

static std::size_t endOfDigits(const std::string& text, std::size_t at, int base)
{
    const char* const digits = base == 16 ? "0123456789abcdefABCDEF" : "0123456789";
    return std::min(text.find_first_not_of(digits, at), text.size());
}

constexpr int kBefore = 77;

// `end` is where the first bad character is, and `value` what the C library reads.
template <class Number>
static void checkRead(const std::string& text, const Tool::ReadResult& result, Number number,
                      bool isNumber, std::size_t end, bool fits, Number value)
{
    using Failure = Tool::ReadFailure;
    const Failure expected = isNumber       ? fits ? Failure::none : Failure::outOfRange
                             : text.empty() ? Failure::empty
                                            : Failure::badCharacter;
    require(result.failure == expected, "knows the kind of failure");
    require(result.position == (expected == Failure::badCharacter ? end : 0),
            "finds the bad character");
    const Number wanted = result ? value : Number{kBefore};
    require(std::memcmp(&number, &wanted, sizeof wanted) == 0, "reads the value, or nothing");
}

// The C library decides about the range and the value, the digits are counted here.
template <class Number>
static void checkInteger(const std::string& text, int base)
{
    using Limits = std::numeric_limits<Number>;
    const std::size_t sign = Limits::is_signed && text.compare(0, 1, "-") == 0 ? 1 : 0;
    const bool isPrefixed =
        base == 16 && (text.compare(sign, 2, "0x") == 0 || text.compare(sign, 2, "0X") == 0);
    const std::size_t start = sign + (isPrefixed ? 2 : 0), end = endOfDigits(text, start, base);
    const auto peer = [base](const std::string& digits) {
        if constexpr (Limits::is_signed)
            return std::strtoll(digits.c_str(), nullptr, base);
        else
            return std::strtoull(digits.c_str(), nullptr, base);
    };
    errno = 0;
    const auto value = peer(text.substr(0, sign) + text.substr(start));
    const bool fits = errno == 0 && value >= Limits::min() && value <= Limits::max();
    Number number = kBefore;
    const Tool::ReadResult result =
        base == 16 ? Tool::readHex(text, number) : Tool::readNumber(text, number);
    checkRead(text, result, number, end > start && end == text.size(), end, fits,
              static_cast<Number>(value));

    const std::string printed = std::to_string(number);
    const std::wstring widened(printed.begin(), printed.end());
    if constexpr (Limits::is_signed)
        require(Tool::int2str(number) == printed && Tool::int2wstr(number) == widened,
                "prints a signed number");
    else
        require(Tool::uint2str(number) == printed && Tool::uint2wstr(number) == widened,
                "prints a number without a sign");
}

// The grammar is matched by hand, the C library decides about the value.
static void checkReal(const std::string& text)
{
    const std::size_t sign = text.compare(0, 1, "-") == 0 ? 1 : 0;
    const std::size_t point = endOfDigits(text, sign, 10);
    const bool hasPoint = text.compare(point, 1, ".") == 0;
    const std::size_t mantissa = hasPoint ? endOfDigits(text, point + 1, 10) : point;
    const bool hasDigit = point > sign || mantissa > point + 1;
    std::size_t end = mantissa;
    if (hasDigit && end < text.size() && (text[end] | 0x20) == 'e') {
        const std::size_t digits = end + (text.find_first_of("+-", end) == end + 1 ? 2 : 1);
        const std::size_t last = endOfDigits(text, digits, 10);
        end = last > digits ? last : end;
    }
    const double value = std::strtod(text.c_str(), nullptr);
    const bool isZero = text.find_first_of("123456789") >= mantissa;
    double number = kBefore;
    const Tool::ReadResult result = Tool::readNumber(text, number);
    checkRead(text, result, number, hasDigit && end == text.size(), end,
              std::isfinite(value) && (value == 0) == isZero, value);
}

static void checkHex(const std::string& text)
{
    const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data());
    const int length = static_cast<int>(text.size());
    std::vector<unsigned char> back(text.size());
    int size = length;
    require(Tool::wstr2binary(back.data(), &size, Tool::binary2wstr(bytes, length), true) == 0 &&
                size == length && std::equal(back.begin(), back.end(), bytes),
            "bytes survive a round trip");
}

void fuzz(FuzzInput input)
{
    const int base = static_cast<int>(input.byte()) - 4; // invalid ones too
    const std::string bytes = input.rest(), text = bytes.c_str();
    // "0x" without a digit is where they differ.
    const std::size_t x = text.find_first_of("xX");
    const bool isBare =
        x != std::string::npos && !std::isxdigit(static_cast<unsigned char>(text.c_str()[x + 1]));
    const bool agree = base == 0 || base == 16 ? !isBare : base >= 2 && base <= 36;
    compareReaders(text, base, agree, TX_strtoimax, std::strtoimax);
    compareReaders(text, base, agree, TX_strtoumax, std::strtoumax);
    checkHex(bytes);
    const auto checkAs = [&bytes](auto... kinds) {
        for (const int of : {10, 16})
            (checkInteger<decltype(kinds)>(bytes, of), ...);
    };
    checkAs(0, 0U, 0L, 0UL, 0LL, 0ULL);
    checkReal(bytes);
}
