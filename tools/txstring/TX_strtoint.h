// What TX_strtoimax and TX_strtoumax have in common: white space, sign, prefix, digits, overflow.
#ifndef TARNIX_TX_STRTOINT_H
#define TARNIX_TX_STRTOINT_H

#include <array>
#include <cctype>
#include <cerrno>
#include <cstdint>

// ASCII without the blank and the control characters: white space in no locale.
inline bool TX_isGraphic(unsigned char byte)
{
    return byte > ' ' && byte < 0x7f;
}

// isspace, with the call only for the bytes on which locales may differ.
inline bool TX_isSpace(unsigned char byte)
{
    return !TX_isGraphic(byte) && (byte == ' ' || std::isspace(byte) != 0);
}

constexpr unsigned char TX_NoDigit = 0xff;

constexpr std::array<unsigned char, 256> TX_makeDigits()
{
    std::array<unsigned char, 256> digits{};
    for (unsigned char& digit : digits) {
        digit = TX_NoDigit;
    }
    for (unsigned int i = 0; i < 10; ++i) {
        digits['0' + i] = static_cast<unsigned char>(i);
    }
    for (unsigned int i = 0; i < 26; ++i) {
        digits['a' + i] = digits['A' + i] = static_cast<unsigned char>(10 + i);
    }
    return digits;
}

// The value of each digit and letter, TX_NoDigit for all other bytes.
inline constexpr std::array<unsigned char, 256> TX_Digits = TX_makeDigits();

struct TX_NumberLimits {
    std::uint64_t positive;
    std::uint64_t negative; // behind a minus sign
};

constexpr TX_NumberLimits TX_SignedLimits = {INT64_MAX, std::uint64_t{INT64_MAX} + 1};
constexpr TX_NumberLimits TX_UnsignedLimits = {UINT64_MAX, UINT64_MAX};

struct TX_Number {
    std::uint64_t magnitude = 0; // the limit after an overflow
    bool negative = false;
    bool overflow = false;

    // The value, of a signed number in two's complement. An unsigned limit is not negated; the
    // smallest signed number is its own negation.
    std::uint64_t bits() const { return negative && !overflow ? 0 - magnitude : magnitude; }
};

// Reads digits as long as no further one can overflow: with a base up to 36 a value below 2^57
// stays below all limits. Nothing but the multiplication is on the way from digit to digit.
inline std::uint64_t TX_readSafeDigits(const unsigned char*& next, const unsigned char* end,
                                       unsigned int base)
{
    constexpr std::uint64_t safe = std::uint64_t{1} << 57;
    const unsigned char* place = next;
    std::uint64_t value = 0;
    while (place != end && value < safe) {
        const unsigned int digit = TX_Digits[*place];
        if (digit >= base) {
            break;
        }
        value = value * base + digit;
        ++place;
    }
    next = place;
    return value;
}

// Reads the digits from `next` on, which it moves behind them. `end` is where the digits must end;
// if it is null, a byte that is no digit must end them. All digits are read after an overflow too.
inline void TX_readDigits(const unsigned char*& next, const unsigned char* end, int base,
                          const TX_NumberLimits& limits, TX_Number& number)
{
    if (base == 10) {
        number.magnitude = TX_readSafeDigits(next, end, 10); // compiled for the constant
    } else if (base > 0 && base <= 36) {
        number.magnitude = TX_readSafeDigits(next, end, static_cast<unsigned int>(base));
    }
    const int digitLimit = base < 36 ? base : 36; // keeps TX_NoDigit out, whatever the base
    const std::uint64_t most = number.negative ? limits.negative : limits.positive;
    for (; next != end && TX_Digits[*next] < digitLimit; ++next) {
        std::uint64_t value = 0;
        number.overflow =
            number.overflow ||
            __builtin_mul_overflow(number.magnitude, static_cast<std::uint64_t>(base), &value) ||
            __builtin_add_overflow(value, std::uint64_t{TX_Digits[*next]}, &value) || value > most;
        number.magnitude = number.overflow ? most : value;
    }
}

// strtoimax and strtoumax but for the type of the result.
inline std::uint64_t TX_readNumber(const char* text, char** end, int base,
                                   const TX_NumberLimits& limits)
{
    if (end != nullptr) {
        *end = const_cast<char*>(text);
    }
    if (text == nullptr) {
        return 0;
    }
    const unsigned char* next = reinterpret_cast<const unsigned char*>(text);
    while (TX_isSpace(*next)) {
        ++next;
    }
    TX_Number number;
    if (*next == '-' || *next == '+') {
        number.negative = *next == '-';
        ++next;
    }
    if ((base == 0 || base == 16) && next[0] == '0' && (next[1] == 'x' || next[1] == 'X')) {
        next += 2;
        base = 16;
    } else if (base == 0) {
        base = *next == '0' ? 8 : 10;
    }
    const unsigned char* const first = next;
    TX_readDigits(next, nullptr, base, limits, number);
    if (number.overflow) {
        errno = ERANGE;
    }
    if (end != nullptr && next != first) {
        *end = const_cast<char*>(reinterpret_cast<const char*>(next));
    }
    return number.bits();
}

#endif
