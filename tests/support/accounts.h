// SPDX-License-Identifier: LicenseRef-Tarnix
// Accounts of a test, which do not touch those of the system.
#ifndef TARNIX_SUPPORT_ACCOUNTS_H
#define TARNIX_SUPPORT_ACCOUNTS_H

#include <string>

// From now on this program, with PAM and its modules, finds accounts in the files passwd, group and
// shadow of this directory, and the PAM services in its directory pam.d. The program must be linked
// with accounts.cpp. Commands that it starts see the system's accounts.
void useAccountsIn(const std::string& directory);

#endif
