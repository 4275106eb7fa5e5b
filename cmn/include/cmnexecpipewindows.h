/// @file
/// The runner of external commands on named pipes.
#ifndef TARNIX_CMNEXECPIPEWINDOWS_H
#define TARNIX_CMNEXECPIPEWINDOWS_H

#include "cmnexecpipebase.h"
#include "cmnexport.h"
#include "cmnlock.h"
#include "platform_types.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarnix_cmn_4_4
{

/// Runs commands (see CCmnExecPipeBase::Exec) as children of this process. The command text is
/// split into words by the shell's quoting rules; no shell runs. Standard output and standard error
/// of the child arrive as one sequence; its standard input stays empty and open for the length of
/// the run.
///
/// An object is made, optionally given a log with setTraceLog, and used for one Exec; Init prepares
/// it for the next. Failures of pipes and reads are traced at level 1.
class TARNIX_CMN_API CCmnExecPipeWindows : public CCmnExecPipeBase
{
public:
    CCmnExecPipeWindows();
    /// Keeps the list with the object; nothing reads it.
    explicit CCmnExecPipeWindows(std::vector<std::string> extraList);

    /// @{
    /// A copy takes parameters, records and log. It never owns what the source's run holds: it is
    /// idle, ready for an Exec, and has a read event of its own. An assignment ends the target's
    /// own run first, as the destructor does.
    CCmnExecPipeWindows(const CCmnExecPipeWindows& other);
    CCmnExecPipeWindows& operator=(const CCmnExecPipeWindows& other);
    /// @}

    /// Ends a run that is still open: gives the child up to 30 seconds, then kills it and its
    /// group.
    ~CCmnExecPipeWindows() override;

    /// Prepares the object for a further run. The abort flag and the last record stay. A run that
    /// is still open is ended first, as by the destructor.
    void Init() override;

    /// True with the exit status of the last run's child: 0 to 255 as it exited, 128 + n when
    /// signal n ended it, 1067 when the runner killed it. It is known also where Exec returned 0
    /// because the child ended before the last line was read. False, with `status` untouched,
    /// before a run, after a start that failed, while the child of a timed-out run is still to be
    /// closed, and when the platform could give none (the process ignores SIGCHLD).
    bool getExitStatus(int& status) const;

protected:
    int ExecPipe(std::string command, std::string workingDirectory) override;
    int WaitPid(long seconds) override;
    /// Waits 10 seconds a stage, whatever is passed.
    int Close(long seconds) override;
    int ReadLine(char* buffer, int size, int* timedOut, long seconds) override;

    /// Starts the child with the three standard handles. Returns 0; raises ECmnExecPipe with code 4
    /// when the system refuses.
    virtual int CreateChildProcess(std::string& command, HANDLE standardInput,
                                   HANDLE standardOutput, HANDLE standardError,
                                   std::string workingDirectory);

    /// Makes a pipe and opens its client end. Returns 0, or the system's error, which is traced and
    /// kept in m_LastSystemError.
    virtual DWORD GetNamedPipeHandles(const char* name, HANDLE* clientEnd, HANDLE* serverEnd,
                                      SECURITY_ATTRIBUTES* attributes);

    /// Closes each handle that is not invalid, in argument order.
    virtual void FlushHandles(HANDLE first, HANDLE second, HANDLE third, HANDLE fourth,
                              HANDLE fifth);

    /// Lets `target` point at `text`, which must outlive its use. Lengths are in bytes.
    virtual void InitLsaString(const std::wstring& text, LSA_UNICODE_STRING& target);

    /// The token of m_User for the child. Raises ECmnExecPipe with code 9 or 10.
    virtual HANDLE Impersonate();

    /// Held by the one runner of the process that has added a logon right, until its Close.
    static CCmnLock m_Lock;

    /// @{
    /// What the run in progress holds; a handle that names nothing is invalid or null.
    DWORD m_LastSystemError = 0;
    DWORD m_ProcessId = static_cast<DWORD>(-1);
    HANDLE m_ProcessHandle = INVALID_HANDLE_VALUE;
    HANDLE m_InputHandle = INVALID_HANDLE_VALUE;
    HANDLE m_OutputHandle = INVALID_HANDLE_VALUE;
    int m_RightAdded = 0;
    PSID m_AccountSid = nullptr;
    LSA_HANDLE m_PolicyHandle = INVALID_HANDLE_VALUE;
    HANDLE m_UserToken = INVALID_HANDLE_VALUE;
    std::string m_Command;
    HANDLE m_ReadEvent = INVALID_HANDLE_VALUE;
    /// @}

private:
    struct StartHandles;
    struct Account;
    enum class Awaited { byte, timeOut, givenUp, over }; // over: the read has ended without a byte

    int MakePipes(StartHandles& handles);
    DWORD PipeFailed(const char* format);
    void TraceSystemError(const char* format, DWORD error);
    bool ChildHasEnded();
    /// Cold, so that compilers leave the registers to the loop that calls them.
    [[gnu::cold]] void TraceReadFailure(const char* format, DWORD error);
    [[gnu::cold]] Awaited AwaitByte(long seconds);
    void ClosePipes();
    int EndChild();
    int ReadExitStatus();
    void OpenPolicy();
    void AddRight();
    void GiveUpRight();
    void ForgetAccount();

    std::shared_ptr<Account> m_Account; ///< holds what m_AccountSid points to
    std::optional<int> m_ExitStatus;
};

} // namespace tarnix_cmn_4_4

#endif
