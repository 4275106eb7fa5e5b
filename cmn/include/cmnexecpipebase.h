/// @file
/// The runner of external commands, as far as it does not depend on the platform.
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

/// Runs one command and gives its output lines, its outcome and a record of what failed. A run
/// blocks the thread that calls Exec; apart from Abort, an object is for one thread at a time.
///
/// A platform class supplies ExecPipe, WaitPid, Close and ReadLine.
class TARNIX_CMN_API CCmnExecPipeBase : public CCmnTraceable
{
public:
    /// @{
    /// Functions of a child context, see registerContextFunctions.
    using ContextCall = int (*)(void);
    using ContextText = int (*)(char*, char**, int*);
    using ContextFree = void (*)(void*, std::size_t);
    /// @}

    /// @{
    /// Copies parameters, records, the abort flag and the log. What a run holds is the platform
    /// class's to settle.
    CCmnExecPipeBase(const CCmnExecPipeBase& other);
    CCmnExecPipeBase& operator=(const CCmnExecPipeBase& other);
    /// @}

protected:
    CCmnExecPipeBase();
    /// Keeps the list with the object; nothing reads it.
    explicit CCmnExecPipeBase(std::vector<std::string> extraList);
    ~CCmnExecPipeBase() override;

    /// Starts the command with its output where ReadLine reads it. Returns 0 when the child runs;
    /// otherwise records the failure in m_LastError and returns a code other than 0.
    virtual int ExecPipe(std::string command, std::string workingDirectory) = 0;

    /// Waits for the child, and stops it by stages if it outlasts the wait. Returns its exit
    /// status, a negative number on failure.
    virtual int WaitPid(long seconds) = 0;

    /// Releases everything of the run. Records a failure of the command in m_LastError and returns
    /// its code, or 0.
    virtual int Close(long seconds) = 0;

    /// Delivers the next line without its line end, at most `size` bytes and a terminating 0, so
    /// the buffer holds size + 1 bytes. Returns 1 when the buffer holds a line, 0 when there is
    /// nothing more. Sets the flag to 1 when no output came within the seconds, otherwise to 0.
    virtual int ReadLine(char* buffer, int size, int* timedOut, long seconds) = 0;

    /// 1 after Abort, otherwise 0.
    virtual int IsAbortRequested();

    /// @{
    /// Hooks for a platform that runs commands from within a child context. Here there is none:
    /// both return 0, and the output is left alone.
    virtual int IsChildContext();
    virtual int ExecCommandInChildContext(std::string command, std::vector<std::string>& output);
    /// @}

public:
    /// Runs `command` and fills `output` with the lines that it printed on standard output and
    /// standard error, in the order in which it printed them. Lines are raw bytes without their
    /// line end, cut at a 0 byte; a line of 8191 bytes or more comes in pieces of at most 8191.
    ///
    /// `seconds` is the longest wait for the next byte of output, not a limit on the whole run; 0
    /// never waits: what is there is read and the run is ended; more than 4294967 overflows and
    /// waits shorter. An empty `workingDirectory` is the
    /// caller's own. With a `user` the command runs as that local user. `extra` is kept with the
    /// object and read by nothing.
    ///
    /// Returns 0 when the command ran and ended with status 0, or with a status that was not seen
    /// (it ended before the last line was read; getExitStatus of the platform class tells it).
    /// Other results: 11, the command ended with another status; 5, no output came within
    /// `seconds`: the child still runs and is stopped when the object is destroyed or used again,
    /// which can take 30 seconds; 8, something unexpected, after which `output` may be as it was; 1
    /// to 3, the start failed and `output` is as it was. An abort has no result of its own.
    /// getLastError tells more; for a result of 3 its code says what the start failed on.
    ///
    /// Between two runs of one object, Init must be called, or the second reads nothing.
    /// Exceptions: only those of memory running out.
    virtual int Exec(std::string command, std::vector<std::string>& output, std::string extra,
                     unsigned long seconds, std::string workingDirectory, std::string user,
                     std::string password);

    /// Asks for the end of the run, from any thread. It takes effect before the next line is read,
    /// and stays in force for the life of the object: a later Exec starts its command and ends it
    /// at once.
    virtual void Abort();

    /// Prepares the object for a further run.
    virtual void Init();

    /// The record of the last failure of this object; code 0 if nothing has failed. Success does
    /// not clear it. For the thread of Exec, after Exec has returned.
    virtual ECmnExecPipe getLastError();

    /// Has no effect in this library: it stores nothing, and nothing calls the functions.
    void registerContextFunctions(ContextCall call, ContextText text, ContextFree release);

protected:
    /// @{
    /// The last call of Exec and what came of it, for the platform class.
    std::atomic<int> m_AbortRequested;
    std::vector<std::string> m_ExtraList;
    struct {
        ContextCall call = nullptr;
        ContextText text = nullptr;
        ContextFree release = nullptr;
    } m_ContextFunctions;
    ECmnExecPipe m_LastError;
    std::string m_User;
    std::string m_Password; ///< wiped when it is replaced and when the object ends
    std::string m_Extra;
    /// @}
};

} // namespace tarnix_cmn_4_4

#endif
