// The runner over a scripted platform: what it asks for, what comes of it and what it records; then
// every call of the platform and every allocation refused in turn.
#include "cmnexecpipewindows.h"
#include "cmntracelog.h"
#include "refusal.h"
#include "scratch.h"
#include "scripted_platform.h"

#include <new>

using namespace tarnix_cmn_4_4;
using Lines = std::vector<std::string>;
using Log = CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>>;

namespace
{

// Reaches what is protected, and can be in a child's context.
struct Bare : CCmnExecPipeWindows {
    using CCmnExecPipeWindows::CCmnExecPipeWindows;
    using CCmnExecPipeWindows::Close;
    using CCmnExecPipeWindows::ExecPipe;
    using CCmnExecPipeWindows::m_Lock;
    using CCmnExecPipeWindows::ReadLine;
    using CCmnExecPipeWindows::WaitPid;

    int inContext = 0;

    int IsChildContext() override { return inContext; }
    int ExecCommandInChildContext(std::string command, Lines& output) override
    {
        output.push_back(command);
        return 42;
    }
    std::string fields() const { return m_ExtraList.at(1) + m_User + m_Password + m_Extra; }
};

class Scripted : public testing::Test
{
protected:
    Scripted()
    {
        script = Script();
        m_Scratch.makeDirectory("install");
        m_Scratch.setRegistry(m_Scratch.path("install/"), "");
        m_Log.get()->initialize(L"runner", L"", L"", 1, false);
        m_Log.get()->trace(1, "a first line: some of what it takes is kept for good");
    }
    void TearDown() override { expectBalance(); }
    void expectBalance()
    {
        EXPECT_TRUE(script.open.empty()) << script.open.size() << " handles are left open";
        EXPECT_EQ(script.wrongCloses, 0);
        EXPECT_FALSE(Bare::m_Lock.isLocked());
    }
    std::string traced() const { return m_Scratch.read("install/Logs/runner.log"); }

    void run(unsigned long seconds = 7, const std::string& directory = "",
             const std::string& user = "")
    {
        m_Scratch.write("install/Logs/runner.log", "");
        lines = {"former"};
        status = -1;
        {
            CCmnExecPipeWindows runner;
            runner.setTraceLog(m_Log);
            result = runner.Exec("command", lines, "", seconds, directory, user, "secret");
            record = runner.getLastError();
            runner.getExitStatus(status);
        }
        expectBalance();
    }

