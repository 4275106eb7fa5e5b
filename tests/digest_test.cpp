// SPDX-License-Identifier: LicenseRef-Tarnix
// Compares MD5 with OpenSSL's, also in objects that are used again.
#include "cmnmsgdgst5.h"
#include "cmnstringtool.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <algorithm>

using namespace tarnix_cmn_4_4;

static std::string opensslDigest(const void* data, std::size_t length)
{
    unsigned char digest[16];
    EVP_Digest(data, length, digest, nullptr, EVP_md5(), nullptr);
    return CCmnStringTool::binary2str(digest, sizeof digest);
}

TEST(Digest, AgreesWithOpenSslAtEveryLengthInPieces)
{
    std::vector<unsigned char> data;
    CCmnMessageDigest5 object; // reused for all of them
    for (std::uint32_t length = 0; length <= 300; ++length) {
        const std::string expected = opensslDigest(data.data(), length);
        for (const std::uint32_t most : {1U, 7U, 64U, 150U}) {
            object.Initialize();
            for (std::uint32_t from = 0; from < length; from += most)
                object.Update(&data[from], std::min(most, length - from));
            object.Update(nullptr, 3);
            EXPECT_EQ(0, object[15]); // not finalized yet
            EXPECT_STREQ(L"", object.GetUnicodeMessageDigest());
            object.Finalize();
            object.Finalize(); // has no effect
            EXPECT_EQ(expected, object.GetAnsiMessageDigest()) << length << " by " << most;
        }
        EXPECT_STREQ(CCmnStringTool::str2wstr(expected).c_str(), object.GetUnicodeMessageDigest());
        EXPECT_EQ(std::stoi(expected.substr(30), nullptr, 16), object[15]);
        EXPECT_EQ(0, object[16]);
        EXPECT_EQ(expected, CCmnMessageDigest5(data.data(), length).GetAnsiMessageDigest());
        data.push_back(static_cast<unsigned char>(7 * length));
    }
    const unsigned short units[] = {'a', 0x1234, 'b', 0};
    EXPECT_EQ(opensslDigest(units, 6), CCmnMessageDigest5(units).GetAnsiMessageDigest());
    EXPECT_EQ(opensslDigest("abc", 3), CCmnMessageDigest5("abc").GetAnsiMessageDigest());
}
