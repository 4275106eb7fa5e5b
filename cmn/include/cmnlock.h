// SPDX-License-Identifier: LicenseRef-Tarnix
/// @file
/// A lock of one byte for the threads of a process.
#ifndef TARNIX_CMNLOCK_H
#define TARNIX_CMNLOCK_H

#include "cmnexport.h"

#include <atomic>
#include <type_traits>

namespace tarnix_cmn_4_4
{

/// A lock without an owner: any code may unlock it, on any thread. What a thread wrote before it
/// unlocked is visible to the thread that locks next. A static instance can be used during the
/// start and the end of the program too: it is constant initialised and trivially destructible.
class TARNIX_CMN_API CCmnLock
{
public:
    constexpr CCmnLock() noexcept = default;
    CCmnLock(const CCmnLock&) = delete;
    CCmnLock& operator=(const CCmnLock&) = delete;

    /// Takes the lock if it is free, and never waits. True if this call has taken it.
    bool tryLock() noexcept { return !m_Locked.exchange(true, std::memory_order_acquire); }

    /// True if the lock is taken. Another thread may change that at any time.
    bool isLocked() const noexcept { return m_Locked.load(std::memory_order_relaxed); }

    /// Frees the lock; does nothing if it is free.
    void unlock() noexcept { m_Locked.store(false, std::memory_order_release); }

private:
    std::atomic<bool> m_Locked{false};
};

static_assert(sizeof(CCmnLock) == 1, "the lock is exported as data of one byte");
static_assert(std::is_trivially_destructible_v<CCmnLock>, "unloading must run no code for it");

} // namespace tarnix_cmn_4_4

#endif
