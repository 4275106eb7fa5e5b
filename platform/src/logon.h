// SPDX-License-Identifier: LicenseRef-Tarnix
// Tokens: the users that a child may run as.
#ifndef TARNIX_PLATFORM_LOGON_H
#define TARNIX_PLATFORM_LOGON_H

#include "handles.h"
#include "identity.h"

#include <string>

struct pam_message;
struct pam_response;

namespace tarnix_platform
{

struct Account {
    std::string name;
    uid_t uid;
    gid_t gid;
    std::string home;
    std::string shell;
};

class Token : public Object
{
public:
    explicit Token(Account account) : m_Account(std::move(account)) {}

    const Account& account() const { return m_Account; }

private:
    const Account m_Account;
};

// Answers every question of a PAM module for a secret with the password. PAM wipes and frees the
// answers. Nothing is answered if only a person could answer one of them (PAM_CONV_ERR).
int answerQuestions(int count, const pam_message** questions, pam_response** answers,
                    void* password);

// Looks up the groups of the account. Only a start needs them: of the two logons of a run, one
// token starts nothing, and the lookup reads many files.
Identity identityOf(const Account& account);

// Fails with the error of the thread's last refused logon. Returns false.
bool failWithLastRefusal();

} // namespace tarnix_platform

#endif
