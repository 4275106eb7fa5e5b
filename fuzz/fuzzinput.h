// What the fuzzers share: the input in pieces, and the demand that something holds. Targets and
// texts are vectors, which have exactly the size that is told to the functions: a step beyond is
// seen.
#ifndef TARNIX_FUZZINPUT_H
#define TARNIX_FUZZINPUT_H

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

inline void require(bool holds, const char* what)
{
    if (holds)
        return;
    std::fprintf(stderr, "Does not hold: %s\n", what);
    __builtin_trap();
}

template <class Char>
std::vector<Char> terminated(const std::basic_string<Char>& text)
{
    return std::vector<Char>(text.c_str(), text.c_str() + text.size() + 1);
}

class FuzzInput
{
public:
    FuzzInput(const std::uint8_t* data, std::size_t size)
        : m_Rest(reinterpret_cast<const char*>(data), size)
    {
    }

    bool hasMore() const { return !m_Rest.empty(); }
    // 0 when nothing is left.
    unsigned int byte() { return static_cast<unsigned char>((take(1) + '\0')[0]); }
    std::string rest() { return take(m_Rest.size()); }

    // Up to the next separator, which is dropped.
    std::string until(char separator)
    {
        std::string piece = take(m_Rest.find(separator));
        take(1);
        return piece;
    }

    // A count, a piece up to the line end, and a text in which each byte 1 becomes the piece, as
    // often as the square of the count tells, but not much beyond the limit: small inputs for large
    // files.
    std::string expanded(std::size_t limit)
    {
        const std::size_t count = byte();
        const std::string piece = until('\n');
        std::string text;
        for (const char c : rest()) {
            std::size_t copies = c == '\1' ? count * count : 0;
            for (; copies > 0 && text.size() < limit; --copies)
                text += piece;
            if (c != '\1')
                text += c;
        }
        return text;
    }

private:
    std::string take(std::size_t length)
    {
        const std::string piece(m_Rest.substr(0, length));
        m_Rest.remove_prefix(piece.size());
        return piece;
    }

    std::string_view m_Rest;
};

// What a fuzzer does with each input. It is included once in each program.
void fuzz(FuzzInput input);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz(FuzzInput(data, size));
    return 0;
}

#endif
