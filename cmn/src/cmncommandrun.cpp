// SPDX-License-Identifier: LicenseRef-Tarnix
// One run of a command: its output, its stop and its outcome. cmncommandstart.cpp has its start.
#include "cmncommandrun.h"

#include "cmnstringtool.h"
#include "cmnsystemerror.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <iterator>
#include <limits>
#include <utility>

namespace tarnix_cmn_4_4
{

namespace
{

using Stream = CCmnCommand::Stream;
using End = SCmnCommandOutcome::End;

constexpr int kKillSignal = 9;
constexpr std::chrono::milliseconds kKillTimeout{2000}; // a child may be blocked in the kernel
constexpr std::chrono::milliseconds kShortestPatience{1};

constexpr Stream kStreams[] = {Stream::output, Stream::error};

std::chrono::nanoseconds durationOf(const FILETIME& ticks)
{
    const auto count =
        (static_cast<std::uint64_t>(ticks.dwHighDateTime) << 32) | ticks.dwLowDateTime;
    constexpr int nanosecondsOfTick = 100;
    return std::chrono::nanoseconds(static_cast<std::int64_t>(count) * nanosecondsOfTick);
}

// 0 is no limit.
std::chrono::steady_clock::time_point after(std::chrono::steady_clock::time_point start,
                                            CCmnCommand::Duration limit)
{
    using Point = std::chrono::steady_clock::time_point;
    // In the unit of the limit: in that of the clock, a long one would overflow.
    const auto longest = std::chrono::duration_cast<CCmnCommand::Duration>(Point::max() - start);
    return limit.count() == 0 ? Point::max()
                              : start + std::clamp(limit, CCmnCommand::Duration::zero(), longest);
}

bool hasPassed(std::chrono::steady_clock::time_point deadline)
{
    return std::chrono::steady_clock::now() >= deadline;
}

} // namespace

CommandRun::CommandRun(const CommandSettings& settings, const StopRequest& stop,
                       const CommandLog& log)
    : m_Settings(settings), m_Stop(stop), m_Log(log)
{
}

CommandRun::~CommandRun()
{
    if (m_Process && !m_IsConcluded) { // an exception ends the run, or it was abandoned
        tarnix_platform::killGroupAtEnd(m_Process.get());
        TerminateProcess(m_Process.get(), ERROR_PROCESS_ABORTED); // fails if it has ended
    }
}

SCmnCommandOutcome CommandRun::run()
{
    if (start()) {
        while (m_Phase != Phase::lost && (!m_ChildEnded || anyReaderOpen())) {
            goOn();
        }
        conclude();
    }
    m_Outcome.elapsed = Clock::now() - m_Start;
    return std::move(m_Outcome);
}

// ---- Output and input --------------------------------------------------------------------------

// Takes what can be had without waiting, and waits. If that was something, the wait takes no time.
// It must not be left out: nothing else notices the end of the child, which a process of its group
// that goes on printing would hide, or lets the other streams go on.
void CommandRun::goOn()
{
    bool isBusy = false;
    for (const Stream stream : kStreams) {
        isBusy = readSome(stream) || isBusy;
    }
    writeSome();
    const auto goesOn = [this] { return !m_ChildEnded && m_Phase != Phase::lost; };
    if (goesOn()) {
        wait(isBusy ? 0 : untilDeadline());
    }
    if (goesOn()) {
        checkTime();
    }
}

CommandRun::Reader& CommandRun::readerOf(Stream stream)
{
    return stream == Stream::output ? m_OutputReader : m_ErrorReader;
}

bool CommandRun::anyReaderOpen() const
{
    return m_OutputReader.end || m_ErrorReader.end;
}

// True if there were bytes.
bool CommandRun::readSome(Stream stream)
{
    Reader& reader = readerOf(stream);
    if (!reader.end || reader.isPending) {
        return false;
    }
    DWORD got;
    if (ReadFile(reader.end.get(), reader.buffer.get(), kPieceSize, &got, &reader.state)) {
        take(stream, got);
        return true;
    }
    readStopped(stream);
    return false;
}

void CommandRun::take(Stream stream, DWORD size)
{
    const Reason reason =
        m_Output.take(stream, std::string_view(readerOf(stream).buffer.get(), size));
    m_LastOutput = Clock::now(); // without the time of the callback, which is not silence
    if (reason == Reason::outputLimit) {
        for (const Stream each : kStreams) {
            m_Output.finish(each); // up to the limit; it is stopped in any case
        }
    }
    if (reason != Reason::none) {
        beginStop(reason);
        closeReaders(); // so that a command that goes on printing ends
    }
}

// After a read without a byte. Once the child has ended, the rest of its output is there: nothing
// more is awaited.
void CommandRun::readStopped(Stream stream)
{
    const DWORD error = GetLastError();
    if (error == ERROR_IO_PENDING && !m_ChildEnded) {
        readerOf(stream).isPending = true;
    } else if (error == ERROR_IO_PENDING || error == ERROR_BROKEN_PIPE) {
        closeReader(stream);
    } else {
        abandon();
    }
}

// The system refuses what the run needs. The destructor kills the child.
void CommandRun::abandon()
{
    refuseBySystem();
    m_Phase = Phase::lost;
}

void CommandRun::closeReader(Stream stream)
{
    readerOf(stream).close();
    const Reason reason = m_Output.finish(stream);
    if (reason != Reason::none) {
        beginStop(reason);
    }
}

void CommandRun::closeReaders()
{
    m_OutputReader.close();
    m_ErrorReader.close();
}

// Writes as much of the input as there is room for. The end is closed after the last byte, and if
// the command does not read any more, which is not a failure.
void CommandRun::writeSome()
{
    Writer& writer = m_Writer;
    while (writer.end && writer.piece == 0) {
        if (writer.left.empty()) {
            writer.end.reset();
            return;
        }
        const auto piece = static_cast<DWORD>(
            std::min<std::size_t>(writer.left.size(), std::numeric_limits<DWORD>::max()));
        DWORD got;
        if (WriteFile(writer.end.get(), writer.left.data(), piece, &got, &writer.state)) {
            writer.left.remove_prefix(piece);
        } else {
            writer.piece = piece;
            writeStopped();
        }
    }
}

// The read that was pending has ended; or the child has, and then there is nothing to wait for.
void CommandRun::finishRead(Stream stream)
{
    Reader& reader = readerOf(stream);
    DWORD got;
    if (GetOverlappedResult(reader.end.get(), &reader.state, &got, false)) {
        reader.isPending = false;
        take(stream, got);
    } else {
        readStopped(stream);
    }
}

void CommandRun::finishWrite()
{
    DWORD got;
    if (GetOverlappedResult(m_Writer.end.get(), &m_Writer.state, &got, false)) {
        m_Writer.left.remove_prefix(m_Writer.piece);
        m_Writer.piece = 0;
    } else {
        writeStopped();
    }
}

// After a write that has not ended well. It may be pending, which it stays.
void CommandRun::writeStopped()
{
    const DWORD error = GetLastError();
    if (error == ERROR_BROKEN_PIPE) {
        m_Writer.piece = 0;
        m_Writer.end.reset();
    } else if (error != ERROR_IO_PENDING) {
        abandon();
    }
}

void CommandRun::childEnded()
{
    m_ChildEnded = true;
    m_Writer.end.reset();
    for (const Stream stream : kStreams) {
        if (readerOf(stream).isPending) {
            finishRead(stream);
        }
    }
}

void CommandRun::wait(DWORD milliseconds)
{
    HANDLE awaited[5];
    std::function<void()> actions[std::size(awaited)];
    DWORD count = 0;
    const auto add = [&](const OwnedHandle& handle, std::function<void()> action) {
        awaited[count] = handle.get();
        actions[count++] = std::move(action);
    };
    // A request stays: once it has taken effect, its event would end every wait at once.
    if (m_Phase == Phase::running) {
        add(m_Stop.stop.event(), [this] { beginStop(Reason::caller); });
    } else if (m_Phase == Phase::stopping) {
        add(m_Stop.kill.event(), [this] { kill(); });
    }
    for (const Stream stream : kStreams) {
        if (readerOf(stream).isPending) {
            add(readerOf(stream).event, [this, stream] { finishRead(stream); });
        }
    }
    if (m_Writer.piece != 0) {
        add(m_Writer.event, [this] { finishWrite(); });
    }
    add(m_Process, [this] { childEnded(); });
    const DWORD woken = WaitForMultipleObjectsEx(count, awaited, false, milliseconds, false);
    if (woken < count) {
        actions[woken]();
    } else if (woken == WAIT_FAILED) {
        abandon();
    }
}

// ---- Time and stop -----------------------------------------------------------------------------

void CommandRun::checkTime()
{
    checkStop();
    if (m_Phase == Phase::running && hasPassed(silenceLimit())) {
        beginStop(Reason::silence);
    }
}

void CommandRun::checkStop()
{
    if (m_Phase == Phase::running && m_Stop.stop.isSet()) {
        beginStop(Reason::caller);
    }
    if (m_Phase == Phase::stopping && m_Stop.kill.isSet()) {
        kill();
    }
    if (m_Phase != Phase::running) {
        if (hasPassed(m_StageEnd)) {
            nextStage();
        }
    } else if (hasPassed(timeLimit())) {
        beginStop(Reason::timeLimit);
    }
}

// Between two calls of a callback: a stop does not wait until the rest of a piece is passed on.
bool CommandRun::wantsMore()
{
    const bool hasStop = m_Stop.stop.isSet() || m_Phase != Phase::running;
    if (!m_ChildEnded && (hasStop || m_Settings.timeLimit.count() != 0)) {
        checkStop();
    }
    return !m_Stop.kill.isSet();
}

CommandRun::Clock::time_point CommandRun::timeLimit() const
{
    return after(m_Start, m_Settings.timeLimit);
}

// A command that has closed its output is not silent: it can print nothing.
CommandRun::Clock::time_point CommandRun::silenceLimit() const
{
    return anyReaderOpen() ? after(m_LastOutput, m_Settings.silenceLimit)
                           : Clock::time_point::max();
}

// In milliseconds, rounded up, so that a wait does not end just before its time.
DWORD CommandRun::untilDeadline() const
{
    const Clock::time_point deadline =
        m_Phase == Phase::running ? std::min(timeLimit(), silenceLimit()) : m_StageEnd;
    constexpr std::int64_t longest = std::numeric_limits<std::int32_t>::max();
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    return static_cast<DWORD>(std::clamp<std::int64_t>(left.count(), 0, longest));
}

void CommandRun::beginStop(Reason reason)
{
    if (m_Outcome.reason != Reason::none) {
        return;
    }
    m_Outcome.reason = reason;
    tarnix_platform::killGroupAtEnd(m_Process.get());
    if (m_ChildEnded) {
        return; // only its output is not wanted
    }
    m_Phase = Phase::stopping;
    nextStage();
}

void CommandRun::nextStage()
{
    if (m_Phase == Phase::killed) {
        m_Outcome.errorText = "the killed command does not end";
        m_Phase = Phase::lost;
        return;
    }
    if (m_Stage < m_Settings.stages.size() && !m_Stop.kill.isSet()) {
        const SCmnStopStage& stage = m_Settings.stages[m_Stage++];
        // If it has ended, the wait sees that.
        tarnix_platform::sendSignal(m_Process.get(), stage.signal);
        m_StageEnd = after(Clock::now(), std::max(stage.patience, kShortestPatience));
        return;
    }
    kill();
}

void CommandRun::kill()
{
    TerminateProcess(m_Process.get(), ERROR_PROCESS_ABORTED);
    m_StageEnd = after(Clock::now(), kKillTimeout);
    m_Phase = Phase::killed;
}

// ---- Outcome -----------------------------------------------------------------------------------

void CommandRun::conclude()
{
    m_Outcome.end = End::unknown;
    if (m_Phase == Phase::lost) {
        return;
    }
    m_IsConcluded = true;
    DWORD status;
    if (!GetExitCodeProcess(m_Process.get(), &status)) {
        refuseBySystem();
        return;
    }
    if (m_Phase == Phase::killed && status == ERROR_PROCESS_ABORTED) {
        m_Outcome.signal = kKillSignal;
    } else if (!tarnix_platform::endingSignal(m_Process.get(), m_Outcome.signal,
                                              m_Outcome.coreDumped)) {
        m_Outcome.status = static_cast<int>(status);
    }
    m_Outcome.end = m_Outcome.reason != Reason::none ? End::stopped
                    : m_Outcome.signal != 0          ? End::signalled
                                                     : End::exited;
    readUsage();
}

void CommandRun::readUsage()
{
    FILETIME creation{};
    FILETIME exit{};
    FILETIME kernel{};
    FILETIME user{};
    if (GetProcessTimes(m_Process.get(), &creation, &exit, &kernel, &user)) {
        m_Outcome.userTime = durationOf(user);
        m_Outcome.systemTime = durationOf(kernel);
    }
    PROCESS_MEMORY_COUNTERS counters{};
    counters.cb = sizeof counters;
    if (K32GetProcessMemoryInfo(m_Process.get(), &counters, sizeof counters)) {
        m_Outcome.peakMemory = counters.PeakWorkingSetSize;
    }
}

} // namespace tarnix_cmn_4_4
