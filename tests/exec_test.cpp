// SPDX-License-Identifier: LicenseRef-Tarnix
// Real commands from end to end: lines, status and error record, without any leak.
#include "support/brief.h"
#include "support/command.h"
#include "support/fixture.h"
#include "support/scratchdirectory.h"

#include <fcntl.h>
#include <sys/prctl.h>

#include <csignal>
#include <thread>

using namespace tarnix_cmn_4_4;

namespace
{

using Exec = LeakCheck;

// `sh -c` with a script, which has no single quotes.
std::string shell(const std::string& text) { return "sh -c '" + text + "'"; }

TEST_F(Exec, LinesAsTheyWerePrinted)
{
    const std::string full(8191, '0');
    const std::pair<const char*, Lines> cases[] = {
        {R"(printf 'a\r\nb\rc\r\r\n\nlast')", {"a", "b\rc\r", "", "last"}},
        {R"(printf 'a\0b\nc\n')", {"a", "c"}},
        // Quotes are parsed without a shell; a newline after a backslash is dropped.
        {R"(printf '%s|' "a b" '' "" "\$x\y" '*;')", {R"(a b|||$x\y|*;|)"}},
        {"printf '%s|' a\\\nb \\\n \"c\\\nd\" e\\", {"ab|cd|e\\|"}},
        {R"(printf '%020000d\n' 0)", {full, full, std::string(3618, '0')}},
        {"sh -c 'sleep 9 & echo a'", {"a"}}, // the process that is left does not delay the end
    };
    for (const auto& [command, lines] : cases) {
        const Outcome outcome = run(command, 3);
        EXPECT_EQ(brief(outcome.lines), brief(lines)) << command;
        EXPECT_EQ(outcome.result, 0) << command;
    }
    // Many times the capacity of a pipe.
    EXPECT_EQ(run("seq 1 1000000").lines.size(), 1000000U);
}

TEST_F(Exec, RefusedStarts)
{
    const std::string zero("/\0x", 3);
    const struct {
        std::string command, directory;
        std::wstring text; // empty: it starts
        Lines lines{"former"};
    } rows[] = {
        {"./etc/passwd/\xFF", "/", L"cannot start program './etc/passwd/?': Not a directory"},
        {"true" + zero, "", L"command contains a 0 byte"},
        {"true", zero, L"working directory contains a 0 byte"},
        {"pwd", "/", L"", {"/"}},
    };
    for (const auto& row : rows) {
        CCmnExecPipeWindows runner;
        const Outcome outcome = exec(runner, row.command, 60, row.directory);
        EXPECT_EQ(outcome.record.getDescription(), row.text);
        EXPECT_EQ(outcome.lines, row.lines) << row.command;
    }
}

TEST_F(Exec, AProgramThatIsStillBeingWritten)
{
    const ScratchDirectory scratch;
    const std::string program = scratch.path("program");
    std::filesystem::copy_file("/bin/echo", program);
    const int writer = open(program.c_str(), O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(run(program).record.getDescription(),
              L"cannot start program '" + scratch.widePath("program") + L"': Text file busy");
    // Another process still holds it open for writing, for a moment.
    const pid_t holder = forkChild([] { return usleep(50000) == 0; });
    close(writer);
    EXPECT_EQ(run(program + " found").lines, Lines{"found"});
    EXPECT_EQ(waitForChild(holder), 0);
}

TEST_F(Exec, TimeoutDropsThePartialLineAndInitKillsAStubbornGroup)
{
    prctl(PR_SET_CHILD_SUBREAPER, 1); // an orphaned grandchild becomes a child of this process
    CCmnExecPipeWindows runner;
    // The shell ignores the signals to stop, as its child does, and then suspends itself.
    const std::string stubborn = "trap \"\" INT TERM; sleep 600 & echo $$; echo $!; printf partial";
    const Outcome outcome = exec(runner, shell(stubborn + "; kill -STOP $$"), 3);
    runner.Init();
    prctl(PR_SET_CHILD_SUBREAPER, 0);
    EXPECT_EQ(outcome.result, 5);
    ASSERT_EQ(outcome.lines.size(), 2U);
    const pid_t child = std::stoi(outcome.lines[0]), grandchild = std::stoi(outcome.lines[1]);
    EXPECT_NE(kill(child, 0), 0);
    EXPECT_EQ(waitpid(grandchild, nullptr, 0), grandchild);
    EXPECT_EQ(exec(runner, "echo next").lines, Lines{"next"});
}

TEST_F(Exec, AbortFromAnotherThreadEndsAnEndlessChild)
{
    CCmnExecPipeWindows runner;
    std::thread aborter([&runner] {
        usleep(200000); // output is usually being read by then
        runner.Abort();
    });
    // The closed pipe or the first signal ends the child.
    const Outcome outcome = exec(runner, "yes");
    aborter.join();
    EXPECT_EQ(outcome.result, 11);
    EXPECT_GT(outcome.status, 0);
}

// The caller has closed its standard descriptors, so that their numbers are reused, and has other
// inheritable ones; it blocks all signals, and ignores the first, the last and also SIGCHLD, so
// that the system keeps no exit status; and it has no PATH.
TEST_F(Exec, AnUnusualCaller)
{
    SKIP_WITHOUT_PROC();
    const pid_t caller = forkChild([] {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, nullptr);
        for (const int signal : {SIGHUP, SIGCHLD, SIGRTMAX})
            std::signal(signal, SIG_IGN);
        unsetenv("PATH");
        for (int i = 0; i < 3; ++i) {
            fcntl(i, F_DUPFD, 3);
            close(i);
        }
        const Outcome signals = run("grep -E Sig(Blk|Ign) /proc/self/status");
        return run("ls /proc/self/fd").lines == Lines{"0", "1", "2", "3"} && // 3 is the directory
               signals.lines == Lines{"SigBlk:\t0000000000000000", "SigIgn:\t0000000000000000"} &&
               signals.status == -1;
    });
    EXPECT_EQ(waitForChild(caller), 0);
}

} // namespace
