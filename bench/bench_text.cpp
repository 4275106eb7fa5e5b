// SPDX-License-Identifier: LicenseRef-Tarnix
// Compares the text functions with the C library, ICU, Boost and the standard library: scanning and
// printing, numbers, conversions, editing and the XML escapes.
#include "TX_sscanf.h"
#include "TX_strings.h"
#include "cmnstringtool.h"
#include "textpeers.h"
#include "textrows.h"

#include <benchmark/benchmark.h>
#include <boost/version.hpp>

#include <gnu/libc-version.h>
#include <malloc.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

using tarnix_cmn_4_4::CCmnStringTool;

namespace
{

// ---- Scanning and printing ---------------------------------------------------------------------

constexpr int kIdSize = 1024;
constexpr int kIntSize = sizeof(int);

struct Header {
    int fields;
    int severity;
    char id[kIdSize];
};

bool operator==(const Header& left, const Header& right)
{
    return left.fields == right.fields && left.severity == right.severity &&
           std::strcmp(left.id, right.id) == 0;
}

using Argument = std::array<int, 3>; // fields, index, type

struct Numbers {
    int fields;
    int first;
    unsigned int second;
    long long third;
    unsigned int fourth;
};

bool operator==(const Numbers& left, const Numbers& right)
{
    return left.fields == right.fields && left.first == right.first &&
           left.second == right.second && left.third == right.third && left.fourth == right.fourth;
}

// Where the library takes a size, glibc takes a field width.
void addScans()
{
    Row("sscanf_header", kNone,
        always("<SERIALIZED_MESSAGE MSGID=TARNIX_EXEC_PIPE_CMD_FAILED SEVERITY=3>\n"), "glibc",
        [](const std::string& text) {
            Header header;
            header.fields =
                std::sscanf(text.c_str(), "<SERIALIZED_MESSAGE MSGID=%1023s SEVERITY=%d>",
                            header.id, &header.severity);
            return header;
        })
        .add("tarnix", [](const std::string& text) {
            Header header;
            header.fields = TX_sscanf(text.c_str(), "<SERIALIZED_MESSAGE MSGID=%s SEVERITY=%d>",
                                      header.id, kIdSize, &header.severity, kIntSize);
            return header;
        });
    Row("sscanf_argument", kNone, always("<ARGVALUE INDEX=12 TYPE=3>make all</ARGVALUE>\n"),
        "glibc",
        [](const std::string& text) {
            Argument argument;
            argument[0] = std::sscanf(text.c_str(), "<ARGVALUE INDEX=%d TYPE=%d>", &argument[1],
                                      &argument[2]);
            return argument;
        })
        .add("tarnix", [](const std::string& text) {
            Argument argument;
            argument[0] = TX_sscanf(text.c_str(), "<ARGVALUE INDEX=%d TYPE=%d>", &argument[1],
                                    kIntSize, &argument[2], kIntSize);
            return argument;
        });
    Row("sscanf_level", kNone, always(" 3\n"), "glibc", [](const std::string& text) {
        int level = 0;
        return std::sscanf(text.c_str(), "%d", &level) == 1 ? level : -1;
    }).add("tarnix", [](const std::string& text) {
        int level = 0;
        return TX_sscanf(text.c_str(), "%d", &level, kIntSize) == 1 ? level : -1;
    });
    Row("sscanf_numbers", kNone, always("-12345 4000000000 1234567890123456789 0x7fff"), "glibc",
        [](const std::string& text) {
            Numbers numbers;
            numbers.fields = std::sscanf(text.c_str(), "%d %u %lld %x", &numbers.first,
                                         &numbers.second, &numbers.third, &numbers.fourth);
            return numbers;
        })
        .add("tarnix", [](const std::string& text) {
            Numbers numbers;
            numbers.fields = TX_sscanf(text.c_str(), "%d %u %lld %x", &numbers.first, kIntSize,
                                       &numbers.second, kIntSize, &numbers.third, kIntSize,
                                       &numbers.fourth, kIntSize); // the sizes have no effect
            return numbers;
        });
}

template <class Number>
using Reader = Number (*)(const char*, char**, int);

template <class Number>
void addReader(const std::string& name, Reader<Number> glibc, Reader<Number> tarnix)
{
    struct Sample {
        const char* name;
        const char* text;
        int base;
    };
    constexpr Sample samples[] = {
        {"short", "42", 10}, {"long", "1234567890123456789", 10}, {"hex", "0x7fffabcd", 16}};
    for (const Sample& sample : samples) {
        const auto call = [base = sample.base](Reader<Number> read) {
            return [base, read](const std::string& text) {
                char* end = nullptr;
                const Number number = read(text.c_str(), &end, base);
                return *end == '\0' ? number : 0;
            };
        };
        Row(name + '_' + sample.name, kNone, always(sample.text), "glibc", call(glibc))
            .add("tarnix", call(tarnix));
    }
}

constexpr std::size_t kPrintSize = 128;

struct Printed {
    int length;
    char text[kPrintSize];
};

bool operator==(const Printed& left, const Printed& right)
{
    return left.length == right.length && std::strcmp(left.text, right.text) == 0;
}

// One format that the library itself uses, printed by both.
template <class... Arguments>
void addPrint(const char* name, const char* format, Arguments... arguments)
{
    Row(std::string("snprintf_") + name, kNone, always(format), "glibc",
        [=](const std::string& copy) {
            Printed printed;
            printed.length =
                std::snprintf(printed.text, sizeof printed.text, copy.c_str(), arguments...);
            return printed;
        })
        .add("tarnix", [=](const std::string& copy) {
            Printed printed;
            printed.length =
                TX_snprintf(printed.text, sizeof printed.text, copy.c_str(), arguments...);
            return printed;
        });
}

void addPrints()
{
    addPrint("header", "<SERIALIZED_MESSAGE MSGID=%s SEVERITY=%d>\n", "TARNIX_EXEC_PIPE_CMD_FAILED",
             3);
    addPrint("address", "%d.%d.%d.%d", 192, 168, 100, 7);
    addPrint("key", "%04lld", 11LL);
    addPrint("double", "%g", 1234.5678);
}

// ---- Numbers as text ---------------------------------------------------------------------------

template <class Number>
auto numberMaker(Number number)
{
    return [number](std::size_t) { return number; };
}

void addNumbers()
{
    Row("int2str", kNone, numberMaker(-12345), "std", toChars<int>).add("tarnix", [](int number) {
        return CCmnStringTool::int2str(number);
    });
    Row("int2str_64", kNone, numberMaker(std::int64_t{-1234567890123456789}), "std",
        toChars<std::int64_t>)
        .add("tarnix", [](std::int64_t number) { return CCmnStringTool::int2str(number); });
    Row("uint2str_64", kNone, numberMaker(std::uint64_t{12345678901234567890U}), "std",
        toChars<std::uint64_t>)
        .add("tarnix", [](std::uint64_t number) { return CCmnStringTool::uint2str(number); });
    Row("int2wstr", kNone, numberMaker(-12345), "std", [](int number) {
        return std::to_wstring(number);
    }).add("tarnix", [](int number) { return CCmnStringTool::int2wstr(number); });
    Row("double2str", kNone, numberMaker(1234.5678), "glibc", [](double number) {
        char digits[64];
        return std::string(
            digits, static_cast<std::size_t>(std::snprintf(digits, sizeof digits, "%g", number)));
    }).add("tarnix", [](double number) { return CCmnStringTool::double2str(number); });
}

// A text as a whole, against the standard's reader and the check that it has read all.
template <class Number, class... Base>
void addStrictReader(const std::string& name, const char* text, Base... base)
{
    Row(name, kNone, always(text), "std", [base...](const std::string& digits) {
        Number number{};
        const char* const last = digits.data() + digits.size();
        const auto [end, error] = std::from_chars(digits.data(), last, number, base...);
        return error == std::errc() && end == last ? number : Number{};
    }).add("tarnix", [](const std::string& digits) {
        Number number{};
        if constexpr (sizeof...(Base) == 0) {
            return CCmnStringTool::readNumber(digits, number) ? number : Number{};
        } else {
            return CCmnStringTool::readHex(digits, number) ? number : Number{};
        }
    });
}

void addStrictReaders()
{
    addStrictReader<int>("read_number_short", "42");
    addStrictReader<int>("read_number_int", "-1234567890");
    addStrictReader<std::int64_t>("read_number_long", "1234567890123456789");
    addStrictReader<double>("read_number_double", "-1234.5678e-3");
    addStrictReader<unsigned int>("read_hex_int", "7fffabcd", 16);
    addStrictReader<std::uint64_t>("read_hex_long", "7fffabcd01234567", 16);
}

// ---- UTF-8 and UTF-16 --------------------------------------------------------------------------

template <class MakeText>
void addUtf8(const std::string& kind, MakeText makeText)
{
    Row("str2ustr_" + kind, kShortAndLong, makeText, "icu", icuFromUtf8<true>)
        .add("tarnix", [](const std::string& text) { return CCmnStringTool::str2ustr(text); })
        .add("icu_uncut", icuFromUtf8<false>);
    Row(
        "ustr2str_" + kind, kShortAndLong,
        [makeText](std::size_t size) { return icuFromUtf8<true>(makeText(size)); }, "icu",
        icuToUtf8<true>)
        .add("tarnix",
             [](const icu::UnicodeString& text) { return CCmnStringTool::ustr2str(text); })
        .add("icu_uncut", icuToUtf8<false>);
}

// ---- The locale's encoding ---------------------------------------------------------------------

template <class MakeText>
void addLocale(const std::string& kind, const char* locale, MakeText makeText)
{
    Row("str2wstr_" + kind, kShortAndLong, makeText, "glibc", onePassToWide, locale)
        .add("tarnix", [](const std::string& text) { return CCmnStringTool::str2wstr(text); });
    Row("str2tstr_" + kind, kShortAndLong, makeText, "glibc", onePassToTstr, locale)
        .add("tarnix", [](const std::string& text) { return CCmnStringTool::str2tstr(text); });
    Row(
        "wstr2str_" + kind, kShortAndLong,
        [makeText](std::size_t size) { return onePassToWide(makeText(size)); }, "glibc",
        [](const std::wstring& text) { return onePassToNarrow(text.c_str(), text.size()); }, locale)
        .add("tarnix", [](const std::wstring& text) { return CCmnStringTool::wstr2str(text); });
    Row(
        "tstr2str_" + kind, kShortAndLong,
        [makeText](std::size_t size) { return onePassToTstr(makeText(size)); }, "glibc",
        [](const tstr& text) { return onePassToNarrow(text.c_str(), text.length()); }, locale)
        .add("tarnix", [](const tstr& text) { return CCmnStringTool::tstr2str(text); });
}

// ---- Search and replace ------------------------------------------------------------------------

constexpr std::string_view kSearchText = "{name}";
constexpr std::string_view kReplacementText = "runcmd";

// A text with `count` matches, `distance` bytes apart.
std::string textWithMatches(std::size_t count, std::size_t distance)
{
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        text.append(asciiText(distance - kSearchText.size())).append(kSearchText);
    }
    return text;
}

