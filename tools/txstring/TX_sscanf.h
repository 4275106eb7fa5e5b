// A scanner in the manner of sscanf whose text fields cannot overrun their targets.
//
// Each directive that stores takes two arguments: the target, then an `int` size. Always pass the
// size, and as an int, for the last directive too: the arguments are walked by it. It bounds the
// targets of %s and %[ (in bytes, terminator included, at least 1); with %c, %n and numbers it has
// no effect. A directive with `*` takes no arguments.
//
// What differs from sscanf:
// - A text field too long for its target is cut and the rest of it is dropped; it counts as
//   assigned. %n counts what was stored of it. %[ whose target has no room for a byte fails.
// - %c stores one byte, whatever the width; the width counts with `*` only. %ls and %lc are %s, %c.
// - "%%" skips no white space.
// - The `l` of a number is 32 bits, and so is `j`; `ll`, `q`, `I64`, `z`, `t` and %p are 64. For %n
//   `j` is 64 bits. A floating-point target is a float, or with `l` or `L` a double.
// - "0x" without a digit behind it reads as 0, and a number with a bad exponent as the number
//   before it; the scan goes on at the "x" or "e". "inf", "nan" and hexadecimal floating point are
//   not read. A number has 512 characters at most.
// - A number out of the 64-bit range becomes the nearest one in it, and an integer target receives
//   the low bits of the number, without a sign of failure.
// - An unknown directive is %d, in upper case %ld. The format's end within a directive gives -1.
// - In a set, "a-c-e" is the range a to e, and "a-a" takes b as well.
//
// Returns the count of directives that stored a value (%n does not count); -1 if the input ran out
// before one had. The targets of the directives that were done keep what was stored, the others are
// untouched. Nothing is allocated and there is no state; white space and upper case are those of
// the process's locale. Only '.' is a decimal point: in a locale that has another one the fraction
// is consumed and lost.
#ifndef TARNIX_TX_SSCANF_H
#define TARNIX_TX_SSCANF_H

#include <cstdarg>
#include <cstdint>

// Flag of a source: nothing lies behind what is loaded.
constexpr std::uint16_t TX_ScanLoaded = 0x20;

// The bytes that are left to read. There are no stream sources: a source has the bytes that are
// loaded and no others, with or without the flag TX_ScanLoaded.
struct TX_ScanSource {
    const unsigned char* position;
    int remaining;
    std::uint16_t flags;
};

// Scans a terminated text, of which the first INT_MAX bytes are looked at. -1 for a null pointer.
int TX_sscanf(const char* text, const char* format, ...);

// Scans a source, and leaves it behind what was read; its bytes may hold any value. White space
// that was skipped before a failure counts as read. -1 for a null pointer.
int TX_vfscanf(TX_ScanSource* source, const char* format, std::va_list arguments);

#endif
