// SPDX-License-Identifier: LicenseRef-Tarnix
/// @file
/// The bytes of a pipe that were read ahead, and the fast path that takes lines of them.
///
/// A line of output must cost no system call, no lock and no lookup. So one large read fills the
/// block of the pipe end, and takeLine takes the lines from the block.
#ifndef TARNIX_PLATFORM_READAHEAD_H
#define TARNIX_PLATFORM_READAHEAD_H

#include "platform_types.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace tarnix_platform
{

/// A block of bytes that one large read has fetched. Blocks are never freed, only used again:
/// takeLine reads a block without a lock, and must not read freed memory if another thread closes
/// the handle at that moment.
struct ReadAhead {
    static constexpr std::size_t kCapacity = 64 * 1024; ///< the kernel's pipe holds as much

    /// The unread bytes, as indexes in `bytes`; there are none unless `at` is below `end`. An index
    /// is checked before each use: two threads that read from one end, against the rules, get wrong
    /// bytes and nothing worse.
    std::atomic<std::uint32_t> at{0};
    std::atomic<std::uint32_t> end{0};
    std::atomic<HANDLE> writer{nullptr}; ///< first handle of the child that writes to the pipe
    unsigned char bytes[kCapacity];

    ReadAhead() {} ///< leaves the bytes uninitialised

    bool empty() const
    {
        return at.load(std::memory_order_relaxed) >= end.load(std::memory_order_relaxed);
    }
};

/// What is known of a handle without a lock. `owner` is the open handle that uses the slot, so a
/// closed handle never matches, even when its slot is used again.
struct FastSlot {
    std::atomic<HANDLE> owner{nullptr};
    std::atomic<ReadAhead*> ahead{nullptr}; ///< of a client end: its block

    /// Of a process: the block of its output. The block may be used again for another pipe: it is
    /// the block of this process only as long as the block's `writer` equals the one here.
    std::atomic<ReadAhead*> output{nullptr};
    std::atomic<HANDLE> writer{nullptr};
};

constexpr std::size_t kMaxHandles = std::size_t{1} << 16;
extern FastSlot g_fastSlots[kMaxHandles];

inline FastSlot& fastSlot(HANDLE handle)
{
    return g_fastSlots[(reinterpret_cast<std::uintptr_t>(handle) >> 2) % kMaxHandles];
}

/// Takes bytes of a client end that an earlier ReadFile has read ahead: up to and with the first
/// newline, at most `size`. Returns their number; 0 if there are none, and ReadFile looks for more.
inline std::size_t takeLine(HANDLE file, char* buffer, std::size_t size)
{
    const FastSlot& fast = fastSlot(file);
    ReadAhead* const ahead = fast.ahead.load(std::memory_order_acquire);
    if (ahead == nullptr) {
        return 0;
    }
    const std::size_t at = ahead->at.load(std::memory_order_relaxed);
    const std::size_t end = ahead->end.load(std::memory_order_relaxed);
    if (at >= end) {
        return 0;
    }
    const unsigned char* const line = ahead->bytes + at;
    const std::size_t most = std::min(size, end - at);
    const void* const newline = std::memchr(line, '\n', most);
    const std::size_t count =
        newline == nullptr
            ? most
            : static_cast<std::size_t>(static_cast<const unsigned char*>(newline) - line) + 1;
    std::memcpy(buffer, line, count);
    // Checked last: the handle may be closed, and its slot or the block serve another pipe by now.
    if (fast.owner.load(std::memory_order_acquire) != file) {
        return 0;
    }
    ahead->at.store(static_cast<std::uint32_t>(at + count), std::memory_order_relaxed);
    return count;
}

} // namespace tarnix_platform

#endif
