/// @file
/// The mark for what the shared library exports; everything else is hidden.
#ifndef TARNIX_CMNEXPORT_H
#define TARNIX_CMNEXPORT_H

/// The library is compiled with hidden visibility. A program cannot link to a class that lacks this
/// mark, nor catch an exception by a type that lacks it.
#define TARNIX_CMN_API __attribute__((visibility("default")))

#endif
