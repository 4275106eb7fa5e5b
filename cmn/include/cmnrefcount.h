// SPDX-License-Identifier: LicenseRef-Tarnix
/// @file
/// The reference count inside messages, catalogs, catalog managers and trace logs.
#ifndef TARNIX_CMNREFCOUNT_H
#define TARNIX_CMNREFCOUNT_H

#include "cmnexport.h"

#include <cstdint>

namespace tarnix_cmn_4_4
{

/// Counts only: CCmnSmartPtr deletes the object. The count is not atomic, so only one thread at a
/// time may use an object and the pointers to it.
class TARNIX_CMN_API CCmnRefCount
{
public:
    /// The count starts at 0. The first pointer that takes the object makes it 1.
    CCmnRefCount() = default;

    /// @{
    /// A copy starts with the count of its source and not with 0. Smart pointers to such a copy
    /// would never destroy it: call release until its count is 0 before the first pointer takes it.
    CCmnRefCount(const CCmnRefCount&) = default;
    CCmnRefCount& operator=(const CCmnRefCount&) = default;
    /// @}

    virtual ~CCmnRefCount() = default;

    /// @{
    /// Add or remove one reference and return the new count.
    virtual int addRef() { return ++m_RefCount; }
    virtual int release() { return --m_RefCount; }
    /// @}

    /// 0 for a new object.
    virtual int getRefCount() const { return m_RefCount; }

private:
    std::int32_t m_RefCount = 0;
};

} // namespace tarnix_cmn_4_4

#endif
