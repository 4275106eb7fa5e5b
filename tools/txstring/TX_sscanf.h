// SPDX-License-Identifier: LicenseRef-Tarnix
// A scanner like sscanf whose text fields cannot overrun their targets.
//
// Each directive that stores takes two arguments: the target, then its size as an int. Always pass
// the size, also for the last directive and always as an int: otherwise the arguments are misread.
// It limits the targets of %s and %[ (in bytes, terminator included, at least 1); it has no effect
// for %c, %n and numbers. A directive with `*` takes no arguments.
//
// Differences from sscanf:
// - A text field that is too long for its target is cut and its rest skipped. It counts as
//   assigned, and %n counts only the bytes that were stored. %[ fails if its target has no room for
//   a byte.
// - %c stores one byte, whatever the width; the width has an effect only with `*`. %ls is %s, and
//   %lc is %c.
// - "%%" skips no white space.
// - For a number, `l` and `j` mean 32 bits; `ll`, `q`, `I64`, `z`, `t` and %p mean 64. For %n, `j`
//   means 64 bits. A floating-point target is a float, or with `l` or `L` a double.
// - "0x" without a digit after it is read as 0, and a number with an invalid exponent as the number
//   before the exponent; the scan continues at the "x" or "e". "inf", "nan" and hexadecimal
//   floating point are not read. A number has at most 512 characters.
// - A number outside the 64-bit range becomes the nearest limit, and an integer target receives the
//   low bits of the number. Neither is reported as a failure.
// - An unknown directive is read as %d, in upper case as %ld. -1 if the format ends within a
//   directive.
// - In a set, "a-c-e" is the range a to e, and "a-a" also contains b.
//
// Returns the number of directives that stored a value (without %n), or -1 if the input ends before
// the first one. Targets that were stored keep their values after a failure, the others are
// unchanged. Nothing is allocated and there is no state. White space and upper case depend on the
// locale of the process. Only '.' is a decimal point: in a locale with another one, the fraction is
// consumed and lost.
#ifndef TARNIX_TX_SSCANF_H
#define TARNIX_TX_SSCANF_H

#include <cstdarg>
#include <cstdint>

// Flag of a source: no input follows the loaded bytes.
constexpr std::uint16_t TX_ScanLoaded = 0x20;

// The bytes that are left to read. A source never loads more bytes, with or without the flag
// TX_ScanLoaded.
struct TX_ScanSource {
    const unsigned char* position;
    int remaining;
    std::uint16_t flags;
};

// Scans a terminated text; only its first INT_MAX bytes are read. -1 for a null pointer.
int TX_sscanf(const char* text, const char* format, ...);

// Scans a source and moves it past the bytes that were read, which may have any value. White space
// that was skipped before a failure counts as read. -1 for a null pointer.
int TX_vfscanf(TX_ScanSource* source, const char* format, std::va_list arguments);

#endif
