// SPDX-License-Identifier: LicenseRef-Tarnix
/// @file
/// What became of a command: the result of CCmnCommand::run.
///
/// @code
/// #include "cmncommand.h"
/// #include <iostream>
///
/// using namespace tarnix_cmn_4_4;
/// const SCmnCommandOutcome outcome = CCmnCommand({"sh", "-c", "exit 3"}).run();
/// std::cout << outcome.describe() << '\n'; // prints exited with status 3
/// @endcode
#ifndef TARNIX_CMNCOMMANDOUTCOME_H
#define TARNIX_CMNCOMMANDOUTCOME_H

#include "cmnexport.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace tarnix_cmn_4_4
{

/// A plain record: its fields are yours to read and change.
struct TARNIX_CMN_API SCmnCommandOutcome {
    /// How the command ended.
    enum class End {
        notStarted, ///< `error` and `errorText` say why
        exited,     ///< by itself, with `status`
        signalled,  ///< ended by `signal`, which the run did not send
        stopped,    ///< by the run, or only its output was, for `reason`; `status` or `signal` is
                    ///< how it then ended
        unknown,    ///< `errorText` says why: the calling process ignores SIGCHLD or has reaped the
                    ///< child itself; the system refused a wait or a read, and then the command was
                    ///< killed; or a killed command does not end
    };
    /// Why the run stopped the command.
    enum class Reason {
        none,        ///< it did not
        caller,      ///< stop was called, or a callback returned false
        silence,     ///< no output for the time of setSilenceLimit
        timeLimit,   ///< setTimeLimit
        outputLimit, ///< setByteLimit or setLineLimit
    };

    End end = End::notStarted;    ///< how the command ended
    Reason reason = Reason::none; ///< why it was stopped, or not started
    int status = 0;               ///< exit status, 0 to 255; 0 if a signal ended the command
    int signal = 0;               ///< that ended the command, or 0
    bool coreDumped = false;      ///< the signal left a core
    std::uint32_t error = 0; ///< the system's error number, or 0 if the system is not the reason
    std::string errorText;   ///< what was attempted and the system's text, in English

    std::vector<std::string> lines;      ///< of the output; with Streams::together of both streams
    std::vector<std::string> errorLines; ///< of standard error, with Streams::apart or errorOnly
    std::string bytes;                   ///< the same, if bytes are kept
    std::string errorBytes;              ///< the same of standard error

    std::chrono::nanoseconds elapsed{}; ///< from the call of run to its end
    /// @{
    /// Processor time of the command and of its children that it has waited for.
    std::chrono::nanoseconds userTime{};
    std::chrono::nanoseconds systemTime{};
    /// @}
    /// Largest resident memory in bytes; 0 if the calling process had as much at the start, which
    /// the kernel then counts instead.
    std::uint64_t peakMemory = 0;

    /// Whether the command ran to its end, by itself, with status 0.
    bool ok() const;

    /// What happened, in English, as the end of a sentence that begins with the command: "exited
    /// with status 3", "stopped after its time limit (signal 15)".
    std::string describe() const;

    /// @{
    /// A message for a catalog: the key, such as "TARNIX_COMMAND_EXITED", and its arguments, in
    /// the order of the pattern. docs/command-class.md lists them.
    const char* messageKey() const;
    std::vector<std::string> messageArguments() const;
    /// @}
};

} // namespace tarnix_cmn_4_4

#endif
