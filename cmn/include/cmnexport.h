/// @file
/// Marks what the shared library shows to its users; everything else stays hidden.
#ifndef TARNIX_CMNEXPORT_H
#define TARNIX_CMNEXPORT_H

/// The library is compiled with hidden visibility, so a class without this mark cannot be linked
/// against, and an exception type without it cannot be caught by type on the other side.
#define TARNIX_CMN_API __attribute__((visibility("default")))

#endif
