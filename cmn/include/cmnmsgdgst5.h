// SPDX-License-Identifier: LicenseRef-Tarnix
/// @file
/// MD5 digests (RFC 1321) of bytes and texts.
///
/// @code
/// #include "cmnmsgdgst5.h"
/// #include <iostream>
///
/// const tarnix_cmn_4_4::CCmnMessageDigest5 digest("abc");
/// std::cout << digest.GetAnsiMessageDigest(); // prints 900150983cd24fb0d6963f7d28e17f72
/// @endcode
///
/// For data in several parts, call Update for each part and then Finalize.
#ifndef TARNIX_CMNMSGDGST5_H
#define TARNIX_CMNMSGDGST5_H

#include "cmnexport.h"

#include <cstddef>
#include <cstdint>

namespace tarnix_cmn_4_4
{

/// An object is open and accepts bytes until Finalize is called. Then it is finished: Update and
/// Finalize do nothing until Initialize opens it again. It allocates no memory, and a copy is
/// independent of its source. Only one thread at a time may use an object.
///
/// MD5 detects accidental changes. It does not protect against deliberate ones.
class TARNIX_CMN_API CCmnMessageDigest5
{
public:
    /// @{
    /// The rotations of the four rounds (RFC 1321, section 3.4), four for each round.
    static const std::uint32_t g_Shift_11 = 7;
    static const std::uint32_t g_Shift_12 = 12;
    static const std::uint32_t g_Shift_13 = 17;
    static const std::uint32_t g_Shift_14 = 22;
    static const std::uint32_t g_Shift_21 = 5;
    static const std::uint32_t g_Shift_22 = 9;
    static const std::uint32_t g_Shift_23 = 14;
    static const std::uint32_t g_Shift_24 = 20;
    static const std::uint32_t g_Shift_31 = 4;
    static const std::uint32_t g_Shift_32 = 11;
    static const std::uint32_t g_Shift_33 = 16;
    static const std::uint32_t g_Shift_34 = 23;
    static const std::uint32_t g_Shift_41 = 6;
    static const std::uint32_t g_Shift_42 = 10;
    static const std::uint32_t g_Shift_43 = 15;
    static const std::uint32_t g_Shift_44 = 21;
    /// @}

    /// An open object.
    CCmnMessageDigest5();

    /// @{
    /// A finished object with the digest of a text up to its terminator, or of `length` bytes. Of a
    /// 16-bit text, both bytes of each unit count, in the byte order of the machine. A text must
    /// not be null. Null data counts as the empty message, whatever its length.
    explicit CCmnMessageDigest5(const char* text);
    explicit CCmnMessageDigest5(const unsigned short* text);
    CCmnMessageDigest5(const void* data, std::uint32_t length);
    /// @}

    /// Opens the object again and discards the bytes added so far.
    void Initialize();

    /// Adds `length` bytes to the message. May be called any number of times. Null data is ignored.
    void Update(const unsigned char* data, std::uint32_t length);

    /// Completes the digest. Another call changes nothing.
    void Finalize();

    /// A byte of the digest. 0 before Finalize and for an index of 16 or more.
    unsigned char operator[](std::uint32_t index) const;

    /// @{
    /// The digest as 32 lower-case hex digits; the empty text before Finalize. The text is a part
    /// of the object and changes with it.
    const char* GetAnsiMessageDigest() const { return m_Text; }
    const wchar_t* GetUnicodeMessageDigest() const { return m_WideText; }
    /// @}

protected:
    /// Adds a block of 64 bytes to the state.
    void Transform(const unsigned char* block);

    /// @{
    /// One step of a round; `s` must be 1 to 31.
    static void Transform_Round1(std::uint32_t& a, std::uint32_t b, std::uint32_t c,
                                 std::uint32_t d, std::uint32_t x, std::uint32_t s,
                                 std::uint32_t t);
    static void Transform_Round2(std::uint32_t& a, std::uint32_t b, std::uint32_t c,
                                 std::uint32_t d, std::uint32_t x, std::uint32_t s,
                                 std::uint32_t t);
    static void Transform_Round3(std::uint32_t& a, std::uint32_t b, std::uint32_t c,
                                 std::uint32_t d, std::uint32_t x, std::uint32_t s,
                                 std::uint32_t t);
    static void Transform_Round4(std::uint32_t& a, std::uint32_t b, std::uint32_t c,
                                 std::uint32_t d, std::uint32_t x, std::uint32_t s,
                                 std::uint32_t t);
    /// @}

private:
    static constexpr std::size_t kBlockSize = 64;
    static constexpr std::size_t kDigestSize = 16;

    void feed(const unsigned char* data, std::size_t length);
    void transformBlocks(const unsigned char* data, std::size_t count);
    void print();
    bool isFinished() const { return m_Text[0] != '\0'; }

    unsigned char m_Block[kBlockSize]; ///< bytes that do not yet fill a block
    std::uint32_t m_Buffered;
    std::uint32_t m_State[4];
    std::uint64_t m_Bits; ///< of the transformed blocks; of the whole message once finished
    unsigned char m_Digest[kDigestSize];
    char m_Text[2 * kDigestSize + 1];
    wchar_t m_WideText[sizeof m_Text]; ///< as many units
};

} // namespace tarnix_cmn_4_4

#endif
