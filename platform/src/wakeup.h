// SPDX-License-Identifier: LicenseRef-Tarnix
// Manual-reset events: any thread or signal handler wakes those who wait for one.
#ifndef TARNIX_PLATFORM_WAKEUP_H
#define TARNIX_PLATFORM_WAKEUP_H

#include "handles.h"
#include "uniquefd.h"

namespace tarnix_platform
{

class Wakeup : public Object
{
public:
    explicit Wakeup(UniqueFd fd) : m_Fd(std::move(fd)) {}

    // Readable while the event is signalled.
    int fd() const { return m_Fd.get(); }

private:
    const UniqueFd m_Fd;
};

// Null with the last error set on failure.
HANDLE openWakeup();

} // namespace tarnix_platform

#endif
