// SPDX-License-Identifier: LicenseRef-Tarnix
// One run of a command: its start, its output, its stop and its outcome.
#ifndef TARNIX_CMNCOMMANDRUN_H
#define TARNIX_CMNCOMMANDRUN_H

#include "cmncommandoutput.h"
#include "cmncommandsettings.h"
#include "cmnhandle.h"
#include "platform.h"

#include <chrono>
#include <memory>
#include <string>
#include <string_view>

namespace tarnix_cmn_4_4
{

using CommandLog = CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>>;

class CommandRun
{
public:
    CommandRun(const CommandSettings& settings, const StopRequest& stop, const CommandLog& log);
    ~CommandRun(); // kills a command that still runs
    CommandRun(const CommandRun&) = delete;
    CommandRun& operator=(const CommandRun&) = delete;

    SCmnCommandOutcome run();

private:
    using Clock = std::chrono::steady_clock;
    using Reason = SCmnCommandOutcome::Reason;
    enum class Phase { running, stopping, killed, lost };

    static constexpr DWORD kPieceSize = 64 * 1024; // of a read; the kernel's pipe holds as much

    // The child's ends of its standard streams; closed once it has started.
    struct ChildEnds {
        OwnedHandle input;
        OwnedHandle output;
        OwnedHandle error;
    };

    struct Reader {
        OwnedHandle end;
        OwnedHandle event;
        OVERLAPPED state{};
        std::unique_ptr<char[]> buffer;
        bool isPending = false;

        void close()
        {
            end.reset();
            isPending = false;
        }
    };

    struct Writer {
        OwnedHandle end;
        OwnedHandle event;
        OVERLAPPED state{};
        std::string_view left; // of the text
        DWORD piece = 0;       // size of the pending write, or 0
    };

    bool start();
    bool checkSettings();
    bool checkTexts();
    bool openStreams(ChildEnds& ends);
    bool openInput(OwnedHandle& childEnd);
    bool openReader(Reader& reader, OwnedHandle& childEnd);
    bool openPipe(OwnedHandle& reader, OwnedHandle& writer);
    bool startChild(const ChildEnds& ends);
    bool createProcess(const ChildEnds& ends, HANDLE token);
    bool refuse(const char* text);
    bool refuse(DWORD error, const char* text);
    bool refuseBySystem(DWORD error);
    bool refuseBySystem();
    bool refuseByStop();

    void goOn();
    bool readSome(CCmnCommand::Stream stream);
    void finishRead(CCmnCommand::Stream stream);
    void finishWrite();
    void take(CCmnCommand::Stream stream, DWORD size);
    void readStopped(CCmnCommand::Stream stream);
    void writeStopped();
    void abandon();
    void closeReader(CCmnCommand::Stream stream);
    void closeReaders();
    bool anyReaderOpen() const;
    Reader& readerOf(CCmnCommand::Stream stream);
    void writeSome();
    void wait(DWORD milliseconds);
    void childEnded();

    void checkTime();
    void checkStop();
    bool wantsMore();
    Clock::time_point timeLimit() const;
    Clock::time_point silenceLimit() const;
    DWORD untilDeadline() const;
    void beginStop(Reason reason);
    void nextStage();
    void kill();

    void conclude();
    void readUsage();

    const CommandSettings& m_Settings;
    const StopRequest& m_Stop;
    const CommandLog& m_Log;
    SCmnCommandOutcome m_Outcome;
    CommandOutput m_Output{m_Settings, m_Outcome, [this] { return wantsMore(); }};
    Reader m_OutputReader;
    Reader m_ErrorReader;
    Writer m_Writer;
    OwnedHandle m_Process;
    bool m_ChildEnded = false;
    bool m_IsConcluded = false; // the outcome is known

    Phase m_Phase = Phase::running;
    std::size_t m_Stage = 0; // the next stage of the stop
    const Clock::time_point m_Start = Clock::now();
    Clock::time_point m_LastOutput = m_Start;
    Clock::time_point m_StageEnd;
};

} // namespace tarnix_cmn_4_4

#endif
