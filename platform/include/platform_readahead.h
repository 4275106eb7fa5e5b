/// @file
/// Reads from a pipe, with a fast path for reads of one byte.
///
/// The runner reads byte by byte. A byte must cost no system call, no lock and no lookup. So one
/// large read fills the block of the pipe end, and the two operations here take bytes from the
/// block. The state of a read holds a lease on the bytes in the block: for each byte, the
/// operations only check that the lease is still valid.
#ifndef TARNIX_PLATFORM_READAHEAD_H
#define TARNIX_PLATFORM_READAHEAD_H

#include "platform_types.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace tarnix_platform
{

using ULONG_PTR = std::uintptr_t;

/// A block of bytes that one large read has fetched. Blocks are never freed, only used again: the
/// fast path reads a block without a lock, and must not read freed memory if another thread closes
/// the handle at that moment.
struct ReadAhead {
    static constexpr std::size_t kCapacity = 64 * 1024; ///< the kernel's pipe holds as much

    /// The unread bytes, as indexes in `bytes`; there are none unless `at` is below `end`. An index
    /// is checked before each use: two threads that read from one end, against the rules, get wrong
    /// bytes and nothing worse.
    std::atomic<std::uint32_t> at{0};
    std::atomic<std::uint32_t> end{0};
    std::atomic<std::uint64_t> lease{0}; ///< number of the one valid lease
    std::atomic<HANDLE> writer{nullptr}; ///< first handle of the child that writes to the pipe
    unsigned char bytes[kCapacity];

    ReadAhead() {} ///< leaves the bytes uninitialised

    bool empty() const
    {
        return at.load(std::memory_order_relaxed) >= end.load(std::memory_order_relaxed);
    }

    /// Makes the former lease invalid and returns the number of the new one. Must be called by
    /// whoever changes `at` or `end` without the lease, or takes the block from a handle.
    std::uint64_t renewLease()
    {
        const std::uint64_t number = lease.load(std::memory_order_relaxed) + 1;
        lease.store(number, std::memory_order_relaxed);
        return number;
    }
};

/// The block of a client end.
class AheadLink
{
public:
    ReadAhead* load(std::memory_order order) const { return m_Ahead.load(order); }
    void store(ReadAhead* ahead, std::memory_order order)
    {
        if (ReadAhead* former = m_Ahead.load(std::memory_order_relaxed)) {
            former->renewLease(); // the handle may have been closed
        }
        m_Ahead.store(ahead, order);
    }

private:
    std::atomic<ReadAhead*> m_Ahead{nullptr};
};

/// The right to take the bytes from `at` to `end` of the block of `file`. It is valid as long as
/// the block's lease number is `number`. All zero: no lease.
struct ReadLease {
    ReadAhead* ahead;
    std::uint64_t number;
    std::size_t at;
    std::size_t end;
    HANDLE file;
};

/// The state of one read. The caller zeroes it and sets hEvent. It keeps the state and the buffer
/// of the read until the read has ended or was cancelled. The layer keeps no pointer to the state,
/// so that a caller's loop can hold it in registers. The layer keeps the result of a pending read
/// until another read of that end becomes pending. Do not copy a state that has been used for a
/// read: zero another one.
struct OVERLAPPED {
    ULONG_PTR Internal;     ///< 0: success; otherwise the error, or ERROR_IO_PENDING
    ULONG_PTR InternalHigh; ///< bytes read
    DWORD Offset;           ///< not used
    DWORD OffsetHigh;       ///< not used
    HANDLE hEvent;          ///< signalled when a pending read ends
    ReadLease Lease;        ///< for the layer only
    ULONG_PTR Pending;      ///< for the layer only: number of the pending read, or 0
};

/// What the fast path needs to know of a handle. `owner` is the open handle that uses the slot, so
/// a closed handle never matches, even when its slot is used again.
struct FastSlot {
    std::atomic<HANDLE> owner{nullptr};
    AheadLink ahead; ///< of a client end: its block

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

inline bool likely(bool condition)
{
    return __builtin_expect(condition, true);
}

/// Gives the state a lease on the bytes of the block. False if there are none.
inline bool leaseAhead(HANDLE file, OVERLAPPED& state)
{
    const FastSlot& fast = fastSlot(file);
    ReadAhead* ahead = fast.ahead.load(std::memory_order_acquire);
    if (ahead == nullptr || fast.owner.load(std::memory_order_relaxed) != file) {
        return false;
    }
    state.Lease.at = ahead->at.load(std::memory_order_relaxed);
    state.Lease.end = ahead->end.load(std::memory_order_relaxed);
    state.Lease.ahead = ahead;
    state.Lease.number = ahead->renewLease();
    state.Lease.file = file;
    // Checked again: meanwhile the block may have been given to another pipe.
    return state.Lease.at < state.Lease.end && fast.owner.load(std::memory_order_acquire) == file &&
           fast.ahead.load(std::memory_order_relaxed) == ahead;
}

/// False also if the handle was closed, or if another state has been used for a read.
inline bool holdsLease(HANDLE file, const ReadLease& lease)
{
    return likely(lease.at < lease.end) && likely(lease.file == file) &&
           likely(lease.ahead->lease.load(std::memory_order_relaxed) == lease.number);
}

/// Takes one byte. The position is read from the caller's state, which a compiler keeps in
/// registers; it is only written to the block, for the next read without this lease.
inline void takeByte(void* buffer, OVERLAPPED& state)
{
    ReadLease& lease = state.Lease;
    ++lease.at;
    lease.ahead->at.store(static_cast<std::uint32_t>(lease.at), std::memory_order_relaxed);
    *static_cast<unsigned char*>(buffer) = lease.ahead->bytes[lease.at - 1];
    state.Internal = 0;
    state.InternalHigh = 1;
}

/// ReadFile and GetOverlappedResult without the fast path. Both operations pass a copy of the
/// caller's state, because a state whose address is passed on cannot stay in registers. Only the
/// needed fields are copied, one by one: g++ would keep fields that are copied together in a vector
/// register, and unpack them for each byte.
BOOL readFile(HANDLE file, void* buffer, DWORD size, DWORD* count, OVERLAPPED* overlapped);
BOOL overlappedResult(HANDLE file, OVERLAPPED* overlapped, DWORD* count, BOOL wait);

/// Reads from a client end without waiting. `overlapped` is required.
///
/// True: `*count` bytes (at least one) are in the buffer, and InternalHigh is the same number.
/// False with ERROR_IO_PENDING: there are no bytes yet; the read is pending until a wait for its
/// event, GetOverlappedResult or CancelIo ends it, and only those calls fill the buffer. False with
/// ERROR_BROKEN_PIPE: no writer is left; or the child that wrote to the pipe has ended, and all
/// bytes that were in the pipe at that moment have been read.
inline BOOL ReadFile(HANDLE file, void* buffer, DWORD size, DWORD* count, OVERLAPPED* overlapped)
{
    if (count == nullptr || overlapped == nullptr) {
        return readFile(file, buffer, size, count, overlapped);
    }
    // Two ifs on purpose: if they are joined by ||, the compiler loads the state again for each
    // byte.
    if (size == 1 && holdsLease(file, overlapped->Lease)) {
        takeByte(buffer, *overlapped);
        *count = 1;
        return true;
    }
    if (size == 1 && leaseAhead(file, *overlapped)) {
        takeByte(buffer, *overlapped);
        *count = 1;
        return true;
    }
    DWORD got = 0;
    OVERLAPPED state{};
    state.hEvent = overlapped->hEvent;
    state.Pending = overlapped->Pending;
    const BOOL result = readFile(file, buffer, size, &got, &state);
    overlapped->Internal = state.Internal;
    overlapped->InternalHigh = state.InternalHigh;
    overlapped->Pending = state.Pending;
    overlapped->Lease = ReadLease{};
    *count = got;
    return result;
}

/// The result of a read. If the read is pending, the call waits for its end without a limit; or, if
/// `wait` is false, returns false with ERROR_IO_PENDING. If the system refuses the wait, the read
/// is cancelled and fails with the error.
inline BOOL GetOverlappedResult(HANDLE file, OVERLAPPED* overlapped, DWORD* count, BOOL wait)
{
    if (likely(overlapped->Internal == 0)) {
        *count = static_cast<DWORD>(overlapped->InternalHigh);
        return true;
    }
    DWORD got = 0;
    OVERLAPPED state{};
    state.Internal = overlapped->Internal;
    state.Pending = overlapped->Pending;
    const BOOL result = overlappedResult(file, &state, &got, wait);
    overlapped->Internal = state.Internal;
    overlapped->InternalHigh = state.InternalHigh;
    overlapped->Pending = state.Pending;
    overlapped->Lease = ReadLease{};
    *count = got;
    return result;
}

} // namespace tarnix_platform

namespace tarnix_cmn_4_4
{

using tarnix_platform::GetOverlappedResult;
using tarnix_platform::OVERLAPPED;
using tarnix_platform::ReadFile;
using tarnix_platform::ULONG_PTR;

} // namespace tarnix_cmn_4_4

#endif
