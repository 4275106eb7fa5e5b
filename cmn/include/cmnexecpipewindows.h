// SPDX-License-Identifier: LicenseRef-Tarnix
/// @file
/// Runs external commands and reads their output through named pipes.
///
/// @code
/// #include "cmnexecpipewindows.h"
/// #include <iostream>
///
/// using namespace tarnix_cmn_4_4;
/// CCmnExecPipeWindows runner;
/// std::vector<std::string> lines;
/// const int result = runner.Exec("echo hello", lines, "", 60, "", "", ""); // wait 60 s for output
/// if (result != 0) {
///     std::cerr << ECmnExecPipe::keyOf(runner.getLastError().getCode()) << '\n';
///     return result;
/// }
/// std::cout << lines.at(0) << '\n'; // prints hello
/// @endcode
#ifndef TARNIX_CMNEXECPIPEWINDOWS_H
#define TARNIX_CMNEXECPIPEWINDOWS_H

#include "cmnexecpipebase.h"
#include "cmnexport.h"
#include "cmnlock.h"
#include "platform_types.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarnix_cmn_4_4
{

/// Runs commands (see CCmnExecPipeBase::Exec) as children of the calling process. The command is
/// split into words by the quoting rules of the shell, but no shell runs. Standard output and
/// standard error of the child arrive as one sequence. Its standard input stays open during the run
/// and never delivers a byte.
///
/// Create an object, give it a log with setTraceLog if you want one, and call Exec. Call Init
/// before the next Exec. Failures of pipes and reads are traced at level 1, and so are failures of
/// the batch logon and of adding and removing its right.
class TARNIX_CMN_API CCmnExecPipeWindows : public CCmnExecPipeBase
{
public:
    CCmnExecPipeWindows();
    /// Stores the list in the object; nothing reads it.
    explicit CCmnExecPipeWindows(std::vector<std::string> extraList);

    /// @{
    /// A copy takes the parameters, the records and the log. It does not take the run of the
    /// source: it is idle, ready for Exec, and has a read event of its own. An assignment first
    /// ends the run of its target, as the destructor does.
    CCmnExecPipeWindows(const CCmnExecPipeWindows& other);
    CCmnExecPipeWindows& operator=(const CCmnExecPipeWindows& other);
    /// @}

    /// Ends a run that is still open: gives the child up to 30 seconds to end, then kills it and
    /// its process group, and waits up to 2 seconds for its end. Removing an added right can wait
    /// 20 seconds more for the lock of the rights file.
    ~CCmnExecPipeWindows() override;

    /// Prepares the object for another run. A run that is still open is ended first, as by the
    /// destructor. The abort flag and the record of the last failure stay.
    void Init() override;

    /// Returns true and sets `status` to the exit status of the last run's child: 0 to 255 if it
    /// exited, 128 + n if signal n ended it, 1067 if the runner killed it. The status is known also
    /// when Exec returned 0 because the child ended before the last line was read.
    ///
    /// Returns false and does not change `status` before the first run, after a failed start, after
    /// a timeout, after Init, and when the system gave no status because the calling process
    /// ignores SIGCHLD. Once Init has stopped a child after a timeout, the record has its status,
    /// unless that is 0.
    bool getExitStatus(int& status) const;

    /// Returns true if a signal ended the last run's child, and sets `signal` to its number and
    /// `coreDumped` to whether the system wrote a core. So it distinguishes a child that signal 9
    /// ended from one that exited with 137.
    ///
    /// Returns false and changes nothing if the child exited, if the runner killed it (its status
    /// is 1067), and whenever getExitStatus returns false.
    bool getEndingSignal(int& signal, bool& coreDumped) const;

    /// Sets how many seconds a start as another user may take, for all runners of the process: 1 to
    /// 4294967; 0 means the default of 10, and more means 4294967. The time begins after the logon
    /// and ends when the command starts, so a slow file system of the program or of the working
    /// directory counts. After it the child is killed, and the start fails with code 4 ("timed out
    /// starting the command as the user").
    ///
    /// May be called from any thread. It counts for the starts that begin after it.
    static void setUserStartLimit(unsigned int seconds);

protected:
    int ExecPipe(std::string command, std::string workingDirectory) override;
    int WaitPid(long seconds) override;
    /// Waits 10 seconds in each stage; the argument is not used.
    int Close(long seconds) override;
    int ReadLine(char* buffer, int size, int* timedOut, long seconds) override;

    /// Starts the child with the three standard handles and returns 0. Throws ECmnExecPipe with
    /// code 4 if the system cannot start it.
    virtual int CreateChildProcess(std::string& command, HANDLE standardInput,
                                   HANDLE standardOutput, HANDLE standardError,
                                   std::string workingDirectory);

    /// Creates a pipe and opens its client end. Returns 0, or the system's error number, which is
    /// also traced and stored in m_LastSystemError.
    virtual DWORD GetNamedPipeHandles(const char* name, HANDLE* clientEnd, HANDLE* serverEnd,
                                      SECURITY_ATTRIBUTES* attributes);

    /// Closes each handle that is not invalid, in argument order.
    virtual void FlushHandles(HANDLE first, HANDLE second, HANDLE third, HANDLE fourth,
                              HANDLE fifth);

    /// Sets `target` to point to `text`, which must live as long as `target` is used. Lengths are
    /// in bytes.
    virtual void InitLsaString(const std::wstring& text, LSA_UNICODE_STRING& target);

    /// The token with which the child runs as m_User. Throws ECmnExecPipe with code 9 or 10.
    virtual HANDLE Impersonate();

    /// Held by the runner that has added a logon right, until its Close. Only one runner of the
    /// process can hold it.
    static CCmnLock m_Lock;

    /// @{
    /// What the current run holds. A handle that is not in use is invalid or null.
    DWORD m_LastSystemError{};
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
    enum class Awaited { byte, timeout, cancelled, noByte }; // noByte: the read ended without one

    int MakePipes(StartHandles& handles);
    DWORD PipeFailed(const char* format);
    void TraceSystemError(const char* format, DWORD error);
    bool ChildHasEnded();
    void TraceReadFailure(const char* format, DWORD error);
    /// Marked cold so that the compiler does not put it into the loop over the lines.
    [[gnu::cold]] std::size_t ReadByte(char* target, int* timedOut, long seconds);
    Awaited AwaitByte(long seconds);
    void ClosePipes();
    int EndChild();
    [[gnu::cold]] int ReadExitStatus();
    void OpenPolicy();
    void AddRight();
    void RevokeRight();
    void ForgetAccount();

    std::shared_ptr<Account> m_Account; ///< holds what m_AccountSid points to
    std::optional<int> m_ExitStatus;
    int m_EndingSignal{}; ///< 0: none
    bool m_CoreDumped{};
};

} // namespace tarnix_cmn_4_4

#endif
