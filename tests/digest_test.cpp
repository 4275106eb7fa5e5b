// MD5 against the published values and against OpenSSL, and the life of an object.
#include "cmnmsgdgst5.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <algorithm>
#include <cstring>
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

void update(CCmnMessageDigest5& object, const std::string& message)
{
    object.Update(reinterpret_cast<const unsigned char*>(message.data()),
                  static_cast<std::uint32_t>(message.size()));
}

TEST(Digest, PublishedValues)
{
    const std::string digits = "1234567890";
    const std::pair<std::string, std::string> cases[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
         "d174ab98d277d9f5a5611c2c9f419d9f"},
        {digits + digits + digits + digits + digits + digits + digits + digits,
         "57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (const auto& [message, digest] : cases) {
        const CCmnMessageDigest5 object(message.c_str());
        EXPECT_EQ(digest, object.GetAnsiMessageDigest());
        EXPECT_EQ(std::wstring(digest.begin(), digest.end()), object.GetUnicodeMessageDigest());
        EXPECT_EQ(std::stoi(digest.substr(30), nullptr, 16), object[15]);
    }
    EXPECT_EQ(cases[0].second, CCmnMessageDigest5("x", 0).GetAnsiMessageDigest());
    EXPECT_EQ(cases[0].second, CCmnMessageDigest5(nullptr, 5).GetAnsiMessageDigest());
    EXPECT_EQ(21U, CCmnMessageDigest5::g_Shift_44); // needs the constant as data, not as a number
}

TEST(Digest, AgreesWithOpenSslAtEveryLengthWholeAndInPieces)
{
    std::mt19937 random(1);
    for (std::uint32_t length = 0; length <= 300; ++length) {
        std::string message(length, '\0');
        std::generate(message.begin(), message.end(), [&] { return static_cast<char>(random()); });
        const std::string expected = opensslDigest(message);
        EXPECT_EQ(expected, CCmnMessageDigest5(message.data(), length).GetAnsiMessageDigest());
        for (const std::size_t most : {1U, 7U, 64U, 150U}) {
            CCmnMessageDigest5 pieces;
            for (std::size_t from = 0, size = 0; from < length; from += size) {
                size = 1 + random() % most;
                update(pieces, message.substr(from, size));
            }
            pieces.Finalize();
            EXPECT_EQ(expected, pieces.GetAnsiMessageDigest()) << length << " by " << most;
        }
    }
    const unsigned short units[] = {'a', 0x1234, 'b', 0};
    EXPECT_EQ(opensslDigest(std::string(reinterpret_cast<const char*>(units), 6)),
              CCmnMessageDigest5(units).GetAnsiMessageDigest());
}

TEST(Digest, IsOpenUntilFinalizeAndAgainAfterInitialize)
{
    CCmnMessageDigest5 object;
    for (int round = 0; round < 2; ++round) {
        EXPECT_STREQ("", object.GetAnsiMessageDigest());
        EXPECT_STREQ(L"", object.GetUnicodeMessageDigest());
        EXPECT_EQ(0, object[0]);
        object.Update(nullptr, 3);
        update(object, std::string(70, 'm'));

        CCmnMessageDigest5 copy;
        copy = object;
        update(copy, std::string(30, 'm'));
        copy.Finalize();
        EXPECT_EQ(opensslDigest(std::string(100, 'm')), copy.GetAnsiMessageDigest());

        object.Finalize();
        update(object, "more");
        object.Finalize();
        EXPECT_EQ(opensslDigest(std::string(70, 'm')), object.GetAnsiMessageDigest());
        EXPECT_EQ(0, object[16]);
        EXPECT_EQ(0, object[0xFFFFFFFF]);
        object.Initialize();
    }
}

} // namespace
