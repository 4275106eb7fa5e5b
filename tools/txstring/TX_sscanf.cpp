// SPDX-License-Identifier: LicenseRef-Tarnix
// TX_sscanf: scans a text in memory.
#include "TX_sscanf.h"

#include <algorithm>
#include <climits>
#include <cstring>

int TX_sscanf(const char* text, const char* format, ...)
{
    if (text == nullptr) {
        return -1;
    }
    const std::size_t length = std::min<std::size_t>(std::strlen(text), INT_MAX);
    TX_ScanSource source = {reinterpret_cast<const unsigned char*>(text), static_cast<int>(length),
                            TX_ScanLoaded};
    std::va_list arguments;
    va_start(arguments, format);
    const int result = TX_vfscanf(&source, format, arguments);
    va_end(arguments);
    return result;
}