    Scratch m_Scratch;
    Log m_Log{true};
    int result = 0, status = -1;
    Lines lines;
    ECmnExecPipe record;
};

TEST_F(Scripted, RecordsOfAFailedStart)
{
    for (const std::string operation : {"CreateNamedPipeA", "CreateFileA", "CreateProcessA"}) {
        SCOPED_TRACE(operation);
        script = Script();
        script.operation = operation;
        testing::internal::CaptureStdout();
        run();
        const std::string printed = testing::internal::GetCapturedStdout();
        const bool ofPipe = operation != "CreateProcessA";
        EXPECT_EQ(result, ofPipe ? 1 : 3);
        EXPECT_EQ(record.getSubject(), "command");
        EXPECT_EQ(record.getDescription(), ofPipe ? L"" : L"scripted error 13");
        EXPECT_EQ(lines, Lines{"former"});
        EXPECT_EQ(printed, ofPipe ? "GetNamedPipeHandles() FAILED with error code (13)\n" : "");
        const std::string trace = "CCmnExecPipeWindows::GetNamedPipeHandles ERROR: " + operation +
                                  " failed, Error Code: 13, Reason: scripted error 13\n";
        EXPECT_EQ(traced().find(trace) != std::string::npos, ofPipe) << traced();
    }
}

TEST_F(Scripted, WhatTheStartAsksFor)
{
    run(7, "/dir");
    // 0x400c0003, byte mode, 4 instances, the kernel's sizes, 3000 ms; 0x40000081; 0x8000220
    const std::string server = "CreateNamedPipeA 1074528259 0 4 0 3000 \\\\.\\pipe\\CCmnExecPipe";
    const std::string client = "CreateFileA 2147483648 1 3 1073741953 \\\\.\\pipe\\CCmnExecPipe";
    const Lines asked{"CreateEventA CCmnExecPipeWindows_ReadEvent_0x",
                      server + "Windows_OutputPipeName_0x",
                      client + "Windows_OutputPipeName_0x",
                      "DuplicateHandle 0 inherited 2",
                      server + "Windows_InputPipeName_0x",
                      client + "Windows_InputPipeName_0x",
                      "DuplicateHandle 0 own 2",
                      "DuplicateHandle 0 own 2",
                      "CloseHandle",
                      "CloseHandle",
                      "CreateProcessA command in /dir flags 134218272"};
    for (std::size_t i = 0; i < asked.size(); ++i)
        EXPECT_EQ(script.log.at(i).substr(0, asked[i].size()), asked[i]);
}

TEST_F(Scripted, Reads)
{
    const std::string reading = "ReadFile", outcome = "GetOverlappedResult";
    const struct {
        std::deque<int> reads;
        std::deque<DWORD> waits;
        int result;
        Lines lines;
        std::string failed; // the operation, as it is traced
        unsigned long seconds = 7;
    } cases[] = {
        {{'a', '\n', 'b'}, {}, 0, {"a", "b"}, ""},
        {{'a', Script::readError}, {}, 0, {"a"}, reading},
        {{'a', Script::resultError}, {}, 0, {"a"}, outcome},
        {{'a', Script::resultBroken}, {}, 0, {"a"}, ""},
        {{'a', Script::emptyResult}, {}, 0, {"a"}, ""},
        // A wait of an odd result goes on to the outcome of the read.
        {{'a', Script::pending, Script::resultError}, {WAIT_FAILED}, 0, {"a"}, outcome},
        // The child ends, or falls silent, in the middle of a line.
        {{'a', Script::pending}, {WAIT_OBJECT_0}, 0, {"a"}, ""},
        {{'a', '\n', 'b', Script::pending}, {WAIT_TIMEOUT}, 5, {"a"}, ""},
        {{'a', Script::pending}, {}, 0, {"a"}, "", 0},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(testing::Message() << "case " << &test - cases);
        script = Script();
        script.reads = test.reads;
        script.multipleWaits = test.waits;
        run(test.seconds);
        EXPECT_EQ(result, test.result);
        EXPECT_EQ(lines, test.lines);
        const bool cancelled = test.reads.back() == Script::pending;
        EXPECT_EQ(script.logged("CancelIo").size(), cancelled ? 1U : 0U);
        EXPECT_EQ(script.logged("WaitForMultipleObjectsEx 7000").size(), test.waits.size());
        const std::string error = "CCmnExecPipeWindows::ReadLine ERROR: " + test.failed +
                                  " failed, Error Code: 13, Reason: scripted error 13\n";
        EXPECT_NE(traced().find(test.failed.empty() ? "" : error), std::string::npos);
        EXPECT_EQ(traced().find("ERROR") == std::string::npos, test.failed.empty());
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
        EXPECT_EQ(status, test.status);
        EXPECT_EQ(record.getCode(), test.result);
        EXPECT_EQ(record.getDescription(),
                  test.result == 0   ? L""
                  : test.result == 8 ? L"Error in WaitPid()"
                                     : L"Command exited with status " + std::to_wstring(status));
        EXPECT_EQ(script.logged("Stop"), test.stops);
        EXPECT_EQ(script.logged("WaitForSingleObject 10000").size(), test.waits.size());
    }
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
    runner.inContext = 1;
    lines = {"former"};
    EXPECT_EQ(runner.Exec("command", lines, "", 9, "", "", ""), 42);
    EXPECT_EQ(lines, (Lines{"former", "command"}));
    EXPECT_EQ(script.log.size(), 2U);
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
        EXPECT_EQ(script.logged(test.starter + " command in null flags 134218272").size(), 1U);
        EXPECT_EQ(script.logged("LsaAddAccountRights sid").size(), test.added);
        EXPECT_EQ(script.logged("LsaRemoveAccountRights sid").size(), test.added);
    }
}

TEST_F(Scripted, OneRunnerAtATimeHoldsAnAddedRight)
{
    CCmnExecPipeWindows first, second;
    script.operation = "LogonUserA";
    script.call = 2; // the first stays with its right, as after a time-out
    EXPECT_EQ(first.Exec("first", lines, "", 7, "", "user", "secret"), 3);
    EXPECT_TRUE(Bare::m_Lock.isLocked());
    script.rights.clear();
    EXPECT_EQ(second.Exec("second", lines, "", 7, "", "other", "secret"), 3);
    EXPECT_EQ(second.getLastError().getCode(), 9);
    EXPECT_EQ(second.getLastError().getSubject(), "other");
    EXPECT_EQ(script.logged("CreateProcess"), Lines{});
    EXPECT_GE(script.logged("Sleep 0").size(), 5U); // 60 microseconds, 10 a look
    EXPECT_LE(script.logged("Sleep").size(), 7U);
}

