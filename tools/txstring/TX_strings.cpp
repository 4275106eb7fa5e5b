// SPDX-License-Identifier: LicenseRef-Tarnix
// Bounded copying, appending, measuring and printing. Narrow and wide functions share a template.
#include "TX_strings.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <memory>
#include <string>

namespace
{

struct FreeMemory {
    void operator()(void* memory) const { std::free(memory); }
};

// The distance to the terminator, or `limit` if there is none before it.
std::size_t lengthWithin(const char* text, std::size_t limit)
{
    return ::strnlen(text, limit);
}

std::size_t lengthWithin(const wchar_t* text, std::size_t limit)
{
    return ::wcsnlen(text, limit);
}

template <typename Unit>
bool isUsable(const Unit* target, const Unit* source, std::size_t size)
{
    return target != nullptr && source != nullptr && size != 0;
}

// Reads no more of the source than it can copy, so the source need not be terminated.
template <typename Unit>
std::size_t copyText(Unit* target, const Unit* source, std::size_t size)
{
    if (!isUsable(target, source, size)) {
        return 0;
    }
    const std::size_t length = lengthWithin(source, size - 1);
    std::char_traits<Unit>::move(target, source, length);
    target[length] = Unit();
    return length;
}

template <typename Unit>
std::size_t copySpan(Unit* target, const Unit* source, std::size_t count, std::size_t size)
{
    if (!isUsable(target, source, size)) {
        return 0;
    }
    const std::size_t span = std::min(count, size - 1);
    const std::size_t length = lengthWithin(source, span);
    std::char_traits<Unit>::move(target, source, length);
    std::fill(target + length, target + span + 1, Unit());
    return span;
}

template <typename Unit>
std::size_t appendText(Unit* target, const Unit* source, std::size_t count, std::size_t size)
{
    if (!isUsable(target, source, size)) {
        return 0;
    }
    const std::size_t used = lengthWithin(target, size);
    const std::size_t room = size - used;
    return copyText(target + used, source, count < room ? count + 1 : room);
}

template <typename Unit>
int measureText(const Unit* text, std::size_t limit, std::size_t* length)
{
    const std::size_t found = text == nullptr ? limit : lengthWithin(text, limit);
    const bool terminated = found < limit;
    if (length != nullptr) {
        *length = terminated ? found : 0;
    }
    return terminated ? 0 : -1;
}

} // namespace

std::size_t TX_strcpy(char* target, const char* source, std::size_t size)
{
    return copyText(target, source, size);
}

std::size_t TX_wcscpy(wchar_t* target, const wchar_t* source, std::size_t size)
{
    return copyText(target, source, size);
}

std::size_t TX_strcat(char* target, const char* source, std::size_t size)
{
    return appendText(target, source, size, size);
}

std::size_t TX_wcscat(wchar_t* target, const wchar_t* source, std::size_t size)
{
    return appendText(target, source, size, size);
}

std::size_t TX_strncpy(char* target, const char* source, std::size_t count, std::size_t size)
{
    return copySpan(target, source, count, size);
}

std::size_t TX_wcsncpy(wchar_t* target, const wchar_t* source, std::size_t count, std::size_t size)
{
    return copySpan(target, source, count, size);
}

std::size_t TX_strncat(char* target, const char* source, std::size_t count, std::size_t size)
{
    return appendText(target, source, count, size);
}

std::size_t TX_wcsncat(wchar_t* target, const wchar_t* source, std::size_t count, std::size_t size)
{
    return appendText(target, source, count, size);
}

int TX_strnlen(const char* text, std::size_t limit, std::size_t* length)
{
    return measureText(text, limit, length);
}

int TX_wcsnlen(const wchar_t* text, std::size_t limit, std::size_t* length)
{
    return measureText(text, limit, length);
}

// Directly into the target: a copy of the text would take a third more time.
int TX_vsnprintf(char* target, std::size_t size, const char* format, std::va_list arguments)
{
    if (target == nullptr || size == 0) {
        return -1;
    }
    target[0] = '\0'; // vsnprintf may write nothing when it fails
    if (format == nullptr) {
        return -1;
    }
    const int length = std::vsnprintf(target, size, format, arguments);
    if (static_cast<std::size_t>(length) < size) { // not negative, which would be huge
        return length;
    }
    target[size - 1] = '\0';
    if (length < 0) {
        std::fill(target + std::strlen(target), target + size, '\0'); // the result counts them
    }
    return static_cast<int>(std::min<std::size_t>(size - 1, INT_MAX));
}

int TX_snprintf(char* target, std::size_t size, const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    const int result = TX_vsnprintf(target, size, format, arguments);
    va_end(arguments);
    return result;
}

int TX_vsnwprintf(wchar_t* target, std::size_t size, const wchar_t* format, std::va_list arguments)
{
    if (target == nullptr || size == 0) {
        return -1;
    }
    if (format == nullptr || size == SIZE_MAX) {
        target[0] = L'\0';
        return -1;
    }
    // A buffer of its own, because the target may be an argument or the format. One unit more than
    // the target: vswprintf needs the last one for a terminator, and a text of exactly `size` units
    // is not too long. Zeroed, because a vswprintf that fails midway leaves its text without a
    // terminator.
    const std::unique_ptr<wchar_t, FreeMemory> work(
        static_cast<wchar_t*>(std::calloc(size + 1, sizeof(wchar_t))));
    if (!work) {
        target[0] = L'\0';
        return -1;
    }
    const int result = std::vswprintf(work.get(), size + 1, format, arguments);
    TX_wcscpy(target, work.get(), size);
    // For a text that is cut, some C libraries return the length of the whole text.
    return static_cast<std::size_t>(result) <= size ? result : -1;
}

int TX_snwprintf(wchar_t* target, std::size_t size, const wchar_t* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    const int result = TX_vsnwprintf(target, size, format, arguments);
    va_end(arguments);
    return result;
}

void* TX_realloc(void** block, std::size_t size)
{
    if (block == nullptr) {
        return nullptr;
    }
    std::unique_ptr<void, FreeMemory> old(*block);
    *block = nullptr;
    if (old && size == 0) {
        return nullptr; // whether realloc would free it depends on the system
    }
    *block = std::realloc(old.get(), size);
    if (*block != nullptr) {
        static_cast<void>(old.release()); // realloc has reused or freed it
    }
    return *block;
}

wchar_t* TX_wmemset(wchar_t* target, wchar_t value, std::size_t count)
{
    return target == nullptr ? nullptr : std::wmemset(target, value, count);
}

const wchar_t* TX_wmemchr(const wchar_t* text, wchar_t value, std::size_t count)
{
    return text == nullptr ? nullptr : std::wmemchr(text, value, count);
}
