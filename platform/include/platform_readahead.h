/// @file
/// Reads from a pipe, and the fast path of reads of one byte.
///
/// The runner reads byte by byte. A byte must cost neither a system call nor a lock nor a look-up,
/// so a pipe end holds what one large read brought, and these two operations take from there. The
/// state of a read leases what is there: between its bytes it only asks whether the lease holds.
#ifndef TARNIX_PLATFORM_READAHEAD_H
#define TARNIX_PLATFORM_READAHEAD_H

#include "platform_types.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace tarnix_platform
{

using ULONG_PTR = std::uintptr_t;

/// What one large read brought. Blocks are never freed, only used again: the short road looks into
/// one without a lock, and a handle that another thread closes at that moment must not make it look
/// into freed memory.
struct ReadAhead {
    static constexpr std::size_t kCapacity = 64 * 1024; ///< the kernel's pipe holds as much

    /// Places in `bytes`; nothing is there when `at` is not below `end`. Whoever uses one checks
    /// it, so that two threads which read one end against the rules get wrong bytes and nothing
    /// worse.
    std::atomic<std::uint32_t> at{0};
    std::atomic<std::uint32_t> end{0};
    std::atomic<std::uint64_t> lease{0}; ///< number of the one lease that holds
    std::atomic<HANDLE> writer{nullptr}; ///< first handle of the child that writes here
    unsigned char bytes[kCapacity];

    ReadAhead() {} ///< leaves the bytes as they are

    bool empty() const
    {
        return at.load(std::memory_order_relaxed) >= end.load(std::memory_order_relaxed);
    }

    /// Whatever moves `at` or `end` without the lease ends it by this, and so does whatever takes
    /// the block from a handle.
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
            former->renewLease(); ///< of a closed handle, among others
        }
        m_Ahead.store(ahead, order);
    }

private:
    std::atomic<ReadAhead*> m_Ahead{nullptr};
};

/// A right to take the bytes from `at` to `end` of what was read ahead of `file`. It holds as long
/// as the block's own number is that of the lease. Zeroed: none.
struct ReadLease {
    ReadAhead* ahead;
    std::uint64_t number;
    std::size_t at;
    std::size_t end;
    HANDLE file;
};

/// The state of one read. The caller zeroes it, sets hEvent and keeps it, and the place that the
/// read fills, until the read has ended or was cancelled. The layer keeps no pointer to it, so that
/// a caller's loop can hold it in registers; it knows the outcome of a read that pended until the
/// next one of that end pends. A state that has read is not copied: zero another one.
struct OVERLAPPED {
    ULONG_PTR Internal;     ///< 0: ended well; otherwise the error, or ERROR_IO_PENDING
    ULONG_PTR InternalHigh; ///< bytes read
    DWORD Offset;           ///< not used
    DWORD OffsetHigh;       ///< not used
    HANDLE hEvent;          ///< signalled when a pending read ends
    ReadLease Lease;        ///< the layer's own
    ULONG_PTR Pending;      ///< the layer's own: number of the read that pends, or 0
};

/// What the short road needs of a handle. `owner` is the open handle that uses the place, so a
/// closed or reused one never matches.
struct FastSlot {
    std::atomic<HANDLE> owner{nullptr};
    AheadLink ahead;                         ///< of a client end: what can be read
    std::atomic<ReadAhead*> output{nullptr}; ///< of a process: where its output is read,
    std::atomic<HANDLE> writer{nullptr};     ///< as long as this is its writer
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

/// Gives the state a lease on what was read ahead, if there is something.
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
    /// Looked at again: the block may have gone to another pipe meanwhile.
    return state.Lease.at < state.Lease.end && fast.owner.load(std::memory_order_acquire) == file &&
           fast.ahead.load(std::memory_order_relaxed) == ahead;
}

/// False also for a handle that was closed, or after another state has read.
inline bool holdsLease(HANDLE file, const ReadLease& lease)
{
    return likely(lease.at < lease.end) && likely(lease.file == file) &&
           likely(lease.ahead->lease.load(std::memory_order_relaxed) == lease.number);
}

/// One byte by the lease. The place comes from the caller's state, which a compiler keeps in
/// registers; the block is only told of it, for whoever looks there next.
inline void takeByte(void* buffer, OVERLAPPED& state)
{
    ReadLease& lease = state.Lease;
    ++lease.at;
    lease.ahead->at.store(static_cast<std::uint32_t>(lease.at), std::memory_order_relaxed);
    *static_cast<unsigned char*>(buffer) = lease.ahead->bytes[lease.at - 1];
    state.Internal = 0;
    state.InternalHigh = 1;
}

/// The whole of ReadFile and GetOverlappedResult. Both operations give it a copy of the caller's
/// state: a state whose address has left the caller could not stay in registers. It is copied field
/// by field, as far as it is needed: fields that are copied together g++ would keep together in a
/// vector register, and unpack for each byte.
BOOL readFile(HANDLE file, void* buffer, DWORD size, DWORD* count, OVERLAPPED* overlapped);
BOOL overlappedResult(HANDLE file, OVERLAPPED* overlapped, DWORD* count, BOOL wait);

/// Reads from a client end without waiting. True: `*count` bytes (at least one) stand in the buffer
/// and the OVERLAPPED, which is required, tells the same. False with ERROR_IO_PENDING: nothing is
/// there yet; the read goes on until a wait for its event, GetOverlappedResult or CancelIo ends it,
/// and only those calls fill the buffer. False with ERROR_BROKEN_PIPE: all writers have gone, or
/// the child that wrote here has ended and what stood in the pipe at that moment has been handed
/// out.
inline BOOL ReadFile(HANDLE file, void* buffer, DWORD size, DWORD* count, OVERLAPPED* overlapped)
{
    if (count == nullptr || overlapped == nullptr) {
        return readFile(file, buffer, size, count, overlapped);
    }
    /// Written twice on purpose: joined by ||, the compiler would load the state again for each
    /// byte.
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

/// How a read ended. With wait true a pending read is awaited, without a limit; with wait false it
/// gives false with ERROR_IO_PENDING.
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
