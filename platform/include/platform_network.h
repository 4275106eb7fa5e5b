// SPDX-License-Identifier: LicenseRef-Tarnix
/// @file
/// The lookups of host names and addresses that the network utilities are written against. Each
/// call blocks for as long as the system's resolver takes, and any number of threads may call at
/// once.
#ifndef TARNIX_PLATFORM_NETWORK_H
#define TARNIX_PLATFORM_NETWORK_H

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace tarnix_platform
{

/// The four numbers of an address, in the order in which they are written.
using TxIPv4 = std::array<unsigned char, 4>;

/// Reads an address as inet_addr does: it may have fewer than four numbers, and numbers in base 8
/// and 16. Nothing if the text is no address, or is 255.255.255.255: inet_addr returns that value
/// for an error. Unlike inet_addr it does not ignore what follows a blank: such a text is none.
std::optional<TxIPv4> TxInetAddr(const char* text);

/// The official name of the host with that address, unchanged as the resolver returned it. Nothing
/// if none is found.
std::optional<std::string> TxHostName(const TxIPv4& address);

/// The first IPv4 address of the host with that name. Nothing if the host is not found or has no
/// such address, or if the name is empty.
std::optional<TxIPv4> TxHostAddress(const char* name);

/// The addresses of the host with that name, in the order in which the system would try them, each
/// once, as text: IPv4 with dots, IPv6 in its short form, with the interface where it needs one. An
/// address is its own name. Empty if the host is not found, or if the name is empty.
enum class TxAddressKind { any, ipv4, ipv6 };
std::vector<std::string> TxHostAddresses(const char* name, TxAddressKind kind);

} // namespace tarnix_platform

namespace tarnix_cmn_4_4
{

using tarnix_platform::TxAddressKind;
using tarnix_platform::TxHostAddress;
using tarnix_platform::TxHostAddresses;
using tarnix_platform::TxHostName;
using tarnix_platform::TxInetAddr;
using tarnix_platform::TxIPv4;

} // namespace tarnix_cmn_4_4

#endif
