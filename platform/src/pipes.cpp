// Named pipes, overlapped reads and the events that they signal.
#include "pipes.h"

#include "waits.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <map>
#include <vector>

namespace tarnix_platform
{

namespace
{

// Blocks of read-ahead that no pipe uses at the moment.
class AheadPool
{
public:
    ReadAhead* take()
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        if (m_Free.empty()) {
            if (m_Free.capacity() <= m_All.size()) { // give must not allocate, nor a block be lost
                m_Free.reserve(2 * m_All.size() + 1);
            }
            m_All.push_back(std::make_unique<ReadAhead>());
            return m_All.back().get();
        }
        ReadAhead* block = m_Free.back();
        m_Free.pop_back();
        return block;
    }

    void give(ReadAhead* block)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        block->renewLease();
        block->writer.store(nullptr, std::memory_order_relaxed);
        block->end.store(0, std::memory_order_relaxed);
        block->at.store(0, std::memory_order_relaxed);
        m_Free.push_back(block);
    }

private:
    std::mutex m_Mutex;
    std::vector<std::unique_ptr<ReadAhead>> m_All;
    std::vector<ReadAhead*> m_Free;
};

AheadPool& pool()
{
    static AheadPool& instance = *std::make_unique<AheadPool>().release();
    return instance;
}

// The open server ends of each name.
class PipeNames
{
public:
    bool add(const std::shared_ptr<Pipe>& pipe, DWORD maxInstances)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        const auto found = m_Names.find(pipe->name());
        if ((found == m_Names.end() ? 0 : found->second.size()) >= maxInstances) {
            return fail(EBUSY, pipe->name());
        }
        m_Names[pipe->name()].push_back(pipe);
        return true;
    }

    void remove(const Pipe& pipe)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        const auto found = m_Names.find(pipe.name());
        if (found == m_Names.end()) {
            return;
        }
        auto& instances = found->second;
        instances.erase(std::remove_if(instances.begin(), instances.end(),
                                       [&pipe](const std::weak_ptr<Pipe>& entry) {
                                           const auto other = entry.lock();
                                           return !other || other.get() == &pipe;
                                       }),
                        instances.end());
        if (instances.empty()) {
            m_Names.erase(found);
        }
    }

    std::shared_ptr<Pipe> connect(const std::string& name)
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        const auto found = m_Names.find(name);
        if (found == m_Names.end()) {
            fail(ENOENT, name);
            return nullptr;
        }
        for (const std::weak_ptr<Pipe>& entry : found->second) {
            std::shared_ptr<Pipe> pipe = entry.lock();
            if (pipe && !pipe->connected()) {
                pipe->connect();
                return pipe;
            }
        }
        fail(EBUSY, name);
        return nullptr;
    }

private:
    std::mutex m_Mutex;
    std::map<std::string, std::vector<std::weak_ptr<Pipe>>> m_Names;
};

PipeNames& names()
{
    static PipeNames& instance = *std::make_unique<PipeNames>().release();
    return instance;
}

// Number of the last read that pended, of all pipes: a state may come from another one.
std::atomic<ULONG_PTR> g_lastRead{0};

// A refused read leaves the state of one that pends as it is.
bool refuse(OVERLAPPED& state, int error)
{
    state.Internal = state.Pending != 0 ? ERROR_IO_PENDING : static_cast<ULONG_PTR>(error);
    return fail(error);
}

} // namespace

// ---- Event -------------------------------------------------------------------------------------

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

// ---- Pipe --------------------------------------------------------------------------------------

Pipe::~Pipe()
{
    closeClient();
}

bool Pipe::create()
{
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        return fail(errno);
    }
    m_ReadFd.reset(fds[0]);
    m_WriteFd.reset(fds[1]);
    if (!moveAboveStandard(m_ReadFd) || !moveAboveStandard(m_WriteFd)) {
        return false;
    }
    m_Ahead = pool().take();
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
        pool().give(std::exchange(m_Ahead, nullptr));
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

void Pipe::seal()
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    int waiting = 0;
    if (m_Sealed || !m_ReadFd || ::ioctl(m_ReadFd.get(), FIONREAD, &waiting) != 0) {
        return;
    }
    m_Sealed = true;
    m_Left = static_cast<std::size_t>(std::max(waiting, 0));
}

// Brings bytes into the read-ahead, which is empty.
ReadState Pipe::fill(int& error)
{
    if (m_Sealed && m_Left == 0) {
        return ReadState::over;
    }
    if (!m_NonBlocking) {
        // Only an end that is read here: one that a child gets as its input must block.
        const int flags = ::fcntl(m_ReadFd.get(), F_GETFL);
        if (flags < 0 || ::fcntl(m_ReadFd.get(), F_SETFL, flags | O_NONBLOCK) != 0) {
            error = errno;
            return ReadState::failed;
        }
        m_NonBlocking = true;
    }
    const std::size_t wanted =
        m_Sealed ? std::min(m_Left, ReadAhead::kCapacity) : ReadAhead::kCapacity;
    ssize_t got = 0;
    do {
        got = ::read(m_ReadFd.get(), m_Ahead->bytes, wanted);
    } while (got < 0 && errno == EINTR);
    if (got < 0) {
        error = errno;
        return error == EAGAIN ? ReadState::empty : ReadState::failed;
    }
    if (got == 0) {
        return ReadState::over;
    }
    if (m_Sealed) {
        m_Left -= static_cast<std::size_t>(got);
    }
    m_Ahead->at.store(0, std::memory_order_relaxed);
    m_Ahead->end.store(static_cast<std::uint32_t>(got), std::memory_order_relaxed);
    return ReadState::data;
}

