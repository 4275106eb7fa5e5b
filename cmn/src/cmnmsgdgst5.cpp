// SPDX-License-Identifier: LicenseRef-Tarnix
// MD5 of bytes and texts.
#include "cmnmsgdgst5.h"

#include "cmnhex.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>

namespace tarnix_cmn_4_4
{
namespace
{

constexpr std::size_t kLengthOffset = 56; // of the bit count in the last block

std::uint32_t readWord(const unsigned char* bytes)
{
    std::uint32_t word;
    std::memcpy(&word, bytes, sizeof word);
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    word = __builtin_bswap32(word);
#endif
    return word;
}

template <class Number>
void writeLittleEndian(unsigned char* bytes, Number number)
{
    for (std::size_t i = 0; i < sizeof number; ++i) {
        bytes[i] = static_cast<unsigned char>(number >> (8 * i));
    }
}

std::size_t lengthOf(const unsigned short* text)
{
    const unsigned short* end = text;
    while (*end) {
        ++end;
    }
    return static_cast<std::size_t>(end - text);
}

const unsigned char* bytesOf(const void* data)
{
    return static_cast<const unsigned char*>(data);
}

// Each step depends on the b of the step before, so the path from b to the result must be short.
// What does not depend on b is added first, and keep() stops the compiler from reordering these
// additions, which would cost a fifth of the speed. F has one operation fewer than its definition.
// The two halves of G have no bit in common, so they can be added one after the other.
inline void keep(std::uint32_t& sum)
{
    __asm__("" : "+r"(sum));
}

inline void rotate(std::uint32_t& a, std::uint32_t b, std::uint32_t s)
{
    a = (a << s | a >> (32 - s)) + b;
}

inline void round1(std::uint32_t& a, std::uint32_t b, std::uint32_t c, std::uint32_t d,
                   std::uint32_t x, std::uint32_t s, std::uint32_t t)
{
    a += x + t;
    keep(a);
    a += ((c ^ d) & b) ^ d;
    rotate(a, b, s);
}

inline void round2(std::uint32_t& a, std::uint32_t b, std::uint32_t c, std::uint32_t d,
                   std::uint32_t x, std::uint32_t s, std::uint32_t t)
{
    a += x + t + (c & ~d);
    keep(a);
    a += b & d;
    rotate(a, b, s);
}

inline void round3(std::uint32_t& a, std::uint32_t b, std::uint32_t c, std::uint32_t d,
                   std::uint32_t x, std::uint32_t s, std::uint32_t t)
{
    a += x + t;
    keep(a);
    a += (c ^ d) ^ b;
    rotate(a, b, s);
}

inline void round4(std::uint32_t& a, std::uint32_t b, std::uint32_t c, std::uint32_t d,
                   std::uint32_t x, std::uint32_t s, std::uint32_t t)
{
    a += x + t;
    keep(a);
    a += c ^ (b | ~d);
    rotate(a, b, s);
}

} // namespace

const std::uint32_t CCmnMessageDigest5::g_Shift_11;
const std::uint32_t CCmnMessageDigest5::g_Shift_12;
const std::uint32_t CCmnMessageDigest5::g_Shift_13;
const std::uint32_t CCmnMessageDigest5::g_Shift_14;
const std::uint32_t CCmnMessageDigest5::g_Shift_21;
const std::uint32_t CCmnMessageDigest5::g_Shift_22;
const std::uint32_t CCmnMessageDigest5::g_Shift_23;
const std::uint32_t CCmnMessageDigest5::g_Shift_24;
const std::uint32_t CCmnMessageDigest5::g_Shift_31;
const std::uint32_t CCmnMessageDigest5::g_Shift_32;
const std::uint32_t CCmnMessageDigest5::g_Shift_33;
const std::uint32_t CCmnMessageDigest5::g_Shift_34;
const std::uint32_t CCmnMessageDigest5::g_Shift_41;
const std::uint32_t CCmnMessageDigest5::g_Shift_42;
const std::uint32_t CCmnMessageDigest5::g_Shift_43;
const std::uint32_t CCmnMessageDigest5::g_Shift_44;

CCmnMessageDigest5::CCmnMessageDigest5()
{
    Initialize();
}

// Calls feed directly, because the length of Update has only 32 bits.
CCmnMessageDigest5::CCmnMessageDigest5(const char* text) : CCmnMessageDigest5()
{
    feed(bytesOf(text), std::strlen(text));
    Finalize();
}

CCmnMessageDigest5::CCmnMessageDigest5(const unsigned short* text) : CCmnMessageDigest5()
{
    feed(bytesOf(text), lengthOf(text) * sizeof *text);
    Finalize();
}

CCmnMessageDigest5::CCmnMessageDigest5(const void* data, std::uint32_t length)
    : CCmnMessageDigest5()
{
    Update(bytesOf(data), length);
    Finalize();
}

void CCmnMessageDigest5::Initialize()
{
    std::memset(m_Block, 0, sizeof m_Block);
    m_Buffered = 0;
    m_State[0] = 0x67452301;
    m_State[1] = 0xEFCDAB89;
    m_State[2] = 0x98BADCFE;
    m_State[3] = 0x10325476;
    m_Bits = 0;
    std::memset(m_Digest, 0, sizeof m_Digest);
    std::memset(m_Text, 0, sizeof m_Text);
    std::memset(m_WideText, 0, sizeof m_WideText);
}

void CCmnMessageDigest5::Update(const unsigned char* data, std::uint32_t length)
{
    if (data == nullptr || isFinished()) {
        return;
    }
    feed(data, length);
}

void CCmnMessageDigest5::feed(const unsigned char* data, std::size_t length)
{
    if (m_Buffered != 0) {
        const std::size_t taken = std::min(length, kBlockSize - m_Buffered);
        std::memcpy(m_Block + m_Buffered, data, taken);
        m_Buffered += static_cast<std::uint32_t>(taken);
        data += taken;
        length -= taken;
        if (m_Buffered < kBlockSize) {
            return;
        }
        Transform(m_Block);
        m_Bits += 8 * kBlockSize;
    }
    const std::size_t rest = length % kBlockSize;
    transformBlocks(data, length / kBlockSize);
    m_Bits += std::uint64_t{8} * (length - rest);
    std::memcpy(m_Block, data + (length - rest), rest);
    m_Buffered = static_cast<std::uint32_t>(rest);
}

void CCmnMessageDigest5::Finalize()
{
    if (isFinished()) {
        return;
    }
    std::memset(m_Block + m_Buffered, 0, kBlockSize - m_Buffered);
    m_Block[m_Buffered] = 0x80;
    if (m_Buffered >= kLengthOffset) {
        Transform(m_Block);
        std::memset(m_Block, 0, kBlockSize);
    }
    m_Bits += 8 * m_Buffered;
    writeLittleEndian(m_Block + kLengthOffset, m_Bits);
    Transform(m_Block);
    print();
}

void CCmnMessageDigest5::print()
{
    unsigned char* target = m_Digest;
    for (const std::uint32_t word : m_State) {
        writeLittleEndian(target, word);
        target += sizeof word;
    }
    printHex(m_Text, m_Digest, kDigestSize);
    std::copy(std::begin(m_Text), std::end(m_Text), m_WideText);
}

unsigned char CCmnMessageDigest5::operator[](std::uint32_t index) const
{
    return index < kDigestSize ? m_Digest[index] : static_cast<unsigned char>(0);
}

void CCmnMessageDigest5::Transform(const unsigned char* block)
{
    transformBlocks(block, 1);
}

// Keeps the state in registers from block to block.
void CCmnMessageDigest5::transformBlocks(const unsigned char* data, std::size_t count)
{
    std::uint32_t a = m_State[0];
    std::uint32_t b = m_State[1];
    std::uint32_t c = m_State[2];
    std::uint32_t d = m_State[3];
    for (; count > 0; --count, data += kBlockSize) {
        const std::uint32_t before[] = {a, b, c, d};
        const auto x = [data](std::size_t word) { return readWord(data + 4 * word); };

        round1(a, b, c, d, x(0), g_Shift_11, 0xD76AA478);
        round1(d, a, b, c, x(1), g_Shift_12, 0xE8C7B756);
        round1(c, d, a, b, x(2), g_Shift_13, 0x242070DB);
        round1(b, c, d, a, x(3), g_Shift_14, 0xC1BDCEEE);
        round1(a, b, c, d, x(4), g_Shift_11, 0xF57C0FAF);
        round1(d, a, b, c, x(5), g_Shift_12, 0x4787C62A);
        round1(c, d, a, b, x(6), g_Shift_13, 0xA8304613);
        round1(b, c, d, a, x(7), g_Shift_14, 0xFD469501);
        round1(a, b, c, d, x(8), g_Shift_11, 0x698098D8);
        round1(d, a, b, c, x(9), g_Shift_12, 0x8B44F7AF);
        round1(c, d, a, b, x(10), g_Shift_13, 0xFFFF5BB1);
        round1(b, c, d, a, x(11), g_Shift_14, 0x895CD7BE);
        round1(a, b, c, d, x(12), g_Shift_11, 0x6B901122);
        round1(d, a, b, c, x(13), g_Shift_12, 0xFD987193);
        round1(c, d, a, b, x(14), g_Shift_13, 0xA679438E);
        round1(b, c, d, a, x(15), g_Shift_14, 0x49B40821);

        round2(a, b, c, d, x(1), g_Shift_21, 0xF61E2562);
        round2(d, a, b, c, x(6), g_Shift_22, 0xC040B340);
        round2(c, d, a, b, x(11), g_Shift_23, 0x265E5A51);
        round2(b, c, d, a, x(0), g_Shift_24, 0xE9B6C7AA);
        round2(a, b, c, d, x(5), g_Shift_21, 0xD62F105D);
        round2(d, a, b, c, x(10), g_Shift_22, 0x02441453);
        round2(c, d, a, b, x(15), g_Shift_23, 0xD8A1E681);
        round2(b, c, d, a, x(4), g_Shift_24, 0xE7D3FBC8);
        round2(a, b, c, d, x(9), g_Shift_21, 0x21E1CDE6);
        round2(d, a, b, c, x(14), g_Shift_22, 0xC33707D6);
        round2(c, d, a, b, x(3), g_Shift_23, 0xF4D50D87);
        round2(b, c, d, a, x(8), g_Shift_24, 0x455A14ED);
        round2(a, b, c, d, x(13), g_Shift_21, 0xA9E3E905);
        round2(d, a, b, c, x(2), g_Shift_22, 0xFCEFA3F8);
        round2(c, d, a, b, x(7), g_Shift_23, 0x676F02D9);
        round2(b, c, d, a, x(12), g_Shift_24, 0x8D2A4C8A);

        round3(a, b, c, d, x(5), g_Shift_31, 0xFFFA3942);
        round3(d, a, b, c, x(8), g_Shift_32, 0x8771F681);
        round3(c, d, a, b, x(11), g_Shift_33, 0x6D9D6122);
        round3(b, c, d, a, x(14), g_Shift_34, 0xFDE5380C);
        round3(a, b, c, d, x(1), g_Shift_31, 0xA4BEEA44);
        round3(d, a, b, c, x(4), g_Shift_32, 0x4BDECFA9);
        round3(c, d, a, b, x(7), g_Shift_33, 0xF6BB4B60);
        round3(b, c, d, a, x(10), g_Shift_34, 0xBEBFBC70);
        round3(a, b, c, d, x(13), g_Shift_31, 0x289B7EC6);
        round3(d, a, b, c, x(0), g_Shift_32, 0xEAA127FA);
        round3(c, d, a, b, x(3), g_Shift_33, 0xD4EF3085);
        round3(b, c, d, a, x(6), g_Shift_34, 0x04881D05);
        round3(a, b, c, d, x(9), g_Shift_31, 0xD9D4D039);
        round3(d, a, b, c, x(12), g_Shift_32, 0xE6DB99E5);
        round3(c, d, a, b, x(15), g_Shift_33, 0x1FA27CF8);
        round3(b, c, d, a, x(2), g_Shift_34, 0xC4AC5665);

        round4(a, b, c, d, x(0), g_Shift_41, 0xF4292244);
        round4(d, a, b, c, x(7), g_Shift_42, 0x432AFF97);
        round4(c, d, a, b, x(14), g_Shift_43, 0xAB9423A7);
        round4(b, c, d, a, x(5), g_Shift_44, 0xFC93A039);
        round4(a, b, c, d, x(12), g_Shift_41, 0x655B59C3);
        round4(d, a, b, c, x(3), g_Shift_42, 0x8F0CCC92);
        round4(c, d, a, b, x(10), g_Shift_43, 0xFFEFF47D);
        round4(b, c, d, a, x(1), g_Shift_44, 0x85845DD1);
        round4(a, b, c, d, x(8), g_Shift_41, 0x6FA87E4F);
        round4(d, a, b, c, x(15), g_Shift_42, 0xFE2CE6E0);
        round4(c, d, a, b, x(6), g_Shift_43, 0xA3014314);
        round4(b, c, d, a, x(13), g_Shift_44, 0x4E0811A1);
        round4(a, b, c, d, x(4), g_Shift_41, 0xF7537E82);
        round4(d, a, b, c, x(11), g_Shift_42, 0xBD3AF235);
        round4(c, d, a, b, x(2), g_Shift_43, 0x2AD7D2BB);
        round4(b, c, d, a, x(9), g_Shift_44, 0xEB86D391);

        a += before[0];
        b += before[1];
        c += before[2];
        d += before[3];
    }
    m_State[0] = a;
    m_State[1] = b;
    m_State[2] = c;
    m_State[3] = d;
}

void CCmnMessageDigest5::Transform_Round1(std::uint32_t& a, std::uint32_t b, std::uint32_t c,
                                          std::uint32_t d, std::uint32_t x, std::uint32_t s,
                                          std::uint32_t t)
{
    round1(a, b, c, d, x, s, t);
}

void CCmnMessageDigest5::Transform_Round2(std::uint32_t& a, std::uint32_t b, std::uint32_t c,
                                          std::uint32_t d, std::uint32_t x, std::uint32_t s,
                                          std::uint32_t t)
{
    round2(a, b, c, d, x, s, t);
}

void CCmnMessageDigest5::Transform_Round3(std::uint32_t& a, std::uint32_t b, std::uint32_t c,
                                          std::uint32_t d, std::uint32_t x, std::uint32_t s,
                                          std::uint32_t t)
{
    round3(a, b, c, d, x, s, t);
}

void CCmnMessageDigest5::Transform_Round4(std::uint32_t& a, std::uint32_t b, std::uint32_t c,
                                          std::uint32_t d, std::uint32_t x, std::uint32_t s,
                                          std::uint32_t t)
{
    round4(a, b, c, d, x, s, t);
}

} // namespace tarnix_cmn_4_4
