// Fuzzer of bounded printing, against the standard formatter. The input is the size of the target,
// a text, a percent sign, and the bytes of a number.
#include "TX_strings.h"
#include "fuzzinput.h"

#include <cstring>

void fuzz(FuzzInput input)
{
    const std::size_t size = input.byte() + 1;
    const std::string text = input.until('%').c_str(), bytes = input.rest();
    double number = 0;
    std::memcpy(&number, bytes.data(), std::min(bytes.size(), sizeof number));
    std::string full(text.size() + 500, '\0');
    full.resize(static_cast<std::size_t>(
        std::snprintf(full.data(), full.size(), "%s|%.9f", text.c_str(), number)));

    std::vector<char> block(size);
    const int count = TX_snprintf(block.data(), size, "%s|%.9f", text.c_str(), number);
    require(full.substr(0, size - 1) == block.data() &&
                count == static_cast<int>(std::min(full.size(), size - 1)),
            "prints the same as the standard");
    const std::wstring wide(full.begin(), full.end());
    std::vector<wchar_t> wideBlock(size);
    const int wideCount = TX_snwprintf(wideBlock.data(), size, L"%ls", wide.c_str());
    require(wide.substr(0, size - 1) == wideBlock.data() &&
                wideCount == (wide.size() > size ? -1 : static_cast<int>(wide.size())),
            "wide text is printed as it is");
}
