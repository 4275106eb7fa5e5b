// SPDX-License-Identifier: LicenseRef-Tarnix
// Messages: compares formatting and lookup with bare ICU, and the serialised text with a writer and
// a reader written for that format alone.
#include "catalogfactory.h"
#include "cmnsystemfiles.h"

#include <benchmark/benchmark.h>
#include <unicode/msgfmt.h>
#include <unicode/resbund.h>
#include <unicode/ustring.h>
#include <unicode/uversion.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

using namespace tarnix_cmn_4_4;
using icu::Formattable;
using icu::UnicodeString;

namespace
{

constexpr char kKey[] = "TARNIX_EXEC_PIPE_CMD_FAILED";

[[maybe_unused]] const bool kVersionsStated = [] {
    benchmark::AddCustomContext("peer ICU", U_ICU_VERSION);
    return true;
}();

// ---- Formatting ---------------------------------------------------------------------------------

const Formattable kArguments[] = {
    Formattable(UnicodeString(u"make all")),
    Formattable(std::int32_t{2}),
    Formattable(UnicodeString()),
    Formattable(std::int32_t{3}),
    Formattable(std::int32_t{60}),
    Formattable(UnicodeString()),
};
constexpr int kArgumentCount = 6;

constexpr wchar_t kPlaceholders[] = L"{0} failed with status {1}.";
constexpr wchar_t kPlural[] =
    L"{0} failed after {3, plural, =0{no output} one{# line} other{# lines}}.";
constexpr wchar_t kLiteral[] = L"A text without any placeholder, of about the length of a line";

UnicodeString formatBare(const UnicodeString& pattern)
{
    UErrorCode status = U_ZERO_ERROR;
    UnicodeString output;
    icu::MessageFormat::format(pattern, kArguments, kArgumentCount, output, status);
    return output;
}

void formatIcu(benchmark::State& state, const wchar_t* text)
{
    const UnicodeString pattern = CCmnStringTool::tstr2ustr(text);
    for (auto _ : state) {
        benchmark::DoNotOptimize(formatBare(pattern));
    }
}

// Converts the kind of text that the library takes and returns, by ICU's own conversions.
tstr formatWide(const tstr& pattern)
{
    constexpr std::int32_t room = 512;
    UErrorCode status = U_ZERO_ERROR;
    std::int32_t length = 0;
    UnicodeString units;
    u_strFromWCS(units.getBuffer(room), room, &length, pattern.c_str(),
                 static_cast<std::int32_t>(pattern.length()), &status);
    units.releaseBuffer(length);
    const UnicodeString output = formatBare(units);
    wchar_t wide[room];
    u_strToWCS(wide, room, &length, output.getBuffer(), output.length(), &status);
    return U_SUCCESS(status) ? tstr(wide, static_cast<std::size_t>(length)) : tstr();
}

void formatIcuWide(benchmark::State& state, const wchar_t* text)
{
    const tstr pattern(text);
    for (auto _ : state) {
        benchmark::DoNotOptimize(formatWide(pattern));
    }
}

void formatTarnix(benchmark::State& state, const wchar_t* text)
{
    CCmnIcuMessage message(kKey, kArguments, kArgumentCount, tarnix_eseverity{}, "", 0);
    const tstr pattern(text);
    for (auto _ : state) {
        benchmark::DoNotOptimize(message.formatMessage(pattern));
    }
    const tstr result = message.formatMessage(pattern);
    if (result != CCmnStringTool::ustr2tstr(formatBare(CCmnStringTool::tstr2ustr(pattern))) ||
        result != formatWide(pattern)) {
        state.SkipWithError("the text differs from ICU's");
    }
}

BENCHMARK_CAPTURE(formatTarnix, placeholders, kPlaceholders)->Name("format_placeholders:tarnix");
BENCHMARK_CAPTURE(formatIcu, placeholders, kPlaceholders)->Name("format_placeholders:icu");
BENCHMARK_CAPTURE(formatIcuWide, placeholders, kPlaceholders)->Name("format_placeholders:icu_tstr");
BENCHMARK_CAPTURE(formatTarnix, plural, kPlural)->Name("format_plural:tarnix");
BENCHMARK_CAPTURE(formatIcu, plural, kPlural)->Name("format_plural:icu");
BENCHMARK_CAPTURE(formatIcuWide, plural, kPlural)->Name("format_plural:icu_tstr");
BENCHMARK_CAPTURE(formatTarnix, literal, kLiteral)->Name("format_literal:tarnix");
BENCHMARK_CAPTURE(formatIcu, literal, kLiteral)->Name("format_literal:icu");
BENCHMARK_CAPTURE(formatIcuWide, literal, kLiteral)->Name("format_literal:icu_tstr");

// ---- Lookup -------------------------------------------------------------------------------------

// A registry whose install directory is that of the build tree's catalogs.
class Catalogs
{
public:
    Catalogs()
    {
        std::ofstream(m_File) << "[SOFTWARE\\Brenholt\\Tarnix]\n\"InstallDir64\"=\""
                              << TARNIX_CATALOGS << "/\"\n";
        setRegistryFile(m_File.c_str());
    }
    ~Catalogs() { std::filesystem::remove(m_File); }
    Catalogs(const Catalogs&) = delete;
    Catalogs& operator=(const Catalogs&) = delete;

private:
    const std::string m_File =
        (std::filesystem::temp_directory_path() / "tarnix_bench_registry.conf").string();
};

UnicodeString lookUpBare(const icu::ResourceBundle& bundle)
{
    UErrorCode status = U_ZERO_ERROR;
    return bundle.getStringEx(kKey, status);
}

icu::ResourceBundle openBare()
{
    UErrorCode status = U_ZERO_ERROR;
    return {UnicodeString(TARNIX_CATALOGS "/Messages/libruncmd"), icu::Locale("de"), status};
}

void lookUpIcu(benchmark::State& state)
{
    const icu::ResourceBundle bundle = openBare();
    for (auto _ : state) {
        benchmark::DoNotOptimize(lookUpBare(bundle));
    }
}
BENCHMARK(lookUpIcu)->Name("lookup:icu");

void lookUpTarnix(benchmark::State& state)
{
    const Catalogs catalogs;
    CatalogFactory factory("runcmd");
    CCmnSmartPtr<CCmnMessageCatalogManager, CCmnDefaultAllocator<CCmnMessageCatalogManager>>
        manager(true);
    manager.get()->registerFactory(&factory);
    const std::string key = kKey;
    for (auto _ : state) {
        benchmark::DoNotOptimize(manager.get()->getMessage(key, nullptr, "de"));
    }
    const tstr expected = tstr(L"runcmd: ") + CCmnStringTool::ustr2tstr(lookUpBare(openBare()));
    if (manager.get()->getMessage(key, nullptr, "de") != expected || expected.length() < 20) {
        state.SkipWithError("the text differs from the bundle's");
    }
}
BENCHMARK(lookUpTarnix)->Name("lookup:tarnix");

// A client's list of which the first has no bundle, and the second only a parent; against bundles
// that are open.
void lookUpListed(benchmark::State& state)
{
    const Catalogs catalogs;
    CatalogFactory factory("runcmd");
    CCmnSmartPtr<CCmnMessageCatalogManager, CCmnDefaultAllocator<CCmnMessageCatalogManager>>
        manager(true);
    manager.get()->registerFactory(&factory);
    const std::string key = kKey;
    const std::vector<std::string> languages = {"fr", "de_AT"};
    for (auto _ : state) {
        benchmark::DoNotOptimize(manager.get()->findMessage(key, nullptr, languages));
    }
    if (manager.get()->findMessage(key, nullptr, languages).text !=
        manager.get()->getMessage(key, nullptr, "de")) {
        state.SkipWithError("the text is not that of the parent");
    }
}
BENCHMARK(lookUpListed)->Name("lookup_list:tarnix");
BENCHMARK(lookUpTarnix)->Name("lookup_list:plain");
BENCHMARK(lookUpIcu)->Name("lookup_list:icu");

// ---- The serialised text ------------------------------------------------------------------------

std::vector<Formattable> listOf(std::int64_t count)
{
    std::vector<Formattable> list;
    for (std::int64_t i = 0; i < count; ++i) {
        switch (i % 3) {
        case 0:
            list.emplace_back(static_cast<std::int32_t>(i));
            break;
        case 1:
            list.emplace_back(static_cast<double>(i) / 7);
            break;
        default:
            list.emplace_back(UnicodeString(u"some text of usual length"));
        }
    }
    return list;
}

std::vector<Formattable> textOf(std::int64_t bytes)
{
    const UnicodeString line(
        u"A line of text, for the most part ASCII, with an \u00E4 here....... \n");
    const std::int64_t lines =
        bytes / (line.length() + 1); // one character takes two bytes in UTF-8
    UnicodeString text;
    for (std::int64_t i = 0; i < lines; ++i) {
        text.append(line);
    }
    return {Formattable(text)};
}

template <class... Number>
void appendChars(std::string& text, Number... number)
{
    char digits[32];
    text.append(digits, std::to_chars(digits, std::end(digits), number...).ptr);
}

// In pieces that fit the cache. None ends within a surrogate pair.
void appendByHand(std::string& text, const UnicodeString& value)
{
    constexpr std::int32_t most = 1024;
    char piece[3 * most];
    const UChar* rest = value.getBuffer();
    for (std::int32_t length = value.length(), units = 0; length > 0; rest += units) {
        units = std::min(length, most);
        if (units < length && U16_IS_LEAD(rest[units - 1])) {
            --units;
        }
        UErrorCode status = U_ZERO_ERROR;
        std::int32_t written = 0;
        u_strToUTF8(piece, sizeof piece, &written, rest, units, &status);
        text.append(piece, static_cast<std::size_t>(written));
        length -= units;
    }
}

// The same text from a writer that knows three kinds of argument and ignores the locale.
std::string writeByHand(const std::vector<Formattable>& list)
{
    std::string text = std::string("<SERIALIZED_MESSAGE MSGID=") + kKey + " SEVERITY=3>\n";
    std::int32_t index = 0;
    for (const Formattable& argument : list) {
        text += "\t<ARGVALUE INDEX=";
        appendChars(text, index++);
        text += " TYPE=";
        appendChars(text, static_cast<int>(argument.getType()));
        text += '>';
        switch (argument.getType()) {
        case Formattable::kLong:
            appendChars(text, argument.getLong());
            break;
        case Formattable::kDouble:
            appendChars(text, argument.getDouble(), std::chars_format::general, 6);
            break;
        default:
            appendByHand(text, argument.getString());
        }
        text += "</ARGVALUE>\n";
    }
    text += "</SERIALIZED_MESSAGE>\n";
    return text;
}

template <class Number>
Number numberAt(std::string_view text, std::string_view marker)
{
    Number number{};
    const std::size_t place = std::min(text.find(marker) + marker.size(), text.size());
    std::from_chars(text.data() + place, text.data() + text.size(), number);
    return number;
}

// Reads the same message from that text, and does not handle a damaged one.
class ReadByHand
{
public:
    void read(std::string_view text)
    {
        constexpr std::string_view header = "<SERIALIZED_MESSAGE MSGID=";
        const std::size_t id = text.find(header) + header.size();
        m_Id = text.substr(id, text.find(' ', id) - id);
        m_Severity = numberAt<int>(text.substr(id), " SEVERITY=");
        std::vector<std::pair<int, std::string_view>> values;
        for (std::size_t at = id; (at = text.find("<ARGVALUE", at)) != std::string_view::npos;) {
            const std::size_t value = text.find('>', at) + 1;
            const int type = numberAt<int>(text.substr(at, value - at), " TYPE=");
            at = text.find('<', value);
            values.emplace_back(type, text.substr(value, at - value));
        }
        auto list = std::make_unique<Formattable[]>(values.size());
        for (std::size_t i = 0; i < values.size(); ++i) {
            convert(values[i].first, values[i].second, list[i]);
        }
        m_Arguments.adoptArray(list.release(), static_cast<std::int32_t>(values.size()));
    }

