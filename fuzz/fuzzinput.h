// SPDX-License-Identifier: LicenseRef-Tarnix
// What the fuzzers share: an input that is taken in pieces, and a check. Fuzzers pass texts and
// targets in vectors of exactly the size that the functions get, so that the sanitizer reports any
// access outside.
#ifndef TARNIX_FUZZINPUT_H
#define TARNIX_FUZZINPUT_H

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

inline void require(bool holds, const char* what)
{
    if (holds)
        return;
    std::fprintf(stderr, "check failed: %s\n", what);
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
    explicit FuzzInput(std::string_view input) : m_Rest(input) {}

    bool hasMore() const { return !m_Rest.empty(); }
    // The next byte, or 0 at the end.
    unsigned int byte() { return static_cast<unsigned char>((take(1) + '\0')[0]); }
    std::string rest() { return take(m_Rest.size()); }

    // The text up to the next separator, which is dropped.
    std::string until(char separator)
    {
        std::string piece = take(m_Rest.find(separator));
        take(1);
        return piece;
    }

    // Makes large texts of small inputs. The input is a count, a piece up to a newline, and a text
    // in which each byte 1 is replaced by the piece, as often as the square of the count, until the
    // limit is reached.
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

// Each fuzzer defines this function; libFuzzer calls it with each input.
void fuzz(FuzzInput input);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz(FuzzInput({reinterpret_cast<const char*>(data), size}));
    return 0;
}

#endif
