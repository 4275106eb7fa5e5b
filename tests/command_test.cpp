// SPDX-License-Identifier: LicenseRef-Tarnix
// CCmnCommand from end to end: what each option does to the outcome, without any leak.
#include "cmncommand.h"
#include "cmnstringtool.h"
#include "support/brief.h"
#include "support/command.h"
#include "support/fixture.h"
#include "support/repeat.h"
#include "support/scratchdirectory.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <random>

using namespace tarnix_cmn_4_4;
using namespace std::chrono_literals;

namespace
{

using Command = LeakCheck;
using Environment = CCmnCommand::Environment;
using End = SCmnCommandOutcome::End;
using Reason = SCmnCommandOutcome::Reason;
using Stream = CCmnCommand::Stream;
using Streams = CCmnCommand::Streams;
constexpr auto forever = CCmnCommand::Duration::max();

CCmnCommand shell(const std::string& script) { return CCmnCommand({"sh", "-c", script}); }

Lines passed; // what the callback got

// Keeps what it gets, and stops the command at "enough".
bool keep(std::string_view text, Stream stream)
{
    passed.push_back((stream == Stream::error ? "error: " : "") + std::string(text));
    return text != "enough";
}

struct Row {
    const char* name;
    CCmnCommand command;
    std::string outcome; // see textOf
};

void check(std::initializer_list<Row> rows, const std::string& prefix = "")
{
    for (const Row& row : rows) {
        const auto before = processState();
        passed.clear();
        SCmnCommandOutcome outcome = row.command.run();
        outcome.lines.insert(outcome.lines.end(), passed.begin(), passed.end());
        EXPECT_EQ(textOf(outcome), prefix + row.outcome) << row.name;
        const std::string error = std::strerror(static_cast<int>(outcome.error));
        const bool isOfSystem = outcome.errorText.find(error) != std::string::npos;
        EXPECT_EQ(outcome.error != 0, outcome.end == End::notStarted) << row.name;
        EXPECT_TRUE(isOfSystem || outcome.error == 0 || outcome.error == EINVAL) << row.name;
        EXPECT_EQ(outcome.signal != 0 ? outcome.status : outcome.coreDumped, 0) << row.name;
        EXPECT_EQ(processState(), before) << row.name;
    }
}

TEST_F(Command, Ends)
{
    check({
        {"signal", shell("kill -9 $$"), "ended by signal 9"},
        {"status", shell("exit 137"), "exited with status 137"},
        {"text", CCmnCommand::fromText("printf '%s|' \"a  b\" c\\ d"), "|a  b|c d|"},
        {"arguments", CCmnCommand({"printf", "%s|", "", "'\"\\\\\n$`\xff"}), "||'\"\\\\|$`\xff|"},
        {"no umask", shell("umask").setUmask(0), "|0000"},
        {"umask", shell("umask").setUmask(0777), "|0777"},
        {"descriptors", CCmnCommand({"ls", "/proc/self/fd"}), "|0|1|2|3"},
    });
}

TEST_F(Command, RefusedStarts)
{
    const std::string zero("a\0b", 3),
        mask = "the umask has more than permissions",
        variable = "a variable has no name, or '=' or a 0 byte in it",
        signal = "a stop stage has a signal that does not exist",
        user = "the user or the password contains a 0 byte", limit = "a limit is negative";
    const auto is = [] { return CCmnCommand({"true"}); };
    const auto text = CCmnCommand::fromText;
    const std::initializer_list<Row> rows = {
        {"no arguments", CCmnCommand(Lines{}), "command is empty: Invalid argument"},
        {"quote", text("'a"), "unterminated quote in command: Invalid argument"},
        {"0", CCmnCommand({"a", zero}), "an argument contains a 0 byte"},
        {"0 in directory", is().setDirectory(zero), "the working directory contains a 0 byte"},
        {"user without a name", is().setUser("", "a"), "the user has no name"},
        {"0 in user", is().setUser(zero, "a"), user},
        {"0 in password", is().setUser("a", zero), user},
        {"variable", is().setVariable("a=b", ""), variable},
        {"0 in name", is().setVariable(zero, ""), variable},
        {"0 in variable", is().setVariable("a", zero), variable},
        {"no name", is().unsetVariable(""), variable},
        {"account", is().setEnvironment(Environment::account),
         "the environment of an account needs a user"},
        {"handle", is().setInputDescriptor(-1), "cannot use input descriptor: Bad file descriptor"},
        {"large umask", is().setUmask(01000), mask},
        {"largest umask", is().setUmask(~0U), mask},
        {"negative time", is().setTimeLimit(-1ms), limit},
        {"negative silence", is().setSilenceLimit(-1ms), limit},
        {"no signal", is().setStopStages({{0, 1ms}}), signal},
        {"no such signal", is().setStopStages({{65, 1ms}}), signal},
    };
    check(rows, "not started: ");
}

TEST_F(Command, InputAndEnvironment)
{
    setenv("A", "1", 1);
    setenv("B", "2", 1);
    const int file = open("/proc/sys/kernel/ostype", O_RDONLY | O_CLOEXEC);
    const std::string large = repeated("abcdefg", 300000), echo = "echo $A-$B-$C";
    const auto cat = [] { return CCmnCommand({"cat"}); };
    const auto env = [] { return CCmnCommand({"env"}).setEnvironment(Environment::empty); };
    check({
        {"no input", cat(), ""},
        {"empty input", cat().setInput(""), ""},
        {"larger than the pipe", cat().setInput(large), "|" + large},
        {"closed", shell("exec <&-; sleep 0.1; echo a").setInput(large), "|a"},
        {"from a descriptor", cat().setInputDescriptor(file), "|Linux"},
        {"inherited", shell(echo), "|1-2-"},
        {"set", shell(echo).setVariable("B", "x=y").setVariable("C", "3"), "|1-x=y-3"},
        {"unset", shell(echo).setVariable("C", "3").unsetVariable("A").unsetVariable("C"), "|-2-"},
        {"path", env().setVariable("PATH", "/usr/bin").setVariable("A", ""), "|PATH=/usr/bin|A="},
        {"default path", env(), ""},
    });
    close(file);
    // The caller gets no SIGPIPE, also not later if it blocks the signal itself. Its own stays
    // pending.
    sigset_t signals, former;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    sigprocmask(SIG_BLOCK, &signals, &former);
    EXPECT_FALSE(sigismember(&former, SIGUSR1)); // blocked during the starts only
    for (const bool isOwn : {false, true}) {
        EXPECT_TRUE(!isOwn || raise(SIGPIPE) == 0);
        EXPECT_TRUE(CCmnCommand({"true"}).setInput(large).run().ok());
        sigpending(&signals);
        EXPECT_EQ(sigismember(&signals, SIGPIPE), isOwn);
    }
    std::signal(SIGPIPE, SIG_IGN); // discards it
    std::signal(SIGPIPE, SIG_DFL);
}

// The search goes on after a program that may not be executed, but not after one that is none.
TEST_F(Command, SearchOfThePath)
{
    const ScratchDirectory scratch;
    const std::string files = "mkdir a b; echo '#!/bin/echo' | tee b/denied >b/none; : >a/none; "
                              "echo '#!/no/such' >a/lost; : >a/denied; : >a/refused; "
                              "chmod +x b/* a/none a/lost",
                      path = scratch.path("a:") + scratch.path("b:/no"),
                      no = "not started: cannot start program '",
                      missing = "': No such file or directory";
    EXPECT_TRUE(shell(files).setDirectory(scratch.path()).run().ok());
    const auto tool = [&path](const std::string& program) {
        return CCmnCommand({program}).setVariable("PATH", path);
    };
    check({
        {"denied", tool("denied"), "|" + scratch.path("b/denied")},
        {"refused", tool("refused"), no + "refused': Permission denied"},
        {"lost", tool("lost"), no + "lost" + missing},
        {"none", tool("none"), no + "none': Exec format error"},
        {"no name", tool(""), no + missing},
        {"empty", tool("cat").setVariable("PATH", "/no:").setDirectory("/bin").setInput("a"), "|a"},
    });
}

TEST_F(Command, OutputAndItsLimits)
{
    const auto both = [] { return shell("printf 'o\\r\\n'; printf e >&2; echo l"); };
    const std::string three = "printf 'ab\\n\\ncd'", sleep = "; exec sleep 99",
                      stopped = "stopped at its output limit (signal 2)",
                      caller = "stopped by its caller ";
    check({
        {"together", both(), "|o|el"},
        {"apart", both().setStreams(Streams::apart), "|o|l|error: e"},
        {"output", both().setStreams(Streams::outputOnly), "|o|l"},
        {"bytes", both().setKeepBytes(true), " bytes: o\r\nel\n"},
        {"bytes apart", both().setKeepBytes(true).setStreams(Streams::apart),
         " bytes: o\r\nl\n error bytes: e"},
        {"line callback", both().setLineCallback(keep).setStreams(Streams::errorOnly), "|error: e"},
        {"byte callback", shell(three).setByteCallback(keep), "|ab\n\ncd"},
        {"no callback", shell(three).setByteCallback(keep).setLineCallback(nullptr), "|ab||cd"},
        {"enough", shell("echo enough; echo b; exec sleep 99").setLineCallback(keep),
         caller + "(signal 2)|enough"},
        {"enough at the end", shell("printf enough").setLineCallback(keep),
         caller + "(status 0)|enough"},
        {"all bytes", shell(three).setByteLimit(6), "|ab||cd"},
        {"more bytes", shell(three + sleep).setByteLimit(5), stopped + "|ab||c"},
        {"all lines", shell(three).setLineLimit(3), "|ab||cd"},
        {"more lines", shell(three + sleep).setLineLimit(2), stopped + "|ab|"},
    });
    const SCmnCommandOutcome one =
        shell("printf a; printf b >&2").setStreams(Streams::apart).setLineLimit(1).run();
    EXPECT_EQ(one.lines.size() + one.errorLines.size(), 1U);
    EXPECT_EQ(one.reason, Reason::outputLimit);
    EXPECT_TRUE(shell("exec yes").setByteLimit(1 << 20).setKeepBytes(true).run().bytes ==
                repeated("y\n", 1 << 19));
}

TEST_F(Command, Stops)
{
    const auto drop = [](auto, auto) { return usleep(1000) == 0; };
    const auto slow = [](auto text, auto on) { return usleep(600000) == 0 && keep(text, on); };
    const auto ready = [](const std::string& trap) {
        return shell(trap + "echo enough; while :; do sleep 0.01; done")
            .setStreams(Streams::outputOnly) // sh reports ends of sleep
            .setLineCallback(keep);
    };
    const std::string time = "stopped after its time limit (signal 2)",
                      silence = "stopped after its silence limit (signal 2)",
                      caller = "stopped by its caller ", killed = caller + "(signal 9)|enough";
    check({
        {"silence", shell("exec sleep 99").setSilenceLimit(20ms), silence},
        {"slow callback",
         shell("echo a; sleep 0.6; echo b").setSilenceLimit(500ms).setLineCallback(slow), "|a|b"},
        {"time", shell("exec sleep 99").setTimeLimit(20ms), time},
        {"time while it prints", shell("exec yes").setTimeLimit(20ms).setByteCallback(drop), time},
        {"background that prints", shell("yes & sleep 0.05").setByteCallback(drop), ""},
        {"suspended",
         shell("trap 'echo ab; exit 7' USR1; kill -STOP $$")
             .setTimeLimit(500ms)                                 // the trap is set by then
             .setByteLimit(1)                                     // the first reason counts
             .setStopStages({{SIGUSR1, 1s}, {SIGUSR1, forever}}), // the first may come early
         "stopped after its time limit (status 7)|a"},
        {"no limit", shell("echo a").setTimeLimit(forever).setSilenceLimit(forever), "|a"},
        {"second stage",
         ready("trap '' HUP; trap 'exit 5' USR1; ")
             .setStopStages({{SIGHUP, 5ms}, {SIGUSR1, forever}}),
         caller + "(status 5)|enough"},
        {"output after the stop",
         ready("trap 'while :; do echo b; done' USR1; ").setStopStages({{SIGUSR1, forever}}),
         caller + "(signal 13)|enough"},
        {"at once", ready("").setStopStages({}), killed},
        {"last signal", shell("exec sleep 99").setTimeLimit(20ms).setStopStages({{64, forever}}),
         "stopped after its time limit (signal 64)"},
    });
}

const CCmnCommand* stoppedByAlarm = nullptr;

TEST_F(Command, StopFromAnywhere)
{
    std::atomic<int> running = 0;
    CCmnCommand command = shell("echo; exec sleep 99");
    command.setLineCallback([&running](auto, auto) { return ++running > 0; });
    std::signal(SIGALRM, [](int) { stoppedByAlarm->kill(); });
    runOnThreads(3, [&](int thread) {
        for (int i = 0; i < 1000 && thread == 0 && running < 2; ++i)
            usleep(20000); // then more output is usually awaited
        if (thread == 0)
            command.stop();
        else
            EXPECT_EQ(textOf(command.run()), "stopped by its caller (signal 2)");
    });
    command = *&command; // keeps the stop
    EXPECT_EQ(textOf(command.run()), "not started: a stop was requested before the start");
    CCmnCommand started = shell("echo; exec sleep 99").setLineCallback([](auto, auto) {
        return ualarm(20000, 0) == 0; // later, its output is usually awaited
    });
    stoppedByAlarm = &started;
    EXPECT_EQ(textOf(started.run()), "stopped by its caller (signal 9)");
    stoppedByAlarm = &command;
    command.resetStop();
    command.kill();
    CCmnCommand copy(command), other(std::move(copy));
    command = copy = other.setTimeLimit(20ms); // takes the kill back; the copy had been moved from
    for (const CCmnCommand* each : {&command, &copy})
        EXPECT_EQ(textOf(each->run()), "stopped after its time limit (signal 2)");
    // After a stop in its callback a command still may print. A kill ends a stop that the command
    // ignores, in a silent wait.
    command = shell("trap 'echo bye; trap \"\" INT; exec sleep 99' INT; echo a; "
                    "while :; do sleep 0.01; done");
    command.setStopStages({{SIGINT, forever}}).setLineCallback([&](auto text, auto stream) {
        command.stop();
        return keep(text, stream) && (text == "a" || ualarm(50000, 0) == 0);
    });
    passed.clear();
    EXPECT_EQ(textOf(command.run()), "stopped by its caller (signal 9)");
    EXPECT_EQ(passed, (Lines{"a", "bye"}));
    // After a kill the rest of what was read is not passed on.
    command = shell("printf 'a\\nb\\n'; exec sleep 99");
    command.setLineCallback([&](auto text, auto stream) {
        command.kill();
        return keep(text, stream);
    });
    passed.clear();
    EXPECT_EQ(textOf(command.run()), "stopped by its caller (signal 9)");
    EXPECT_EQ(passed, Lines{"a"});
}

// What a command leaves running: orphans become children of this process.
TEST_F(Command, Grandchildren)
{
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    enum { goOn, stop, fail, reapAndStop }; // no group is killed whose id may be another's by then
    const std::pair<const char*, int> rows[] = {
        {"echo $!", goOn},   {"echo $!; exec sleep 99", stop},
        {"echo $!", stop},   {"echo $!; exec sleep 99", fail},
        {"printf $!", fail}, {"printf \"$! $$\"", reapAndStop}};
    // Again and again: with the second stop, the end of the command and its line come in any order.
    for (std::size_t run = 0; run < 40; ++run) {
        const auto& [end, action] = rows[run % std::size(rows)];
        pid_t orphan = 0;
        CCmnCommand command = shell(std::string("sleep 99 & ") + end);
        command.setLineCallback([&orphan, act = action](std::string_view line, Stream) {
            std::size_t size = 0;
            orphan = std::stoi(std::string(line), &size);
            if (act == reapAndStop) // the command has ended, as its line has no newline
                waitForChild(std::stoi(std::string(line.substr(size))));
            return act != fail ? act == goOn : throw std::runtime_error("");
        });
        if (action == fail)
            EXPECT_THROW(command.run(), std::runtime_error);
        else
            EXPECT_EQ(command.run().end, action == goOn ? End::exited : End::stopped);
        ASSERT_GT(orphan, 0) << end;
        const bool goesOn = action == goOn || action == reapAndStop;
        EXPECT_TRUE(!goesOn || kill(orphan, SIGTERM) == 0);
        const int status = waitForChild(orphan);
        EXPECT_TRUE(goesOn ? status == SIGTERM : WIFSIGNALED(status)) << end;
    }
    for (const bool ends : {false, true}) {
        CCmnCommand command = shell(ends ? "echo; exec sleep 99" : "echo; sleep 0.3");
        const pid_t left = leftByKilledCaller(ends ? command.setEndsWithCaller(true) : command);
        EXPECT_EQ(waitForChild(left), ends ? SIGKILL : 0);
    }
    prctl(PR_SET_CHILD_SUBREAPER, 0);
}

TEST_F(Command, TextsAndMessagesOfOutcomes)
{
    const struct {
        End end;
        Reason reason;
        int status, signal;
        const char* message;   // its key after the prefix, and its arguments
        const char* text = ""; // empty: other tests here have it
    } rows[] = {
        {End::notStarted, Reason::none, 0, 0, "NOT_STARTED why"},
        {End::exited, Reason::none, 3, 0, "EXITED 3"},
        {End::signalled, Reason::none, 0, 6, "SIGNALLED 6", "ended by signal 6, core dumped"},
        {End::stopped, Reason::caller, 4, 0, "STOPPED 4 0"},
        {End::stopped, Reason::silence, 0, 2, "STOPPED_SILENT 0 2"},
        {End::stopped, Reason::timeLimit, 0, 2, "STOPPED_TIME_LIMIT 0 2"},
        {End::stopped, Reason::outputLimit, 0, 2, "STOPPED_OUTPUT_LIMIT 0 2"},
        {End::unknown, Reason::none, 0, 0, "STATUS_UNKNOWN why", "ended with unknown status: why"},
        {End::unknown, Reason::silence, 0, 0, "STATUS_UNKNOWN why",
         "ended with unknown status, stopped after its silence limit: why"},
    };
    for (const auto& row : rows) {
        SCmnCommandOutcome outcome;
        outcome.end = row.end;
        outcome.reason = row.reason;
        outcome.status = row.status;
        outcome.signal = row.signal;
        outcome.coreDumped = row.signal == 6;
        outcome.errorText = "why";
        std::string message = outcome.messageKey();
        for (const std::string& argument : outcome.messageArguments())
            message += ' ' + argument;
        EXPECT_EQ(message, std::string("TARNIX_COMMAND_") + row.message);
        EXPECT_EQ(*row.text != 0 ? outcome.describe() : "", row.text);
    }
}

TEST_F(Command, UsageAndCore)
{
    rusage before{}, after{}; // of all children
    getrusage(RUSAGE_CHILDREN, &before);
    const SCmnCommandOutcome used = shell("i=0; while [ $i -lt 9999 ]; do i=$((i + 1)); done; "
                                          "exec dd if=/dev/zero of=/dev/null bs=150M count=1")
                                        .setStreams(Streams::outputOnly)
                                        .run();
    getrusage(RUSAGE_CHILDREN, &after);
    const auto between = [](const timeval& from, const timeval& to) { // cut to microseconds
        return 1s * (to.tv_sec - from.tv_sec) + 1us * (to.tv_usec - from.tv_usec);
    };
    EXPECT_LE(std::chrono::abs(used.userTime - between(before.ru_utime, after.ru_utime)), 2us);
    EXPECT_LE(std::chrono::abs(used.systemTime - between(before.ru_stime, after.ru_stime)), 2us);
    // One of them may be 0: the system takes samples.
    EXPECT_GT(used.userTime + used.systemTime, 0ns);
    EXPECT_GE(used.peakMemory, 150U << 20);
    EXPECT_LT(used.peakMemory, 170U << 20);
    EXPECT_EQ(CCmnCommand({"true"}).run().peakMemory, 0U); // this process has more
    const ScratchDirectory scratch;
    const std::string script = "cd " + scratch.path() + "; ulimit -c unlimited; kill -ABRT $$";
    const bool dumps = WCOREDUMP(std::system(script.c_str())); // before: the file is the same
    EXPECT_EQ(shell(script).run().coreDumped, dumps);
}

// Both classes get the same, in lines that Exec does not cut, while signals interrupt their waits.
TEST_F(Command, SameAsExec)
{
    const char* const wanted = std::getenv("TARNIX_RANDOM_COMMANDS");
    std::mt19937 random(17);
    const auto any = [&random](std::size_t count) { return random() % count; };
    const std::string pieces[] = {"word",   "\\r",   "\\n",   "\\r\\n",
                                  "\\n\\n", "\\001", "\\377", "x y"},
                      ends[] = {"exit 1",     "exit 255",    "exit 137",  "kill -1 $$",
                                "kill -9 $$", "kill -15 $$", "sleep 0.01"};
    struct sigaction action = {};
    action.sa_handler = [](int) {}; // without SA_RESTART
    sigaction(SIGALRM, &action, nullptr);
    ualarm(1000, 1000);
    for (int i = wanted != nullptr ? std::stoi(wanted) : 120; i > 0 && !HasFailure(); --i) {
        std::string script;
        for (std::size_t commands = any(4); commands > 0; --commands) {
            script += "printf \"" + std::string(any(2) * any(2500), 'x');
            for (std::size_t count = any(7); count > 0; --count)
                script += pieces[any(std::size(pieces))];
            script += any(3) == 0 ? "\" >&2; " : "\"; ";
        }
        script += ends[any(std::size(ends))];
        const std::string text = "sh -c " + CCmnStringTool::quote(script);
        const Outcome expected = run(text);
        const SCmnCommandOutcome got =
            (i % 2 == 0 ? CCmnCommand::fromText(text) : shell(script)).run();
        SCOPED_TRACE(brief(script));
        EXPECT_EQ(brief(got.lines), brief(expected.lines));
        EXPECT_EQ(got.signal, expected.signal);
        EXPECT_EQ(got.signal != 0 ? 128 + got.signal : got.status, expected.status);
    }
    ualarm(0, 0);
}

// Each run gets all of its own output and no other, and leaks no descriptor into other children.
TEST_F(Command, ParallelRunsOfBothClasses)
{
    SKIP_WITHOUT_PROC();
    const CCmnCommand shared = shell("cat; exec ls /proc/self/fd").setInput("in\n");
    runOnThreads(8, [&shared](int thread) {
        for (int i = 0; i < 10; ++i) {
            const std::string word = std::to_string(1000 * thread + i);
            EXPECT_EQ(shared.run().lines, (Lines{"in", "0", "1", "2", "3"}));
            EXPECT_EQ(run("sh -c 'echo " + word + "; exec ls /proc/self/fd'").lines,
                      (Lines{word, "0", "1", "2", "3"}));
        }
    });
}

} // namespace
