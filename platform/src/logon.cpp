// SPDX-License-Identifier: LicenseRef-Tarnix
// Logging local accounts on, through PAM.
#include "logon.h"

#include "accountid.h"
#include "environment.h"
#include "errors.h"
#include "rightsfile.h"

#include <security/pam_appl.h>

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

namespace tarnix_platform
{

namespace
{

// Trivial types only: no destructor has to run when a thread ends.
struct Refusal {
    int error;
    char about[200];
};
thread_local Refusal t_refusal;

bool refuse(int error, const std::string& user, const std::string& why)
{
    // The reason first: the text is limited, and the name may have any length.
    std::snprintf(t_refusal.about, sizeof t_refusal.about, "cannot log on (%s) as '%s'",
                  why.c_str(), user.c_str());
    t_refusal.error = error;
    return failWithLastRefusal();
}

constexpr char kService[] = "tarnix";

class PamSession
{
public:
    PamSession(const char* user, const char* password)
        : m_Conversation{answerQuestions, const_cast<char*>(password)},
          m_Result(pam_start(kService, user, &m_Conversation, &m_Handle))
    {
    }
    ~PamSession() { pam_end(m_Handle, m_Result); }
    PamSession(const PamSession&) = delete;
    PamSession& operator=(const PamSession&) = delete;

    bool authenticate()
    {
        if (m_Result == PAM_SUCCESS) {
            m_Result = pam_authenticate(m_Handle, PAM_SILENT | PAM_DISALLOW_NULL_AUTHTOK);
        }
        if (m_Result == PAM_SUCCESS) {
            m_Result = pam_acct_mgmt(m_Handle, PAM_SILENT | PAM_DISALLOW_NULL_AUTHTOK);
        }
        return m_Result == PAM_SUCCESS;
    }

    // A PAM module may have changed the account.
    bool accountIs(const std::string& user)
    {
        const void* now = nullptr;
        pam_get_item(m_Handle, PAM_USER, &now); // after a failure it stays null
        return now != nullptr && user == static_cast<const char*>(now);
    }

