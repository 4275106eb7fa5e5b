// The scanner's entry for a text in memory.
#include "TX_sscanf.h"

#include <climits>
#include <cstring>

int TX_sscanf(const char* text, const char* format, ...)
{
    if (text == nullptr) {
        return -1;
    }
    TX_ScanSource source = {reinterpret_cast<const unsigned char*>(text),
                            static_cast<int>(strnlen(text, INT_MAX)), TX_ScanLoaded};
    std::va_list arguments;
    va_start(arguments, format);
    const int result = TX_vfscanf(&source, format, arguments);
    va_end(arguments);
    return result;
}
