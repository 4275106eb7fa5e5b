// SPDX-License-Identifier: LicenseRef-Tarnix
// Character classes for the number readers and the scanner.
#ifndef TARNIX_TX_CHARS_H
#define TARNIX_TX_CHARS_H

#include <cctype>
#include <cstdint>
#include <cstring>

// Printable ASCII without the blank: white space in no locale.
constexpr bool TX_isGraphic(unsigned char byte)
{
    return byte > ' ' && byte < 0x7f;
}

// Whether eight bytes are all graphic: the fast path for long words. The sums set the bit 0x80 of
// each byte that is not graphic; only such a byte can carry into the next one.
inline bool TX_areGraphic(const unsigned char* bytes)
{
    constexpr std::uint64_t each = 0x0101010101010101u;
    std::uint64_t word;
    std::memcpy(&word, bytes, sizeof word);
    return (((word - each * '!') | (word + each) | word) & each * 0x80) == 0;
}

// As isspace, but the function is called only for bytes on which locales may differ.
inline bool TX_isSpace(unsigned char byte)
{
    return !TX_isGraphic(byte) && (byte == ' ' || std::isspace(byte) != 0);
}

#endif
