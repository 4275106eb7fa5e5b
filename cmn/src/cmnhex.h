// Bytes as lower-case hex digits, for every text of the library that shows bytes.
#ifndef TARNIX_CMNHEX_H
#define TARNIX_CMNHEX_H

#include <array>
#include <cstddef>
#include <string>

namespace tarnix_cmn_4_4
{

using CmnHexPairs = std::array<std::array<char, 2>, 256>;

constexpr CmnHexPairs makeHexPairs()
{
    constexpr char digits[] = "0123456789abcdef";
    CmnHexPairs pairs{};
    for (std::size_t byte = 0; byte < pairs.size(); ++byte)
        pairs[byte] = {digits[byte >> 4], digits[byte & 0xF]};
    return pairs;
}

inline constexpr CmnHexPairs kHexPairs = makeHexPairs();

// Appends two digits for each byte to a narrow or wide text.
template <class Char>
void appendHex(std::basic_string<Char>& text, const unsigned char* data, std::size_t length)
{
    std::size_t place = text.size();
    text.resize(place + 2 * length);
    for (std::size_t i = 0; i < length; ++i) {
        const std::array<char, 2>& pair = kHexPairs[data[i]];
        text[place++] = static_cast<Char>(pair[0]);
        text[place++] = static_cast<Char>(pair[1]);
    }
}

} // namespace tarnix_cmn_4_4

#endif
