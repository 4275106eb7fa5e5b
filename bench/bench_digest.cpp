// SPDX-License-Identifier: LicenseRef-Tarnix
// Compares MD5 with OpenSSL's, from a new object to the digest of a whole message, and bytes as hex
// text with a loop over a table.
#include "cmnmsgdgst5.h"
#include "cmnstringtool.h"

#include <benchmark/benchmark.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

using tarnix_cmn_4_4::CCmnMessageDigest5;
using tarnix_cmn_4_4::CCmnStringTool;

namespace
{

[[maybe_unused]] const bool kVersionsStated = [] {
    benchmark::AddCustomContext("peer OpenSSL", OpenSSL_version(OPENSSL_VERSION_STRING));
    return true;
}();

std::vector<unsigned char> bytesOf(const benchmark::State& state)
{
    std::vector<unsigned char> bytes(static_cast<std::size_t>(state.range(0)));
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<unsigned char>(i * 167);
    }
    return bytes;
}

void countBytes(benchmark::State& state)
{
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

// ---- Two digits per byte, by a table ------------------------------------------------------------

struct HexTable {
    constexpr HexTable()
    {
        constexpr char digits[] = "0123456789abcdef";
        for (int i = 0; i < 256; ++i) {
            pairs[i][0] = digits[i >> 4];
            pairs[i][1] = digits[i & 15];
        }
    }
    char pairs[256][2]{};
};
constexpr HexTable kTable;

template <class Char>
void printByTable(const unsigned char* bytes, std::size_t size, Char* at)
{
    for (std::size_t i = 0; i < size; ++i) {
        *at++ = static_cast<Char>(kTable.pairs[bytes[i]][0]);
        *at++ = static_cast<Char>(kTable.pairs[bytes[i]][1]);
    }
}

template <class Char>
std::basic_string<Char> hexByTable(const std::vector<unsigned char>& bytes)
{
    std::basic_string<Char> text(2 * bytes.size(), Char{});
    printByTable(bytes.data(), bytes.size(), text.data());
    return text;
}

constexpr unsigned int kUidNumber = 0x12AB;

std::wstring uidByTable(const std::vector<unsigned char>& bytes)
{
    const unsigned char number[] = {kUidNumber >> 8, kUidNumber & 0xFF};
    std::wstring text(2 * (sizeof number + bytes.size()), L'\0');
    printByTable(number, sizeof number, text.data());
    printByTable(bytes.data(), bytes.size(), text.data() + 2 * sizeof number);
    return text;
}

std::string hexBySnprintf(const std::vector<unsigned char>& bytes)
{
    std::string text(2 * bytes.size(), '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        std::snprintf(&text[2 * i], 3, "%02x", bytes[i]); // with room for its terminator
    }
    return text;
}

std::string hexByTarnix(const std::vector<unsigned char>& bytes)
{
    return CCmnStringTool::binary2str(bytes.data(), static_cast<int>(bytes.size()));
}

std::wstring wideHexByTarnix(const std::vector<unsigned char>& bytes)
{
    return CCmnStringTool::binary2wstr(bytes.data(), static_cast<int>(bytes.size()));
}

std::wstring uidByTarnix(const std::vector<unsigned char>& bytes)
{
    return CCmnStringTool::binary2uid(kUidNumber, bytes.data(), static_cast<int>(bytes.size()));
}

template <class Text>
void hex(benchmark::State& state, Text (*make)(const std::vector<unsigned char>&),
         Text (*other)(const std::vector<unsigned char>&))
{
    const std::vector<unsigned char> bytes = bytesOf(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(make(bytes));
    }
    countBytes(state);
    if (make(bytes) != other(bytes)) {
        state.SkipWithError("the text differs from the one by the table");
    }
}

void hexSizes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Arg(16)->Arg(1 << 10)->Arg(8 << 10); // larger blocks would be mapped for each call
}

BENCHMARK_CAPTURE(hex, tarnix, hexByTarnix, hexByTable<char>)->Name("hex:tarnix")->Apply(hexSizes);
BENCHMARK_CAPTURE(hex, table, hexByTable<char>, hexByTarnix)->Name("hex:table")->Apply(hexSizes);
BENCHMARK_CAPTURE(hex, snprintf, hexBySnprintf, hexByTable<char>)
    ->Name("hex:snprintf")
    ->Apply(hexSizes);
BENCHMARK_CAPTURE(hex, wide, wideHexByTarnix, hexByTable<wchar_t>)
    ->Name("hex_wide:tarnix")
    ->Apply(hexSizes);
BENCHMARK_CAPTURE(hex, wideTable, hexByTable<wchar_t>, wideHexByTarnix)
    ->Name("hex_wide:table")
    ->Apply(hexSizes);
BENCHMARK_CAPTURE(hex, uid, uidByTarnix, uidByTable)->Name("hex_uid:tarnix")->Apply(hexSizes);
BENCHMARK_CAPTURE(hex, uidTable, uidByTable, uidByTarnix)->Name("hex_uid:table")->Apply(hexSizes);

