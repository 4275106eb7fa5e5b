// SPDX-License-Identifier: LicenseRef-Tarnix
// The kernel's pipe, its read-ahead block, the pending read and write, and the event that they
// signal.
#ifndef TARNIX_PLATFORM_PIPE_H
#define TARNIX_PLATFORM_PIPE_H

#include "handles.h"
#include "uniquefd.h"

#include <mutex>
#include <optional>
#include <string>

namespace tarnix_platform
{

class PipeEnd;

// Auto-reset. Only the end of a pending read or write signals it.
class Event : public Object
{
public:
    void signal();
    bool consume();
    // A read or write on this end will signal the event. Clears the signal of an earlier one.
    void attach(const std::shared_ptr<PipeEnd>& end);
    // A shared pointer, so that the descriptor stays open while somebody waits for its end.
    std::shared_ptr<PipeEnd> source() const;

private:
    mutable std::mutex m_Mutex;
    std::weak_ptr<PipeEnd> m_Source;
    bool m_Signalled{};
};

// What a try to read has found.
enum class ReadState {
    data,
    empty, // no byte yet
    endOfFile,
    failed,
};

class Pipe
{
public:
    explicit Pipe(std::string name) : m_Name(std::move(name)) {}
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    bool create();
    const std::string& name() const { return m_Name; }
    int readFd() const { return m_ReadFd.get(); }
    int writeFd() const { return m_WriteFd.get(); }
    ReadAhead* ahead() const { return m_Ahead.get(); }

    // Guarded by the lock of the pipe names.
    bool connected() const { return m_Connected; }
    void connect() { m_Connected = true; }

    void closeServer();
    void closeClient();

    // Sets the child that writes to the pipe. Its handle gets a link to the block, so that waits
    // see whether bytes are unread.
    void setWriter(HANDLE process);

    // The child that writes to the pipe has ended: the bytes that are in the pipe now are the rest
    // of its output. A grandchild may hold the pipe open and write more.
    void markEndOfOutput();

    BOOL read(const std::shared_ptr<PipeEnd>& self, void* buffer, DWORD size, DWORD* count,
              OVERLAPPED* overlapped);
    void cancel();

    // Tries the pending read, and completes it unless there is no byte yet. With `completeAtEnd`
    // false it stays pending at end of file too. Returns whether none is pending any more.
    bool complete(bool completeAtEnd);
    bool pending() const;

    // Stores the result of the pending read of this state.
    void outcome(OVERLAPPED& state) const;

    // The same for writes.
    BOOL write(const std::shared_ptr<PipeEnd>& self, const void* buffer, DWORD size, DWORD* count,
               OVERLAPPED* overlapped);
    void cancelWrite();
    void completeWrite();
    bool writePending() const;
    void writeOutcome(OVERLAPPED& state) const;

private:
    struct PendingRead {
        void* buffer;
        DWORD size;
        std::shared_ptr<Event> event;
    };

    struct PendingWrite {
        const char* bytes;
        DWORD size;
        DWORD written;
        std::shared_ptr<Event> event;
    };

    // The result of the last pending read or write.
    struct Outcome {
        ULONG_PTR number;
        ULONG_PTR status;
        DWORD count;
    };

    struct GiveAhead {
        void operator()(ReadAhead* block) const;
    };

    ReadState fill();
    DWORD takeBytes(void* buffer, DWORD size);
    void finish(ULONG_PTR status, DWORD count = 0);
    static void store(const Outcome& outcome, OVERLAPPED& state);
    int writeMore();
    void finishWrite(int error);

    const std::string m_Name;
    mutable std::mutex m_Mutex;
    UniqueFd m_ReadFd;
    UniqueFd m_WriteFd;
    std::unique_ptr<ReadAhead, GiveAhead> m_Ahead; // until the client end is closed
    PendingRead m_Pending{};                       // buffer null: no read is pending
    Outcome m_Outcome{};
    PendingWrite m_Write{}; // bytes null: no write is pending
    Outcome m_WriteOutcome{};
    std::optional<std::size_t> m_BytesLeft; // set if the output has ended: the rest of it
    bool m_NonBlocking = false;
    bool m_Connected = false;
};

// Fails with the error. If a read of this state is pending, it stays so.
bool refuseRead(OVERLAPPED& state, int error);

} // namespace tarnix_platform

#endif
