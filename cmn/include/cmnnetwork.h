// SPDX-License-Identifier: LicenseRef-Tarnix
/// @file
/// Host names: the name of this machine, the addresses of a name, the name of an address, and
/// whether two names mean the same host.
///
/// @code
/// #include "cmnnetwork.h"
/// #include <iostream>
///
/// using namespace tarnix_cmn_4_4;
/// std::string address;
/// if (CCmnNetwork::getHostbyName("127.0.0.1", address) == 0) { // an address needs no lookup
///     std::cout << address << '\n';                            // prints 127.0.0.1
/// }
/// const CCmnHostInfo host{"alpha", "192.0.2.7", "alpha.example.com"};
/// std::cout << std::boolalpha << CCmnNetwork::compare("ALPHA", host) << '\n'; // prints true
/// @endcode
#ifndef TARNIX_CMNNETWORK_H
#define TARNIX_CMNNETWORK_H

#include "cmnexport.h"

#include <string>
#include <vector>

namespace tarnix_cmn_4_4
{

/// Each field is empty if nothing was found for it.
struct CCmnHostInfo {
    std::string hostName;  ///< as requested, or as the reverse lookup of an address returned it
    std::string ipAddress; ///< dotted IPv4
    std::string fqdn;      ///< in lower case, from the reverse lookup
};

/// Supports IPv4 only, except for the lists of addresses. A lookup blocks for as long as the system
/// takes; there is no cache and no retry. The functions keep no state and may be called from any
/// thread. Lookups return 0 for success and 3 for any failure. A text must not be null unless a
/// function allows it.
class TARNIX_CMN_API CCmnNetwork
{
public:
    /// True if both are the same host: at least one field is not empty and equal in both, ignoring
    /// case.
    static bool compare(const CCmnHostInfo& left, const CCmnHostInfo& right);

    /// True if the name equals one of the three fields, ignoring case. The empty name equals none.
    static bool compare(const std::string& name, const CCmnHostInfo& host);

    /// This machine, looked up by its own name.
    static CCmnHostInfo resolve();

    /// The host with a name or an IPv4 address. A field whose lookup fails is empty. For an unknown
    /// host the record still contains the name or the address that was passed.
    static CCmnHostInfo resolve(const std::string& nameOrAddress);

    /// True for four numbers from 0 to 255 with dots between them. Leading zeros and extra dots are
    /// accepted: "1..2.3.004." is an address.
    static bool validateIPAddress(const char* text);

    /// Sets `name` to the official name of the host with that address, as the system returns it. If
    /// the text is not an address (255.255.255.255 counts as none), returns 3 and sets `name` to
    /// the text. If no host is found, returns 3 and does not change `name`.
    static int getHostbyAddr(const char* address, std::string& name);

    /// Sets `address` to the first address of the host. If `name` is an address already, sets it to
    /// that text without a lookup; so do the short forms that inet_addr accepts, such as 127.1, but
    /// not a text with a blank in it. `address` is unchanged after a failure.
    static int getHostbyName(const char* name, std::string& address);

    /// @{
    /// Sets `addresses` to all addresses of the host, at least one, each once: in the order in
    /// which the system would try them, as dotted IPv4 and as IPv6 in its short form, which has the
    /// interface at its end where it needs one (fe80::1%eth0). An address gives itself, without a
    /// lookup. Returns 3 if there is none, also for a null or empty text, and then leaves
    /// `addresses` unchanged. The first function gives both kinds.
    static int getAddresses(const char* name, std::vector<std::string>& addresses);
    static int getIPv4Addresses(const char* name, std::vector<std::string>& addresses);
    static int getIPv6Addresses(const char* name, std::vector<std::string>& addresses);
    /// @}

    /// Sets `fqdn` to the name, in lower case, that the reverse lookup returns for the address, or
    /// for the first address of the host with that name. It may be a name without a dot. A text
    /// that begins with a digit counts as an address. A null or empty text gives 3. `fqdn` is
    /// unchanged after a failure.
    static int getFQDN(const char* nameOrAddress, std::string& fqdn);

    /// The same for this machine.
    static int getFQDN(std::string& fqdn);

    /// The name of this machine, in the locale's encoding; empty if the system gives none.
    static std::string getComputerName();

private:
    static int IsTokenValid(const std::string& token);
};

} // namespace tarnix_cmn_4_4

#endif
