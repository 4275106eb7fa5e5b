/// @file
/// The mark for what the shared library exports; everything else is hidden.
#ifndef TARNIX_CMNEXPORT_H
#define TARNIX_CMNEXPORT_H

/// The library is compiled with hidden visibility. A program cannot link to a class without this
/// mark, and cannot catch an exception of a type without it by that type.
#define TARNIX_CMN_API __attribute__((visibility("default")))

#endif
