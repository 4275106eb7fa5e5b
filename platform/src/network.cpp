// SPDX-License-Identifier: LicenseRef-Tarnix
// Host names and addresses, by the re-entrant functions of the resolver.
#include "platform.h"
#include "platform_network.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <sys/socket.h>
#include <sys/utsname.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace tarnix_platform
{

namespace
{

constexpr std::size_t kMaxSize = std::size_t{1} << 20; // a larger answer counts as none

// The record points into the buffer.
struct Answer {
    hostent record{};
    int reason{}; // why there is none: not used
    std::vector<char> buffer;
};

// `call` is one of the gethostby*_r functions. It is repeated with a larger buffer as long as it
// fails with ERANGE. True if there is an answer.
template <class Call>
bool lookUp(Answer& answer, Call call)
{
    for (std::size_t size = BUFSIZ; size <= kMaxSize; size *= 2) {
        answer.buffer.resize(size);
        hostent* found = nullptr;
        const int code = call(answer, &found);
        if (code != ERANGE) {
            return found != nullptr;
        }
    }
    return false;
}

} // namespace

std::optional<TxIPv4> TxInetAddr(const char* text)
{
    // inet_addr stops at a blank, and takes what is in front of it as the address.
    if (std::strpbrk(text, " \t\n\v\f\r") != nullptr) {
        return {};
    }
    const in_addr_t value = ::inet_addr(text);
    if (value == INADDR_NONE) {
        return {};
    }
    TxIPv4 address;
    std::memcpy(address.data(), &value, address.size());
    return address;
}

std::optional<std::string> TxHostName(const TxIPv4& address)
{
    Answer answer;
    const bool isFound = lookUp(answer, [&address](Answer& into, hostent** found) {
        return ::gethostbyaddr_r(address.data(), static_cast<socklen_t>(address.size()), AF_INET,
                                 &into.record, into.buffer.data(), into.buffer.size(), found,
                                 &into.reason);
    });
    return isFound ? std::optional<std::string>(answer.record.h_name) : std::nullopt;
}

std::optional<TxIPv4> TxHostAddress(const char* name)
{
    if (*name == '\0') {
        return {};
    }
    Answer answer;
    const bool isFound = lookUp(answer, [name](Answer& into, hostent** found) {
        return ::gethostbyname2_r(name, AF_INET, &into.record, into.buffer.data(),
                                  into.buffer.size(), found, &into.reason);
    });
    if (!isFound) {
        return {};
    }
    TxIPv4 address;
    std::memcpy(address.data(), *answer.record.h_addr_list, address.size());
    return address;
}

std::vector<std::string> TxHostAddresses(const char* name, TxAddressKind kind)
{
    addrinfo wanted{};
    wanted.ai_family = kind == TxAddressKind::any    ? AF_UNSPEC
                       : kind == TxAddressKind::ipv4 ? AF_INET
                                                     : AF_INET6;
    wanted.ai_socktype = SOCK_STREAM; // otherwise each address comes once for each type
    addrinfo* list = nullptr;
    if (*name == '\0' || ::getaddrinfo(name, nullptr, &wanted, &list) != 0) {
        return {};
    }
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(list, ::freeaddrinfo);
    std::vector<std::string> addresses;
    for (; list != nullptr; list = list->ai_next) {
        char text[NI_MAXHOST];
        if (::getnameinfo(list->ai_addr, list->ai_addrlen, text, sizeof text, nullptr, 0,
                          NI_NUMERICHOST) == 0 &&
            std::find(addresses.begin(), addresses.end(), text) == addresses.end()) {
            addresses.emplace_back(text);
        }
    }
    return addresses;
}

BOOL GetComputerNameW(wchar_t* buffer, DWORD* size)
{
    utsname system{};
    ::uname(&system); // cannot fail: the pointer is valid
    const char* const name = system.nodename;
    const std::size_t length = std::mbstowcs(nullptr, name, 0); // the highest number if not valid
    if (length > *size) {
        return false;
    }
    std::mbstowcs(buffer, name, length + 1);
    *size = static_cast<DWORD>(length);
    return true;
}

} // namespace tarnix_platform
