// The short road of one-byte reads. Included by platform.h; not for use by itself.
//
// The runner reads byte by byte. A byte must cost neither a system call nor a lock nor a look-up,
// so a pipe end holds what one large read brought, and these two operations take from there.
#ifndef TARNIX_PLATFORM_READAHEAD_H
#define TARNIX_PLATFORM_READAHEAD_H

#include "platform.h"

#include <atomic>

namespace tarnix_platform
{

// What one large read brought. Blocks are never freed, only used again: the short road looks into
// one without a lock, and a handle that another thread closes at that moment must not make it look
// into freed memory.
struct ReadAhead {
    static constexpr std::size_t capacity = 64 * 1024; // the kernel's pipe holds as much

    // Places in `bytes`; nothing is there when `at` is not below `end`. Whoever uses one checks it,
    // so that two threads which read one end against the rules get wrong bytes and nothing worse.
    std::atomic<std::uint32_t> at{0};
    std::atomic<std::uint32_t> end{0};
    std::atomic<HANDLE> writer{nullptr}; // first handle of the child that writes here
    unsigned char bytes[capacity];

    ReadAhead() {} // leaves the bytes as they are

    bool empty() const
    {
        return at.load(std::memory_order_relaxed) >= end.load(std::memory_order_relaxed);
    }
};

// What the short road needs of a handle. `owner` is the open handle that uses the place, so a
// closed or reused one never matches.
struct FastSlot {
    std::atomic<HANDLE> owner{nullptr};
    std::atomic<ReadAhead*> ahead{nullptr};  // of a client end: what can be read
    std::atomic<ReadAhead*> output{nullptr}; // of a process: where its output is read,
    std::atomic<HANDLE> writer{nullptr};     // as long as this is its writer
};

constexpr std::size_t maxHandles = std::size_t{1} << 16;
extern FastSlot g_fastSlots[maxHandles];

inline FastSlot& fastSlot(HANDLE handle)
{
    return g_fastSlots[(reinterpret_cast<std::uintptr_t>(handle) >> 2) % maxHandles];
}

// The whole of ReadFile and GetOverlappedResult.
BOOL readFile(HANDLE file, void* buffer, DWORD size, DWORD* count, OVERLAPPED* overlapped);
BOOL overlappedResult(HANDLE file, OVERLAPPED* overlapped, DWORD* count, BOOL wait);

} // namespace tarnix_platform

inline BOOL ReadFile(HANDLE file, void* buffer, DWORD size, DWORD* count, OVERLAPPED* overlapped)
{
    const tarnix_platform::FastSlot& fast = tarnix_platform::fastSlot(file);
    tarnix_platform::ReadAhead* ahead = fast.ahead.load(std::memory_order_acquire);
    if (ahead != nullptr && size == 1 && fast.owner.load(std::memory_order_relaxed) == file) {
        const std::uint32_t at = ahead->at.load(std::memory_order_relaxed);
        if (at < ahead->end.load(std::memory_order_relaxed)) {
            *static_cast<unsigned char*>(buffer) = ahead->bytes[at];
            ahead->at.store(at + 1, std::memory_order_relaxed);
            *count = 1;
            overlapped->Internal = 0;
            overlapped->InternalHigh = 1;
            return true;
        }
    }
    return tarnix_platform::readFile(file, buffer, size, count, overlapped);
}

inline BOOL GetOverlappedResult(HANDLE file, OVERLAPPED* overlapped, DWORD* count, BOOL wait)
{
    if (overlapped->Internal != 0) {
        return tarnix_platform::overlappedResult(file, overlapped, count, wait);
    }
    *count = static_cast<DWORD>(overlapped->InternalHigh);
    return true;
}

#endif
