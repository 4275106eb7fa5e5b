// The runner over a scripted platform: what the loop of a run, a start, a read, a wait and a stop
// ask for, what they come to, and what they record.
#include "cmnexecpipewindows.h"
#include "cmntracelog.h"
#include "scratch.h"
#include "scripted_platform.h"

#include <gtest/gtest.h>

using namespace tarnix_cmn_4_4;
using Lines = std::vector<std::string>;

namespace
{

// Reaches the protected operations.
struct Bare : CCmnExecPipeWindows {
    using CCmnExecPipeWindows::Close;
    using CCmnExecPipeWindows::ExecPipe;
    using CCmnExecPipeWindows::m_Lock;
    using CCmnExecPipeWindows::ReadLine;
    using CCmnExecPipeWindows::WaitPid;
};

class Scripted : public testing::Test
{
protected:
    void SetUp() override
    {
        script = Script();
        m_Scratch.makeDirectory("install");
        m_Scratch.setRegistry(m_Scratch.path("install/"), "");
    }
    void TearDown() override { expectBalance(); }
    void expectBalance()
    {
        EXPECT_TRUE(script.open.empty()) << script.open.size() << " handles are left open";
        EXPECT_EQ(script.wrongCloses, 0);
        EXPECT_FALSE(Bare::m_Lock.isLocked());
    }

    // One run with a trace log; the runner is gone when this returns.
    void run(unsigned long seconds = 7, const std::string& directory = "",
             const std::string& user = "")
    {
        CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>> log(true);
        log.get()->initialize(L"runner", L"", L"", 1, false);
        m_Scratch.write("install/Logs/runner.log", "");
        lines = {"former"};
        status = -1;
        testing::internal::CaptureStdout();
        {
            CCmnExecPipeWindows runner;
            runner.setTraceLog(log);
            result = runner.Exec("command", lines, "", seconds, directory, user, "secret");
            record = runner.getLastError();
            runner.getExitStatus(status);
        }
        printed = testing::internal::GetCapturedStdout();
        traced = m_Scratch.read("install/Logs/runner.log");
        expectBalance();
    }

