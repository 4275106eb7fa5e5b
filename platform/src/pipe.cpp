// The kernel's pipe, its read-ahead block, and the pending read.
#include "pipe.h"

#include "aheadpool.h"
#include "descriptors.h"

#include <fcntl.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <atomic>
#include <cstring>

namespace tarnix_platform
{

namespace
{

// Number of the last read that became pending, counted over all pipes: a state that was used for
// another pipe must not match a read of this one.
std::atomic<ULONG_PTR> g_lastRead{0};

} // namespace

bool refuseRead(OVERLAPPED& state, int error)
{
    state.Internal = state.Pending != 0 ? ERROR_IO_PENDING : static_cast<ULONG_PTR>(error);
    return fail(error);
}

void Event::signal()
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Signalled = true;
}

bool Event::consume()
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return std::exchange(m_Signalled, false);
}

void Event::attach(const std::shared_ptr<PipeEnd>& end)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Source = end;
    m_Signalled = false;
}

std::shared_ptr<PipeEnd> Event::source() const
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Source.lock();
}

Pipe::~Pipe()
{
    closeClient();
}

bool Pipe::create()
{
    if (!openPipe(m_ReadFd, m_WriteFd)) {
        return fail(errno);
    }
    m_Ahead = takeAhead();
    return true;
}

void Pipe::closeServer()
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_WriteFd.reset();
}

void Pipe::closeClient()
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_Pending.buffer != nullptr) {
        finish(ECANCELED, 0);
    }
    m_ReadFd.reset();
    if (m_Ahead != nullptr) {
        giveAhead(std::exchange(m_Ahead, nullptr));
    }
}

void Pipe::setWriter(HANDLE process)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_Ahead != nullptr) {
        m_Ahead->writer.store(process, std::memory_order_relaxed);
        setOutput(process, m_Ahead, process);
    }
}

void Pipe::markEndOfOutput()
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    int waiting = 0;
    if (m_OutputEnded || !m_ReadFd || ::ioctl(m_ReadFd.get(), FIONREAD, &waiting) != 0) {
        return;
    }
    m_OutputEnded = true;
    m_BytesLeft = static_cast<std::size_t>(std::max(waiting, 0));
}

// Reads into the block, which is empty.
ReadState Pipe::fill(int& error)
{
    if (m_OutputEnded && m_BytesLeft == 0) {
        return ReadState::endOfFile;
    }
    if (!m_NonBlocking) {
        // Not before the first read here: an end that a child gets as its input must block.
        const int flags = ::fcntl(m_ReadFd.get(), F_GETFL);
        if (flags < 0 || ::fcntl(m_ReadFd.get(), F_SETFL, flags | O_NONBLOCK) != 0) {
            error = errno;
            return ReadState::failed;
        }
        m_NonBlocking = true;
    }
    const std::size_t wanted =
        m_OutputEnded ? std::min(m_BytesLeft, ReadAhead::kCapacity) : ReadAhead::kCapacity;
    const ssize_t got = readSome(m_ReadFd.get(), m_Ahead->bytes, wanted);
    if (got < 0) {
        error = errno;
        return error == EAGAIN ? ReadState::empty : ReadState::failed;
    }
    if (got == 0) {
        return ReadState::endOfFile;
    }
    if (m_OutputEnded) {
        m_BytesLeft -= static_cast<std::size_t>(got);
    }
    m_Ahead->at.store(0, std::memory_order_relaxed);
    m_Ahead->end.store(static_cast<std::uint32_t>(got), std::memory_order_relaxed);
    return ReadState::data;
}

DWORD Pipe::takeBytes(void* buffer, DWORD size)
{
    const std::uint32_t end = m_Ahead->end.load(std::memory_order_relaxed);
    const std::uint32_t at = std::min(m_Ahead->at.load(std::memory_order_relaxed), end);
    const DWORD count = std::min(size, end - at);
    m_Ahead->renewLease();
    std::memcpy(buffer, m_Ahead->bytes + at, count);
    m_Ahead->at.store(at + count, std::memory_order_relaxed);
    return count;
}

BOOL Pipe::read(const std::shared_ptr<PipeEnd>& self, void* buffer, DWORD size, DWORD* count,
                OVERLAPPED* overlapped)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_Pending.buffer != nullptr) {
        return refuseRead(*overlapped, EBUSY);
    }
    overlapped->Pending = 0;
    int error = 0;
    switch (m_Ahead->empty() ? fill(error) : ReadState::data) {
    case ReadState::data:
        *count = takeBytes(buffer, size);
        overlapped->Internal = 0;
        overlapped->InternalHigh = *count;
        return true;
    case ReadState::endOfFile:
        overlapped->Internal = ERROR_BROKEN_PIPE;
        return fail(ERROR_BROKEN_PIPE);
    case ReadState::failed:
        overlapped->Internal = static_cast<ULONG_PTR>(error);
        return fail(error);
    case ReadState::empty:
    case ReadState::notPending: // never returned by fill
        break;
    }
    m_Pending.event = std::dynamic_pointer_cast<Event>(objectOf(overlapped->hEvent));
    if (m_Pending.event) {
        m_Pending.event->attach(self);
    }
    m_Pending.buffer = buffer;
    m_Pending.size = size;
    overlapped->Internal = ERROR_IO_PENDING;
    overlapped->InternalHigh = 0;
    overlapped->Pending = m_Outcome.number = g_lastRead.fetch_add(1, std::memory_order_relaxed) + 1;
    return fail(ERROR_IO_PENDING);
}

void Pipe::finish(ULONG_PTR status, DWORD count)
{
    m_Outcome.status = status;
    m_Outcome.count = count;
    if (m_Pending.event) {
        m_Pending.event->signal();
    }
    m_Pending = PendingRead{};
}

ReadState Pipe::complete(bool completeAtEnd)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_Pending.buffer == nullptr) {
        return ReadState::notPending;
    }
    int error = 0;
    const ReadState state = m_Ahead->empty() ? fill(error) : ReadState::data;
    if (state == ReadState::data) {
        finish(0, takeBytes(m_Pending.buffer, m_Pending.size));
    } else if (state == ReadState::endOfFile && completeAtEnd) {
        finish(ERROR_BROKEN_PIPE, 0);
    } else if (state == ReadState::failed) {
        finish(static_cast<ULONG_PTR>(error), 0);
    }
    return state;
}

bool Pipe::pending() const
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Pending.buffer != nullptr;
}

void Pipe::cancel()
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_Pending.buffer != nullptr) {
        m_Outcome.status = ECANCELED;
        m_Outcome.count = 0;
        m_Pending = PendingRead{};
    }
}

void Pipe::outcome(OVERLAPPED& state) const
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    const bool known = state.Pending == m_Outcome.number;
    state.Internal = known ? m_Outcome.status : ECANCELED;
    state.InternalHigh = known ? m_Outcome.count : 0;
    state.Pending = 0;
}

} // namespace tarnix_platform
