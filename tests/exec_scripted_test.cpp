// The runner over a scripted platform: every failure of a start, of a read, of a wait and of a
// stop, and the balance of handles behind each.
#include "cmnexecpipewindows.h"
#include "cmntracelog.h"
#include "scratch.h"
#include "scripted_platform.h"

#include <gtest/gtest.h>

using namespace tarnix_cmn_4_4;
using Lines = std::vector<std::string>;

namespace
{

class Scripted : public testing::Test
{
protected:
    void SetUp() override
    {
        script = Script();
        m_Scratch.makeDirectory("install");
        m_Scratch.setRegistry(m_Scratch.path("install/"), "");
    }
    void TearDown() override
    {
        EXPECT_TRUE(script.open.empty()) << script.open.size() << " handles are left open";
        EXPECT_EQ(script.wrongCloses, Lines{});
    }

    struct Outcome {
        int result;
        Lines lines;
        ECmnExecPipe record;
        int status = -1;
        std::string printed;
        std::string traced;
    };

    // One run with a trace log; the runner is gone when this returns.
    Outcome run(unsigned long seconds = 7, const std::string& directory = "",
                const std::string& user = "", const std::string& password = "")
    {
        Outcome outcome;
        outcome.lines = {"former"};
        m_Scratch.write("install/Logs/runner.log", "");
        CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>> log(true);
        log.get()->initialize(L"runner", L"", L"", 1, false);
        testing::internal::CaptureStdout();
        {
            CCmnExecPipeWindows runner;
            runner.setTraceLog(log);
            outcome.result =
                runner.Exec("command", outcome.lines, "", seconds, directory, user, password);
            outcome.record = runner.getLastError();
            runner.getExitStatus(outcome.status);
        }
        outcome.printed = testing::internal::GetCapturedStdout();
        outcome.traced = m_Scratch.read("install/Logs/runner.log");
        return outcome;
    }

    void output(const std::string& text)
    {
        script.reads.insert(script.reads.end(), text.begin(), text.end());
    }

    Scratch m_Scratch;
};

TEST_F(Scripted, FailuresOfTheStart)
{
    const struct {
        std::string operation;
        int call;
        int code;
        int result;
        std::string trace;
    } cases[] = {
        {"CreateNamedPipeA", 1, 1, 1, "CreateNamedPipeA failed, Error Code: 13, Reason: "},
        {"CreateNamedPipeA", 2, 1, 1, "CreateNamedPipeA failed, Error Code: 13, Reason: "},
        {"CreateFileA", 1, 1, 1, "CreateFileA failed, Error Code: 13, Reason: "},
        {"CreateFileA", 2, 1, 1, "CreateFileA failed, Error Code: 13, Reason: "},
        {"DuplicateHandle", 1, 2, 2, ""},
        {"DuplicateHandle", 2, 2, 2, ""},
        {"DuplicateHandle", 3, 2, 2, ""},
        {"CloseHandle", 1, 3, 3, ""},
        {"CloseHandle", 2, 3, 3, ""},
        {"CreateProcess", 1, 4, 3, ""},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.operation + " " + std::to_string(test.call));
        script = Script();
        script.failCall[test.operation] = test.call;
        const Outcome outcome = run();
        EXPECT_EQ(outcome.result, test.result);
        EXPECT_EQ(outcome.record.getCode(), test.code);
        EXPECT_EQ(outcome.record.getSubject(), "command");
        EXPECT_EQ(outcome.record.getDescription(), test.code == 4 ? L"scripted error 13" : L"");
        EXPECT_EQ(outcome.lines, Lines{"former"});
        EXPECT_EQ(outcome.printed,
                  test.code == 1 ? "GetNamedPipeHandles() FAILED with error code (13)\n" : "");
        if (!test.trace.empty()) {
            EXPECT_NE(outcome.traced.find("CCmnExecPipeWindows::GetNamedPipeHandles ERROR: " +
                                          test.trace + "scripted error 13\n"),
                      std::string::npos)
                << outcome.traced;
        }
        EXPECT_TRUE(script.open.empty());
    }
    script = Script();
    script.startThrows = true;
    EXPECT_EQ(run().result, 8);
    script = Script();
    script.failCall = {{"CreateProcess", 1}, {"FormatMessageW", 1}};
    EXPECT_EQ(run().record.getDescription(), L"");
}

