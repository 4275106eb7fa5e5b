// SPDX-License-Identifier: LicenseRef-Tarnix
// Failed calls of the platform layer.
#ifndef TARNIX_SUPPORT_FAILURE_H
#define TARNIX_SUPPORT_FAILURE_H

#include "platform.h"

#include <gtest/gtest.h>

// Expects that a call of the platform layer failed with this error.
inline void expectFailure(bool result, tarnix_platform::DWORD error)
{
    EXPECT_FALSE(result);
    EXPECT_EQ(tarnix_platform::GetLastError(), error);
}

// Expects that starts of a child are refused when one argument is wrong. `create` is one of the
// operations that create a process, from its second or its first argument on.
template <typename Create>
void expectRefusedStarts(const Create& create, tarnix_platform::STARTUPINFOA& startup)
{
    char command[] = "true";
    tarnix_platform::SECURITY_ATTRIBUTES some{};
    tarnix_platform::PROCESS_INFORMATION information{};
    const auto refuses = [&](const char* what, auto words, auto process, auto with, auto made) {
        SCOPED_TRACE(what);
        expectFailure(
            create(nullptr, words, process, nullptr, false, 0U, nullptr, nullptr, with, made),
            EINVAL);
    };
    refuses("no command", nullptr, nullptr, &startup, &information);
    refuses("process attributes", command, &some, &startup, &information);
    refuses("no startup", command, nullptr, nullptr, &information);
    refuses("no information", command, nullptr, &startup, nullptr);
}

#endif
