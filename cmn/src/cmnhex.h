// SPDX-License-Identifier: LicenseRef-Tarnix
// Bytes as lower-case hex digits.
#ifndef TARNIX_CMNHEX_H
#define TARNIX_CMNHEX_H

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <string>

namespace tarnix_cmn_4_4
{

// Computed and not looked up in a table, so that the compiler can vectorize the loop of printHex.
constexpr char hexDigit(unsigned int value)
{
    return static_cast<char>(value + (value < 10 ? '0' : 'a' - 10));
}

// Writes two digits for each byte. `target` must not overlap the bytes.
inline void printHex(char* __restrict target, const unsigned char* __restrict data,
                     std::size_t length)
{
    for (std::size_t i = 0; i < length; ++i) {
        target[2 * i] = hexDigit(data[i] >> 4);
        target[2 * i + 1] = hexDigit(data[i] & 0xF);
    }
}

// Writes narrow digits and then widens them: a single loop for both would process only four units
// at a time.
inline void printHex(wchar_t* target, const unsigned char* data, std::size_t length)
{
    char digits[BUFSIZ];
    while (length > 0) {
        const std::size_t piece = std::min(length, sizeof digits / 2);
        printHex(digits, data, piece);
        target = std::copy_n(digits, 2 * piece, target);
        data += piece;
        length -= piece;
    }
}

// Appends two digits for each byte to a narrow or wide text.
template <class Char>
void appendHex(std::basic_string<Char>& text, const unsigned char* data, std::size_t length)
{
    const std::size_t start = text.size();
    text.resize(start + 2 * length);
    printHex(text.data() + start, data, length);
}

} // namespace tarnix_cmn_4_4

#endif