template <class MakeText>
void addReplace(const std::string& name, const Sizes& sizes, MakeText makeText)
{
    static const std::string search(kSearchText);
    static const std::string replacement(kReplacementText);
    Row(name, sizes, makeText, "std",
        [](const std::string& text) { return replaceByFind(text, search, replacement); })
        .add("tarnix",
             [](const std::string& text) {
                 return CCmnStringTool::searchreplace(text, search, replacement);
             })
        .add("boost", [](const std::string& text) {
            return boost::replace_all_copy(text, search, replacement);
        });
}

void addReplaces()
{
    addReplace("searchreplace_few", {64 * 1024},
               [](std::size_t size) { return textWithMatches(10, size / 10); });
    addReplace("searchreplace_many", {64 * 1024},
               [](std::size_t size) { return textWithMatches(size / 16, 16); });
    addReplace("searchreplace_short", {64},
               [](std::size_t size) { return textWithMatches(2, size / 2); });
    addReplace("searchreplace_growth", kGrowth,
               [](std::size_t count) { return textWithMatches(count, 32); });
}

// ---- XML ---------------------------------------------------------------------------------------

// A text of markup (a character to escape in about 7), or of prose (one in about 60).
std::string markupText(std::size_t size)
{
    return repeated("<line number=\"12\">a & b aren't c</line> ", size);
}