    // An unknown account has the same reason as a wrong password: a caller must not be able to
    // find out which accounts exist.
    std::string reason()
    {
        return pam_strerror(m_Handle, m_Result == PAM_USER_UNKNOWN ? PAM_AUTH_ERR : m_Result);
    }

private:
    const pam_conv m_Conversation;
    pam_handle_t* m_Handle = nullptr;
    int m_Result;
};

// A session without a user, which is never ended: PAM unloads a module with the last session that
// uses it. Without this one each logon loads all of them, which takes most of its time. Each logon
// still reads the rules; a module that they add later is loaded by each logon.
pam_handle_t* g_modules{}; // set once; a leak checker must see it
std::atomic<bool> g_modulesStayLoaded{};

void keepModulesLoaded()
{
    if (!g_modulesStayLoaded.exchange(true, std::memory_order_relaxed)) {
        const pam_conv conversation{answerQuestions, nullptr};
        pam_start(kService, nullptr, &conversation, &g_modules);
    }
}

bool findAccount(const std::string& user, Account& account)
{
    std::vector<char> buffer(BUFSIZ); // doubled as long as the entry does not fit
    passwd entry{};
    passwd* found = nullptr;
    int error{};
    while ((error = ::getpwnam_r(user.c_str(), &entry, buffer.data(), buffer.size(), &found)) ==
           ERANGE) {
        buffer.resize(buffer.size() * 2);
    }
    if (found == nullptr) {
        return error == 0 ? refuse(EACCES, user, "no such account")
                          : refuse(error, user, "cannot look up account");
    }
    account = {user, entry.pw_uid, entry.pw_gid, entry.pw_dir, entry.pw_shell};
    return true;
}

bool logOn(const std::string& user, const char* password, DWORD type, Account& account)
{
    if (::geteuid() != 0) {
        return refuse(EPERM, user, "must be root to switch user");
    }
    // PAM also delays the refusal of an unknown account, so it comes before the lookup.
    PamSession session(user.c_str(), password);
    if (!session.authenticate()) {
        return refuse(EACCES, user, session.reason());
    }
    if (!session.accountIs(user)) {
        return refuse(EACCES, user, "PAM changed the account");
    }
    keepModulesLoaded();
    if (!findAccount(user, account)) {
        return false;
    }
    if (type == LOGON32_LOGON_BATCH && !holdsRight(user, "SeBatchLogonRight")) {
        return refuse(static_cast<int>(GetLastError()), user, lastErrorAbout());
    }
    return true;
}

} // namespace

Identity identityOf(const Account& account)
{
    Identity identity{account.uid, account.gid, {}};
    std::vector<gid_t>& groups = identity.groups;
    int count = 64; // enough for most; if not, the call stores how many there are
    do {
        groups.resize(static_cast<std::size_t>(count));
    } while (::getgrouplist(account.name.c_str(), account.gid, groups.data(), &count) == -1);
    groups.resize(static_cast<std::size_t>(count));
    return identity;
}

int answerQuestions(int count, const pam_message** questions, pam_response** answers,
                    void* password)
{
    const auto needsPerson = [](const pam_message* question) {
        return question->msg_style != PAM_PROMPT_ECHO_OFF && question->msg_style != PAM_TEXT_INFO &&
               question->msg_style != PAM_ERROR_MSG;
    };
    if (std::any_of(questions, questions + count, needsPerson)) {
        return PAM_CONV_ERR;
    }
    auto* replies = static_cast<pam_response*>(
        std::calloc(static_cast<std::size_t>(count), sizeof(pam_response)));
    if (replies == nullptr) {
        return PAM_BUF_ERR;
    }
    std::transform(questions, questions + count, replies, [=](const pam_message* question) {
        const bool isSecret = question->msg_style == PAM_PROMPT_ECHO_OFF;
        // If memory runs out, no answer is there, and the module refuses the logon.
        return pam_response{isSecret ? ::strdup(static_cast<const char*>(password)) : nullptr, {}};
    });
    *answers = replies;
    return PAM_SUCCESS;
}

bool failWithLastRefusal()
{
    return t_refusal.error != 0 ? fail(t_refusal.error, t_refusal.about)
                                : fail(EACCES, "no logon token");
}

BOOL LogonUserA(const char* user, const char* domain, const char* password, DWORD logonType,
                DWORD /*provider*/, HANDLE* token)
{
    if (token == nullptr) {
        return fail(EINVAL);
    }
    *token = nullptr;
    if (user == nullptr || password == nullptr || domain == nullptr ||
        std::strcmp(domain, ".") != 0 ||
        (logonType != LOGON32_LOGON_NETWORK && logonType != LOGON32_LOGON_BATCH)) {
        return refuse(EINVAL, user == nullptr ? "" : user, "only local accounts can log on");
    }
    Account account{};
    if (!logOn(user, password, logonType, account)) {
        return false;
    }
    *token = openHandle(std::make_shared<Token>(std::move(account)));
    return *token != nullptr ? true : refuse(EMFILE, user, "no handle left");
}

char* accountEnvironment(HANDLE token)
{
    if (token == nullptr) {
        failWithLastRefusal();
        return nullptr;
    }
    const std::shared_ptr<Token> found = find<Token>(token);
    if (!found) {
        return nullptr;
    }
    const Account& account = found->account();
    const char* const path = account.uid == 0
                                 ? "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
                                 : "/usr/local/bin:/usr/bin:/bin";
    return newBlock({"HOME=" + account.home, "USER=" + account.name, "LOGNAME=" + account.name,
                     "SHELL=" + (account.shell.empty() ? "/bin/sh" : account.shell),
                     std::string("PATH=") + path});
}

BOOL GetTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS kind, void* buffer, DWORD size,
                         DWORD* length)
{
    const std::shared_ptr<Token> found = find<Token>(token);
    if (!found) {
        return false;
    }
    if (kind != TokenUser || buffer == nullptr || length == nullptr) {
        return fail(EINVAL);
    }
    const std::string& name = found->account().name;
    const std::size_t sidSize = name.size() + 1;
    *length = static_cast<DWORD>(sizeof(TOKEN_USER) + sidSize);
    if (size < *length) {
        return fail(ERANGE);
    }
    unsigned char* at = static_cast<unsigned char*>(buffer) + sizeof(TOKEN_USER);
    const TOKEN_USER user{{at, 0}};
    std::memcpy(buffer, &user, sizeof user);
    std::memcpy(at, name.c_str(), sidSize);
    return true;
}

} // namespace tarnix_platform
