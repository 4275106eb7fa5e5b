// The kernel's pipe, what was read ahead of it, the pending read, and the event that it signals.
#ifndef TARNIX_PLATFORM_PIPE_H
#define TARNIX_PLATFORM_PIPE_H

#include "handles.h"
#include "uniquefd.h"

#include <mutex>
#include <string>

namespace tarnix_platform
{

class PipeEnd;

// Auto-reset. Only a pending read signals it.
class Event : public Object
{
public:
    void signal();
    bool consume();
    // A read on this end will signal the event. Clears what an earlier read left.
    void attach(const std::shared_ptr<PipeEnd>& end);
    // Whoever waits for the read holds the end meanwhile, and with it the descriptor.
    std::shared_ptr<PipeEnd> source() const;

private:
    mutable std::mutex m_Mutex;
    std::weak_ptr<PipeEnd> m_Source;
    bool m_Signalled = false;
};

enum class ReadState { data, empty, ended, failed };

class Pipe
{
public:
    explicit Pipe(std::string name) : m_Name(std::move(name)) {}
    ~Pipe();
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    bool create();
    const std::string& name() const { return m_Name; }
    int readFd() const { return m_ReadFd.get(); }
    int writeFd() const { return m_WriteFd.get(); }
    ReadAhead* ahead() const { return m_Ahead; }

    // Under the lock of the pipe names.
    bool connected() const { return m_Connected; }
    void connect() { m_Connected = true; }

    void closeServer();
    void closeClient();

    // The child that writes here, and where its handle finds out what is unread.
    void setWriter(HANDLE process);

    // The child that writes here has ended: what stands in the pipe now is the rest of its output.
    void markEndOfOutput();

    BOOL read(const std::shared_ptr<PipeEnd>& self, void* buffer, DWORD size, DWORD* count,
              OVERLAPPED* overlapped);
    void cancel();

    // Ends the pending read if it can be ended now. `data`: a byte came, or no read is pending any
    // more. With `alsoEnd` false a pipe at its end leaves the read pending.
    ReadState complete(bool alsoEnd);
    bool pending() const;

    // How the pending read of this state ended.
    void outcome(OVERLAPPED& state) const;

private:
    struct PendingRead {
        void* buffer = nullptr;
        DWORD size = 0;
        std::shared_ptr<Event> event;
    };

    // Of the last pending read.
    struct Outcome {
        ULONG_PTR number = 0;
        ULONG_PTR status = 0;
        DWORD count = 0;
    };

    ReadState fill(int& error);
    DWORD take(void* buffer, DWORD size);
    void finish(ULONG_PTR status, DWORD count);

    const std::string m_Name;
    mutable std::mutex m_Mutex;
    UniqueFd m_ReadFd;
    UniqueFd m_WriteFd;
    ReadAhead* m_Ahead = nullptr;
    PendingRead m_Pending; // none without a buffer
    Outcome m_Outcome;
    std::size_t m_Left = 0; // bytes that may still be read once the output has ended
    bool m_OutputEnded = false;
    bool m_NonBlocking = false;
    bool m_Connected = false;
};

// Fails with the error. A refused read leaves the state of one that pends as it is.
bool refuseRead(OVERLAPPED& state, int error);

} // namespace tarnix_platform

#endif
