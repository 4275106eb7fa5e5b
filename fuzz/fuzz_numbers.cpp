// Fuzzer of the readers of numbers, against those of the C library, and of hex. The input is a base
// and a text, whose bytes are also converted to hex and back.
#include "TX_strings.h"
#include "cmnstringtool.h"
#include "fuzzinput.h"

#include <cctype>
#include <cerrno>
#include <cinttypes>

using Tool = tarnix_cmn_4_4::CCmnStringTool;

template <class Read, class Peer>
static void compareReaders(const std::string& text, int base, bool agree, Read read, Peer peer)
{
    const std::vector<char> exact = terminated(text);
    char* end = nullptr;
    char* peerEnd = nullptr;
    errno = 0;
    const auto number = read(exact.data(), &end, base);
    const int error = errno;
    require(end >= exact.data() && end < exact.data() + exact.size(), "the end is within the text");
    errno = 0;
    if (agree)
        require(peer(exact.data(), &peerEnd, base) == number && peerEnd == end && errno == error,
                "reads the same number as the standard");
}

static void checkHex(const std::string& text)
{
    const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data());
    const int length = static_cast<int>(text.size());
    const std::wstring hex = Tool::binary2wstr(bytes, length);
    std::vector<unsigned char> back(text.size());
    int size = length - 1;
    require(Tool::wstr2binary(back.data(), &size, hex, true) == -1 && size == length - 1,
            "a target that is too small stays");
    size = length;
    require(Tool::wstr2binary(back.data(), &size, hex, true) == 0 && size == length &&
                std::equal(back.begin(), back.end(), bytes),
            "bytes survive a round trip");
}

void fuzz(FuzzInput input)
{
    const int base = static_cast<int>(input.byte()) - 4; // invalid ones too
    const std::string bytes = input.rest(), text = bytes.c_str();
    // "0x" without a digit is where they differ.
    const std::size_t x = text.find_first_of("xX");
    const bool isBare =
        x != std::string::npos && !std::isxdigit(static_cast<unsigned char>(text.c_str()[x + 1]));
    const bool agree = base == 0 || base == 16 ? !isBare : base >= 2 && base <= 36;
    compareReaders(text, base, agree, TX_strtoimax, std::strtoimax);
    compareReaders(text, base, agree, TX_strtoumax, std::strtoumax);
    checkHex(bytes);
}
