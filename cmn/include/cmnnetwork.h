/// @file
/// Questions about host names: what this machine is called, what a name or an address resolves to,
/// and whether two names mean the same host.
#ifndef TARNIX_CMNNETWORK_H
#define TARNIX_CMNNETWORK_H

#include "cmnexport.h"

#include <string>

namespace tarnix_cmn_4_4
{

/// Each field is empty if nothing was found for it.
struct CCmnHostInfo {
    std::string hostName;  ///< as it was asked for, or as the reverse look-up of an address gave it
    std::string ipAddress; ///< dotted IPv4
    std::string fqdn;      ///< in lower case, from the reverse look-up
};

/// Only IPv4 is known. Every look-up blocks for as long as the system takes, with no cache and no
/// second try. Nothing is kept between calls, and any thread may call. Look-ups return 0, or 3 for
/// every failure. A text is never null unless told otherwise.
class TARNIX_CMN_API CCmnNetwork
{
public:
    /// Same host: one field that is not empty is equal in both but for the case of letters.
    static bool compare(const CCmnHostInfo& left, const CCmnHostInfo& right);

    /// The name is one of the record's three, but for the case of letters; the empty name is none.
    static bool compare(const std::string& name, const CCmnHostInfo& host);

    /// This machine, by its own name.
    static CCmnHostInfo resolve();

    /// A host by its name or IPv4 address. A failed look-up leaves its field empty; a host that is
    /// not known still has the name, or the address, that was asked for.
    static CCmnHostInfo resolve(const std::string& nameOrAddress);

    /// Four numbers from 0 to 255 between dots. Leading zeros are allowed, and superfluous dots do
    /// not matter: "1..2.3.004." is an address.
    static bool validateIPAddress(const char* text);

    /// The official name of the host with that address, as the system wrote it. If the text is no
    /// address (and 255.255.255.255 counts as none), 3 with the text in `name`; if no host is
    /// found, 3 with `name` unchanged.
    static int getHostbyAddr(const char* address, std::string& name);

    /// The host's first address; of a text that is an address the text itself, without a look-up.
    /// `address` is unchanged on failure.
    static int getHostbyName(const char* name, std::string& address);

    /// The name, in lower case, that the reverse look-up gives for the address, or for the first
    /// address of the host with that name. It need not hold a dot. A text that begins with a digit
    /// counts as an address. Null and empty texts give 3; `fqdn` is unchanged on failure.
    static int getFQDN(const char* nameOrAddress, std::string& fqdn);

    /// The same of this machine.
    static int getFQDN(std::string& fqdn);

    /// This machine's own name, in the locale's encoding; empty if it cannot be told.
    static std::string getComputerName();

private:
    static int IsTokenValid(const std::string& token);
};

} // namespace tarnix_cmn_4_4

#endif
