// SPDX-License-Identifier: LicenseRef-Tarnix
// Bounded text functions. The library uses them instead of the standard string functions wherever
// it writes into a fixed buffer, and instead of strtoimax and strtoumax.
//
// A size is always that of the whole target, terminator included: in bytes for the str functions,
// in wchar_t units for the wcs functions. Nothing is written past it, and a target that is written
// to is terminated. For a null pointer or a size of 0 nothing is written, and the documented result
// is returned. There is no state: any thread may call.
#ifndef TARNIX_TX_STRINGS_H
#define TARNIX_TX_STRINGS_H

#include <cstdarg>
#include <cstddef>
#include <cstdint>

// Copies as much of the source as fits. Returns the units copied, without the terminator; 0 for a
// null pointer or a size of 0.
std::size_t TX_strcpy(char* target, const char* source, std::size_t size);
std::size_t TX_wcscpy(wchar_t* target, const wchar_t* source, std::size_t size);

// Appends as much of the source as fits. Returns the units appended: 0 if there is no room, and
// also if the target has no terminator within the size, which leaves it untouched.
std::size_t TX_strcat(char* target, const char* source, std::size_t size);
std::size_t TX_wcscat(wchar_t* target, const wchar_t* source, std::size_t size);

// Copies the source into the first min(count, size - 1) units of the target, fills the rest of
// these units with zeros, and writes a terminator after them. Returns the number of these units and
// not the length of the text: for "ab", a count of 10 and a target of 100 it returns 10. 0 for a
// null pointer or a size of 0.
std::size_t TX_strncpy(char* target, const char* source, std::size_t count, std::size_t size);
std::size_t TX_wcsncpy(wchar_t* target, const wchar_t* source, std::size_t count, std::size_t size);

// As TX_strcat, with at most `count` units of the source.
std::size_t TX_strncat(char* target, const char* source, std::size_t count, std::size_t size);
std::size_t TX_wcsncat(wchar_t* target, const wchar_t* source, std::size_t count, std::size_t size);

// Looks for the terminator in the first `limit` units. If it is found, returns 0 and stores its
// index in *length. If there is none, or the text is null, returns -1 and stores 0. `length` may be
// null.
int TX_strnlen(const char* text, std::size_t limit, std::size_t* length);
int TX_wcsnlen(const wchar_t* text, std::size_t limit, std::size_t* length);

// Prints directly into the target, which must not be an argument or the format. Returns the number
// of characters written. A text that does not fit is cut and gives size - 1 (or INT_MAX, if that is
// less); so does an error of the formatter, and zeros then follow what it has printed. -1 for a
// null target or a size of 0, and for a null format, which leaves an empty text.
[[gnu::format(printf, 3, 4)]] int TX_snprintf(char* target, std::size_t size, const char* format,
                                              ...);
[[gnu::format(printf, 3, 0)]] int TX_vsnprintf(char* target, std::size_t size, const char* format,
                                               std::va_list arguments);

// Prints into a temporary buffer first, so that the target may be an argument or the format.
// Returns the length of the text. A text of exactly `size` units gives `size`, although the
// terminator replaces its last unit; a longer one is cut and gives -1. Also -1 for an error of the
// formatter, for a null target or a size of 0, and for a null format or a failed allocation, which
// leave an empty text.
int TX_snwprintf(wchar_t* target, std::size_t size, const wchar_t* format, ...);
int TX_vsnwprintf(wchar_t* target, std::size_t size, const wchar_t* format, std::va_list arguments);

// Resizes *block, stores the new block there and returns it. The old block never leaks: after a
// failure, or with a new size of 0, it has been freed and *block is null. (A null *block with a
// size of 0 is malloc(0).) The caller owns *block and frees it with free. Null if `block` is null.
void* TX_realloc(void** block, std::size_t size);

// Stores the value in each of `count` units and returns the target. Writes no terminator.
wchar_t* TX_wmemset(wchar_t* target, wchar_t value, std::size_t count);

// Returns the first of `count` units that has the value, or null.
const wchar_t* TX_wmemchr(const wchar_t* text, wchar_t value, std::size_t count);

// As strtoimax and strtoumax, with these differences: "0x" is a prefix whatever follows, so that
// "0xg" has no digit; a base outside 2 to 36 is no error, digits are simply compared with it.
// Overflow gives the limit and sets errno to ERANGE; otherwise errno is unchanged. *end (`end` may
// be null) receives the position after the last character used, or the start of the text if there
// was no digit. A null text has no digit. White space before the number is skipped as isspace
// defines it in the locale of the process.
std::intmax_t TX_strtoimax(const char* text, char** end, int base);
std::uintmax_t TX_strtoumax(const char* text, char** end, int base);

#endif
