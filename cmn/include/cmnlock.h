/// @file
/// A one-byte flag that threads of the process contend for.
#ifndef TARNIX_CMNLOCK_H
#define TARNIX_CMNLOCK_H

#include "cmnexport.h"

#include <atomic>
#include <type_traits>

namespace tarnix_cmn_4_4
{

/// Has no owner: any code may clear it. All operations may run on any thread; what a thread wrote
/// before it unlocked is seen by the thread that locks next. A static instance is constant
/// initialised and has no destructor, so it is usable from the first moment to the last.
class TARNIX_CMN_API CCmnLock
{
public:
    constexpr CCmnLock() noexcept = default;
    CCmnLock(const CCmnLock&) = delete;
    CCmnLock& operator=(const CCmnLock&) = delete;

    /// True when the flag was free and is now taken by this call.
    bool tryLock() noexcept { return m_Locked.exchange(1, std::memory_order_acquire) == 0; }

    /// A look at the flag, out of date as soon as it is given.
    bool isLocked() const noexcept { return m_Locked.load(std::memory_order_relaxed) != 0; }

    /// On a free flag nothing happens.
    void unlock() noexcept { m_Locked.store(0, std::memory_order_release); }

private:
    std::atomic<unsigned char> m_Locked{0};
};

static_assert(sizeof(CCmnLock) == 1, "the lock is exported as data of one byte");
static_assert(std::is_trivially_destructible_v<CCmnLock>, "unloading must run no code for it");

} // namespace tarnix_cmn_4_4

#endif
