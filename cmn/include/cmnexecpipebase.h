// SPDX-License-Identifier: LicenseRef-Tarnix
/// @file
/// The part of the command runner that does not depend on the platform.
#ifndef TARNIX_CMNEXECPIPEBASE_H
#define TARNIX_CMNEXECPIPEBASE_H

#include "cmnexecpipe.h"
#include "cmnexport.h"
#include "cmntraceable.h"

#include <atomic>
#include <cstddef>
#include <string>
#include <vector>

namespace tarnix_cmn_4_4
{

/// Runs one command and returns its output lines, its result and a record of what failed. Exec
/// blocks the calling thread until the run has ended. Only one thread at a time may use an object;
/// Abort may be called from any thread.
///
/// A derived class for the platform implements ExecPipe, WaitPid, Close and ReadLine. The virtual
/// functions stay in this order, which is a part of the binary interface; a user needs Exec, Init,
/// Abort and getLastError.
class TARNIX_CMN_API CCmnExecPipeBase : public CCmnTraceable
{
public:
    /// @{
    /// The functions of a child context, see registerContextFunctions.
    using ContextCall = int (*)(void);
    using ContextText = int (*)(char*, char**, int*);
    using ContextFree = void (*)(void*, std::size_t);
    /// @}

    /// @{
    /// Copies the parameters, the record, the abort flag and the log. The handles of a running
    /// command belong to the derived class and are not copied here.
    CCmnExecPipeBase(const CCmnExecPipeBase& other);
    CCmnExecPipeBase& operator=(const CCmnExecPipeBase& other);
    /// @}

protected:
    CCmnExecPipeBase();
    /// Stores the list in the object; nothing reads it.
    explicit CCmnExecPipeBase(std::vector<std::string> extraList);
    ~CCmnExecPipeBase() override;

    /// Starts the command and connects its output to what ReadLine reads. Returns 0 when the child
    /// runs. Otherwise stores the failure in m_LastError and returns a code other than 0.
    virtual int ExecPipe(std::string command, std::string workingDirectory) = 0;

    /// Waits for the child. If the child still runs after the wait, stops it in stages. Returns the
    /// exit status, or a negative number on failure.
    virtual int WaitPid(long seconds) = 0;

    /// Releases everything that the run holds. If the command failed, stores that in m_LastError
    /// and returns the code of the failure, otherwise 0.
    virtual int Close(long seconds) = 0;

    /// Writes the next line without its newline into `buffer`: at most `size` bytes and a
    /// terminating 0, so the buffer must have size + 1 bytes. Returns 1 when the buffer holds a
    /// line, 0 when there are no more lines. Sets `*timedOut` to 1 when no output came within
    /// `seconds`, otherwise to 0.
    virtual int ReadLine(char* buffer, int size, int* timedOut, long seconds) = 0;

    /// 1 after Abort, otherwise 0.
    virtual int IsAbortRequested();

    /// @{
    /// Hooks for a platform that runs commands inside a child context. This library has none: both
    /// return 0 and do not change `output`.
    virtual int IsChildContext();
    virtual int ExecCommandInChildContext(std::string command, std::vector<std::string>& output);
    /// @}

public:
    /// Runs `command` and fills `output` with the lines that it printed on standard output and
    /// standard error, in the order in which it printed them. Lines are raw bytes without their
    /// newline. A line ends at a 0 byte; the rest of it is dropped. A line of 8191 bytes or more
    /// comes in pieces of at most 8191 bytes.
    ///
    /// @param command  Command line, as the derived class splits it.
    /// @param output  Receives the lines.
    /// @param extra  Stored in the object; nothing reads it.
    /// @param seconds  Longest wait for the next byte of output, not a limit for the whole run. 0
    ///     never waits: what has arrived is read, then the run is ended. At most 4294967; a larger
    ///     value overflows and waits for less.
    /// @param workingDirectory  Of the command; empty for that of the calling process.
    /// @param user  Local user as whom the command runs; empty for that of the calling process.
    /// @param password  Of that user. User and password end at their first 0 byte; a command or
    ///     directory that contains one is refused.
    ///
    /// | Result | What happened to the command | `output` |
    /// |---|---|---|
    /// | 0 | it ended with status 0, or with any status before its last line was read | the lines |
    /// | 1 to 3 | it was not started; for 3, getLastError has the reason | unchanged |
    /// | 5 | no output within `seconds`; the child still runs | the lines so far |
    /// | 8 | unexpected failure | the lines so far, or unchanged |
    /// | 11 | it ended with a status other than 0 | the lines |
    ///
    /// After result 0, getExitStatus of the derived class returns the status, which need not be 0.
    /// After result 5 the child is stopped when the object is destroyed or used again, which can
    /// take 32 seconds. With an added right the lock of the rights file can take 20 seconds more,
    /// or 30 in Exec, which may add another. An abort has no result of its own. getLastError
    /// returns the details of a failure.
    ///
    /// Call Init between two runs of one object, otherwise the second run reads nothing. Throws
    /// only when an allocation fails.
    virtual int Exec(std::string command, std::vector<std::string>& output, std::string extra,
                     unsigned long seconds, std::string workingDirectory, std::string user,
                     std::string password);

    /// Requests the end of the run; may be called from any thread. It takes effect before the next
    /// line is read. The request cannot be taken back: a later Exec of this object starts its
    /// command and ends it at once.
    virtual void Abort();

    /// Prepares the object for another run.
    virtual void Init();

    /// The record of the last failure of this object; code 0 if nothing has failed. A successful
    /// run does not clear it. To be called by the thread that called Exec, after Exec has returned.
    virtual ECmnExecPipe getLastError();

    /// Has no effect: this library neither stores nor calls the functions.
    void registerContextFunctions(ContextCall call, ContextText text, ContextFree release);

protected:
    /// @{
    /// The parameters of the last Exec and its failure, for the derived class.
    std::atomic<int> m_AbortRequested;
    std::vector<std::string> m_ExtraList;
    struct {
        ContextCall call = nullptr;
        ContextText text = nullptr;
        ContextFree release = nullptr;
    } m_ContextFunctions;
    ECmnExecPipe m_LastError;
    std::string m_User;
    std::string m_Password; ///< overwritten when it is replaced and by the destructor
    std::string m_Extra;
    /// @}

private:
    bool ReadLines(char* buffer, std::vector<std::string>& output, long seconds);
};

} // namespace tarnix_cmn_4_4

#endif