DWORD Pipe::take(void* buffer, DWORD size)
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
        return refuse(*overlapped, EBUSY);
    }
    overlapped->Pending = 0;
    int error = 0;
    switch (m_Ahead->empty() ? fill(error) : ReadState::data) {
    case ReadState::data:
        *count = take(buffer, size);
        overlapped->Internal = 0;
        overlapped->InternalHigh = *count;
        return true;
    case ReadState::over:
        overlapped->Internal = ERROR_BROKEN_PIPE;
        return fail(ERROR_BROKEN_PIPE);
    case ReadState::failed:
        overlapped->Internal = static_cast<ULONG_PTR>(error);
        return fail(error);
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

ReadState Pipe::complete(bool alsoOver)
{
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_Pending.buffer == nullptr) {
        return ReadState::data;
    }
    int error = 0;
    const ReadState state = m_Ahead->empty() ? fill(error) : ReadState::data;
    if (state == ReadState::data) {
        finish(0, take(m_Pending.buffer, m_Pending.size));
    } else if (state == ReadState::over && alsoOver) {
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

// ---- PipeEnd -----------------------------------------------------------------------------------

PipeEnd::~PipeEnd()
{
    if (m_Side == Side::server) {
        names().remove(*m_Pipe);
        m_Pipe->closeServer();
    } else {
        m_Pipe->closeClient();
    }
}

HANDLE CreateEventA(SECURITY_ATTRIBUTES* /*attributes*/, BOOL manualReset, BOOL initialState,
                    const char* /*name*/)
{
    if (manualReset || initialState) {
        fail(ENOTSUP);
        return nullptr;
    }
    return openHandle(std::make_shared<Event>());
}

HANDLE CreateNamedPipeA(const char* name, DWORD openMode, DWORD /*pipeMode*/, DWORD maxInstances,
                        DWORD /*outSize*/, DWORD /*inSize*/, DWORD /*defaultTimeout*/,
                        SECURITY_ATTRIBUTES* /*attributes*/)
{
    static constexpr char prefix[] = R"(\\.\pipe\)";
    if (name == nullptr || std::strncmp(name, prefix, sizeof prefix - 1) != 0 ||
        (openMode & PIPE_ACCESS_DUPLEX) == 0) {
        fail(EINVAL);
        return INVALID_HANDLE_VALUE;
    }
    const auto pipe = std::make_shared<Pipe>(name);
    // The end comes before the name, which it gives up again however this goes on.
    const auto end = std::make_shared<PipeEnd>(pipe, Side::server);
    if (!pipe->create() || !names().add(pipe, maxInstances)) {
        return INVALID_HANDLE_VALUE;
    }
    const HANDLE handle = openHandle(end);
    return handle == nullptr ? INVALID_HANDLE_VALUE : handle;
}

HANDLE CreateFileA(const char* name, DWORD access, DWORD /*share*/,
                   SECURITY_ATTRIBUTES* /*attributes*/, DWORD disposition, DWORD /*flags*/,
                   HANDLE /*templateFile*/)
{
    if (name == nullptr || access != GENERIC_READ || disposition != OPEN_EXISTING) {
        fail(EINVAL);
        return INVALID_HANDLE_VALUE;
    }
    std::shared_ptr<Pipe> pipe = names().connect(name);
    if (!pipe) {
        return INVALID_HANDLE_VALUE;
    }
    const HANDLE handle = openHandle(std::make_shared<PipeEnd>(std::move(pipe), Side::client));
    return handle == nullptr ? INVALID_HANDLE_VALUE : handle;
}

BOOL readFile(HANDLE file, void* buffer, DWORD size, DWORD* count, OVERLAPPED* overlapped)
{
    if (overlapped == nullptr) {
        return fail(EINVAL);
    }
    if (buffer == nullptr || size == 0 || count == nullptr) {
        return refuse(*overlapped, EINVAL);
    }
    const std::shared_ptr<PipeEnd> end = find<PipeEnd>(file);
    if (!end || end->side() != Side::client) {
        return refuse(*overlapped, EBADF);
    }
    const BOOL result = end->pipe()->read(end, buffer, size, count, overlapped);
    setAhead(file, end->pipe()->ahead());
    return result;
}

BOOL overlappedResult(HANDLE file, OVERLAPPED* overlapped, DWORD* count, BOOL wait)
{
    if (overlapped->Internal == ERROR_IO_PENDING) {
        const std::shared_ptr<PipeEnd> end = find<PipeEnd>(file);
        if (!end) {
            overlapped->Internal = ECANCELED; // by the closing
            overlapped->Pending = 0;
            return fail(ECANCELED);
        }
        if (!awaitRead(*end->pipe(), wait != 0)) {
            return fail(ERROR_IO_PENDING);
        }
        end->pipe()->outcome(*overlapped);
    }
    *count = static_cast<DWORD>(overlapped->InternalHigh);
    return overlapped->Internal == 0 ? true : fail(static_cast<DWORD>(overlapped->Internal));
}

BOOL CancelIo(HANDLE file)
{
    const std::shared_ptr<PipeEnd> end = find<PipeEnd>(file);
    if (!end) {
        return false;
    }
    end->pipe()->cancel();
    return true;
}

} // namespace tarnix_platform
