/// @file
/// The look-ups of host names and addresses that the network utilities are written against. Only
/// IPv4 is looked up. Each call blocks for as long as the system's resolver takes, and any number
/// of threads may call at once.
#ifndef TARNIX_PLATFORM_NETWORK_H
#define TARNIX_PLATFORM_NETWORK_H

#include <array>
#include <optional>
#include <string>

namespace tarnix_platform
{

/// In the order in which they are written.
using TxIPv4 = std::array<unsigned char, 4>;

/// As inet_addr reads the text: fewer than four numbers, and numbers in base 8 and 16, are an
/// address too. Nothing if it is none; 255.255.255.255, whose value stands for that, is none.
std::optional<TxIPv4> TxInetAddr(const char* text);

/// The official name of the host with that address, as the system wrote it. Nothing if none is
/// found.
std::optional<std::string> TxHostName(const TxIPv4& address);

/// The first IPv4 address of the host with that name. Nothing if none is found, or the host has no
/// such address, or the name is empty.
std::optional<TxIPv4> TxHostAddress(const char* name);

} // namespace tarnix_platform

namespace tarnix_cmn_4_4
{

using tarnix_platform::TxHostAddress;
using tarnix_platform::TxHostName;
using tarnix_platform::TxInetAddr;
using tarnix_platform::TxIPv4;

} // namespace tarnix_cmn_4_4

#endif
