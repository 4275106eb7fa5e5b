// Bounded text functions: they take the place of the standard string functions wherever the
// library writes into a fixed buffer, and of strtoimax and strtoumax.
//
// A size always names the whole target in units, terminator included: bytes for the str functions,
// wchar_t units for the wcs functions. Nothing is written beyond it, and a target that is written
// to is left terminated. A null pointer or a size of 0 is answered with the result that the comment
// tells, and nothing is written. There is no state: any thread may call.
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

// Makes the first min(count, size - 1) units of the target the source's, filled up with zeros, and
// writes a terminator behind them. Returns the length of that span and not that of the text: "ab"
// with a count of 10 gives 10 in a target of 100. 0 for a null pointer or a size of 0.
std::size_t TX_strncpy(char* target, const char* source, std::size_t count, std::size_t size);
std::size_t TX_wcsncpy(wchar_t* target, const wchar_t* source, std::size_t count, std::size_t size);

// As TX_strcat, with at most `count` units of the source.
std::size_t TX_strncat(char* target, const char* source, std::size_t count, std::size_t size);
std::size_t TX_wcsncat(wchar_t* target, const wchar_t* source, std::size_t count, std::size_t size);

// Looks for the terminator among the first `limit` units. Returns 0 and the distance to it in
// *length; -1 and a length of 0 if there is none or the text is null. `length` may be null.
int TX_strnlen(const char* text, std::size_t limit, std::size_t* length);
int TX_wcsnlen(const wchar_t* text, std::size_t limit, std::size_t* length);

// Prints into the target, without a buffer between. Returns the characters that stand there. A text
// that does not fit is cut and gives size - 1 (or INT_MAX, if that is less); so does a formatter
// that fails, whatever it had printed by then. -1 for a null target or a size of 0, and for a null
// format, which leaves the empty text.
[[gnu::format(printf, 3, 4)]] int TX_snprintf(char* target, std::size_t size, const char* format,
                                              ...);
[[gnu::format(printf, 3, 0)]] int TX_vsnprintf(char* target, std::size_t size, const char* format,
                                               std::va_list arguments);

// Prints into a buffer of its own first. Returns the length of the text; a text of exactly `size`
// units gives `size`, although the last one gives way to the terminator, and a longer one is cut
// and gives -1. -1 also for a formatter that fails, for a null target or a size of 0, and, with the
// empty text in the target, for a null format or exhausted memory.
int TX_snwprintf(wchar_t* target, std::size_t size, const wchar_t* format, ...);
int TX_vsnwprintf(wchar_t* target, std::size_t size, const wchar_t* format, std::va_list arguments);

// Gives *block the new size and stores the result there, which it also returns. The block is never
// left behind: after a failure, or with a new size of 0, it has been freed and *block is null. (A
// null *block with a size of 0 is malloc(0).) The caller owns *block and frees it with free. 0 if
// `block` is null.
void* TX_realloc(void** block, std::size_t size);

// Stores the value in each of `count` units. Returns the target. Terminates nothing.
wchar_t* TX_wmemset(wchar_t* target, wchar_t value, std::size_t count);

// The first unit of that value among the first `count` units, or null.
const wchar_t* TX_wmemchr(const wchar_t* text, wchar_t value, std::size_t count);

// As strtoimax and strtoumax, with these differences: "0x" counts as a prefix whatever follows, so
// that "0xg" holds no digit; a base outside 2 to 36 is not refused, digits are simply compared with
// it. Overflow gives the limit and sets errno to ERANGE; otherwise errno is left alone. *end (`end`
// may be null) receives the place behind the last character used, or the start of the text if there
// was no digit. A null text has no digit. White space in front is what isspace says in the
// process's locale.
std::intmax_t TX_strtoimax(const char* text, char** end, int base);
std::uintmax_t TX_strtoumax(const char* text, char** end, int base);

#endif
