// Messages beside bare ICU: formatting, look-up, the serialised text, and hex text.
#include "catalogfactory.h"
#include "platform_registry.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <unicode/msgfmt.h>
#include <unicode/resbund.h>
#include <vector>

using namespace tarnix_cmn_4_4;

namespace
{

constexpr char key[] = "TARNIX_EXEC_PIPE_CMD_FAILED";

const icu::Formattable arguments[] = {
    icu::Formattable(icu::UnicodeString(u"make all")),
    icu::Formattable(std::int32_t{2}),
    icu::Formattable(icu::UnicodeString()),
    icu::Formattable(std::int32_t{3}),
    icu::Formattable(std::int32_t{60}),
    icu::Formattable(icu::UnicodeString()),
};
constexpr int argumentCount = 6;

const char* const patterns[] = {
    "{0} failed with status {1}.",
    "{0} failed after {3, plural, =0{no output} one{# line} other{# lines}}.",
    "A text without any placeholder, of about the length of a line",
};

void bareFormat(benchmark::State& state)
{
    const icu::UnicodeString pattern(patterns[state.range(0)]);
    for (auto _ : state) {
        UErrorCode status = U_ZERO_ERROR;
        icu::UnicodeString output;
        icu::MessageFormat::format(pattern, arguments, argumentCount, output, status);
        benchmark::DoNotOptimize(output);
    }
}
BENCHMARK(bareFormat)->ArgName("pattern")->DenseRange(0, 2);

void libraryFormat(benchmark::State& state)
{
    CCmnIcuMessage message(key, arguments, argumentCount, tarnix_eseverity{}, "", 0);
    const tstr pattern = CCmnStringTool::str2tstr(patterns[state.range(0)]);
    for (auto _ : state) {
        benchmark::DoNotOptimize(message.formatMessage(pattern));
    }
}
BENCHMARK(libraryFormat)->ArgName("pattern")->DenseRange(0, 2);

// A registry that names the build tree's catalogs as installed.
class Catalogs
{
public:
    Catalogs()
    {
        std::ofstream(m_File) << "[SOFTWARE\\Brenholt\\Tarnix]\n\"InstallDir64\"=\""
                              << TARNIX_CATALOGS << "/\"\n";
        TxSetRegistryFile(m_File.c_str());
    }
    ~Catalogs() { std::filesystem::remove(m_File); }
    Catalogs(const Catalogs&) = delete;
    Catalogs& operator=(const Catalogs&) = delete;

private:
    const std::string m_File =
        (std::filesystem::temp_directory_path() / "tarnix_bench_registry.conf").string();
};

void bareLookUp(benchmark::State& state)
{
    UErrorCode status = U_ZERO_ERROR;
    const icu::ResourceBundle bundle(icu::UnicodeString(TARNIX_CATALOGS "/Messages/libruncmd"),
                                     icu::Locale("de"), status);
    for (auto _ : state) {
        status = U_ZERO_ERROR;
        benchmark::DoNotOptimize(bundle.getStringEx(key, status));
    }
    if (U_FAILURE(status)) {
        state.SkipWithError("no bundle");
    }
}
BENCHMARK(bareLookUp);

void libraryLookUp(benchmark::State& state)
{
    const Catalogs catalogs;
    CatalogFactory factory("runcmd");
    CCmnSmartPtr<CCmnMessageCatalogManager, CCmnDefaultAllocator<CCmnMessageCatalogManager>>
        manager(true);
    manager.get()->registerFactory(&factory);
    const std::string wanted = key;
    for (auto _ : state) {
        benchmark::DoNotOptimize(manager.get()->getMessage(wanted, nullptr, "de"));
    }
    if (manager.get()->getMessage(wanted, nullptr, "de").find(L"Status") == tstr::npos) {
        state.SkipWithError("no catalog");
    }
}
BENCHMARK(libraryLookUp);

CCmnIcuMessage longMessage(std::int64_t count)
{
    std::vector<icu::Formattable> list;
    for (std::int64_t i = 0; i < count; ++i) {
        switch (i % 3) {
        case 0:
            list.emplace_back(static_cast<std::int32_t>(i));
            break;
        case 1:
            list.emplace_back(static_cast<double>(i) / 7);
            break;
        default:
            list.emplace_back(icu::UnicodeString(u"some text of usual length"));
        }
    }
    return CCmnIcuMessage(key, list.data(), static_cast<int>(count), tarnix_eseverity{3}, "", 0);
}

void serializeMessage(benchmark::State& state)
{
    CCmnIcuMessage message = longMessage(state.range(0));
    std::int64_t bytes = 0;
    for (auto _ : state) {
        bytes += message.serialize()->length;
    }
    state.SetBytesProcessed(bytes);
}
BENCHMARK(serializeMessage)->ArgName("arguments")->Arg(10)->Arg(100000);

void deserializeMessage(benchmark::State& state)
{
    CCmnIcuMessage message = longMessage(state.range(0));
    const SCmnMessageInfo* info = message.serialize();
    CCmnIcuMessage other(info);
    for (auto _ : state) {
        other.deserialize(info);
    }
    state.SetBytesProcessed(state.iterations() * info->length);
}
BENCHMARK(deserializeMessage)->ArgName("arguments")->Arg(10)->Arg(100000);

std::vector<unsigned char> someBytes()
{
    std::vector<unsigned char> bytes(64 * 1024);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<unsigned char>(i * 31);
    }
    return bytes;
}

void hexByTable(benchmark::State& state)
{
    static constexpr char digits[] = "0123456789abcdef";
    char pairs[256][2];
    for (int i = 0; i < 256; ++i) {
        pairs[i][0] = digits[i >> 4];
        pairs[i][1] = digits[i & 15];
    }
    const std::vector<unsigned char> bytes = someBytes();
    for (auto _ : state) {
        std::string text(bytes.size() * 2, '\0');
        char* at = text.data();
        for (const unsigned char byte : bytes) {
            *at++ = pairs[byte][0];
            *at++ = pairs[byte][1];
        }
        benchmark::DoNotOptimize(text);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes.size()));
}
BENCHMARK(hexByTable);

void libraryHex(benchmark::State& state)
{
    std::vector<unsigned char> bytes = someBytes();
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            CCmnStringTool::binary2str(bytes.data(), static_cast<int>(bytes.size())));
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes.size()));
}
BENCHMARK(libraryHex);

} // namespace

BENCHMARK_MAIN();