// ---- The digest's texts -------------------------------------------------------------------------

constexpr char kEmptyDigest[] = "d41d8cd98f00b204e9800998ecf8427e";

// The last block of a message and then the texts: by Finalize, and by the block alone with texts by
// the table.
class OpenDigest : public CCmnMessageDigest5
{
public:
    void addLastBlock()
    {
        Initialize();
        std::memset(m_LastBlock + m_Size, 0, sizeof m_LastBlock - m_Size);
        m_LastBlock[m_Size] = 0x80;
        const std::uint64_t bits = 8 * m_Size;
        std::memcpy(m_LastBlock + sizeof m_LastBlock - sizeof bits, &bits, sizeof bits);
        Transform(m_LastBlock);
    }

private:
    unsigned char m_LastBlock[64]{};
    std::size_t m_Size = 0;
};

void digestTextTarnix(benchmark::State& state)
{
    CCmnMessageDigest5 digest;
    for (auto _ : state) {
        digest.Initialize();
        digest.Finalize();
        benchmark::DoNotOptimize(digest);
    }
    if (std::string(digest.GetAnsiMessageDigest()) != kEmptyDigest) {
        state.SkipWithError("the text differs from the one by the table");
    }
}
BENCHMARK(digestTextTarnix)->Name("hex_digest:tarnix");

void digestTextTable(benchmark::State& state)
{
    OpenDigest digest;
    unsigned char bytes[16] = {0xd4, 0x1d, 0x8c, 0xd9, 0x8f, 0x00, 0xb2, 0x04,
                               0xe9, 0x80, 0x09, 0x98, 0xec, 0xf8, 0x42, 0x7e};
    char text[33]{};
    wchar_t wide[33]{};
    for (auto _ : state) {
        digest.addLastBlock();
        benchmark::DoNotOptimize(digest);
        benchmark::DoNotOptimize(bytes);
        printByTable(bytes, sizeof bytes, text);
        printByTable(bytes, sizeof bytes, wide);
        benchmark::DoNotOptimize(text);
        benchmark::DoNotOptimize(wide);
    }
    if (std::string(text) != kEmptyDigest) {
        state.SkipWithError("the text is wrong");
    }
}
BENCHMARK(digestTextTable)->Name("hex_digest:table");

// ---- MD5 ----------------------------------------------------------------------------------------

// The fastest use of OpenSSL: one context, and the algorithm fetched once.
class OpenSslDigest
{
public:
    OpenSslDigest() = default;
    OpenSslDigest(const OpenSslDigest&) = delete;
    OpenSslDigest& operator=(const OpenSslDigest&) = delete;
    ~OpenSslDigest()
    {
        EVP_MD_free(m_Algorithm);
        EVP_MD_CTX_free(m_Context);
    }

    void compute(const std::vector<unsigned char>& message)
    {
        EVP_DigestInit_ex(m_Context, m_Algorithm, nullptr);
        EVP_DigestUpdate(m_Context, message.data(), message.size());
        EVP_DigestFinal_ex(m_Context, m_Digest, nullptr);
    }
    const unsigned char* bytes() const { return m_Digest; }

private:
    EVP_MD_CTX* m_Context = EVP_MD_CTX_new();
    EVP_MD* m_Algorithm = EVP_MD_fetch(nullptr, "MD5", nullptr);
    unsigned char m_Digest[EVP_MAX_MD_SIZE]{};
};

// With the digest's texts, which OpenSSL does not produce.
void md5Tarnix(benchmark::State& state)
{
    const std::vector<unsigned char> message = bytesOf(state);
    const auto size = static_cast<std::uint32_t>(message.size());
    for (auto _ : state) {
        const CCmnMessageDigest5 digest(message.data(), size);
        benchmark::DoNotOptimize(digest.GetAnsiMessageDigest());
        benchmark::ClobberMemory();
    }
    countBytes(state);
    OpenSslDigest other;
    other.compute(message);
    std::string expected(32, '\0');
    printByTable(other.bytes(), 16, expected.data());
    if (CCmnMessageDigest5(message.data(), size).GetAnsiMessageDigest() != expected) {
        state.SkipWithError("the digest differs from OpenSSL's");
    }
}

void md5OpenSsl(benchmark::State& state)
{
    const std::vector<unsigned char> message = bytesOf(state);
    OpenSslDigest digest;
    for (auto _ : state) {
        digest.compute(message);
        benchmark::DoNotOptimize(digest.bytes());
        benchmark::ClobberMemory();
    }
    countBytes(state);
}

void sizes(benchmark::internal::Benchmark* benchmark)
{
    for (const std::int64_t size : {55, 1 << 10, 64 << 10, 16 << 20}) {
        benchmark->Arg(size);
    }
}

BENCHMARK(md5Tarnix)->Name("md5:tarnix")->Apply(sizes);
BENCHMARK(md5OpenSsl)->Name("md5:openssl")->Apply(sizes);

} // namespace

BENCHMARK_MAIN();
