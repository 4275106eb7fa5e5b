// SPDX-License-Identifier: LicenseRef-Tarnix
// How the layer's operations report an error.
#ifndef TARNIX_PLATFORM_ERRORS_H
#define TARNIX_PLATFORM_ERRORS_H

#include "platform.h"

#include <string>

namespace tarnix_platform
{

// Sets the thread's last error and returns false, for `return fail(EBADF);`. `about` says what was
// attempted; FormatMessageW puts it in front of the system's text.
bool fail(int error);
bool fail(int error, const std::string& about);
bool fail(DWORD error);

// What was attempted when the thread's last error was set; may be empty. Valid until the next one.
const char* lastErrorAbout();

} // namespace tarnix_platform

#endif