TEST_F(Scripted, WhatTheStartAsksFor)
{
    run(7, "/dir");
    EXPECT_EQ(script.count("CreateProcessA command in /dir flags 134218272"), 1); // 0x8000220
    run();
    EXPECT_EQ(script.count("CreateProcessA command in null flags 134218272"), 1);
    const std::string& pipe = script.log.at(1);
    EXPECT_EQ(pipe.find(R"(CreateNamedPipeA \\.\pipe\CCmnExecPipeWindows_OutputPipeName_0x)"), 0U);
    EXPECT_EQ(script.log.at(0).find("CreateEventA CCmnExecPipeWindows_ReadEvent_0x"), 0U);
}

TEST_F(Scripted, Reads)
{
    const std::string readTrace =
        "CCmnExecPipeWindows::ReadLine ERROR: ReadFile failed, Error Code: 13, Reason: scripted "
        "error 13\n";
    const std::string resultTrace =
        "CCmnExecPipeWindows::ReadLine ERROR: GetOverlappedResult failed, Error Code: 13, Reason: "
        "scripted error 13\n";
    const struct {
        std::deque<int> reads;
        std::deque<DWORD> waits;
        unsigned long seconds;
        int result;
        Lines lines;
        std::string trace;
        int cancels;
    } cases[] = {
        {{'a', '\n', 'b'}, {}, 7, 0, {"a", "b"}, "", 0},
        {{'a', Script::readError}, {}, 7, 0, {"a"}, readTrace, 0},
        {{'a', Script::resultError}, {}, 7, 0, {"a"}, resultTrace, 0},
        {{'a', Script::resultBroken}, {}, 7, 0, {"a"}, "", 0},
        {{'a', Script::emptyResult}, {}, 7, 0, {"a"}, "", 0},
        // A wait of an odd result goes on to the outcome of the read.
        {{'a', Script::pending}, {WAIT_FAILED}, 7, 0, {"a"}, resultTrace, 0},
        // The child ends, or falls silent, in the middle of a line.
        {{'a', Script::pending}, {WAIT_OBJECT_0}, 7, 0, {"a"}, "", 1},
        {{'a', '\n', 'b', Script::pending}, {WAIT_TIMEOUT}, 7, 5, {"a"}, "", 1},
        {{'a', Script::pending}, {}, 0, 0, {"a"}, "", 1},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(testing::Message() << "case " << &test - cases);
        script = Script();
        script.reads = test.reads;
        script.multipleWaits = test.waits;
        const Outcome outcome = run(test.seconds);
        EXPECT_EQ(outcome.result, test.result);
        EXPECT_EQ(outcome.lines, test.lines);
        EXPECT_EQ(script.count("CancelIo"), test.cancels);
        EXPECT_EQ(script.count("WaitForMultipleObjectsEx 7000"),
                  static_cast<int>(test.waits.size()));
        const std::size_t traced = outcome.traced.find("ERROR");
        EXPECT_EQ(traced != std::string::npos, !test.trace.empty()) << outcome.traced;
        EXPECT_NE(outcome.traced.find(test.trace), std::string::npos) << outcome.traced;
    }
}

TEST_F(Scripted, AChildThatEndedBetweenTwoLinesLeavesOnlyItsStatus)
{
    output("a\nb\n");
    script.endedAtOnce = true;
    script.exitStatus = 3;
    const Outcome outcome = run();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.lines, (Lines{"a", "b"}));
    EXPECT_EQ(outcome.status, 3);
}

