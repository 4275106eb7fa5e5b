// Real commands from end to end: lines, outcome, record, and nothing left behind.
#include "cmnexecpipewindows.h"
#include "processstate.h"

#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <future>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <thread>

using namespace tarnix_cmn_4_4;
using Lines = std::vector<std::string>;

namespace
{

const std::string child = TARNIX_TEST_CHILD;

// Every test ends with the descriptors and children that it began with.
class Exec : public testing::Test
{
protected:
    void SetUp() override
    {
        Lines lines; // the layer's own tables are made by the first run
        CCmnExecPipeWindows().Exec("true", lines, "", 60, "", "", "");
        m_Before = ProcessState::now();
    }
    void TearDown() override { EXPECT_EQ(ProcessState::now(), m_Before); }

    ProcessState m_Before;
};

struct Outcome {
    int result = -1, status = -1;
    Lines lines;
    ECmnExecPipe record;
    bool statusKnown = false;
};

int exec(CCmnExecPipeWindows& runner, const std::string& command, Lines& lines,
         unsigned long seconds = 60, const std::string& dir = "")
{
    return runner.Exec(command, lines, "", seconds, dir, "", "");
}

Outcome run(const std::string& command, unsigned long seconds = 60, const std::string& dir = "")
{
    CCmnExecPipeWindows runner;
    Outcome outcome;
    outcome.result = exec(runner, command, outcome.lines, seconds, dir);
    outcome.record = runner.getLastError();
    outcome.statusKnown = runner.getExitStatus(outcome.status);
    return outcome;
}

// `sh -c` with a text without single quotes.
std::string shell(const std::string& text) { return "sh -c '" + text + "'"; }

bool isGone(const std::string& pid) { return kill(std::stoi(pid), 0) != 0 && errno == ESRCH; }

std::string stateOf(const std::string& pid)
{
    std::ifstream stat("/proc/" + pid + "/stat");
    std::string word;
    stat >> word >> word >> word;
    return word;
}

TEST_F(Exec, LinesAsTheyWerePrinted)
{
    const std::string x8191(8191, 'x');
    const std::string x3618(3618, 'x');
    const struct {
        std::string command;
        Lines lines;
    } cases[] = {
        {"true", {}},
        {R"(printf 'a\r\nb\rc\r\r\n\nlast')", {"a", "b\rc\r", "", "last"}},
        {R"(printf 'a\0b\nc\n')", {"a", "c"}},
        {R"(printf '%s|' "a b" 'c"d' e\ f '' "\$x\y" g"h"'i')", {R"(a b|c"d|e f||$x\y|ghi|)"}},
        {"echo a | cat > b; $HOME *", {"a | cat > b; $HOME *"}}, // no shell
        {shell("head -c 8191 /dev/zero | tr \"\\\\0\" x; echo"), {x8191, ""}},
        {shell("head -c 20000 /dev/zero | tr \"\\\\0\" x; echo"), {x8191, x8191, x3618}},
    };
    for (const auto& test : cases) {
        const Outcome outcome = run(test.command);
        EXPECT_EQ(outcome.lines, test.lines) << test.command;
        EXPECT_EQ(outcome.result, 0) << test.command;
    }
    EXPECT_EQ(run("pwd", 60, "/").lines, Lines{"/"});
}

TEST_F(Exec, MillionsOfBytes)
{
    const Lines lines = run("seq 1 1000000").lines;
    ASSERT_EQ(lines.size(), 1000000U);
    for (std::size_t i = 0; i < lines.size(); ++i) {
        ASSERT_EQ(lines[i], std::to_string(i + 1));
    }
    const Lines both =
        run(shell("yes out | head -n 250000 & yes err | head -n 250000 >&2; wait")).lines;
    EXPECT_EQ(std::count(both.begin(), both.end(), "out"), 250000);
    EXPECT_EQ(std::count(both.begin(), both.end(), "err"), 250000);
}

TEST_F(Exec, Statuses)
{
    const std::pair<std::string, int> cases[] = {
        {"exit 3", 3}, {"exit 255", 255}, {"kill -9 $$", 137}, {"kill -15 $$", 143}};
    for (const auto& [text, status] : cases) {
        // Silent, and long enough alive to end while a line is awaited: Close sees the status.
        Outcome outcome = run(shell("sleep 0.5; " + text));
        EXPECT_EQ(outcome.result, 11);
        EXPECT_EQ(outcome.record.getCode(), 11);
        EXPECT_EQ(outcome.record.getExitStatus(), status);
        EXPECT_EQ(outcome.record.getDescription(),
                  L"Command exited with status " + std::to_wstring(status));
        // With output the end may be seen by the reading of the next line: the result is then 0.
        outcome = run(shell("echo x; " + text));
        EXPECT_TRUE(outcome.result == 11 || outcome.result == 0);
        EXPECT_TRUE(outcome.statusKnown);
        EXPECT_EQ(outcome.status, status);
    }
}

TEST_F(Exec, RefusedStarts)
{
    const struct {
        std::string command;
        std::string dir;
        std::wstring about;
        std::wstring why;
    } cases[] = {
        {"no-such-program x", "", L"no-such-program", L"No such file or directory"},
        {"/no/such/program", "", L"/no/such/program", L"No such file or directory"},
        {"./no-such-program", "/", L"./no-such-program", L"No such file or directory"},
        {"true", "/no/such/dir", L"/no/such/dir", L"No such file or directory"},
        {"true", "/etc/passwd", L"/etc/passwd", L"Not a directory"},
        {"/etc/passwd", "", L"/etc/passwd", L"Permission denied"},
        {"/", "", L"'/'", L"Permission denied"},
        {"", "", L"the command is empty", L"Invalid argument"},
        {" \t", "", L"the command is empty", L"Invalid argument"},
        {"echo 'a", "", L"quote", L"Invalid argument"},
    };
    for (const auto& test : cases) {
        CCmnExecPipeWindows runner;
        Lines lines{"former"};
        EXPECT_EQ(exec(runner, test.command, lines, 60, test.dir), 3);
        const ECmnExecPipe record = runner.getLastError();
        EXPECT_EQ(record.getCode(), ECmnExecPipe::CREATE_CHILD_PROCESS_FAILED);
        EXPECT_EQ(record.getSubject(), test.command);
        EXPECT_NE(record.getDescription().find(test.about), std::wstring::npos) << test.command;
        EXPECT_NE(record.getDescription().find(test.why), std::wstring::npos) << test.command;
        EXPECT_EQ(lines, Lines{"former"});
        int status = 0;
        EXPECT_FALSE(runner.getExitStatus(status));
        // The same object can be used for a start that works.
        EXPECT_EQ(exec(runner, "echo again", lines), 0);
        EXPECT_EQ(lines, Lines{"again"});
    }
}

TEST_F(Exec, NoOutputIsLostAtTheEnd)
{
    for (const bool busy : {false, true}) {
        std::atomic<bool> stop{!busy};
        std::vector<std::thread> hogs;
        for (unsigned i = 0; i < std::thread::hardware_concurrency(); ++i) {
            hogs.emplace_back([&stop] {
                while (!stop) {
                }
            });
        }
        for (int i = 0; i < 1000; ++i) {
            ASSERT_EQ(run(shell("echo out; echo err >&2")).lines, (Lines{"out", "err"})) << i;
        }
        stop = true;
        for (std::thread& hog : hogs) {
            hog.join();
        }
    }
}

TEST_F(Exec, TimeOutDropsThePartialLineAndTheObjectEndsTheChild)
{
    CCmnExecPipeWindows runner;
    Lines lines;
    EXPECT_EQ(
        runner.Exec(shell("echo $$; printf partial; exec sleep 600"), lines, "", 1, "", "", ""), 5);
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_FALSE(isGone(lines[0]));
    int status = 0;
    EXPECT_FALSE(runner.getExitStatus(status));
    EXPECT_EQ(runner.getLastError().getCode(), 5);
    runner.Init(); // asks the former child to stop, which it does
    EXPECT_TRUE(isGone(lines[0]));
    EXPECT_EQ(exec(runner, "echo next", lines), 0);
    EXPECT_EQ(lines, Lines{"next"});
}

TEST_F(Exec, AStubbornGroupIsKilled)
{
    Lines pids;
    {
        CCmnExecPipeWindows runner;
        EXPECT_EQ(exec(runner, child + " stubborn", pids, 1), 5);
        int status = 0;
        EXPECT_FALSE(runner.getExitStatus(status));
    }
    ASSERT_EQ(pids.size(), 2U);
    EXPECT_TRUE(isGone(pids[0]));
    // The grandchild was killed at the same moment; it goes as soon as it is scheduled.
    while (!isGone(pids[1]) && stateOf(pids[1]) != "Z") {
        std::this_thread::yield();
    }
}

// Tells when the first line has been read.
class Announcing : public CCmnExecPipeWindows
{
public:
    std::promise<void> firstLine;

protected:
    int ReadLine(char* buffer, int size, int* timedOut, long seconds) override
    {
        const int more = CCmnExecPipeWindows::ReadLine(buffer, size, timedOut, seconds);
        if (!m_Announced && more == 1) {
            m_Announced = true;
            firstLine.set_value();
        }
        return more;
    }

private:
    bool m_Announced = false;
};

TEST_F(Exec, AbortFromAnotherThread)
{
    Announcing runner;
    std::thread aborter([&runner] {
        runner.firstLine.get_future().wait();
        runner.Abort();
    });
    Lines lines;
    const int result = runner.Exec(shell("while :; do echo tick; done"), lines, "", 60, "", "", "");
    aborter.join();
    // The loop of the shell ends by the closed pipe or by the signal of the first stage.
    EXPECT_TRUE(result == 11 || result == 0);
    EXPECT_FALSE(lines.empty());
    EXPECT_EQ(exec(runner, "true", lines), 0);
    EXPECT_TRUE(lines.empty());
}

TEST_F(Exec, AGrandchildDoesNotHoldUpTheEnd)
{
    const Outcome quiet = run(shell("sleep 600 & echo $!"));
    ASSERT_EQ(quiet.lines.size(), 1U);
    EXPECT_TRUE(quiet.statusKnown);
    EXPECT_EQ(kill(std::stoi(quiet.lines[0]), SIGKILL), 0);
    // One that writes without pause is cut off where the child ended.
    EXPECT_EQ(run(shell("yes & exit 4")).status, 4);
    const Outcome unawaited = run(shell("sleep 0.3; echo late; exit 5"), 0);
    EXPECT_EQ(unawaited.lines, Lines{});
    EXPECT_TRUE(unawaited.statusKnown && unawaited.result != 5);
}

TEST_F(Exec, WhatTheChildIsGiven)
{
    // Descriptors of the host, inheritable, one of them in the way of the standard ones.
    const int open[] = {fcntl(1, F_DUPFD, 0), fcntl(1, F_DUPFD, 100), fcntl(1, F_DUPFD, 900)};
    sigset_t blocked;
    sigset_t former;
    sigfillset(&blocked);
    pthread_sigmask(SIG_SETMASK, &blocked, &former);
    const auto formerPipe = std::signal(SIGPIPE, SIG_IGN);
    const auto formerTerm = std::signal(SIGTERM, SIG_IGN);
    const Lines descriptors = run(child + " descriptors").lines;
    const Lines signals = run(child + " signals").lines;
    std::signal(SIGPIPE, formerPipe);
    std::signal(SIGTERM, formerTerm);
    pthread_sigmask(SIG_SETMASK, &former, nullptr);
    for (const int fd : open) {
        close(fd);
    }
    EXPECT_EQ(descriptors, Lines{"0 1 2 "});
    EXPECT_EQ(signals,
              (Lines{"SigBlk:\t0000000000000000", "SigIgn:\t0000000000000000", "own group"}));
}

TEST_F(Exec, AHostThatIgnoresSigchldGetsNoStatus)
{
    const auto former = std::signal(SIGCHLD, SIG_IGN);
    const Outcome outcome = run(shell("sleep 0.5; exit 3"));
    std::signal(SIGCHLD, former);
    EXPECT_EQ(outcome.result, 8);
    EXPECT_EQ(outcome.record.getDescription(), L"Error in WaitPid()");
    EXPECT_FALSE(outcome.statusKnown);
}

TEST_F(Exec, SignalsInterruptEveryWait)
{
    struct sigaction action {
    };
    struct sigaction former {
    };
    action.sa_handler = [](int) {}; // without SA_RESTART
    sigaction(SIGALRM, &action, &former);
    const itimerval often{{0, 1000}, {0, 1000}};
    const itimerval never{};
    setitimer(ITIMER_REAL, &often, nullptr);
    for (int i = 0; i < 20; ++i) {
        const Outcome outcome = run(shell("for i in 1 2 3; do sleep 0.01; echo $i; done; exit 7"));
        EXPECT_EQ(outcome.lines, (Lines{"1", "2", "3"}));
        EXPECT_EQ(outcome.status, 7);
    }
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &former, nullptr);
}

TEST_F(Exec, CopiesAreIdleAndOwnNothing)
{
    CCmnExecPipeWindows source(Lines{"kept"});
    Lines lines;
    EXPECT_EQ(source.Exec(shell("echo $$; exec sleep 600"), lines, "", 1, "", "", ""), 5);
    {
        CCmnExecPipeWindows copy(source);
        CCmnExecPipeWindows assigned;
        assigned = source;
        for (CCmnExecPipeWindows* runner : {&copy, &assigned}) {
            EXPECT_EQ(runner->getLastError().getCode(), 5);
            Lines own;
            EXPECT_EQ(runner->Exec("echo own", own, "", 60, "", "", ""), 0);
            EXPECT_EQ(own, Lines{"own"});
        }
    }
    EXPECT_FALSE(isGone(lines.at(0))); // the ends of the copies left the source's child alone
}

TEST_F(Exec, ASecondRunNeedsInit)
{
    CCmnExecPipeWindows runner;
    Lines lines;
    EXPECT_EQ(exec(runner, "echo 1", lines), 0);
    EXPECT_EQ(exec(runner, "true", lines), 0);
    EXPECT_EQ(lines, Lines{});
    EXPECT_NE(exec(runner, "echo 2", lines), 5); // nobody reads it
    EXPECT_EQ(lines, Lines{});
    runner.Init();
    EXPECT_EQ(exec(runner, "echo 3", lines), 0);
    EXPECT_EQ(lines, Lines{"3"});
}

TEST_F(Exec, EightThreads)
{
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([t, &wrong] {
            for (int i = 0; i < 200; ++i) {
                const std::string word = std::to_string(t) + "-" + std::to_string(i);
                const Outcome outcome = run(shell("echo " + word + "; echo " + word + " >&2"));
                const Lines fds = i % 50 == 0 ? run(child + " descriptors").lines : Lines{"0 1 2 "};
                if (outcome.lines != Lines{word, word} || fds != Lines{"0 1 2 "}) {
                    ++wrong;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
}

} // namespace
