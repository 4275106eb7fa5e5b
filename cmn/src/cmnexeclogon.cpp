// SPDX-License-Identifier: LicenseRef-Tarnix
// Runs as another local user: the child's token, and the logon right that is granted for the
// duration of a run.
#include "cmnexecpipewindows.h"
#include "cmnhandle.h"
#include "platform.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

namespace tarnix_cmn_4_4
{

namespace
{

constexpr DWORD kLowestBuild = 1057;       // of a system that supports batch logons
constexpr std::uint64_t kLockBudget = 600; // ticks of 100 nanoseconds
constexpr int kRevocations = 2;            // attempts to revoke an added right
constexpr char kLocalAccounts[] = ".";

constexpr unsigned int kDefaultStartLimit = 10;      // seconds
constexpr unsigned int kLongestStartLimit = 4294967; // as many milliseconds as a DWORD can hold

constexpr wchar_t kBatchLogonRight[] = L"SeBatchLogonRight";

std::uint64_t clockTicks()
{
    SYSTEMTIME time{};
    FILETIME ticks{};
    GetSystemTime(&time);
    SystemTimeToFileTime(&time, &ticks);
    return (static_cast<std::uint64_t>(ticks.dwHighDateTime) << 32) | ticks.dwLowDateTime;
}

bool systemSupportsBatchLogons()
{
    OSVERSIONINFOW version{};
    version.dwOSVersionInfoSize = sizeof version;
    return GetVersionExW(&version) && version.dwPlatformId == VER_PLATFORM_WIN32_NT &&
           version.dwBuildNumber >= kLowestBuild;
}

bool holdsRight(LSA_HANDLE policy, PSID account)
{
    LSA_UNICODE_STRING* rights = nullptr;
    DWORD count;
    if (LsaNtStatusToWinError(LsaEnumerateAccountRights(policy, account, &rights, &count)) != 0) {
        return false;
    }
    const bool held = std::any_of(rights, rights + count, [](const LSA_UNICODE_STRING& right) {
        return std::wstring_view(right.Buffer, right.Length / sizeof(wchar_t)) == kBatchLogonRight;
    });
    LsaFreeMemory(rights);
    return held;
}

} // namespace

// Kept while the right is held: the SID of the account, and the name of the right, so that revoking
// it allocates nothing.
struct CCmnExecPipeWindows::Account {
    alignas(TOKEN_USER) unsigned char bytes[BUFSIZ];
    const std::wstring right = kBatchLogonRight;
    int revocations = 0; // how often the right is still to be revoked, if that fails
};

void CCmnExecPipeWindows::InitLsaString(const std::wstring& text, LSA_UNICODE_STRING& target)
{
    const std::size_t bytes = text.size() * sizeof(wchar_t);
    target.Length = static_cast<std::uint16_t>(bytes);
    target.MaximumLength = static_cast<std::uint16_t>(bytes + sizeof(wchar_t));
    target.Buffer = const_cast<wchar_t*>(text.c_str());
}

void CCmnExecPipeWindows::setUserStartLimit(unsigned int seconds)
{
    const unsigned int limit =
        seconds == 0 ? kDefaultStartLimit : std::min(seconds, kLongestStartLimit);
    tarnix_platform::setUserStartLimit(limit * 1000);
}

HANDLE CCmnExecPipeWindows::Impersonate()
{
    HANDLE token = INVALID_HANDLE_VALUE;
    HandleOwner owner(token);
    if (!systemSupportsBatchLogons()) {
        return owner.release();
    }
    // This token is used only to get the SID of the account.
    if (!LogonUserA(m_User.c_str(), kLocalAccounts, m_Password.c_str(), LOGON32_LOGON_NETWORK,
                    LOGON32_PROVIDER_DEFAULT, owner.out())) {
        return nullptr; // not an invalid one: the command must not run as the calling user
    }
    auto account = std::make_shared<Account>();
    DWORD length;
    if (!GetTokenInformation(token, TokenUser, account->bytes, sizeof account->bytes, &length)) {
        return owner.release();
    }
    TOKEN_USER user{};
    std::memcpy(&user, account->bytes, sizeof user);
    m_Account = std::move(account);
    m_AccountSid = user.User.Sid;
    OpenPolicy();
    if (!holdsRight(m_PolicyHandle, m_AccountSid)) {
        AddRight();
    }
    const BOOL loggedOn = LogonUserA(m_User.c_str(), kLocalAccounts, m_Password.c_str(),
                                     LOGON32_LOGON_BATCH, LOGON32_PROVIDER_DEFAULT, owner.out());
    if (!loggedOn) {
        TraceSystemError("CCmnExecPipeWindows::Impersonate ERROR: LogonUserA failed, "
                         "Error Code: %d, Reason: %S",
                         GetLastError());
    }
    if (m_RightAdded == 0) {
        ForgetAccount();
    }
    if (!loggedOn) {
        throw ECmnExecPipe(m_User, ECmnExecPipe::CANNOT_IMPERSONATE);
    }
    return owner.release();
}

void CCmnExecPipeWindows::OpenPolicy()
{
    LSA_OBJECT_ATTRIBUTES attributes{};
    attributes.Length = sizeof attributes;
    LsaNtStatusToWinError(LsaOpenPolicy(
        nullptr, &attributes, POLICY_CREATE_ACCOUNT | POLICY_LOOKUP_NAMES, &m_PolicyHandle));
}

// The lock: in one process, only one runner at a time may hold a right that it has granted itself.
void CCmnExecPipeWindows::AddRight()
{
    LSA_UNICODE_STRING right{};
    InitLsaString(m_Account->right, right);
    const std::uint64_t start = clockTicks();
    while (!m_Lock.tryLock()) {
        if (clockTicks() > start + kLockBudget) {
            ForgetAccount();
            throw ECmnExecPipe(m_User, ECmnExecPipe::IMPERSONATION_TIMEOUT);
        }
        Sleep(0);
    }
    // Set even if granting fails: the batch logon shows whether it worked, and Close revokes the
    // right.
    m_RightAdded = 1;
    m_Account->revocations = kRevocations;
    const DWORD error =
        LsaNtStatusToWinError(LsaAddAccountRights(m_PolicyHandle, m_AccountSid, &right, 1));
    if (error != 0) {
        TraceSystemError("CCmnExecPipeWindows::AddRight ERROR: LsaAddAccountRights failed, "
                         "Error Code: %d, Reason: %S",
                         error);
    }
}

// After a failure the next call tries again: by then the child has ended, and what the run held is
// free.
void CCmnExecPipeWindows::RevokeRight()
{
    if (m_RightAdded != 0) {
        m_RightAdded = 0; // unlock only once: after this, another runner may hold the lock
        m_Lock.unlock();
    }
    if (!m_Account || m_Account->revocations == 0) {
        ForgetAccount();
        return;
    }
    --m_Account->revocations;
    LSA_UNICODE_STRING right{};
    InitLsaString(m_Account->right, right);
    bool isRevoked = false;
    try {
        const DWORD error = LsaNtStatusToWinError(
            LsaRemoveAccountRights(m_PolicyHandle, m_AccountSid, false, &right, 1));
        if (error != 0) {
            TraceSystemError("CCmnExecPipeWindows::RevokeRight ERROR: LsaRemoveAccountRights "
                             "failed, Error Code: %d, Reason: %S",
                             error);
        }
        isRevoked = error == 0;
    } catch (const std::bad_alloc&) {
        // Like any other failure: the rest of the run must still be closed.
    }
    if (isRevoked || m_Account->revocations == 0) {
        ForgetAccount();
    }
}

void CCmnExecPipeWindows::ForgetAccount()
{
    if (m_PolicyHandle != INVALID_HANDLE_VALUE) {
        LsaClose(m_PolicyHandle);
        m_PolicyHandle = INVALID_HANDLE_VALUE;
    }
    m_AccountSid = nullptr;
    m_Account.reset();
}

} // namespace tarnix_cmn_4_4
