// Fuzzer of the readers of numbers and hex, against those of the C library. The input is a base and
// a text, whose bytes are also printed as hex, and read back.
#include "TX_strings.h"
#include "cmnstringtool.h"
#include "fuzzinput.h"

#include <cctype>
#include <cerrno>
#include <cinttypes>

using Tool = tarnix_cmn_4_4::CCmnStringTool;

namespace
{

template <class Number>
void compareReaders(const std::string& text, int base, bool agree,
                    Number (*read)(const char*, char**, int),
                    Number (*peer)(const char*, char**, int))
{
    const std::vector<char> exact = terminated(text);
    char* end = nullptr;
    char* peerEnd = nullptr;
    errno = 0;
    const Number number = read(exact.data(), &end, base);
    const int error = errno;
    require(end >= exact.data() && end < exact.data() + exact.size(), "the end");
    errno = 0;
    if (agree)
        require(peer(exact.data(), &peerEnd, base) == number && peerEnd == end && errno == error,
                "a number as the standard reads it");
}

// "0x" without a digit is where they differ.
bool hasBarePrefix(const std::string& text)
{
    const std::size_t x = text.find_first_of("xX");
    return x != std::string::npos &&
           !std::isxdigit(static_cast<unsigned char>(text.c_str()[x + 1]));
}

void readHex(const std::string& text)
{
    std::vector<unsigned char> out(text.size() / 2), back(text.size());
    out.reserve(1);
    back.reserve(1);
    const int pairs = static_cast<int>(out.size());
    int size = pairs - 1;
    require(Tool::str2binary(out.data(), &size, text) == -1 && size == pairs - 1, "too small");
    size = pairs;
    require(Tool::str2binary(out.data(), &size, text) == 0 && size == pairs, "hex");
    const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data());
    size = static_cast<int>(text.size());
    const std::wstring hex = Tool::binary2wstr(bytes, size);
    require(Tool::wstr2binary(back.data(), &size, hex, true) == 0 &&
                std::equal(back.begin(), back.end(), bytes, bytes + size),
            "bytes come back");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzInput input(data, size);
    const int base = static_cast<int>(input.byte()) - 4; // some that are no base, too
    const std::string bytes = input.rest();
    const std::string text = bytes.c_str();
    const bool agree = base == 0 || base == 16 ? !hasBarePrefix(text) : base >= 2 && base <= 36;
    compareReaders<std::intmax_t>(text, base, agree, TX_strtoimax, std::strtoimax);
    compareReaders<std::uintmax_t>(text, base, agree, TX_strtoumax, std::strtoumax);
    readHex(bytes);
    return 0;
}
