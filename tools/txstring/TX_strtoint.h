// SPDX-License-Identifier: LicenseRef-Tarnix
// The common part of TX_strtoimax and TX_strtoumax: white space, sign, prefix, digits, overflow.
#ifndef TARNIX_TX_STRTOINT_H
#define TARNIX_TX_STRTOINT_H

#include "TX_chars.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>

constexpr unsigned char TX_NoDigit = UINT8_MAX;

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
    std::uint64_t negative; // after a minus sign
};

constexpr TX_NumberLimits TX_SignedLimits = {INT64_MAX, std::uint64_t{INT64_MAX} + 1};
constexpr TX_NumberLimits TX_UnsignedLimits = {UINT64_MAX, UINT64_MAX};

struct TX_Number {
    std::uint64_t magnitude{}; // the limit after an overflow
    bool negative = false;
    bool overflow = false;

    // The value, for a signed number in two's complement. The limit after an overflow is not
    // negated: an unsigned limit has no sign, and the smallest signed number is its own negation.
    std::uint64_t bits() const { return negative && !overflow ? 0 - magnitude : magnitude; }
};

// The number of digits of each base that cannot exceed any of the limits.
constexpr std::array<unsigned char, 37> TX_makeSafeDigits()
{
    std::array<unsigned char, 37> counts{};
    for (unsigned int base = 2; base < counts.size(); ++base) {
        std::uint64_t room = INT64_MAX;
        for (room /= base; room != 0; room /= base) {
            ++counts[base];
        }
    }
    return counts;
}

inline constexpr std::array<unsigned char, 37> TX_SafeDigits = TX_makeSafeDigits();

// Reads at most `count` digits without checks for overflow, so that each step is only a
// multiplication and an addition. `count` must not exceed TX_SafeDigits. Returns the number of
// digits read.
inline std::size_t TX_readSafeDigits(const unsigned char* first, std::size_t count,
                                     unsigned int base, std::uint64_t& value)
{
    std::uint64_t sum = 0;
    std::size_t read = 0;
    for (; read != count; ++read) {
        const unsigned int digit = TX_Digits[first[read]];
        if (digit >= base) {
            break;
        }
        sum = sum * base + digit;
    }
    value = sum;
    return read;
}

// Reads the remaining digits with checks for overflow. After an overflow it still reads all digits.
inline const unsigned char* TX_readLastDigits(const unsigned char* next, const unsigned char* end,
                                              int base, const TX_NumberLimits& limits,
                                              TX_Number& number)
{
    const int digitLimit = std::min<int>(base, TX_NoDigit);
    const std::uint64_t limit = number.negative ? limits.negative : limits.positive;
    for (; next != end && TX_Digits[*next] < digitLimit; ++next) {
        std::uint64_t value;
        number.overflow =
            number.overflow ||
            __builtin_mul_overflow(number.magnitude, static_cast<std::uint64_t>(base), &value) ||
            __builtin_add_overflow(value, std::uint64_t{TX_Digits[*next]}, &value) || value > limit;
        number.magnitude = number.overflow ? limit : value;
    }
    return next;
}

// Reads the digits at `next` and returns the position after them. `end` is the end of the input; if
// it is null, a byte that is not a digit must follow them.
inline const unsigned char* TX_readDigits(const unsigned char* next, const unsigned char* end,
                                          int base, const TX_NumberLimits& limits,
                                          TX_Number& number)
{
    const auto index = static_cast<std::size_t>(base); // huge for a negative base
    std::size_t count = index < TX_SafeDigits.size() ? TX_SafeDigits[index] : 0;
    if (end != nullptr) {
        count = std::min(count, static_cast<std::size_t>(end - next));
    }
    const std::size_t read =
        base == 10 // faster with a constant base
            ? TX_readSafeDigits(next, count, 10, number.magnitude)
            : TX_readSafeDigits(next, count, static_cast<unsigned int>(base), number.magnitude);
    next += read;
    return read < count ? next : TX_readLastDigits(next, end, base, limits, number);
}

// TX_strtoimax and TX_strtoumax except for the type of the result.
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
    next = TX_readDigits(next, nullptr, base, limits, number);
    if (number.overflow) {
        errno = ERANGE;
    }
    if (end != nullptr && next != first) {
        *end = const_cast<char*>(reinterpret_cast<const char*>(next));
    }
    return number.bits();
}

#endif