TEST_F(Scripted, WaitingForTheChildAndStoppingIt)
{
    constexpr DWORD ended = WAIT_OBJECT_0;
    constexpr DWORD late = WAIT_TIMEOUT;
    constexpr DWORD odd = 77;
    const struct {
        std::deque<DWORD> waits;
        DWORD exitStatus;
        int result;
        int status; // -1: none
        Lines asked;
    } cases[] = {
        {{ended}, 0, 0, 0, {}},
        {{ended}, 3, 11, 3, {}},
        {{ended}, 0x80000000, 8, static_cast<int>(0x80000000), {}},
        {{late, ended}, 0, 0, 0, {"GenerateConsoleCtrlEvent 0 4711"}},
        {{late, late, ended},
         130,
         11,
         130,
         {"GenerateConsoleCtrlEvent 0 4711", "GenerateConsoleCtrlEvent 1 4711"}},
        {{late, late, late},
         0,
         11,
         1067,
         {"GenerateConsoleCtrlEvent 0 4711", "GenerateConsoleCtrlEvent 1 4711",
          "TerminateProcess 1067"}},
        {{WAIT_FAILED}, 0, 11, 1067, {"TerminateProcess 1067"}},
        {{odd, odd, odd}, 0, 8, -1, {}},
        {{odd, late, ended}, 0, 0, 0, {"GenerateConsoleCtrlEvent 1 4711"}},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(testing::Message() << "case " << &test - cases);
        script = Script();
        script.singleWaits = test.waits;
        script.exitStatus = test.exitStatus;
        const Outcome outcome = run();
        EXPECT_EQ(outcome.result, test.result);
        EXPECT_EQ(outcome.record.getCode(), test.result);
        EXPECT_EQ(outcome.status, test.status);
        Lines asked;
        for (const std::string& entry : script.log) {
            if (entry.find("Generate") == 0 || entry.find("Terminate") == 0) {
                asked.push_back(entry);
            }
        }
        EXPECT_EQ(asked, test.asked);
        EXPECT_EQ(script.count("WaitForSingleObject 10000"), static_cast<int>(test.waits.size()));
    }
    script = Script();
    script.failCall["GetExitCodeProcess"] = 1;
    const Outcome outcome = run();
    EXPECT_EQ(outcome.result, 8);
    EXPECT_EQ(outcome.record.getDescription(), L"Error in WaitPid()");
}

// Reaches the protected operations.
class Bare : public CCmnExecPipeWindows
{
public:
    using CCmnExecPipeWindows::Close;
    using CCmnExecPipeWindows::ExecPipe;
    using CCmnExecPipeWindows::InitLsaString;
    using CCmnExecPipeWindows::ReadLine;
    using CCmnExecPipeWindows::WaitPid;
    static CCmnLock& lock() { return m_Lock; }
};

Lines logOf(const std::string& start)
{
    Lines found;
    for (const std::string& entry : script.log) {
        if (entry.find(start) == 0) {
            found.push_back(entry);
        }
    }
    return found;
}