TEST_F(Scripted, CopiesAreIdleAndOwnNothing)
{
    Bare source(Lines{"a", "b"});
    script.reads = {Script::pending};
    script.multipleWaits = {WAIT_TIMEOUT};
    EXPECT_EQ(source.Exec("command", lines, "extra", 7, "", "user", "word"), 5);
    const std::set<void*> open = script.open;
    {
        Bare copy(source), assigned;
        assigned = source;
        for (Bare* other : {&copy, &assigned}) {
            EXPECT_EQ(other->getLastError().getCode(), 5);
            EXPECT_EQ(other->fields(), "buserwordextra");
            script.reads = {'o', '\n'};
            EXPECT_EQ(other->Exec("own", lines, "", 7, "", "", ""), 0);
            EXPECT_EQ(lines, Lines{"o"});
            EXPECT_EQ(other->fields(), "b");
            other->Abort();
            Bare aborted(*other); // starts its child, and reads nothing
            script.reads = {'o', '\n'};
            EXPECT_EQ(aborted.Exec("aborted", lines, "", 7, "", "", ""), 0);
            EXPECT_EQ(lines, Lines{});
        }
    }
    EXPECT_EQ(script.logged("CreateProcessA aborted").size(), 2U);
    EXPECT_EQ(script.open, open);
    EXPECT_TRUE(Bare::m_Lock.isLocked());
}

TEST(ExecPipe, EveryCodeHasItsKey)
{
    EXPECT_STREQ(ECmnExecPipe::keyOf(0), "TARNIX_EXEC_PIPE_SUCCESS");
    EXPECT_STREQ(ECmnExecPipe::keyOf(13), "TARNIX_EXEC_PIPE_CMD_ERROR_UNEXPECTED");
    EXPECT_EQ(ECmnExecPipe::keyOf(-1), nullptr);
    EXPECT_EQ(ECmnExecPipe::keyOf(14), nullptr);
}

// ---- Faults -------------------------------------------------------------------------------------

const char allocation[] = "allocation"; // as an operation
const std::string command = "a command with a word or two";
const std::string password = "a password that is too long to lie within the string";

struct Kind {
    const char* name;
    Course course;
    std::string user;
    std::set<std::string> rights;
    int code;
    bool busy = false; // another runner holds an added right
};

constexpr DWORD late = WAIT_TIMEOUT;
const std::string user = "a user with quite a long name";
const std::set<std::string> entitled{"SeBatchLogonRight"};
const Kind kinds[] = {
    {"plain", {{'a', '\n', Script::pending, 'b'}}, "", {}, 0},
    {"ended early", {{'a', '\n', 'b'}, {}, {}, true, 3}, user, entitled, 0},
    {"timed out", {{'a', '\n', Script::pending}, {late}, {late, late, late}}, user, {}, 5},
    {"stopped", {{'a', Script::readError}, {}, {late, late, late}}, "", {}, 11},
    {"failed", {{'a', Script::pending}, {WAIT_OBJECT_0}, {}, false, 3}, user, {}, 11},
    {"refused", {}, "nobody", {}, 4},
    {"busy", {}, user, {}, 9, true},
};

// What else may come of a failure. A run that could not read goes on to the end of its child.
const std::pair<std::string, std::set<int>> otherCodes[] = {
    {"CreateNamedPipeA CreateFileA", {1}},
    {"DuplicateHandle", {2}},
    {"CloseHandle", {3}},
    {"CreateProcessA CreateProcessAsUserA", {4}},
    {"LogonUserA", {4, 10}},
    {"LsaOpenPolicy LsaAddAccountRights", {10}},
    {"CreateEventA ReadFile GetOverlappedResult WaitForMultipleObjectsEx", {0, 11}},
    {"GetVersionExW GetTokenInformation", {0}},
    {"WaitForSingleObject", {11}},
    {"GetExitCodeProcess", {8}},
};