    Scratch m_Scratch;
    int result = 0, status = -1;
    Lines lines;
    ECmnExecPipe record;
    std::string printed, traced;
};

TEST_F(Scripted, RecordsOfAFailedStart)
{
    for (const std::string operation : {"CreateNamedPipeA", "CreateFileA", "CreateProcessA"}) {
        SCOPED_TRACE(operation);
        script = Script();
        script.operation = operation;
        run();
        const bool ofPipe = operation != "CreateProcessA";
        EXPECT_EQ(result, ofPipe ? 1 : 3);
        EXPECT_EQ(record.getSubject(), "command");
        EXPECT_EQ(record.getDescription(), ofPipe ? L"" : L"scripted error 13");
        EXPECT_EQ(lines, Lines{"former"});
        EXPECT_EQ(printed, ofPipe ? "GetNamedPipeHandles() FAILED with error code (13)\n" : "");
        const std::string trace = "CCmnExecPipeWindows::GetNamedPipeHandles ERROR: " + operation +
                                  " failed, Error Code: 13, Reason: scripted error 13\n";
        EXPECT_EQ(traced.find(trace) != std::string::npos, ofPipe) << traced;
    }
}

TEST_F(Scripted, WhatTheStartAsksFor)
{
    run(7, "/dir");
    const auto begins = [](const std::string& name, std::size_t index, const std::string& with) {
        const Lines found = script.logged(name);
        return index < found.size() && found[index].find(with) == 0;
    };
    EXPECT_TRUE(begins("CreateEventA", 0, "CreateEventA CCmnExecPipeWindows_ReadEvent_0x"));
    // 0x400c0003, byte mode, 4 instances, the kernel's sizes, 3000 ms; 0x40000081
    const std::string server = "CreateNamedPipeA 1074528259 0 4 0 3000 \\\\.\\pipe\\CCmnExecPipe";
    const std::string client = "CreateFileA 2147483648 1 3 1073741953 \\\\.\\pipe\\CCmnExecPipe";
    EXPECT_TRUE(begins("CreateNamedPipeA", 0, server + "Windows_OutputPipeName_0x"));
    EXPECT_TRUE(begins("CreateFileA", 0, client + "Windows_OutputPipeName_0x"));
    EXPECT_TRUE(begins("CreateNamedPipeA", 1, server + "Windows_InputPipeName_0x"));
    EXPECT_EQ(script.logged("DuplicateHandle"),
              (Lines{"DuplicateHandle 0 inherited 2", "DuplicateHandle 0 own 2",
                     "DuplicateHandle 0 own 2"}));
    EXPECT_EQ(script.logged("CreateProcess"),
              Lines{"CreateProcessA command in /dir flags 134218272"}); // 0x8000220
    script = Script();
    run();
    EXPECT_EQ(script.logged("CreateProcess"),
              Lines{"CreateProcessA command in null flags 134218272"});
}

TEST_F(Scripted, Reads)
{
    const std::string trace = " failed, Error Code: 13, Reason: scripted error 13\n";
    const struct {
        std::deque<int> reads;
        std::deque<DWORD> waits;
        unsigned long seconds;
        int result;
        Lines lines;
        std::string traced; // the operation
        std::size_t cancels;
    } cases[] = {
        {{'a', '\n', 'b'}, {}, 7, 0, {"a", "b"}, "", 0},
        {{'a', Script::readError}, {}, 7, 0, {"a"}, "ReadFile", 0},
        {{'a', Script::resultError}, {}, 7, 0, {"a"}, "GetOverlappedResult", 0},
        {{'a', Script::resultBroken}, {}, 7, 0, {"a"}, "", 0},
        {{'a', Script::emptyResult}, {}, 7, 0, {"a"}, "", 0},
        // A wait of an odd result goes on to the outcome of the read.
        {{'a', Script::pending, Script::resultError},
         {WAIT_FAILED},
         7,
         0,
         {"a"},
         "GetOverlappedResult",
         0},
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
        run(test.seconds);
        EXPECT_EQ(result, test.result);
        EXPECT_EQ(lines, test.lines);
        EXPECT_EQ(script.logged("CancelIo").size(), test.cancels);
        EXPECT_EQ(script.logged("WaitForMultipleObjectsEx 7000").size(), test.waits.size());
        EXPECT_EQ(traced.find("ERROR") != std::string::npos, !test.traced.empty()) << traced;
        EXPECT_TRUE(test.traced.empty() ||
                    traced.find("CCmnExecPipeWindows::ReadLine ERROR: " + test.traced + trace) !=
                        std::string::npos)
            << traced;
    }
    script = Script();
    script.reads = {'a', '\n', 'b', '\n'};
    script.endedAtOnce = true; // between two lines: only the status is left
    script.exitStatus = 3;
    run();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(lines, (Lines{"a", "b"}));
    EXPECT_EQ(status, 3);
}

TEST_F(Scripted, WaitingForTheChildAndStoppingIt)
{
    constexpr DWORD ended = WAIT_OBJECT_0, late = WAIT_TIMEOUT, odd = 77;
    const std::string ctrlC = "Stop event 0 to 4711", ctrlBreak = "Stop event 1 to 4711",
                      killed = "Stop kill 1067";
    constexpr DWORD topBit = 0x80000000;
    const struct {
        std::deque<DWORD> waits;
        DWORD exitStatus;
        int result, status; // status -1: none
        Lines stops;
    } cases[] = {
        {{ended}, 0, 0, 0, {}},
        {{ended}, 3, 11, 3, {}},
        {{ended}, topBit, 8, static_cast<int>(topBit), {}},
        {{late, ended}, 0, 0, 0, {ctrlC}},
        {{late, late, ended}, 130, 11, 130, {ctrlC, ctrlBreak}},
        {{late, late, late}, 0, 11, 1067, {ctrlC, ctrlBreak, killed}},
        {{WAIT_FAILED}, 0, 11, 1067, {killed}},
        {{odd, odd, odd}, 0, 8, -1, {}},
        {{odd, late, ended}, 0, 0, 0, {ctrlBreak}},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(testing::Message() << "case " << &test - cases);
        script = Script();
        script.singleWaits = test.waits;
        script.exitStatus = test.exitStatus;
        run();
        EXPECT_EQ(result, test.result);
        EXPECT_EQ(record.getCode(), test.result);
        EXPECT_EQ(status, test.status);
        EXPECT_EQ(script.logged("Stop"), test.stops);
        EXPECT_EQ(script.logged("WaitForSingleObject 10000").size(), test.waits.size());
    }
    script = Script();
    script.operation = "GetExitCodeProcess";
    run();
    EXPECT_EQ(record.getDescription(), L"Error in WaitPid()");
}

TEST_F(Scripted, LongWaitsAreCutAndIdleRunnersTouchNothing)
{
    Bare runner;
    char buffer[4];
    int timedOut = 1;
    EXPECT_EQ(runner.WaitPid(10), -1);
    EXPECT_EQ(runner.Close(10) + runner.Close(10), 0);
    EXPECT_EQ(runner.ReadLine(buffer, 3, &timedOut, 10) + timedOut, 0);
    EXPECT_EQ(script.log, (Lines{script.log.at(0), "CloseHandle"})); // the read event
    ASSERT_EQ(runner.ExecPipe("command", ""), 0);
    script.singleWaits = {WAIT_TIMEOUT, WAIT_TIMEOUT};
    EXPECT_EQ(runner.WaitPid(40), 0);
    EXPECT_EQ(script.logged("WaitForSingleObject"),
              (Lines{"WaitForSingleObject 40000", "WaitForSingleObject 30000",
                     "WaitForSingleObject 30000"}));
}

TEST_F(Scripted, ChangesOfIdentity)
{
    const std::string asUser = "CreateProcessAsUserA", asCaller = "CreateProcessA";
    const struct {
        std::string operation; // that fails
        bool holds;            // the account has the right already
        DWORD build;
        std::string starter; // that the child was started with
        std::size_t added;
    } cases[] = {
        {"", true, 1057, asUser, 0},
        {"", false, 1057, asUser, 1},
        {"", true, 1056, asCaller, 0},
        {"GetVersionExW", true, 1057, asCaller, 0},
        {"GetTokenInformation", true, 1057, asUser, 0},
        {"LsaEnumerateAccountRights", true, 1057, asUser, 1},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(testing::Message() << "case " << &test - cases);
        script = Script();
        script.operation = test.operation;
        script.build = test.build;
        script.rights = test.holds ? std::set<std::string>{"SeBatchLogonRight"} : script.rights;
        run(7, "", "user");
        EXPECT_EQ(result, 0);
        EXPECT_EQ(script.logged(test.starter + " command").size(), 1U);
        EXPECT_EQ(script.logged("LsaAddAccountRights sid").size(), test.added);
        EXPECT_EQ(script.logged("LsaRemoveAccountRights sid").size(), test.added);
    }
}

TEST_F(Scripted, OneRunnerAtATimeHoldsAnAddedRight)
{
    Lines output;
    {
        CCmnExecPipeWindows first, second;
        script.operation = "LogonUserA",
        script.call = 2; // the first stays with its right, as after a time-out
        EXPECT_EQ(first.Exec("first", output, "", 7, "", "user", "secret"), 3);
        EXPECT_TRUE(Bare::m_Lock.isLocked());
        script.rights.clear();
        EXPECT_EQ(second.Exec("second", output, "", 7, "", "other", "secret"), 3);
        EXPECT_EQ(second.getLastError().getCode(), 9);
        EXPECT_EQ(second.getLastError().getSubject(), "other");
        EXPECT_EQ(script.logged("CreateProcess"), Lines{});
        EXPECT_GE(script.logged("Sleep 0").size(), 5U); // 60 microseconds, 10 a look
        EXPECT_LE(script.logged("Sleep").size(), 7U);
    }
    CCmnExecPipeWindows third;
    EXPECT_EQ(third.Exec("third", output, "", 7, "", "user", "secret"), 0);
    EXPECT_EQ(script.rights.size(), 0U);
}

} // namespace
