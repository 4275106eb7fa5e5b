// SPDX-License-Identifier: LicenseRef-Tarnix
/// @file
/// The mark for what the shared library exports; everything else is hidden.
#ifndef TARNIX_CMNEXPORT_H
#define TARNIX_CMNEXPORT_H

/// The library is compiled with hidden visibility. A program cannot link to a class that lacks this
/// mark, nor catch an exception by a type that lacks it. TARNIX_CMN_STATIC is defined by the CMake
/// target and by pkg-config if the library is static: a plug-in that contains it must not export
/// it.
#ifdef TARNIX_CMN_STATIC
#define TARNIX_CMN_API
#else
#define TARNIX_CMN_API __attribute__((visibility("default")))
#endif

#endif
