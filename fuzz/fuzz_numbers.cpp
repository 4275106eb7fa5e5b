// Fuzzer of the readers of numbers, strict ones too, against those of the C library, and of hex.
// The input is a base and a text, whose bytes are also converted to hex and back.
#include "TX_strings.h"
#include "cmnstringtool.h"
#include "fuzzinput.h"

#include <cctype>
#include <cerrno>
#include <cinttypes>
#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>

using Tool = tarnix_cmn_4_4::CCmnStringTool;

template <class Read, class Peer>
static void compareReaders(const std::string& text, int base, bool agree, Read read, Peer peer)
{
    const std::vector<char> exact = terminated(text);
    char* end = nullptr;
    char* peerEnd = nullptr;
    errno = 0;
    const auto number = read(exact.data(), &end, base);
    const int error = errno;
    require(end >= exact.data() && end < exact.data() + exact.size(), "the end is within the text");
    errno = 0;
    if (agree)
        require(peer(exact.data(), &peerEnd, base) == number && peerEnd == end && errno == error,
                "reads the same number as the standard");
}

// The end of a number without an exponent or a fraction: what follows it is a bad character.
static std::size_t endOfDigits(const std::string& text, std::size_t at, int base)
{
    const auto isDigit = [base](unsigned char c) {
        return base == 16 ? std::isxdigit(c) != 0 : std::isdigit(c) != 0;
    };
    while (at < text.size() && isDigit(static_cast<unsigned char>(text[at])))
        ++at;
    return at;
}

// The C library decides about the range and the value, the digits are counted here.
template <class Number, class Wide>
static void checkInteger(const std::string& text, int base, Wide (*peer)(const char*, char**, int))
{
    const std::size_t sign = std::is_signed_v<Number> && text.compare(0, 1, "-") == 0 ? 1 : 0;
    const bool isPrefixed =
        base == 16 && (text.compare(sign, 2, "0x") == 0 || text.compare(sign, 2, "0X") == 0);
    const std::size_t start = sign + (isPrefixed ? 2 : 0), end = endOfDigits(text, start, base);
    const bool isNumber = end > start && end == text.size();
    errno = 0;
    const Wide value = peer((text.substr(0, sign) + text.substr(start)).c_str(), nullptr, base);
    const bool fits = errno == 0 && value >= std::numeric_limits<Number>::min() &&
                      value <= std::numeric_limits<Number>::max();
    Number number = 77;
    const Tool::ReadResult result =
        base == 16 ? Tool::readHex(text, number) : Tool::readNumber(text, number);
    require(bool(result) == (isNumber && fits), "reads exactly the numbers that fit");
    require(number == (result ? static_cast<Number>(value) : Number{77}),
            "reads the value, or nothing");
    using Failure = Tool::ReadFailure;
    const Failure expected = isNumber       ? fits ? Failure::none : Failure::outOfRange
                             : text.empty() ? Failure::empty
                                            : Failure::badCharacter;
    require(result.failure == expected, "knows the kind of failure");
    require(result.position == (expected == Failure::badCharacter ? end : 0),
            "finds the bad character");
}

// The grammar is matched by hand, the C library decides about the value.
static void checkReal(const std::string& text)
{
    const std::size_t sign = text.compare(0, 1, "-") == 0 ? 1 : 0;
    const std::size_t point = endOfDigits(text, sign, 10);
    const bool hasPoint = text.compare(point, 1, ".") == 0;
    std::size_t end = hasPoint ? endOfDigits(text, point + 1, 10) : point;
    const bool hasDigit = point > sign || end > point + 1;
    if (hasDigit && end < text.size() && (text[end] | 0x20) == 'e') {
        const std::size_t digits = end + (text.find_first_of("+-", end) == end + 1 ? 2 : 1);
        const std::size_t last = endOfDigits(text, digits, 10);
        end = last > digits ? last : end;
    }
    double number = 77;
    const Tool::ReadResult result = Tool::readNumber(text, number);
    const double value = std::strtod(text.c_str(), nullptr);
    if (!hasDigit || end != text.size()) {
        require(result.failure == (text.empty() ? Tool::ReadFailure::empty
                                                : Tool::ReadFailure::badCharacter) &&
                    number == 77,
                "is no real number");
        require(result.position == end, "finds the bad character of a real number");
    } else if (result) {
        require(std::memcmp(&number, &value, sizeof value) == 0, "reads the nearest real number");
    } else {
        require(result.failure == Tool::ReadFailure::outOfRange && number == 77 &&
                    (std::isinf(value) || value == 0),
                "the real number is out of range");
    }
}

static void checkHex(const std::string& text)
{
    const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data());
    const int length = static_cast<int>(text.size());
    const std::wstring hex = Tool::binary2wstr(bytes, length);
    std::vector<unsigned char> back(text.size());
    int size = length - 1;
    require(Tool::wstr2binary(back.data(), &size, hex, true) == -1 && size == length - 1,
            "a target that is too small stays");
    size = length;
    require(Tool::wstr2binary(back.data(), &size, hex, true) == 0 && size == length &&
                std::equal(back.begin(), back.end(), bytes),
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
    for (const int of : {10, 16}) {
        checkInteger<int>(bytes, of, std::strtoll);
        checkInteger<unsigned int>(bytes, of, std::strtoull);
        checkInteger<long>(bytes, of, std::strtoll);
        checkInteger<unsigned long>(bytes, of, std::strtoull);
    }
    checkReal(bytes);
}
