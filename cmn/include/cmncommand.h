// SPDX-License-Identifier: LicenseRef-Tarnix
/// @file
/// Runs external commands with options: arguments, environment, input, separate streams, limits,
/// and an outcome that says how the command ended.
///
/// The shortest correct use:
/// @code
/// #include "cmncommand.h"
/// #include <iostream>
///
/// using namespace tarnix_cmn_4_4;
/// const SCmnCommandOutcome outcome = CCmnCommand({"echo", "hello"}).run();
/// if (!outcome.ok()) {
///     std::cerr << "echo: " << outcome.describe() << '\n';
///     return 1;
/// }
/// std::cout << outcome.lines.at(0) << '\n'; // prints hello
/// @endcode
///
/// Input, environment and limits:
/// @code
/// #include "cmncommand.h"
/// #include <iostream>
///
/// using namespace tarnix_cmn_4_4;
/// using namespace std::chrono_literals;
/// CCmnCommand sort({"sort", "-u"});
/// sort.setInput("pear\napple\npear\n").setVariable("LC_ALL", "C");
/// sort.setTimeLimit(10s).setByteLimit(1 << 20);
/// const SCmnCommandOutcome outcome = sort.run();
/// std::cout << outcome.lines.at(0) << '\n'; // prints apple
/// std::cout << outcome.describe() << '\n';  // prints exited with status 0
/// @endcode
///
/// Lines while the command runs, until one of them is enough:
/// @code
/// #include "cmncommand.h"
/// #include <iostream>
///
/// using namespace tarnix_cmn_4_4;
/// CCmnCommand server({"sh", "-c", "echo starting; echo ready; exec sleep 100"});
/// server.setLineCallback([](std::string_view line, CCmnCommand::Stream) {
///     return line != "ready"; // false stops the command
/// });
/// const SCmnCommandOutcome outcome = server.run();
/// std::cout << outcome.describe() << '\n'; // prints stopped by its caller (signal 2)
/// @endcode
#ifndef TARNIX_CMNCOMMAND_H
#define TARNIX_CMNCOMMAND_H

