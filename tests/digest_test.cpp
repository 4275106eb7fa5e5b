// MD5 against OpenSSL, and the life of an object.
#include "cmnmsgdgst5.h"
#include "cmnstringtool.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <algorithm>

using namespace tarnix_cmn_4_4;

namespace
{

std::string opensslDigest(const std::string& message)
{
    unsigned char digest[16];
    EVP_Digest(message.data(), message.size(), digest, nullptr, EVP_md5(), nullptr);
    return CCmnStringTool::binary2str(digest, sizeof digest);
}

TEST(Digest, AgreesWithOpenSslAtEveryLengthInPieces)
{
    std::string message;
    CCmnMessageDigest5 object; // used again and again
    for (std::uint32_t length = 0; length <= 300; message += static_cast<char>(7 * length++)) {
        const std::string expected = opensslDigest(message);
        const auto* const data = reinterpret_cast<const unsigned char*>(message.data());
        for (const std::uint32_t most : {1U, 7U, 64U, 150U, 300U}) {
            object.Initialize();
            for (std::uint32_t from = 0; from < length; from += most)
                object.Update(data + from, std::min(most, length - from));
            object.Update(nullptr, 3);
            EXPECT_TRUE(*object.GetAnsiMessageDigest() == '\0' && object[15] == 0 &&
                        *object.GetUnicodeMessageDigest() == L'\0'); // still open
            object.Finalize();
            object.Update(data, length); // too late
            object.Finalize();
            EXPECT_EQ(expected, object.GetAnsiMessageDigest()) << length << " by " << most;
        }
        EXPECT_STREQ(CCmnStringTool::str2wstr(expected).c_str(), object.GetUnicodeMessageDigest());
        EXPECT_EQ(std::stoi(expected.substr(30), nullptr, 16), object[15]);
        EXPECT_EQ(0, object[16]);
    }
    const unsigned short units[] = {'a', 0x1234, 'b', 0};
    EXPECT_EQ(opensslDigest({"a\0\x34\x12\x62", 6}),
              CCmnMessageDigest5(units).GetAnsiMessageDigest());
    EXPECT_EQ(opensslDigest("abc"), CCmnMessageDigest5("abc").GetAnsiMessageDigest());
    EXPECT_EQ(opensslDigest("ab"), CCmnMessageDigest5("abc", 2).GetAnsiMessageDigest());
    EXPECT_EQ(21U, CCmnMessageDigest5::g_Shift_44); // needs the constant as data, not as a number
}

} // namespace
