// SPDX-License-Identifier: LicenseRef-Tarnix
// The kernel's pipe, its read-ahead block, and the pending read and write.
#include "pipe.h"

#include "aheadpool.h"
#include "descriptors.h"

#include <sys/ioctl.h>

#include <algorithm>
#include <atomic>
#include <cstring>

namespace tarnix_platform
{

namespace
{

// Number of the last read or write that became pending, counted over all pipes: a state that was
// used for another pipe must not match one of this pipe.
std::atomic<ULONG_PTR> g_lastPending{};

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

void Pipe::GiveAhead::operator()(ReadAhead* block) const
{
    giveAhead(block);
}

bool Pipe::create()
{
    if (!openPipe(m_ReadFd, m_WriteFd)) {
        return fail(errno);
    }
    m_Ahead.reset(takeAhead());
    return true;
}

void Pipe::closeServer()
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    finishWrite(ECANCELED); // without effect if no write is pending: nobody asks for its outcome
    m_WriteFd.reset();
}

void Pipe::closeClient()
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    finish(ECANCELED); // without effect if no read is pending: nobody asks for its outcome
    m_ReadFd.reset();
    m_Ahead.reset();
}

void Pipe::setWriter(HANDLE process)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_Ahead) {
        m_Ahead->writer.store(process, std::memory_order_relaxed);
        setOutput(process, m_Ahead.get(), process);
    }
}

void Pipe::markEndOfOutput()
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    int waiting; // the call fails if the end is closed
    if (!m_BytesLeft && ::ioctl(m_ReadFd.get(), FIONREAD, &waiting) == 0) {
        m_BytesLeft = static_cast<std::size_t>(waiting);
    }
}

// Reads into the block, which is empty. If it fails, errno is the reason.
ReadState Pipe::fill()
{
    if (m_BytesLeft == std::size_t{0}) {
        return ReadState::endOfFile;
    }
    // Not before the first read here: an end that a child gets as its input must block. If it
    // fails, the descriptor is not open, and the read fails too.
    m_NonBlocking = m_NonBlocking || makeNonBlocking(m_ReadFd.get());
    const std::size_t wanted =
        std::min(m_BytesLeft.value_or(ReadAhead::kCapacity), ReadAhead::kCapacity);
    const ssize_t got = readSome(m_ReadFd.get(), m_Ahead->bytes, wanted);
    if (got < 0) {
        return errno == EAGAIN ? ReadState::empty : ReadState::failed;
    }
    if (got == 0) {
        return ReadState::endOfFile;
    }
    if (m_BytesLeft) {
        *m_BytesLeft -= static_cast<std::size_t>(got);
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
    switch (m_Ahead->empty() ? fill() : ReadState::data) {
    case ReadState::data:
        *count = takeBytes(buffer, size);
        overlapped->Internal = 0;
        overlapped->InternalHigh = *count;
        return true;
    case ReadState::endOfFile:
        overlapped->Internal = ERROR_BROKEN_PIPE;
        return fail(ERROR_BROKEN_PIPE);
    case ReadState::failed:
        overlapped->Internal = static_cast<ULONG_PTR>(errno);
        return fail(errno);
    case ReadState::empty:
        break;
    }
    m_Pending.event = std::dynamic_pointer_cast<Event>(objectOf(overlapped->hEvent));
    if (m_Pending.event) {
        m_Pending.event->attach(self);
    }
    m_Pending.buffer = buffer;
    m_Pending.size = size;
    overlapped->Internal = ERROR_IO_PENDING;
    overlapped->Pending = m_Outcome.number = ++g_lastPending;
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

bool Pipe::complete(bool completeAtEnd)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_Pending.buffer == nullptr) {
        return true;
    }
    switch (m_Ahead->empty() ? fill() : ReadState::data) {
    case ReadState::data:
        finish(0, takeBytes(m_Pending.buffer, m_Pending.size));
        break;
    case ReadState::endOfFile:
        if (completeAtEnd) {
            finish(ERROR_BROKEN_PIPE);
        }
        break;
    case ReadState::failed:
        finish(static_cast<ULONG_PTR>(errno));
        break;
    case ReadState::empty:
        break;
    }
    return m_Pending.buffer == nullptr;
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
        m_Pending.event.reset(); // it is not signalled
        finish(ECANCELED);
    }
}

// Writes as much as the pipe has room for. Returns 0 if all bytes are written, EAGAIN if not yet,
// or the error.
int Pipe::writeMore()
{
    while (m_Write.written < m_Write.size) {
        const ssize_t got = writeSome(m_WriteFd.get(), m_Write.bytes + m_Write.written,
                                      m_Write.size - m_Write.written);
        if (got == -1) {
            return errno == EPIPE ? static_cast<int>(ERROR_BROKEN_PIPE) : errno;
        }
        m_Write.written += static_cast<DWORD>(got);
    }
    return 0;
}

BOOL Pipe::write(const std::shared_ptr<PipeEnd>& self, const void* buffer, DWORD size, DWORD* count,
                 OVERLAPPED* overlapped)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_Write.bytes != nullptr) {
        return refuseRead(*overlapped, EBUSY);
    }
    overlapped->Pending = 0;
    // Nobody else uses this end: a child gets the other one as its input.
    m_Write = PendingWrite{static_cast<const char*>(buffer), size, 0, nullptr};
    const int error = makeNonBlocking(m_WriteFd.get()) ? writeMore() : errno;
    *count = m_Write.written;
    overlapped->Internal = error == EAGAIN ? ERROR_IO_PENDING : static_cast<ULONG_PTR>(error);
    overlapped->InternalHigh = m_Write.written;
    if (error != EAGAIN) {
        m_Write = PendingWrite{};
        return error == 0 ? true : fail(error);
    }
    m_Write.event = std::dynamic_pointer_cast<Event>(objectOf(overlapped->hEvent));
    if (m_Write.event) {
        m_Write.event->attach(self);
    }
    overlapped->Pending = m_WriteOutcome.number = ++g_lastPending;
    return fail(ERROR_IO_PENDING);
}

void Pipe::finishWrite(int error)
{
    m_WriteOutcome.status = static_cast<ULONG_PTR>(error);
    m_WriteOutcome.count = m_Write.written;
    if (m_Write.event) {
        m_Write.event->signal();
    }
    m_Write = PendingWrite{};
}

void Pipe::completeWrite()
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_Write.bytes == nullptr) {
        return;
    }
    const int error = writeMore();
    if (error != EAGAIN) {
        finishWrite(error);
    }
}

void Pipe::cancelWrite()
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_Write.bytes != nullptr) {
        m_Write.event.reset(); // it is not signalled
        finishWrite(ECANCELED);
    }
}

bool Pipe::writePending() const
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Write.bytes != nullptr;
}

void Pipe::store(const Outcome& outcome, OVERLAPPED& state)
{
    const bool known = state.Pending == outcome.number;
    state.Internal = known ? outcome.status : ECANCELED;
    state.InternalHigh = known ? outcome.count : 0;
    state.Pending = 0;
}

void Pipe::writeOutcome(OVERLAPPED& state) const
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    store(m_WriteOutcome, state);
}

void Pipe::outcome(OVERLAPPED& state) const
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    store(m_Outcome, state);
}

} // namespace tarnix_platform
