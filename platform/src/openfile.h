// SPDX-License-Identifier: LicenseRef-Tarnix
// Files that are no pipes of this layer, as standard handles of a child.
#ifndef TARNIX_PLATFORM_OPENFILE_H
#define TARNIX_PLATFORM_OPENFILE_H

#include "handles.h"
#include "uniquefd.h"

namespace tarnix_platform
{

class OpenFile : public Object
{
public:
    explicit OpenFile(UniqueFd fd) : m_Fd(std::move(fd)) {}

    int fd() const { return m_Fd.get(); }

private:
    const UniqueFd m_Fd;
};

// INVALID_HANDLE_VALUE with the last error set on failure.
HANDLE openNullDevice();

} // namespace tarnix_platform

#endif
