// SPDX-License-Identifier: LicenseRef-Tarnix
// The operations that wait for processes and events.
#include "pipeend.h"
#include "polling.h"
#include "process.h"
#include "reaping.h"
#include "wakeup.h"

#include <poll.h>

#include <algorithm>

namespace tarnix_platform
{

namespace
{

class Waiter
{
public:
    // False for a handle that cannot be waited for.
    bool add(HANDLE handle)
    {
        const std::shared_ptr<Object> object = objectOf(handle);
        Entry& entry = m_Entries[m_Count];
        entry.process = std::dynamic_pointer_cast<Process>(object);
        entry.event = std::dynamic_pointer_cast<Event>(object);
        entry.wakeup = std::dynamic_pointer_cast<Wakeup>(object);
        ++m_Count;
        return entry.process || entry.event || entry.wakeup ? true : fail(EBADF);
    }

    DWORD wait(const Deadline& deadline)
    {
        DWORD index = findReady(); // an event may be signalled already
        if (index != WAIT_TIMEOUT) {
            return index;
        }
        for (;;) {
            if (!pollAll(deadline)) {
                return WAIT_FAILED;
            }
            const bool timeLeft = !deadline.passed();
            index = findReady();
            if (index != WAIT_TIMEOUT || !timeLeft) {
                return index;
            }
        }
    }

private:
    struct Entry {
        std::shared_ptr<Process> process;
        std::shared_ptr<Event> event;
        std::shared_ptr<Wakeup> wakeup;
        std::shared_ptr<PipeEnd> source; // of the read or write that the event waits for

        bool polledReady{};  // the descriptor was ready: the child or the read may have ended
        bool ended{};        // the child has been reaped
        bool heldByTracer{}; // the child has ended, but a tracer delays its reaping
    };

    static constexpr pollfd kNone{-1, 0, 0}; // poll ignores it

    // Sets `polledReady` of each entry. False with the last error set if the system refuses the
    // wait, which it would do again. After an interruption the caller polls again.
    bool pollAll(const Deadline& deadline)
    {
        constexpr int retryInterval = 10; // of reaping a child that a tracer holds
        pollfd fds[MAXIMUM_WAIT_OBJECTS];
        int left = deadline.left();
        for (DWORD i = 0; i < m_Count; ++i) {
            // The descriptor of a child that a tracer holds is always ready: poll would not wait.
            const bool heldByTracer = m_Entries[i].heldByTracer;
            fds[i] = heldByTracer ? kNone : pollOf(m_Entries[i]);
            left = heldByTracer ? std::min(left, retryInterval) : left;
        }
        const int count = ::poll(fds, static_cast<nfds_t>(m_Count), left);
        if (count == -1 && errno != EINTR) {
            return fail(errno, "cannot wait for process or output");
        }
        for (DWORD i = 0; i < m_Count; ++i) {
            m_Entries[i].polledReady = m_Entries[i].heldByTracer || fds[i].revents != 0;
        }
        return true;
    }

    static pollfd pollOf(Entry& entry)
    {
        if (entry.process) {
            return {entry.process->pidfd(), POLLIN, 0};
        }
        if (entry.wakeup) {
            return {entry.wakeup->fd(), POLLIN, 0};
        }
        entry.source = entry.event->source();
        if (!entry.source) {
            return kNone;
        }
        const bool writes = entry.source->side() == Side::server;
        const Pipe& pipe = *entry.source->pipe();
        const auto events = static_cast<short>(writes ? POLLOUT : POLLIN);
        const bool isPending = writes ? pipe.writePending() : pipe.pending();
        return isPending ? pollfd{entry.source->fd(), events, 0} : kNone;
    }

    // Returns what happened first. Children are reaped first, which marks the end of their output.
    // If one has ended, all reads are tried, because it may have written after its pipe was polled.
    // If such a read still gets a byte, the read is reported first; at end of file, the child is.
    DWORD findReady()
    {
        bool anyEnded = false;
        for (DWORD i = 0; i < m_Count; ++i) {
            Entry& entry = m_Entries[i];
            if (entry.process && entry.polledReady) {
                entry.ended = entry.process->ended();
                entry.heldByTracer = !entry.ended;
            }
            anyEnded = anyEnded || entry.ended;
        }
        for (DWORD i = 0; i < m_Count; ++i) {
            const Entry& entry = m_Entries[i];
            const bool tryRead = entry.polledReady || anyEnded;
            if ((entry.wakeup && entry.polledReady) ||
                (entry.event && consumeEvent(*entry.event, tryRead, !anyEnded))) {
                return WAIT_OBJECT_0 + i;
            }
        }
        for (DWORD i = 0; i < m_Count; ++i) {
            if (m_Entries[i].ended) {
                return WAIT_OBJECT_0 + i;
            }
        }
        return WAIT_TIMEOUT;
    }

    // Whether the event was signalled. With `tryRead`, its pending read or write is tried before.
    static bool consumeEvent(Event& event, bool tryRead, bool completeAtEnd)
    {
        if (tryRead) {
            if (const std::shared_ptr<PipeEnd> source = event.source()) {
                if (source->side() == Side::server) {
                    source->pipe()->completeWrite();
                } else {
                    source->pipe()->complete(completeAtEnd);
                }
            }
        }
        return event.consume();
    }

    Entry m_Entries[MAXIMUM_WAIT_OBJECTS];
    DWORD m_Count = 0;
};

// Whether bytes are left in the block of the child's output. The child wrote them before it ended,
// so for the reader it has not ended yet.
bool outputUnread(HANDLE process)
{
    const FastSlot& fast = fastSlot(process);
    const ReadAhead* ahead = fast.output.load(std::memory_order_acquire);
    return ahead != nullptr && fast.owner.load(std::memory_order_relaxed) == process &&
           ahead->writer.load(std::memory_order_relaxed) ==
               fast.writer.load(std::memory_order_relaxed) &&
           !ahead->empty();
}

// Not inlined: the address of the handle would keep it out of a register for every line of output.
[[gnu::noinline]] DWORD waitForOne(HANDLE handle, DWORD milliseconds)
{
    return WaitForMultipleObjectsEx(1, &handle, false, milliseconds, false);
}

} // namespace

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds)
{
    if (milliseconds == 0 && outputUnread(handle)) {
        return WAIT_TIMEOUT;
    }
    return waitForOne(handle, milliseconds);
}

DWORD WaitForMultipleObjectsEx(DWORD count, const HANDLE* handles, BOOL waitAll, DWORD milliseconds,
                               BOOL alertable)
{
    if (count == 0 || count > MAXIMUM_WAIT_OBJECTS || handles == nullptr) {
        fail(EINVAL);
        return WAIT_FAILED;
    }
    if (alertable || (waitAll && count > 1)) {
        fail(ENOTSUP);
        return WAIT_FAILED;
    }
    Waiter waiter;
    for (DWORD i = 0; i < count; ++i) {
        if (!waiter.add(handles[i])) {
            return WAIT_FAILED;
        }
    }
    reapOrphans();
    return waiter.wait(Deadline(milliseconds));
}

} // namespace tarnix_platform
