// Real commands from end to end: lines, outcome, record, and nothing left behind.
#include "cmnexecpipewindows.h"
#include "processstate.h"
#include "scratch.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/time.h>

using namespace tarnix_cmn_4_4;

namespace
{

using Exec = NothingLeft;

// `sh -c` with a text without single quotes.
std::string shell(const std::string& text) { return "sh -c '" + text + "'"; }

bool isRunning(const std::string& pid)
{
    std::ifstream stat("/proc/" + pid + "/stat");
    std::string state;
    stat >> state >> state >> state;
    return stat && state != "Z";
}

TEST_F(Exec, LinesAsTheyWerePrinted)
{
    const std::string x8191(8191, 'x'), x3618(3618, 'x');
    const std::pair<std::string, Lines> cases[] = {
        {"true", {}},
        {R"(printf 'a\r\nb\rc\r\r\n\nlast')", {"a", "b\rc\r", "", "last"}},
        {R"(printf 'a\0b\nc\n')", {"a", "c"}},
        {R"(printf '%s|' "a b" '' "\$x\y" '*;')", {R"(a b||$x\y|*;|)"}}, // no shell
        {shell("head -c 8191 /dev/zero | tr \"\\\\0\" x; echo"), {x8191, ""}},
        {shell("head -c 20000 /dev/zero | tr \"\\\\0\" x; echo"), {x8191, x8191, x3618}},
    };
    for (const auto& [command, lines] : cases) {
        const Outcome outcome = run(command);
        EXPECT_EQ(outcome.lines, lines) << command;
        EXPECT_EQ(outcome.result, 0) << command;
    }
    const Lines lines = run("seq 1 1000000").lines; // many times what a pipe holds
    ASSERT_EQ(lines.size(), 1000000U);
    for (std::size_t i = 0; i < lines.size(); ++i)
        ASSERT_EQ(lines[i], std::to_string(i + 1));
}

TEST_F(Exec, WithoutPathTheSystemsOwnIsSearched)
{
    const std::string path = std::getenv("PATH");
    unsetenv("PATH");
    EXPECT_EQ(run("echo found").lines, Lines{"found"});
    setenv("PATH", path.c_str(), 1);
}

// The places of closed standard descriptors go to the next that are opened.
TEST_F(Exec, ACallerWithoutStandardDescriptors)
{
    int kept[3];
    for (int i = 0; i < 3; ++i) {
        kept[i] = fcntl(i, F_DUPFD_CLOEXEC, 10);
        close(i);
    }
    const Lines lines = run("echo found").lines;
    for (int i = 0; i < 3; ++i) {
        dup2(kept[i], i);
        close(kept[i]);
    }
    EXPECT_EQ(lines, Lines{"found"});
}

TEST_F(Exec, Statuses)
{
    const std::pair<std::string, int> cases[] = {
        {"exit 3", 3}, {"exit 255", 255}, {"kill -9 $$", 137}, {"kill -15 $$", 143}};
    for (const auto& [text, status] : cases) {
        // Silent, and long enough alive to end while a line is awaited: Close sees the status.
        const Outcome outcome = run(shell("sleep 0.5; " + text));
        EXPECT_EQ(outcome.result, 11);
        EXPECT_EQ(outcome.record.getExitStatus(), status);
    }
    const auto former = std::signal(SIGCHLD, SIG_IGN); // the system keeps no status then
    const Outcome unknown = run(shell("sleep 0.5; exit 3"));
    std::signal(SIGCHLD, former);
    EXPECT_EQ(unknown.result, 8);
    EXPECT_EQ(unknown.status, -1);
}

TEST_F(Exec, RefusedStarts)
{
    const std::wstring missing = L"No such file or directory", denied = L"Permission denied";
    const struct {
        std::string command, dir;
        std::wstring text;
    } cases[] = {
        {"no-such-program x", "", L"cannot start program 'no-such-program': " + missing},
        {"./no-such-program", "/", L"cannot start program './no-such-program': " + missing},
        {"/etc/passwd", "", L"cannot start program '/etc/passwd': " + denied},
        {"./\xFF", "/", L"cannot start program './?': " + missing}, // what no locale reads
        {"true", "/no/such/dir", L"cannot enter directory '/no/such/dir': " + missing},
        {" \t", "", L"the command is empty: Invalid argument"},
        {"echo 'a", "", L"a quote is not closed in the command: Invalid argument"},
    };
    for (const auto& test : cases) {
        CCmnExecPipeWindows runner;
        const auto [result, status, lines, record] = exec(runner, test.command, 60, test.dir);
        EXPECT_EQ(result, 3);
        EXPECT_EQ(record.getCode(), ECmnExecPipe::CREATE_CHILD_PROCESS_FAILED);
        EXPECT_EQ(record.getSubject(), test.command);
        EXPECT_EQ(record.getDescription(), test.text);
        EXPECT_EQ(lines, Lines{"former"});
        EXPECT_EQ(status, -1);
        EXPECT_EQ(exec(runner, "pwd", 60, "/").lines, Lines{"/"}); // it can still be used
    }
}

TEST_F(Exec, TimeOutDropsThePartialLineAndTheObjectEndsTheChild)
{
    CCmnExecPipeWindows runner;
    const auto [result, status, lines, record] =
        exec(runner, shell("echo $$; printf partial; exec sleep 600"), 1);
    EXPECT_EQ(result, 5);
    EXPECT_EQ(record.getCode(), 5);
    EXPECT_EQ(status, -1);
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_TRUE(isRunning(lines[0]));
    runner.Init(); // asks the former child to stop, which it does
    EXPECT_FALSE(isRunning(lines[0]));
    EXPECT_EQ(exec(runner, "echo next").lines, Lines{"next"});
    // Without Init nobody reads the run behind a closed one.
    EXPECT_EQ(exec(runner, "echo unread").lines, Lines{});
    runner.Init();
    EXPECT_EQ(exec(runner, "echo read").lines, Lines{"read"});
}

TEST_F(Exec, AStubbornGroupIsKilled)
{
    // It ignores what it is asked, and then stands still; its own child ignores the same.
    const Outcome outcome =
        run(shell("trap \"\" INT TERM; sleep 600 & echo $$; echo $!; kill -STOP $$; echo x"), 1);
    EXPECT_EQ(outcome.result, 5);
    ASSERT_EQ(outcome.lines.size(), 2U);
    EXPECT_FALSE(isRunning(outcome.lines[0]));
    // The grandchild was killed at the same moment; it goes as soon as it is scheduled.
    while (isRunning(outcome.lines[1]))
        std::this_thread::yield();
}

// Until the tracer goes, such a child has ended and cannot be reaped. Its output does not end: it
// is open in another process.
TEST_F(Exec, ATracedChildDoesNotHoldUpTheTimeOut)
{
    const Scratch scratch;
    const pid_t tracer = beginApart([&scratch] {
        pid_t child = 0;
        for (std::ifstream told; child == 0; told.open(scratch.path("child")))
            told >> child;
        const bool traces = ptrace(PTRACE_SEIZE, child, nullptr, nullptr) == 0;
        scratch.write("traced", "");
        return traces && sleep(3) == 0;
    });
    const std::string at = "cd " + scratch.path() + "; ";
    const int result =
        run(shell(at + "sleep 3 & echo $$ > new; mv new child; until test -e traced; do :; done"),
            1)
            .result;
    int status = -1;
    EXPECT_EQ(waitpid(tracer, &status, 0), tracer);
    if (status != 0)
        GTEST_SKIP() << "this user may not trace";
    EXPECT_EQ(result, 5);
}

TEST_F(Exec, AbortFromAnotherThreadEndsAnEndlessChild)
{
    CCmnExecPipeWindows runner;
    std::thread aborter([&runner] {
        std::this_thread::sleep_for(std::chrono::milliseconds(200)); // mostly it is read by then
        runner.Abort();
    });
    const Outcome outcome = exec(runner, shell("while :; do echo tick; done"));
    aborter.join();
    // The loop of the shell ends by the closed pipe or by the signal of the first stage.
    EXPECT_TRUE(outcome.result == 11 || outcome.result == 0);
}

TEST_F(Exec, AGrandchildDoesNotHoldUpTheEnd)
{
    const Outcome quiet = run(shell("sleep 600 & echo $!"));
    ASSERT_EQ(quiet.lines.size(), 1U);
    EXPECT_EQ(quiet.status, 0);
    EXPECT_EQ(kill(std::stoi(quiet.lines[0]), SIGKILL), 0);
    // One that writes without pause is cut off where the child ended.
    EXPECT_EQ(run(shell("yes & exit 4")).status, 4);
}

TEST_F(Exec, WhatTheChildIsGiven)
{
    // Descriptors of the host, inheritable, one of them in the way of the standard ones.
    const int open[] = {fcntl(1, F_DUPFD, 0), fcntl(1, F_DUPFD, 900)};
    sigset_t blocked, former;
    sigfillset(&blocked);
    pthread_sigmask(SIG_SETMASK, &blocked, &former);
    const auto formerPipe = std::signal(SIGPIPE, SIG_IGN);
    const Lines descriptors = run("ls /proc/self/fd").lines;
    const Lines signals = run("grep -E Sig(Blk|Ign) /proc/self/status").lines;
    std::signal(SIGPIPE, formerPipe);
    pthread_sigmask(SIG_SETMASK, &former, nullptr);
    for (const int fd : open)
        close(fd);
    EXPECT_EQ(descriptors, (Lines{"0", "1", "2", "3"})); // the last is the listed directory
    EXPECT_EQ(signals, (Lines{"SigBlk:\t0000000000000000", "SigIgn:\t0000000000000000"}));
}

TEST_F(Exec, SignalsInterruptEveryWait)
{
    using Action = struct sigaction;
    Action action{}, former{};
    action.sa_handler = [](int) {}; // without SA_RESTART
    sigaction(SIGALRM, &action, &former);
    const itimerval often{{0, 1000}, {0, 1000}}, never{};
    setitimer(ITIMER_REAL, &often, nullptr);
    for (int i = 0; i < 20; ++i) {
        const Outcome outcome = run(shell("for i in 1 2 3; do sleep 0.01; echo $i; done; exit 7"));
        EXPECT_EQ(outcome.lines, (Lines{"1", "2", "3"}));
        EXPECT_EQ(outcome.status, 7);
    }
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &former, nullptr);
}

// Nothing is lost at the end of a child, and nothing meets.
TEST_F(Exec, EightThreads)
{
    std::atomic<int> wrong{0};
    onThreads(8, [&wrong](int thread) {
        for (int i = 0; i < 200; ++i) {
            const std::string word = std::to_string(thread) + "-" + std::to_string(i);
            wrong +=
                run(shell("echo " + word + "; echo " + word + " >&2")).lines != Lines{word, word};
            wrong += i % 50 == 0 && run("ls /proc/self/fd").lines.size() != 4;
        }
    });
    EXPECT_EQ(wrong, 0);
}

} // namespace
