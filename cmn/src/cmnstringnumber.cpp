// SPDX-License-Identifier: LicenseRef-Tarnix
// CCmnStringTool: numbers, bytes and uids as text, and back.
#include "TX_strings.h"
#include "cmnhex.h"
#include "cmnstringtool.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <string_view>

namespace tarnix_cmn_4_4
{
namespace
{

// As "%d" and similar formats, but without the cost of the formatter: most numbers are converted
// here. The digits are ASCII, so a wide text can copy them unchanged.
template <class Text, class Number>
Text decimal(Number number)
{
    char digits[std::numeric_limits<Number>::digits10 + 2];
    return Text(digits, std::to_chars(digits, std::end(digits), number).ptr);
}

template <class Number>
int readInto(const std::string& text, Number& number, Number (*read)(const std::string&))
{
    if (text.empty()) {
        return -1;
    }
    number = read(text);
    return 0;
}

std::size_t byteCount(const unsigned char* data, int length)
{
    return data == nullptr ? 0 : static_cast<std::size_t>(std::max(length, 0));
}

template <class Char>
std::basic_string<Char> hexText(const unsigned char* data, int length)
{
    std::basic_string<Char> text;
    appendHex(text, data, byteCount(data, length));
    return text;
}

// The number at the start of a uid, as "%04x".
template <class Char>
class UidNumber
{
public:
    explicit UidNumber(std::uint32_t number)
    {
        constexpr std::size_t minSize = 4;
        while (m_Size > minSize && number >> (4 * (m_Size - 1)) == 0) {
            --m_Size;
        }
        for (std::size_t i = m_Size; i > 0; number >>= 4) {
            m_Digits[--i] = hexDigit(number & 0xF);
        }
    }

    const Char* data() const { return m_Digits; }
    std::size_t size() const { return m_Size; }

private:
    static constexpr std::size_t kMaxSize = 2 * sizeof(std::uint32_t);

    std::size_t m_Size = kMaxSize;
    Char m_Digits[kMaxSize];
};

constexpr std::uint8_t kNoDigit = UINT8_MAX;

constexpr std::array<std::uint8_t, 256> makeHexValues()
{
    std::array<std::uint8_t, 256> values{};
    for (std::uint8_t& value : values) {
        value = kNoDigit;
    }
    for (const std::string_view digits : {"0123456789abcdef", "0123456789ABCDEF"}) {
        std::uint8_t value = 0;
        for (const char digit : digits) {
            values[static_cast<unsigned char>(digit)] = value++;
        }
    }
    return values;
}

constexpr auto kHexValues = makeHexValues();

// Two hex digits are read by table. Anything else gets the result of strtol.
unsigned char readHexPair(char first, char second)
{
    const int high = kHexValues[static_cast<unsigned char>(first)];
    const int low = kHexValues[static_cast<unsigned char>(second)];
    if (high != kNoDigit && low != kNoDigit) {
        return static_cast<unsigned char>(high << 4 | low);
    }
    const char pair[] = {first, second, '\0'};
    return static_cast<unsigned char>(std::strtol(pair, nullptr, 16));
}

} // namespace

std::string CCmnStringTool::double2str(double number)
{
    char text[64];
    TX_snprintf(text, sizeof text, "%g", number);
    return text;
}

std::string CCmnStringTool::int2str(int number)
{
    return decimal<std::string>(number);
}

std::string CCmnStringTool::int2str(std::int64_t number)
{
    return decimal<std::string>(number);
}

std::string CCmnStringTool::uint2str(unsigned int number)
{
    return decimal<std::string>(number);
}

std::string CCmnStringTool::uint2str(std::uint64_t number)
{
    return decimal<std::string>(number);
}

std::wstring CCmnStringTool::int2wstr(int number)
{
    return decimal<std::wstring>(number);
}

std::wstring CCmnStringTool::int2wstr(std::int64_t number)
{
    return decimal<std::wstring>(number);
}

std::wstring CCmnStringTool::uint2wstr(unsigned int number)
{
    return decimal<std::wstring>(number);
}

std::wstring CCmnStringTool::uint2wstr(std::uint64_t number)
{
    return decimal<std::wstring>(number);
}

std::string CCmnStringTool::bool2str(bool value)
{
    return value ? "true" : "false";
}

int CCmnStringTool::str2double(const std::string& text, double& number)
{
    return readInto<double>(text, number, str2double);
}

double CCmnStringTool::str2double(const std::string& text)
{
    return std::atof(text.c_str());
}

int CCmnStringTool::str2int(const std::string& text, int& number)
{
    return readInto<int>(text, number, str2int);
}

int CCmnStringTool::str2int(const std::string& text)
{
    return std::atoi(text.c_str());
}

int CCmnStringTool::str2uint(const std::string& text, unsigned int& number)
{
    return readInto<unsigned int>(text, number, str2uint);
}

unsigned int CCmnStringTool::str2uint(const std::string& text)
{
    return static_cast<unsigned int>(std::atoi(text.c_str()));
}

int CCmnStringTool::str2uint64(const std::string& text, std::uint64_t& number)
{
    return readInto<std::uint64_t>(text, number, [](const std::string& digits) -> std::uint64_t {
        return std::strtoull(digits.c_str(), nullptr, 10);
    });
}

std::string CCmnStringTool::binary2str(const unsigned char* data, int length)
{
    return hexText<char>(data, length);
}

std::wstring CCmnStringTool::binary2wstr(const unsigned char* data, int length)
{
    return hexText<wchar_t>(data, length);
}

int CCmnStringTool::str2binary(unsigned char* out, int* size, const std::string& text)
{
    const std::size_t pairs = text.size() / 2;
    // A negative size is an error even for no pair at all.
    if (size == nullptr || (out == nullptr && pairs != 0) || *size < 0 ||
        pairs > static_cast<std::size_t>(*size)) {
        return -1;
    }
    for (std::size_t i = 0; i < pairs; ++i) {
        out[i] = readHexPair(text[2 * i], text[2 * i + 1]);
    }
    *size = static_cast<int>(pairs);
    return 0;
}

int CCmnStringTool::wstr2binary(unsigned char* out, int* size, std::wstring text, bool)
{
    return str2binary(out, size, wstr2str(text));
}

std::wstring CCmnStringTool::binary2uid(unsigned int number, const unsigned char* data, int length)
{
    const std::size_t bytes = byteCount(data, length);
    const UidNumber<wchar_t> digits(number);
    std::wstring uid(digits.size() + 2 * bytes, L'\0');
    printHex(std::copy_n(digits.data(), digits.size(), uid.data()), data, bytes);
    return uid;
}

std::string CCmnStringTool::str2uid(unsigned int number, const std::string& text)
{
    const UidNumber<char> digits(number);
    std::string uid(digits.data(), digits.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x80) { // as "%02x" prints a negative char
            uid += "ffffff";
        }
        appendHex(uid, &byte, 1);
    }
    return uid;
}

std::string CCmnStringTool::wstr2uid(unsigned int number, const std::wstring& text)
{
    return str2uid(number, wstr2str(text));
}

} // namespace tarnix_cmn_4_4
