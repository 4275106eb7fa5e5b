// SPDX-License-Identifier: LicenseRef-Tarnix
// CCmnNetwork: host names and addresses, with the lookups of the platform layer.
#include "cmnnetwork.h"

#include "cmnstringtool.h"
#include "platform.h"
#include "platform_network.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace tarnix_cmn_4_4
{
namespace
{

constexpr int kFound = 0;
constexpr int kFailed = 3;

bool areSame(const std::string& left, const std::string& right)
{
    return !left.empty() && CCmnStringTool::CompareNoCase(left, right);
}

bool isDigit(char unit)
{
    return std::isdigit(static_cast<unsigned char>(unit)) != 0;
}

std::string dotted(const TxIPv4& address)
{
    std::string text;
    for (const unsigned char number : address) {
        text += (text.empty() ? "" : ".") + std::to_string(number);
    }
    return text;
}

int findAddresses(const char* name, TxAddressKind kind, std::vector<std::string>& addresses)
{
    if (name == nullptr) {
        return kFailed;
    }
    std::vector<std::string> found = TxHostAddresses(name, kind);
    if (found.empty()) {
        return kFailed;
    }
    addresses = std::move(found);
    return kFound;
}

} // namespace

bool CCmnNetwork::compare(const CCmnHostInfo& left, const CCmnHostInfo& right)
{
    return areSame(left.ipAddress, right.ipAddress) || areSame(left.hostName, right.hostName) ||
           areSame(left.fqdn, right.fqdn);
}

bool CCmnNetwork::compare(const std::string& name, const CCmnHostInfo& host)
{
    return areSame(name, host.ipAddress) || areSame(name, host.hostName) ||
           areSame(name, host.fqdn);
}

CCmnHostInfo CCmnNetwork::resolve()
{
    return resolve(getComputerName());
}

CCmnHostInfo CCmnNetwork::resolve(const std::string& nameOrAddress)
{
    CCmnHostInfo host;
    if (validateIPAddress(nameOrAddress.c_str())) {
        host.ipAddress = nameOrAddress;
        getHostbyAddr(nameOrAddress.c_str(), host.hostName);
        getFQDN(nameOrAddress.c_str(), host.fqdn);
        return host;
    }
    host.hostName = nameOrAddress;
    getHostbyName(nameOrAddress.c_str(), host.ipAddress);
    getFQDN(host.ipAddress.c_str(), host.fqdn);
    return host;
}

bool CCmnNetwork::validateIPAddress(const char* text)
{
    const std::vector<std::string> tokens = CCmnStringTool::tokenize(text, ".");
    return tokens.size() == 4 &&
           std::all_of(tokens.begin(), tokens.end(),
                       [](const std::string& token) { return IsTokenValid(token) == kFound; });
}

// Ends at the first digit that is too much: the token may have more than an int can hold.
int CCmnNetwork::IsTokenValid(const std::string& token)
{
    int number = 0;
    for (const char digit : token) {
        number = 10 * number + (digit - '0');
        if (!isDigit(digit) || number > UINT8_MAX) {
            return kFailed;
        }
    }
    return kFound;
}

int CCmnNetwork::getHostbyAddr(const char* address, std::string& name)
{
    const std::optional<TxIPv4> parsed = TxInetAddr(address);
    if (!parsed) {
        name = address;
        return kFailed;
    }
    std::optional<std::string> found = TxHostName(*parsed);
    if (!found) {
        return kFailed;
    }
    name = std::move(*found);
    return kFound;
}

int CCmnNetwork::getHostbyName(const char* name, std::string& address)
{
    if (TxInetAddr(name)) {
        address = name;
        return kFound;
    }
    const std::optional<TxIPv4> found = TxHostAddress(name);
    if (!found) {
        return kFailed;
    }
    address = dotted(*found);
    return kFound;
}

int CCmnNetwork::getAddresses(const char* name, std::vector<std::string>& addresses)
{
    return findAddresses(name, TxAddressKind::any, addresses);
}

int CCmnNetwork::getIPv4Addresses(const char* name, std::vector<std::string>& addresses)
{
    return findAddresses(name, TxAddressKind::ipv4, addresses);
}

int CCmnNetwork::getIPv6Addresses(const char* name, std::vector<std::string>& addresses)
{
    return findAddresses(name, TxAddressKind::ipv6, addresses);
}

int CCmnNetwork::getFQDN(const char* nameOrAddress, std::string& fqdn)
{
    if (nameOrAddress == nullptr) {
        return kFailed;
    }
    const std::string wanted = CCmnStringTool::tostrlower(std::string(nameOrAddress));
    std::string address = wanted;
    if (!isDigit(wanted[0])) {
        if (const int code = getHostbyName(wanted.c_str(), address)) {
            return code;
        }
    }
    std::string name;
    if (const int code = getHostbyAddr(address.c_str(), name)) {
        return code;
    }
    fqdn = CCmnStringTool::tostrlower(name);
    return kFound;
}

int CCmnNetwork::getFQDN(std::string& fqdn)
{
    return getFQDN(getComputerName().c_str(), fqdn);
}

std::string CCmnNetwork::getComputerName()
{
    wchar_t name[256] = {};
    DWORD size = 254;
    GetComputerNameW(name, &size);
    return CCmnStringTool::wstr2str(std::wstring(name));
}

} // namespace tarnix_cmn_4_4