std::string proseText(std::size_t size)
{
    return repeated("The command make all, which couldn't be found, ended with status 2. ", size);
}

template <class MakeText>
void addXml(const std::string& kind, MakeText makeText)
{
    const Sizes sizes = {64, 64 * 1024};
    Row("xml_escape_" + kind, sizes, makeText, "std", escapeByFind)
        .add("tarnix",
             [](const std::string& text) {
                 return CCmnStringTool::convertToXmlSpecialCharacters(text);
             })
        .add("switch", escapeByCharacter)
        .add("boost", escapeByBoost);
    Row(
        "xml_unescape_" + kind, sizes,
        [makeText](std::size_t size) { return escapeByFind(makeText(size)); }, "std",
        unescapeByFind)
        .add("tarnix",
             [](const std::string& text) {
                 return CCmnStringTool::convertFromXmlSpecialCharacters(text);
             })
        .add("boost", unescapeByBoost);
}

// ---- Tokens and letters ------------------------------------------------------------------------

// A text with `count` delimiters.
std::string delimitedText(std::size_t count)
{
    return repeated("alpha,beta;gamma,delta;a token of some length,", count * 9);
}

void addTokens()
{
    const auto add = [](const char* name, const Sizes& sizes) {
        Row(name, sizes, delimitedText, "std", splitByFind)
            .add("tarnix",
                 [](const std::string& text) { return CCmnStringTool::tokenize(text, ",;"); })
            .add("boost", splitByBoost);
    };
    add("tokenize", {4});
    add("tokenize_growth", kGrowth);
}