    bool equals(const std::vector<Formattable>& list) const
    {
        std::int32_t count = 0;
        const Formattable* const arguments = m_Arguments.getArray(count);
        const auto expected = static_cast<std::int32_t>(list.size());
        return m_Id == kKey && m_Severity == 3 && count == expected &&
               writeByHand({arguments, arguments + count}) == writeByHand(list);
    }

private:
    static void convert(int type, std::string_view text, Formattable& argument)
    {
        if (type == Formattable::kLong) {
            argument.setLong(numberAt<std::int32_t>(text, ""));
        } else if (type == Formattable::kDouble) {
            argument.setDouble(numberAt<double>(text, ""));
        } else {
            argument.setString(UnicodeString::fromUTF8(
                icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size()))));
        }
    }

    std::string m_Id;
    int m_Severity = 0;
    Formattable m_Arguments;
};

CCmnIcuMessage messageOf(const std::vector<Formattable>& list)
{
    return CCmnIcuMessage(kKey, list.data(), static_cast<int>(list.size()), tarnix_eseverity{3}, "",
                          0);
}

using MakeList = std::vector<Formattable> (*)(std::int64_t);

void serializeTarnix(benchmark::State& state, MakeList make)
{
    const std::vector<Formattable> list = make(state.range(0));
    CCmnIcuMessage message = messageOf(list);
    std::int64_t bytes = 0;
    for (auto _ : state) {
        bytes += message.serialize()->length;
    }
    state.SetBytesProcessed(bytes);
    if (message.serialize()->text != writeByHand(list)) {
        state.SkipWithError("the text differs from the one by hand");
    }
}

