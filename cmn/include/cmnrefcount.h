/// @file
/// The reference count that messages, catalogs, managers and trace logs carry in themselves.
#ifndef TARNIX_CMNREFCOUNT_H
#define TARNIX_CMNREFCOUNT_H

#include "cmnexport.h"

#include <cstdint>

namespace tarnix_cmn_4_4
{

/// Counts, and deletes nothing: the object goes through CCmnSmartPtr. A plain integer without a
/// lock, so an object and all pointers to it belong to one thread at a time.
class TARNIX_CMN_API CCmnRefCount
{
public:
    /// The count starts at 0; the first pointer that takes the object makes it 1.
    CCmnRefCount() = default;

    /// @{
    /// A copy starts with the count of its source and not with 0. Such a copy outlives the smart
    /// pointers to it unless the surplus is released.
    CCmnRefCount(const CCmnRefCount&) = default;
    CCmnRefCount& operator=(const CCmnRefCount&) = default;
    /// @}

    virtual ~CCmnRefCount() = default;

    /// @{
    /// Both return the new count.
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
