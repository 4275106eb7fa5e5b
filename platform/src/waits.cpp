// The operations that wait, for processes and for the reads that events stand for.
#include "pipeend.h"
#include "polling.h"
#include "process.h"
#include "reaping.h"

#include <poll.h>

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
        ++m_Count;
        return entry.process || entry.event ? true : fail(EBADF);
    }

    DWORD wait(const Deadline& deadline)
    {
        DWORD index = look(); // an event may be signalled already
        if (index != WAIT_TIMEOUT) {
            return index;
        }
        for (;;) {
            const bool timeLeft = pollAll(deadline);
            index = look();
            if (index != WAIT_TIMEOUT || !timeLeft) {
                return index;
            }
        }
    }

private:
    struct Entry {
        std::shared_ptr<Process> process;
        std::shared_ptr<Event> event;
        std::shared_ptr<PipeEnd> source; // of the read that the event waits for
        bool ready = false;
        bool heldBack = false; // ended, but whoever traces the process has not let it go
    };

    // Marks what has something to look at. False when the time is up. Being interrupted counts as
    // time left: the caller looks and polls again.
    bool pollAll(const Deadline& deadline)
    {
        constexpr int rest = 10; // between two looks at a process that is held back
        pollfd fds[MAXIMUM_WAIT_OBJECTS];
        int left = deadline.left();
        for (DWORD i = 0; i < m_Count; ++i) {
            const bool heldBack = m_Entries[i].heldBack; // its descriptor would always be ready
            fds[i] = pollfd{heldBack ? -1 : descriptorBehind(m_Entries[i]), POLLIN, 0};
            left = heldBack && (left < 0 || left > rest) ? rest : left;
        }
        const int count = ::poll(fds, static_cast<nfds_t>(m_Count), left);
        for (DWORD i = 0; i < m_Count; ++i) {
            m_Entries[i].ready = m_Entries[i].heldBack || (count > 0 && fds[i].revents != 0);
        }
        return !deadline.passed();
    }

    static int descriptorBehind(Entry& entry)
    {
        if (entry.process) {
            return entry.process->pidfd();
        }
        entry.source = entry.event->source();
        return entry.source && entry.source->pipe()->pending() ? entry.source->fd() : -1;
    }

    // What has happened, in its order: the ends of children are taken note of first, which marks
    // the end of their output; a read that still gets a byte came before them; a read that finds
    // nothing any more comes after them.
    DWORD look()
    {
        bool anyEnded = false;
        for (DWORD i = 0; i < m_Count; ++i) {
            Entry& entry = m_Entries[i];
            if (entry.process && entry.ready) {
                entry.ready = entry.process->ended();
                entry.heldBack = !entry.ready;
            }
            anyEnded = anyEnded || (entry.process && entry.ready);
        }
        for (DWORD i = 0; i < m_Count; ++i) {
            const Entry& entry = m_Entries[i];
            if (entry.event && readEnded(*entry.event, entry.ready || anyEnded, !anyEnded)) {
                return WAIT_OBJECT_0 + i;
            }
        }
        for (DWORD i = 0; i < m_Count; ++i) {
            if (m_Entries[i].process && m_Entries[i].ready) {
                return WAIT_OBJECT_0 + i;
            }
        }
        return WAIT_TIMEOUT;
    }

    static bool readEnded(Event& event, bool worthTrying, bool alsoEnd)
    {
        if (worthTrying) {
            if (const std::shared_ptr<PipeEnd> source = event.source()) {
                source->pipe()->complete(alsoEnd);
            }
        }
        return event.consume();
    }

    Entry m_Entries[MAXIMUM_WAIT_OBJECTS];
    DWORD m_Count = 0;
};

// What stands in the read-ahead was written before the child's end, which has not come yet for
// whoever reads it.
bool outputUnread(HANDLE process)
{
    const FastSlot& fast = fastSlot(process);
    const ReadAhead* ahead = fast.output.load(std::memory_order_acquire);
    return ahead != nullptr && fast.owner.load(std::memory_order_relaxed) == process &&
           ahead->writer.load(std::memory_order_relaxed) ==
               fast.writer.load(std::memory_order_relaxed) &&
           !ahead->empty();
}

} // namespace

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds)
{
    if (milliseconds == 0 && outputUnread(handle)) {
        return WAIT_TIMEOUT;
    }
    return WaitForMultipleObjectsEx(1, &handle, false, milliseconds, false);
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
