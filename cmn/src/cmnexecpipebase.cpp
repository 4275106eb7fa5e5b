// SPDX-License-Identifier: LicenseRef-Tarnix
// The main loop of a run: start, read lines, close.
#include "cmnexecpipebase.h"

#include "cmnwipe.h"

#include <cstdint>
#include <cstring>
#include <new>
#include <utility>

namespace tarnix_cmn_4_4
{

namespace
{

constexpr int kLineBufferSize = 8192;
constexpr long kCloseSeconds = 10;

// Makes room for the next lines. A vector that doubles its room moves each line about once, into
// new pages; this one moves a third of them. Room that stays unused takes addresses, but no memory.
// Not inlined: it would take registers from the loop over the lines.
[[gnu::noinline]] void makeRoom(std::vector<std::string>& lines)
{
    constexpr std::size_t factor = 4;
    try {
        lines.reserve(factor * lines.size());
    } catch (const std::bad_alloc&) {
        // The vector itself will try to get by with less.
    }
}

// The texts of the next lines will usually follow in memory. They are fetched into the cache early:
// as long as a text waits to be stored, so does the next line in the buffer, and strlen with it.
void append(std::vector<std::string>& lines, const char* line)
{
    constexpr std::uintptr_t distance = 1024; // of about twenty lines
    if (lines.size() == lines.capacity()) {
        makeRoom(lines);
    }
    const std::string& added = lines.emplace_back(line, std::strlen(line));
    const std::uintptr_t text = reinterpret_cast<std::uintptr_t>(added.data());
    __builtin_prefetch(reinterpret_cast<const void*>(text + distance), 1);
}

} // namespace

CCmnExecPipeBase::CCmnExecPipeBase() : m_AbortRequested(0) {}

CCmnExecPipeBase::CCmnExecPipeBase(std::vector<std::string> extraList)
    : m_AbortRequested(0), m_ExtraList(std::move(extraList))
{
}

CCmnExecPipeBase::CCmnExecPipeBase(const CCmnExecPipeBase& other)
    : CCmnTraceable(other),
      m_AbortRequested(other.m_AbortRequested.load()),
      m_ExtraList(other.m_ExtraList),
      m_ContextFunctions(other.m_ContextFunctions),
      m_LastError(other.m_LastError),
      m_User(other.m_User),
      m_Extra(other.m_Extra)
{
    m_Password = other.m_Password; // last: if a later copy threw, nothing would wipe it
}

CCmnExecPipeBase& CCmnExecPipeBase::operator=(const CCmnExecPipeBase& other)
{
    if (this != &other) {
        CCmnTraceable::operator=(other);
        m_AbortRequested = other.m_AbortRequested.load();
        m_ExtraList = other.m_ExtraList;
        m_ContextFunctions = other.m_ContextFunctions;
        m_LastError = other.m_LastError;
        m_User = other.m_User;
        wipe(m_Password);
        m_Password = other.m_Password;
        m_Extra = other.m_Extra;
    }
    return *this;
}

CCmnExecPipeBase::~CCmnExecPipeBase()
{
    wipe(m_Password);
}

int CCmnExecPipeBase::IsAbortRequested()
{
    return m_AbortRequested.load(std::memory_order_relaxed);
}

int CCmnExecPipeBase::IsChildContext()
{
    return 0;
}

int CCmnExecPipeBase::ExecCommandInChildContext(std::string /*command*/,
                                                std::vector<std::string>& /*output*/)
{
    return 0;
}

int CCmnExecPipeBase::Exec(std::string command, std::vector<std::string>& output, std::string extra,
                           unsigned long seconds, std::string workingDirectory, std::string user,
                           std::string password)
{
    const WipeAtEnd wiped(password);
    std::vector<char> buffer(kLineBufferSize);
    m_User = user;
    wipe(m_Password);
    m_Password = password;
    m_Extra = extra;
    if (IsChildContext() != 0) {
        return ExecCommandInChildContext(command, output);
    }
    const int started = ExecPipe(command, workingDirectory);
    if (started != 0) {
        return started;
    }
    output.clear();
    if (!ReadLines(buffer.data(), output, static_cast<long>(seconds))) {
        // The child is not stopped here, but by Close, which the destructor calls.
        m_LastError = ECmnExecPipe(command, ECmnExecPipe::READ_TIMEOUT);
        return ECmnExecPipe::READ_TIMEOUT;
    }
    return Close(kCloseSeconds);
}

// Appends the lines up to the end of the output, or up to an abort. False after a timeout.
bool CCmnExecPipeBase::ReadLines(char* buffer, std::vector<std::string>& output, long seconds)
{
    int timedOut{};
    for (;;) {
        buffer[0] = '\0';
        if (IsAbortRequested() != 0) {
            return true;
        }
        const int more = ReadLine(buffer, kLineBufferSize - 1, &timedOut, seconds);
        if (timedOut == 1) {
            return false;
        }
        if (more == 1) {
            append(output, buffer);
        } else if (more == 0) {
            return true;
        }
    }
}

void CCmnExecPipeBase::Abort()
{
    m_AbortRequested.store(1, std::memory_order_relaxed);
}

void CCmnExecPipeBase::Init() {}

ECmnExecPipe CCmnExecPipeBase::getLastError()
{
    return m_LastError;
}

void CCmnExecPipeBase::registerContextFunctions(ContextCall /*call*/, ContextText /*text*/,
                                                ContextFree /*release*/)
{
}

} // namespace tarnix_cmn_4_4
