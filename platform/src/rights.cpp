// SPDX-License-Identifier: LicenseRef-Tarnix
// The operations on the accounts' rights, which rightsfile.cpp stores.
#include "accountid.h"
#include "errors.h"
#include "handles.h"
#include "rightsfile.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string_view>

namespace tarnix_platform
{

namespace
{

struct Policy : Object {
    AddedRights added;
};

NTSTATUS toStatus(bool good)
{
    return good ? 0 : static_cast<NTSTATUS>(0xC0000000U | GetLastError());
}

// Names of rights are ASCII without white space, so that they fit in a line of the file.
bool readRight(const LSA_UNICODE_STRING& text, std::string& right)
{
    const std::wstring_view units(text.Buffer, text.Length / sizeof(wchar_t));
    if (units.empty() || std::any_of(units.begin(), units.end(),
                                     [](wchar_t unit) { return unit <= L' ' || unit > L'~'; })) {
        return fail(EINVAL);
    }
    right.assign(units.begin(), units.end());
    return true;
}

// White space or a newline in the name of an account could forge a line of another account.
bool checkAccount(const std::shared_ptr<Policy>& policy, PSID account, std::string& name)
{
    if (!policy) {
        return false;
    }
    name = accountOf(account);
    const bool hasBlank = std::any_of(name.begin(), name.end(),
                                      [](char c) { return static_cast<unsigned char>(c) <= ' '; });
    return (!hasBlank && !name.empty()) || fail(EINVAL);
}

bool readRights(const LSA_UNICODE_STRING* rights, DWORD count, std::vector<std::string>& names)
{
    return std::all_of(rights, rights + count, [&names](const LSA_UNICODE_STRING& right) {
        return readRight(right, names.emplace_back());
    });
}

// The array and its texts in one block.
LSA_UNICODE_STRING* pack(const std::vector<std::string>& rights)
{
    std::wstring texts;
    for (const std::string& right : rights) {
        texts.append(right.begin(), right.end()).push_back(L'\0');
    }
    const std::size_t head = rights.size() * sizeof(LSA_UNICODE_STRING);
    auto* block =
        static_cast<LSA_UNICODE_STRING*>(std::malloc(head + texts.size() * sizeof(wchar_t)));
    if (block == nullptr) {
        return nullptr;
    }
    auto* text = reinterpret_cast<wchar_t*>(block + rights.size());
    std::copy(texts.begin(), texts.end(), text);
    LSA_UNICODE_STRING* next = block;
    for (const std::string& right : rights) {
        const std::size_t bytes = right.size() * sizeof(wchar_t);
        *next++ = {static_cast<std::uint16_t>(bytes),
                   static_cast<std::uint16_t>(bytes + sizeof(wchar_t)), text};
        text += right.size() + 1;
    }
    return block;
}

} // namespace

NTSTATUS LsaOpenPolicy(LSA_UNICODE_STRING* systemName, LSA_OBJECT_ATTRIBUTES* attributes,
                       DWORD /*access*/, LSA_HANDLE* policy)
{
    if (systemName != nullptr || attributes == nullptr || policy == nullptr) {
        return toStatus(fail(EINVAL));
    }
    *policy = openHandle(std::make_shared<Policy>());
    return toStatus(*policy != nullptr);
}

NTSTATUS LsaEnumerateAccountRights(LSA_HANDLE policy, PSID account, LSA_UNICODE_STRING** rights,
                                   DWORD* count)
{
    std::string name;
    std::vector<std::string> found;
    if (!checkAccount(find<Policy>(policy), account, name) || !rightsOf(name, found)) {
        return toStatus(false);
    }
    // The length of a longer one would overflow its 16 bits, and the text could be another right.
    constexpr std::size_t maxLength = UINT16_MAX / sizeof(wchar_t) - 1;
    found.erase(std::remove_if(found.begin(), found.end(),
                               [](const std::string& right) { return right.size() > maxLength; }),
                found.end());
    if (found.empty()) {
        return toStatus(fail(ENOENT));
    }
    *rights = pack(found);
    *count = static_cast<DWORD>(found.size());
    return *rights != nullptr ? 0 : toStatus(fail(ENOMEM));
}

NTSTATUS LsaAddAccountRights(LSA_HANDLE policy, PSID account, LSA_UNICODE_STRING* rights,
                             DWORD count)
{
    std::string name;
    std::vector<std::string> names;
    const std::shared_ptr<Policy> found = find<Policy>(policy);
    return toStatus(checkAccount(found, account, name) && readRights(rights, count, names) &&
                    addRights(name, names, found->added));
}

NTSTATUS LsaRemoveAccountRights(LSA_HANDLE policy, PSID account, BOOLEAN allRights,
                                LSA_UNICODE_STRING* rights, DWORD count)
{
    std::string name;
    std::vector<std::string> names;
    const std::shared_ptr<Policy> found = find<Policy>(policy);
    return toStatus(checkAccount(found, account, name) && readRights(rights, count, names) &&
                    (allRights != 0 ? fail(ENOTSUP) : removeRights(name, names, found->added)));
}

NTSTATUS LsaFreeMemory(void* memory)
{
    std::free(memory);
    return 0;
}

NTSTATUS LsaClose(LSA_HANDLE policy)
{
    return toStatus(find<Policy>(policy) && CloseHandle(policy));
}

DWORD LsaNtStatusToWinError(NTSTATUS status)
{
    return static_cast<DWORD>(status) & 0x3FFFFFFF;
}

} // namespace tarnix_platform
