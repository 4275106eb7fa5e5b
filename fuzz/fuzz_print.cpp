// Fuzzer of bounded printing and copying. Printing is compared with the standard formatter, and
// copying with a plain model.
#include "TX_strings.h"
#include "fuzzinput.h"

#include <cstring>
#include <cwchar>

namespace
{

constexpr char kFill = '\x5A';
constexpr std::size_t kMost = 4096; // more than what is printed here

template <class Char>
bool startsAlike(const std::vector<Char>& block, const std::vector<Char>& text, int count)
{
    const auto end = block.begin() + count;
    return count < 0 || (std::equal(block.begin(), end, text.begin()) && *end == Char());
}

template <class Argument>
void checkPrint(int size, const std::string& format, Argument argument)
{
    const std::size_t bytes = static_cast<std::size_t>(size);
    std::vector<char> block(bytes, kFill), full(kMost);
    int length = std::snprintf(full.data(), kMost, format.c_str(), argument);
    int count = length < 0 ? size - 1 : std::min(length, size - 1);
    require(TX_snprintf(block.data(), bytes, format.c_str(), argument) == count &&
                startsAlike(block, full, length < 0 ? -1 : count),
            "a text as the standard prints it");

    const std::wstring wide(format.begin(), format.end());
    std::vector<wchar_t> wideBlock(bytes, kFill), wideFull(kMost);
    length = std::swprintf(wideFull.data(), kMost, wide.c_str(), argument);
    count = std::min(length, size - 1);
    require(TX_snwprintf(wideBlock.data(), bytes, wide.c_str(), argument) ==
                    (length <= size ? length : -1) &&
                startsAlike(wideBlock, wideFull, count),
            "a wide text as the standard prints it");
}

// One directive with plain text in front.
void print(FuzzInput& input)
{
    const int size = static_cast<int>(input.byte()) + 1;
    std::string format;
    for (const char c : input.until('%').substr(0, 300))
        format += c > '\0' ? c : '.';
    const unsigned int flags = input.byte();
    format += '%';
    for (unsigned int i = 0; i < 5; ++i)
        format += (flags >> i & 1) != 0 ? std::string(1, "-+ #0"[i]) : "";
    format += (flags & 32) != 0 ? std::to_string(input.byte()) : "";
    format += (flags & 64) != 0 ? "." + std::to_string(input.byte()) : "";
    const char conversion = "diouxXcsgfeEaG"[input.byte() % 14];
    const std::string bytes = input.rest().substr(0, 1000);
    std::int64_t number = 0;
    double real = 0;
    std::memcpy(&number, bytes.data(), std::min(bytes.size(), sizeof number));
    std::memcpy(&real, &number, sizeof real);
    if (conversion == 's')
        checkPrint(size, format + "s|", bytes.c_str());
    else if (std::strchr("gfeEaG", conversion))
        checkPrint(size, format + conversion, real);
    else if (conversion != 'c' && (flags & 128) != 0)
        checkPrint(size, format + "l" + conversion, number);
    else
        // A zero character would end the wide text.
        checkPrint(size, format + conversion, static_cast<int>(number) | (conversion == 'c'));
}

template <class Char>
struct Functions {
    std::size_t (*copy)(Char*, const Char*, std::size_t);
    std::size_t (*append)(Char*, const Char*, std::size_t);
    std::size_t (*copySpan)(Char*, const Char*, std::size_t, std::size_t);
    std::size_t (*appendSpan)(Char*, const Char*, std::size_t, std::size_t);
    int (*measure)(const Char*, std::size_t, std::size_t*);
};

template <class Char>
void copy(FuzzInput& input, const Functions<Char>& functions)
{
    const bool appends = input.byte() % 2 != 0, spans = input.byte() % 2 != 0;
    const std::size_t size = input.byte() % 40 + 1, count = spans ? input.byte() % 48 : SIZE_MAX;
    const std::string first = input.until('\0'), second = input.until('\0');
    std::vector<Char> target(size, kFill);
    std::copy_n(first.c_str(), std::min(first.size() + 1, size), target.begin());
    const std::vector<Char> source =
        terminated(std::basic_string<Char>(second.begin(), second.end()));

    const auto end = std::find(target.begin(), target.end(), Char());
    const auto used = static_cast<std::size_t>(end - target.begin());
    std::size_t length = 99;
    require(functions.measure(target.data(), size, &length) == (used < size ? 0 : -1) &&
                length == (used < size ? used : 0),
            "a length");
    std::vector<Char> wanted = target;
    std::size_t result = 0;
    if (!appends || used < size) {
        const auto start = wanted.begin() + (appends ? end - target.begin() : 0);
        const std::size_t room = appends ? size - used - 1 : size - 1;
        const std::size_t copied = std::min({source.size() - 1, count, room});
        result = spans && !appends ? std::min(count, room) : copied;
        std::fill_n(std::copy_n(source.begin(), copied, start), result - copied + 1, Char());
    }
    const auto plain = appends ? functions.append : functions.copy;
    const auto span = appends ? functions.appendSpan : functions.copySpan;
    require((spans ? span(target.data(), source.data(), count, size)
                   : plain(target.data(), source.data(), size)) == result &&
                target == wanted,
            "a text as the model copies it");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzInput input(data, size);
    const unsigned int family = input.byte() % 3;
    if (family == 0)
        print(input);
    else if (family == 1)
        copy<char>(input, {TX_strcpy, TX_strcat, TX_strncpy, TX_strncat, TX_strnlen});
    else
        copy<wchar_t>(input, {TX_wcscpy, TX_wcscat, TX_wcsncpy, TX_wcsncat, TX_wcsnlen});
    return 0;
}
