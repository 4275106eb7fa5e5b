// Real commands from end to end: lines, status and error record, without any leak.
#include "support/command.h"
#include "support/fixture.h"
#include "support/repeat.h"
#include "support/scratchdirectory.h"

#include <fcntl.h>
#include <sys/prctl.h>

#include <csignal>

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
    };
    for (const auto& [command, lines] : cases)
        EXPECT_EQ(run(command).lines, lines) << command;
    // Many times the capacity of a pipe.
    EXPECT_EQ(run("seq 1 1000000").lines.size(), 1000000U);
}

TEST_F(Exec, StatusesWhileSignalsInterruptEveryWait)
{
    struct sigaction action = {};
    action.sa_handler = [](int) {}; // without SA_RESTART
    sigaction(SIGALRM, &action, nullptr);
    ualarm(1000, 1000);
    const struct {
        const char* text;
        int status, signal;
    } cases[] = {
        {"echo a; sleep 0.5; echo b; sleep 0.5; exit 255", 255, 0},
        {"echo a; sleep 0.1; echo b; kill -9 $$", 137, 9},
        {"echo a; sleep 0.1; echo b; exit 137", 137, 0},
        {"sleep 9 & echo a; echo b; exit 4", 4, 0}, // the background process does not delay the end
    };
    for (const auto& [text, status, signal] : cases) {
        const Outcome outcome = run(shell(text), 3);
        EXPECT_EQ(outcome.lines, (Lines{"a", "b"})) << text;
        EXPECT_EQ(outcome.status, status) << text;
        EXPECT_EQ(outcome.signal, signal) << text;
        EXPECT_FALSE(outcome.coreDumped);
    }
    ualarm(0, 0);
}

TEST_F(Exec, RefusedStarts)
{
    const std::wstring missing = L"No such file or directory", denied = L"Permission denied";
    const std::tuple<std::string, std::string, std::wstring> cases[] = {
        {"no-such-program x", "", L"cannot start program 'no-such-program': " + missing},
        {"/etc/passwd", "", L"cannot start program '/etc/passwd': " + denied},
        // An error's text has room for 255 bytes in front of the system's.
        {std::string(250, 'n'), "",
         L"cannot start program '" + std::wstring(233, 'n') + L": " + missing},
        {"./\xFF", "/", L"cannot start program './?': " + missing}, // not text in any locale
        {std::string("true\0x", 6), "", L"command contains a 0 byte"},
        {"true", std::string("/\0x", 3), L"working directory contains a 0 byte"},
    };
    CCmnExecPipeWindows runner;
    for (const auto& [command, directory, text] : cases)
        EXPECT_EQ(exec(runner, command, 60, directory).record.getDescription(), text);
    EXPECT_EQ(exec(runner, "pwd", 60, "/").lines, Lines{"/"}); // the runner still works
    const ScratchDirectory scratch;
    // The search goes on after a program that may not be executed, but not after one that is none.
    for (const char* directory : {"denied", "none", "good"}) {
        scratch.makeDirectory(directory);
        scratch.write(std::string(directory) + "/tool",
                      directory == std::string("good") ? "#!/bin/echo" : "");
    }
    const auto toolIn = [&](const std::string& first, const std::string& second) {
        setenv("PATH", (scratch.path(first) + ":" + scratch.path(second)).c_str(), 1);
        return run("tool x");
    };
    const std::string path = std::getenv("PATH");
    for (const char* tool : {"none/tool", "good/tool"})
        chmod(scratch.path(tool).c_str(), 0755);
    EXPECT_EQ(toolIn("denied", "good").lines, Lines{scratch.path("good/tool") + " x"});
    EXPECT_EQ(toolIn("denied", "empty").record.getDescription(),
              L"cannot start program 'tool': " + denied);
    EXPECT_EQ(toolIn("none", "good").record.getDescription(),
              L"cannot start program 'tool': Exec format error");
    setenv("PATH", path.c_str(), 1);
    const std::string program = scratch.path("program");
    std::filesystem::copy_file("/bin/echo", program);
    const int writer = open(program.c_str(), O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(run(program).record.getDescription(),
              L"cannot start program '" + scratch.widePath("program") + L"': Text file busy");
    // Another process still holds it open for writing, for a moment.
    const pid_t holder = forkChild([] { return usleep(20000) == 0; });
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
    EXPECT_EQ(outcome.record.getExitStatus(), outcome.status);
    EXPECT_GT(outcome.status, 0);
    EXPECT_EQ(run("echo next").lines, Lines{"next"}); // no output of the aborted command
}

// The caller has closed its standard descriptors, so that their numbers are reused, and has other
// inheritable ones; it blocks all signals, and ignores SIGRTMAX and also SIGCHLD, so that the
// system keeps no exit status; and it has no PATH.
TEST_F(Exec, AnUnusualCaller)
{
    SKIP_WITHOUT_PROC();
    const pid_t caller = forkChild([] {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, nullptr);
        std::signal(SIGCHLD, SIG_IGN);
        std::signal(SIGRTMAX, SIG_IGN);
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

// Each run gets all of its own output and no other, and leaks no descriptor into other children.
TEST_F(Exec, EightThreads)
{
    SKIP_WITHOUT_PROC();
    runOnThreads(8, [](int thread) {
        for (int i = 0; i < 60; ++i) {
            const std::string word = std::to_string(1000 * thread + i);
            EXPECT_EQ(
                run(shell("echo " + word + "; echo " + word + " >&2; ls /proc/self/fd")).lines,
                (Lines{word, word, "0", "1", "2", "3"}));
        }
    });
}

} // namespace
