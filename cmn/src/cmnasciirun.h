// SPDX-License-Identifier: LicenseRef-Tarnix
// Runs of ASCII, which a conversion of text only widens or narrows. The loops over a block have no
// early exit, so that the compiler can vectorize them.
#ifndef TARNIX_CMNASCIIRUN_H
#define TARNIX_CMNASCIIRUN_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

namespace tarnix_cmn_4_4
{

template <class Unit>
using UnitNumber = std::make_unsigned_t<Unit>;

// The same number in each unit of a word.
template <class Unit>
constexpr std::uint64_t inEachUnit(UnitNumber<Unit> number)
{
    return ~std::uint64_t{0} / std::numeric_limits<UnitNumber<Unit>>::max() * number;
}

// Whether each unit of a block is ASCII and not zero. Tests whole words: a unit that is not ASCII
// has a bit above the seventh, and so has a zero from which 1 is subtracted. Only a zero borrows
// from the next unit.
template <std::size_t size, class Unit>
inline bool isAsciiBlock(const Unit* units)
{
    constexpr std::uint64_t ones = inEachUnit<Unit>(1);
    constexpr std::uint64_t high = ~inEachUnit<Unit>(0x7F);
    std::uint64_t found{};
    static_assert(size % (sizeof found / sizeof *units) == 0,
                  "whole words: no unit after it is read");
    for (std::size_t i = 0; i < size; i += sizeof found / sizeof *units) {
        std::uint64_t word;
        std::memcpy(&word, units + i, sizeof word);
        found |= word | (word - ones);
    }
    return (found & high) == 0;
}

template <std::size_t size, class From, class To>
inline bool copyAsciiBlock(const From* __restrict from, To* __restrict to)
{
    if (!isAsciiBlock<size>(from)) {
        return false;
    }
    for (std::size_t i = 0; i < size; ++i) {
        to[i] = static_cast<To>(static_cast<UnitNumber<From>>(from[i]));
    }
    return true;
}

constexpr std::size_t kAsciiBlock = 16;

// As copyAsciiRun, for a text of at least one block. Not inlined: the registers that it needs would
// be saved for other text too.
template <class From, class To>
[[gnu::noinline]] std::size_t copyLongAsciiRun(const From* from, std::size_t length, To* to)
{
    constexpr std::size_t large = 256 / sizeof *from;
    std::size_t done = 0;
    while (length - done >= large && copyAsciiBlock<large>(from + done, to + done)) {
        done += large;
    }
    while (length - done >= kAsciiBlock && copyAsciiBlock<kAsciiBlock>(from + done, to + done)) {
        done += kAsciiBlock;
    }
    // The last block of the text overlaps the one before.
    const std::size_t last = length - kAsciiBlock;
    return last < done && copyAsciiBlock<kAsciiBlock>(from + last, to + last) ? length : done;
}

// Whether a text starts with 16 bytes or more of ASCII.
template <class Unit>
inline bool startsWithAscii(const Unit* units, std::size_t length)
{
    return length >= kAsciiBlock && isAsciiBlock<kAsciiBlock / sizeof *units>(units);
}

// Copies the ASCII at the start of a text, up to a zero, and returns how many units it copied: all,
// or up to 15 less than there are. The target must have room for as many.
template <class From, class To>
inline std::size_t copyAsciiRun(const From* from, std::size_t length, To* to)
{
    return startsWithAscii(from, length) ? copyLongAsciiRun(from, length, to) : 0;
}

} // namespace tarnix_cmn_4_4

#endif
