// SPDX-License-Identifier: LicenseRef-Tarnix
/// @file
/// The types of the platform layer that public classes name, on the system that provides them
/// itself.
/// In the include path it comes before the header of the same name in platform/include.
#ifndef TARNIX_PLATFORM_TYPES_H
#define TARNIX_PLATFORM_TYPES_H

// The order matters: winsock2.h must come before windows.h, which otherwise includes an older
// winsock, and ntsecapi.h needs windows.h.
// clang-format off
#include <winsock2.h>
#include <windows.h>
#include <ntsecapi.h>
// clang-format on

#endif