TEST_F(Scripted, FailuresOfAChangeOfIdentity)
{
    const struct {
        std::string operation; // that fails
        int call;
        bool holds; // the account has the right already
        DWORD build;
        int result;
        int code;
        std::string starter; // that the child was started with
        int added;
        int removed;
    } cases[] = {
        {"", 0, true, 1057, 0, 0, "CreateProcessAsUserA", 0, 0},
        {"", 0, false, 1057, 0, 0, "CreateProcessAsUserA", 1, 1},
        {"GetVersionExW", 1, true, 1057, 0, 0, "CreateProcessA", 0, 0},
        {"", 0, true, 1056, 0, 0, "CreateProcessA", 0, 0},
        {"LogonUserA", 1, true, 1057, 3, 4, "", 0, 0},
        {"LogonUserA", 2, true, 1057, 3, 10, "", 0, 0},
        {"LogonUserA", 2, false, 1057, 3, 10, "", 1, 1},
        {"GetTokenInformation", 1, true, 1057, 0, 0, "CreateProcessAsUserA", 0, 0},
        {"LsaOpenPolicy", 1, true, 1057, 0, 0, "CreateProcessAsUserA", 0, 0},
        {"LsaEnumerateAccountRights", 1, true, 1057, 0, 0, "CreateProcessAsUserA", 1, 1},
        {"LsaAddAccountRights", 1, false, 1057, 3, 10, "", 1, 1},
        {"CreateProcess", 1, false, 1057, 3, 4, "", 1, 1},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(testing::Message() << "case " << &test - cases << " " << test.operation);
        script = Script();
        script.failCall[test.operation] = test.call;
        script.build = test.build;
        if (test.holds) {
            script.rights.insert("SeBatchLogonRight");
        }
        const Outcome outcome = run(7, "", "user", "secret");
        EXPECT_EQ(outcome.result, test.result);
        EXPECT_EQ(outcome.record.getCode(), test.code);
        EXPECT_EQ(outcome.record.getSubject(), test.code == 10  ? "user"
                                               : test.code == 4 ? "command"
                                                                : "");
        const Lines starts = logOf("CreateProcess");
        if (test.operation != "CreateProcess") {
            EXPECT_EQ(starts.empty() ? "" : starts[0].substr(0, starts[0].find(' ')), test.starter);
        }
        EXPECT_EQ(script.count("LsaAddAccountRights sid"), test.added);
        EXPECT_EQ(script.count("LsaRemoveAccountRights sid"), test.removed);
        EXPECT_TRUE(script.open.empty());
        EXPECT_EQ(outcome.traced.find("secret"), std::string::npos);
        EXPECT_FALSE(Bare::lock().isLocked());
    }
}

TEST_F(Scripted, OneRunnerAtATimeHoldsAnAddedRight)
{
    Lines lines;
    {
        Bare first;
        script.singleWaits = {WAIT_OBJECT_0};
        script.failCall["LogonUserA"] = 2; // the first stays with its right, as after a time-out
        EXPECT_EQ(first.Exec("first", lines, "", 7, "", "user", "secret"), 3);
        EXPECT_TRUE(Bare::lock().isLocked());
        script.rights.clear();
        CCmnExecPipeWindows second;
        EXPECT_EQ(second.Exec("second", lines, "", 7, "", "other", "secret"), 3);
        EXPECT_EQ(second.getLastError().getCode(), 9);
        EXPECT_EQ(second.getLastError().getSubject(), "other");
        EXPECT_EQ(logOf("CreateProcess"), Lines{});
        EXPECT_GE(logOf("Sleep 0").size(), 5U); // 60 microseconds, 10 a look
        EXPECT_LE(logOf("Sleep").size(), 7U);
    }
    script.rights.clear();
    CCmnExecPipeWindows third;
    EXPECT_EQ(third.Exec("third", lines, "", 7, "", "user", "secret"), 0);
    EXPECT_EQ(script.rights.count("SeBatchLogonRight"), 0U);
}

TEST_F(Scripted, IdleAndClosedRunnersTouchNothing)
{
    Bare runner;
    EXPECT_EQ(runner.WaitPid(10), -1);
    EXPECT_EQ(runner.Close(10), 0);
    EXPECT_EQ(runner.Close(10), 0);
    char buffer[4];
    int timedOut = 1;
    EXPECT_EQ(runner.ReadLine(buffer, 3, &timedOut, 10), 0);
    EXPECT_EQ(timedOut, 0);
    EXPECT_EQ(script.log.size(), 1U); // the making of the read event
}

TEST_F(Scripted, LongWaitsAreCutToThirtySecondsAfterTheFirst)
{
    Bare runner;
    ASSERT_EQ(runner.ExecPipe("command", ""), 0);
    script.singleWaits = {WAIT_TIMEOUT, WAIT_TIMEOUT};
    EXPECT_EQ(runner.WaitPid(40), 0);
    EXPECT_EQ(script.count("WaitForSingleObject 40000"), 1);
    EXPECT_EQ(script.count("WaitForSingleObject 30000"), 2);
}

} // namespace
