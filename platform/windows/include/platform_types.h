/// @file
/// The types of the platform layer that public classes name, where they are the system's own.
#ifndef TARNIX_PLATFORM_TYPES_H
#define TARNIX_PLATFORM_TYPES_H

// In an order of their own: windows.h alone brings an older winsock, and ntsecapi.h needs it.
// clang-format off
#include <winsock2.h>
#include <windows.h>
#include <ntsecapi.h>
// clang-format on

#endif