// Two texts that differ in the case of every letter.
template <class String>
struct Pair {
    String left;
    String right;
};

template <class String, class MakeText>
void addLetters(const std::string& kind, MakeText makeText)
{
    Row("tostrlower_" + kind, kShortAndLong, makeText, "std", lowerByHand<String>, kUtf8Locale)
        .add("tarnix", [](const String& text) { return CCmnStringTool::tostrlower(text); });
    Row(
        "compare_no_case_" + kind, kShortAndLong,
        [makeText](std::size_t size) {
            return Pair<String>{CCmnStringTool::tostrupper(makeText(size)),
                                lowerByHand<String>(makeText(size))};
        },
        "std", [](const Pair<String>& pair) { return equalByHand<String>(pair.left, pair.right); },
        kUtf8Locale)
        .add("tarnix",
             [](const Pair<String>& pair) {
                 return CCmnStringTool::CompareNoCase(pair.left, pair.right);
             })
        .add("lower_case", [](const Pair<String>& pair) {
            return equalInLowerCase<String>(pair.left, pair.right);
        });
}

void addRows()
{
    addScans();
    addReader("strtoimax", std::strtoimax, TX_strtoimax);
    addReader("strtoumax", std::strtoumax, TX_strtoumax);
    addPrints();
    addNumbers();
    addStrictReaders();
    addUtf8("ascii", asciiText);
    addUtf8("mixed", mixedText);
    addLocale("ascii", kUtf8Locale, asciiText);
    addLocale("mixed", kUtf8Locale, mixedText);
    addLocale("c", "C", asciiText);
    addReplaces();
    addXml("prose", proseText);
    addXml("markup", markupText);
    addTokens();
    addLetters<std::string>("narrow", asciiText);
    addLetters<std::wstring>("wide",
                             [](std::size_t size) { return onePassToWide(mixedText(size)); });
}

} // namespace

int main(int argc, char** argv)
{
    // Keeps results of 256 KiB on the heap. By default the allocator maps some of them, depending
    // on the rows that ran before, and the page faults would hide the work.
    ::mallopt(M_MMAP_THRESHOLD, 1 << 30);
    ::mallopt(M_TRIM_THRESHOLD, 1 << 30);
    benchmark::AddCustomContext("peer glibc", gnu_get_libc_version());
    benchmark::AddCustomContext("peer ICU", U_ICU_VERSION);
    benchmark::AddCustomContext("peer Boost", BOOST_LIB_VERSION);
    benchmark::AddCustomContext("peer libstdc++", std::to_string(_GLIBCXX_RELEASE));
    addRows();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