// The operations of the platform that can run out of memory.
const std::string allocating =
    "CreateEventA CreateNamedPipeA CreateFileA DuplicateHandle CreateProcessA "
    "CreateProcessAsUserA FormatMessageW LogonUserA LsaOpenPolicy LsaEnumerateAccountRights "
    "LsaAddAccountRights LsaRemoveAccountRights";

bool isAmong(const std::string& operations, const std::string& operation)
{
    return (" " + operations + " ").find(" " + operation + " ") != std::string::npos;
}

class Faults : public Scripted
{
protected:
    Faults() { m_Shown.reserve(100); } // a block that is kept as well

    // A whole run, the end of the runner included. Returns the code that it came to, or -1 for an
    // exception.
    int run(const Kind& kind)
    {
        static_cast<Course&>(script) = kind.course;
        if (kind.busy)
            Bare::m_Lock.tryLock();
        try {
            const Refusal refusal(script.operation == allocation ? script.call : 0, script.onwards);
            CCmnExecPipeWindows runner;
            runner.setTraceLog(m_Log);
            Lines read;
            const int returned = runner.Exec(command, read, "", 7, "", kind.user, password);
            const Calm calm;
            const ECmnExecPipe stored = runner.getLastError();
            const int code = stored.getCode();
            const bool ofUser = code == 9 || code == 10;
            EXPECT_EQ(returned, ofUser || code == 4 ? 3 : code);
            EXPECT_EQ(stored.getSubject(), code == 0 ? "" : ofUser ? kind.user : command);
            return code;
        } catch (const std::bad_alloc&) {
            return -1;
        }
    }

    void expectNothingLeft(const Kind& kind, const std::string& operation)
    {
        EXPECT_EQ(Bare::m_Lock.tryLock(), !kind.busy);
        Bare::m_Lock.unlock();
        expectBalance();
        EXPECT_TRUE(!script.childRuns || operation == "Stop");
        // Removing the right may itself fail; and a right that could not be read counts as none.
        EXPECT_TRUE(script.rights == kind.rights ||
                    isAmong("LsaRemoveAccountRights LsaEnumerateAccountRights", operation));
        for (const std::string& entry : script.log)
            m_Shown += entry;
    }

    void inject(const Kind& kind, const std::string& operation, int call, bool onwards, bool throws)
    {
        SCOPED_TRACE(testing::Message() << kind.name << ": " << operation << " " << call
                                        << (onwards ? " and on" : "") << (throws ? " throws" : ""));
        script.operation = operation, script.call = call;
        const int blocks = Refusal::blocks;
        script.onwards = onwards, script.throws = throws;
        script.rights = kind.rights;
        const int code = run(kind);
        const bool startNeedsIt = isAmong(
            "CreateNamedPipeA DuplicateHandle CreateProcessA CreateProcessAsUserA", operation);
        bool told = code == kind.code && !(startNeedsIt && kind.code == 0);
        if (throws || operation == allocation)
            told = told || code == -1 || code == 8;
        for (const auto& [operations, codes] : otherCodes)
            told = told || (isAmong(operations, operation) && codes.count(code) > 0);
        EXPECT_TRUE(told) << code;
        expectNothingLeft(kind, operation);
        script = Script();
        EXPECT_EQ(Refusal::blocks, blocks);
        script.rights = kind.rights;
        EXPECT_EQ(run(kind), kind.code); // of a new runner
        expectNothingLeft(kind, "none");
        script = Script();
    }

    std::string m_Shown; // to the platform, in records and in the log
};

TEST_F(Faults, EveryCallAndEveryAllocation)
{
    int injected = 0;
    for (const Kind& kind : kinds) {
        script = Script();
        script.rights = kind.rights;
        EXPECT_EQ(run(kind), kind.code);
        auto calls = script.calls;
        calls[allocation] = Refusal::asked;
        EXPECT_GT(calls[allocation], 0);
        expectNothingLeft(kind, "none");
        script = Script();
        for (const auto& [operation, count] : calls) {
            for (int call = 1; call <= count; ++call) {
                for (const bool onwards : {false, true}) {
                    inject(kind, operation, call, onwards, false);
                    const bool mayThrow = isAmong(allocating, operation);
                    if (mayThrow)
                        inject(kind, operation, call, onwards, true);
                    injected += mayThrow ? 2 : 1;
                }
            }
        }
    }
    EXPECT_GT(injected, 0);
    std::printf("faults injected: %d\n", injected);
    m_Shown += traced();
    EXPECT_EQ(m_Shown.find(password), std::string::npos);
}

} // namespace
