// SPDX-License-Identifier: LicenseRef-Tarnix
// System calls that a signal may interrupt.
#ifndef TARNIX_PLATFORM_RETRY_H
#define TARNIX_PLATFORM_RETRY_H

#include <cerrno>

namespace tarnix_platform
{

// Repeats the call as long as it fails with EINTR. `call` returns -1 on failure. Not for close,
// which closes the descriptor even then, and not for a wait with a timeout, which would start
// again.
template <class Call>
auto retryInterrupted(Call call)
{
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

} // namespace tarnix_platform

#endif