void serializeByHand(benchmark::State& state, MakeList make)
{
    const std::vector<Formattable> list = make(state.range(0));
    std::size_t bytes = 0;
    for (auto _ : state) {
        std::string text = writeByHand(list);
        benchmark::DoNotOptimize(text);
        bytes += text.size();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
}

void deserializeTarnix(benchmark::State& state, MakeList make)
{
    const std::vector<Formattable> list = make(state.range(0));
    const std::string text = writeByHand(list);
    const SCmnMessageInfo info{text.c_str(), 0};
    CCmnIcuMessage message = messageOf({});
    for (auto _ : state) {
        message.deserialize(&info);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
    if (message.serialize()->text != text) {
        state.SkipWithError("the message differs from the one written");
    }
}

void deserializeByHand(benchmark::State& state, MakeList make)
{
    const std::vector<Formattable> list = make(state.range(0));
    const std::string text = writeByHand(list);
    ReadByHand reader;
    for (auto _ : state) {
        reader.read(text.c_str());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
    if (!reader.equals(list)) {
        state.SkipWithError("the message differs from the one written");
    }
}

void counts(benchmark::internal::Benchmark* benchmark)
{
    for (const std::int64_t count : {10, 1000, 100'000}) {
        benchmark->Arg(count);
    }
}

void sizes(benchmark::internal::Benchmark* benchmark)
{
    for (const std::int64_t size : {1 << 10, 1 << 20, 64 << 20}) {
        benchmark->Arg(size);
    }
}

BENCHMARK_CAPTURE(serializeTarnix, list, listOf)->Name("serialize:tarnix")->Apply(counts);
BENCHMARK_CAPTURE(serializeByHand, list, listOf)->Name("serialize:by_hand")->Apply(counts);
BENCHMARK_CAPTURE(deserializeTarnix, list, listOf)->Name("deserialize:tarnix")->Apply(counts);
BENCHMARK_CAPTURE(deserializeByHand, list, listOf)->Name("deserialize:by_hand")->Apply(counts);
BENCHMARK_CAPTURE(serializeTarnix, text, textOf)->Name("serialize_text:tarnix")->Apply(sizes);
BENCHMARK_CAPTURE(serializeByHand, text, textOf)->Name("serialize_text:by_hand")->Apply(sizes);
BENCHMARK_CAPTURE(deserializeTarnix, text, textOf)->Name("deserialize_text:tarnix")->Apply(sizes);
BENCHMARK_CAPTURE(deserializeByHand, text, textOf)->Name("deserialize_text:by_hand")->Apply(sizes);

} // namespace

BENCHMARK_MAIN();
