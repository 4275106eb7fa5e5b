// SPDX-License-Identifier: LicenseRef-Tarnix
// The text of the platform's errors.
#ifndef TARNIX_CMNSYSTEMERROR_H
#define TARNIX_CMNSYSTEMERROR_H

#include "platform.h"

#include <string>

namespace tarnix_cmn_4_4
{

// Empty if the system has no text.
std::wstring systemErrorText(DWORD error);

} // namespace tarnix_cmn_4_4

#endif
