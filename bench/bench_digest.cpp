// MD5 beside OpenSSL's in the same program: a whole message from a new object to its digest.
#include "cmnmsgdgst5.h"

#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <vector>

using tarnix_cmn_4_4::CCmnMessageDigest5;

namespace
{

std::vector<unsigned char> messageOf(const benchmark::State& state)
{
    std::vector<unsigned char> message(static_cast<std::size_t>(state.range(0)));
    for (std::size_t i = 0; i < message.size(); ++i)
        message[i] = static_cast<unsigned char>(i * 167);
    return message;
}

void countBytes(benchmark::State& state)
{
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}

// With the digest's text, which OpenSSL does not make.
void Own(benchmark::State& state)
{
    const std::vector<unsigned char> message = messageOf(state);
    for (auto _ : state) {
        const CCmnMessageDigest5 digest(message.data(), static_cast<std::uint32_t>(message.size()));
        benchmark::DoNotOptimize(digest.GetAnsiMessageDigest());
        benchmark::ClobberMemory();
    }
    countBytes(state);
}

// The context is made once and the algorithm fetched once, which is OpenSSL at its best.
void OpenSsl(benchmark::State& state)
{
    const std::vector<unsigned char> message = messageOf(state);
    EVP_MD_CTX* const context = EVP_MD_CTX_new();
    EVP_MD* const algorithm = EVP_MD_fetch(nullptr, "MD5", nullptr);
    unsigned char digest[EVP_MAX_MD_SIZE];
    for (auto _ : state) {
        EVP_DigestInit_ex(context, algorithm, nullptr);
        EVP_DigestUpdate(context, message.data(), message.size());
        EVP_DigestFinal_ex(context, digest, nullptr);
        benchmark::DoNotOptimize(digest);
        benchmark::ClobberMemory();
    }
    EVP_MD_free(algorithm);
    EVP_MD_CTX_free(context);
    countBytes(state);
}

void sizes(benchmark::internal::Benchmark* benchmark)
{
    for (const std::int64_t size : {55, 1 << 10, 64 << 10, 16 << 20})
        benchmark->Arg(size);
}

BENCHMARK(Own)->Apply(sizes);
BENCHMARK(OpenSsl)->Apply(sizes);

} // namespace

BENCHMARK_MAIN();