#include "cmncommandoutcome.h"
#include "cmnexport.h"
#include "cmntraceable.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tarnix_cmn_4_4
{

struct CommandSettings;
struct StopRequest;

/// One stage of a stop: the command gets the signal, and then has that time to end.
struct SCmnStopStage {
    int signal;                         ///< such as SIGINT
    std::chrono::milliseconds patience; ///< the time until the next stage
};

/// A command and how to run it. Each call of run is a run of its own. Only one thread at a time may
/// change an object; any number of threads may run it while none does, or one if it has a log. The
/// setters return the object. They do not check their arguments: run refuses a wrong one, and the
/// outcome says why. The log gets the failures of logons and rights.
///
/// The child gets a process group of its own, default signal dispositions, an empty signal mask and
/// no descriptor but the standard three. Its standard input is the null device unless one is set.
///
/// CCmnExecPipeWindows is the runner for programs that need its interface, its result codes and its
/// records; docs/command-class.md compares the two.
class TARNIX_CMN_API CCmnCommand : public CCmnTraceable
{
public:
    using Duration = std::chrono::milliseconds; ///< of the limits

    /// Where a piece of output comes from.
    enum class Stream { output, error };

    /// Which streams are read: both in one sequence (the default), both separately, or one of them;
    /// the other one is then discarded.
    enum class Streams { together, apart, outputOnly, errorOnly };

    /// What a new environment starts with: that of the calling process (the default), nothing, or
    /// HOME, USER, LOGNAME, SHELL and PATH of the account that setUser names.
    enum class Environment { inherited, empty, account };

    /// Gets a piece of output, which is valid during the call only. Return false to stop the
    /// command. An exception kills the command and leaves run. While one call works, no limit and
    /// no stop takes effect. After it they do; what had been printed is still passed on, but not
    /// after kill.
    using Callback = std::function<bool(std::string_view, Stream)>;

    /// The program and its arguments. The program is a path if it has a slash; otherwise it is
    /// looked up in the PATH of the command's environment. A relative path counts from the
    /// command's directory. No shell is involved. An object holds two descriptors.
    explicit CCmnCommand(std::vector<std::string> arguments);

    /// A command from one text, which is split into words as CCmnExecPipeBase::Exec splits it.
    static CCmnCommand fromText(std::string command);

    /// @{
    /// A copy has the same settings and log, and is not stopped.
    CCmnCommand(const CCmnCommand& other);
    CCmnCommand& operator=(const CCmnCommand& other);
    /// @}
    /// @{
    /// The other object may then only be assigned to or destroyed. Neither may have a run in
    /// progress.
    CCmnCommand(CCmnCommand&& other) noexcept;
    CCmnCommand& operator=(CCmnCommand&& other) noexcept;
    /// @}
    ~CCmnCommand() override; ///< No run may be in progress. The password is wiped.

    /// @{
    /// What the command gets.
    CCmnCommand& setDirectory(std::string directory); ///< empty: that of the calling process
    CCmnCommand& setEnvironment(Environment environment);
    /// Takes effect in the order of the calls, on the environment that setEnvironment chooses.
    CCmnCommand& setVariable(std::string name, std::string value);
    CCmnCommand& unsetVariable(std::string name); ///< in the same order
    CCmnCommand& setInput(std::string text);      ///< its standard input, and then the end of file
    /// Its standard input is a duplicate of this descriptor, which remains the caller's and must be
    /// open during each start.
    CCmnCommand& setInputDescriptor(int fd);
    CCmnCommand& setUmask(unsigned int mask); ///< default: the caller's, or 022 for another user
    /// Runs as that user, as CCmnExecPipeBase::Exec does: by PAM, for root only, with the right
    /// SeBatchLogonRight, which an account without it gets for the duration of the start. Only one
    /// start or runner of the process can hold such a right at a time: others wait up to 10
    /// seconds. Copies of the password that this class makes are wiped.
    /// An empty name is refused.
    CCmnCommand& setUser(std::string user, std::string password);
    /// Whether the system kills the command when the thread that runs it ends, with the process for
    /// example. Default: no. A set-user-id program cancels it.
    CCmnCommand& setEndsWithCaller(bool endsWithCaller);
    /// @}

    /// @{
    /// What becomes of the output.
    CCmnCommand& setStreams(Streams streams);
    /// Keeps it as bytes, not as lines. Of this and the next two the last call holds.
    CCmnCommand& setKeepBytes(bool keepBytes);
    /// Passes each line on, without its newline and one carriage return before that, and keeps
    /// nothing. A last line without a newline is passed on at the end. A line has no limit but
    /// that of setByteLimit.
    CCmnCommand& setLineCallback(Callback callback);
    /// Passes each piece on as it arrives, at most 64 KiB, and keeps nothing.
    CCmnCommand& setByteCallback(Callback callback);
    /// @{
    /// The command is stopped when it prints more than that, over both streams; what was printed up
    /// to the limit is there, also the start of a line. 0, the default: no limit.
    CCmnCommand& setByteLimit(std::uint64_t bytes);
    CCmnCommand& setLineLimit(std::uint64_t lines);
    /// @}
    /// @}

    /// @{
    /// How long the command may take. 0, the default: without limit; run refuses a negative time.
    /// Times are measured by the monotonic clock.
    CCmnCommand& setSilenceLimit(Duration limit); ///< since the call of run or its last output
    CCmnCommand& setTimeLimit(Duration limit);    ///< of the whole run; then the stop begins
    /// The stages of a stop, each for the whole process group. Default: SIGINT and SIGTERM, 2
    /// seconds each. After the last one SIGKILL follows.
    CCmnCommand& setStopStages(std::vector<SCmnStopStage> stages);
    /// @}

    /// Runs the command to its end. The run ends when the command has ended; what is still in its
    /// pipes then is read, and nobody waits for processes that it left running. A stopped command
    /// leaves none: its group is killed after it, unless the calling process ignores SIGCHLD.
    ///
    /// Everything that happens to the command is in the outcome. Throws only std::bad_alloc and
    /// what the callback throws: then the command is killed, and nothing is left either.
    SCmnCommandOutcome run() const;

    /// @{
    /// Ends all runs of this object, also in a silent wait, and lets no new one start until
    /// resetStop: stop by the stages, kill by SIGKILL at once, also during a stop. May be called
    /// from any thread and in a signal handler.
    void stop() const noexcept;
    void kill() const noexcept;
    /// @}
    void resetStop(); ///< takes both back. No run may be in progress.

private:
    explicit CCmnCommand(std::unique_ptr<CommandSettings> settings);

    std::unique_ptr<CommandSettings> m_Settings;
    std::unique_ptr<StopRequest> m_Stop;
};

} // namespace tarnix_cmn_4_4

#endif
