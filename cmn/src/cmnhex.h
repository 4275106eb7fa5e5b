// Bytes as lower-case hex digits, for every text of the library that shows bytes.
#ifndef TARNIX_CMNHEX_H
#define TARNIX_CMNHEX_H

#include <algorithm>
#include <cstddef>
#include <string>

namespace tarnix_cmn_4_4
{

// Arithmetic, where a table would do: the compiler takes sixteen bytes at once.
constexpr char hexDigit(unsigned int value)
{
    return static_cast<char>(value + (value < 10 ? '0' : 'a' - 10));
}

// Two digits for each byte to `target`, which must not share memory with the bytes.
inline void printHex(char* __restrict target, const unsigned char* __restrict data,
                     std::size_t length)
{
    for (std::size_t i = 0; i < length; ++i) {
        target[2 * i] = hexDigit(data[i] >> 4);
        target[2 * i + 1] = hexDigit(data[i] & 0xF);
    }
}

// By way of narrow digits: with the widening in the same loop, it would go four units at a time.
inline void printHex(wchar_t* target, const unsigned char* data, std::size_t length)
{
    constexpr std::size_t most = 64;
    char digits[2 * most];
    while (length > 0) {
        const std::size_t piece = std::min(length, most);
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
    const std::size_t place = text.size();
    text.resize(place + 2 * length);
    printHex(text.data() + place, data, length);
}

} // namespace tarnix_cmn_4_4

#endif
