// MD5 against OpenSSL, and the life of an object.
#include "cmnmsgdgst5.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <algorithm>
#include <random>
#include <string>

using tarnix_cmn_4_4::CCmnMessageDigest5;

namespace
{

std::string opensslDigest(const std::string& message)
{
    unsigned char digest[16];
    EVP_Digest(message.data(), message.size(), digest, nullptr, EVP_md5(), nullptr);
    std::string text;
    for (const unsigned char byte : digest)
        text += {"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]};
    return text;
}

TEST(Digest, AgreesWithOpenSslAtEveryLengthWholeAndInPieces)
{
    std::mt19937 random(1);
    std::string message;
    CCmnMessageDigest5 object; // used again and again
    for (std::uint32_t length = 0; length <= 300;
         ++length, message += static_cast<char>(random())) {
        const std::string expected = opensslDigest(message);
        const CCmnMessageDigest5 whole(message.data(), length);
        EXPECT_EQ(std::wstring(expected.begin(), expected.end()), whole.GetUnicodeMessageDigest());
        EXPECT_EQ(std::stoi(expected.substr(30), nullptr, 16), whole[15]);
        EXPECT_TRUE(whole[16] == 0 && whole[0xFFFFFFFF] == 0);
        const auto* const data = reinterpret_cast<const unsigned char*>(message.data());
        for (const std::uint32_t most : {1U, 7U, 64U, 150U}) {
            for (std::uint32_t from = 0, size = 0; from < length; from += size) {
                size = std::min(1 + static_cast<std::uint32_t>(random()) % most, length - from);
                object.Update(data + from, size);
            }
            object.Update(nullptr, 3);
            CCmnMessageDigest5 copy(object);
            copy.Update(data, length);
            copy.Finalize();
            EXPECT_EQ(opensslDigest(message + message), copy.GetAnsiMessageDigest());
            EXPECT_STREQ("", object.GetAnsiMessageDigest()); // still open
            EXPECT_TRUE(*object.GetUnicodeMessageDigest() == L'\0' && object[0] == 0);
            object.Finalize();
            object.Update(data, length); // too late
            object.Finalize();
            EXPECT_EQ(expected, object.GetAnsiMessageDigest()) << length << " by " << most;
            object.Initialize();
        }
    }
    const unsigned short units[] = {'a', 0x1234, 'b', 0};
    EXPECT_EQ(opensslDigest({"a\0\x34\x12\x62", 6}),
              CCmnMessageDigest5(units).GetAnsiMessageDigest());
    EXPECT_EQ(opensslDigest("abc"), CCmnMessageDigest5("abc").GetAnsiMessageDigest());
    EXPECT_EQ(opensslDigest(""), CCmnMessageDigest5(nullptr, 5).GetAnsiMessageDigest());
    EXPECT_EQ(21U, CCmnMessageDigest5::g_Shift_44); // needs the constant as data, not as a number
}

} // namespace
