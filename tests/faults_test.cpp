// The runner over a scripted platform: what it asks for, what comes of it and what it records; then
// every call of the platform and every allocation refused in turn.
#include "cmnexecpipewindows.h"
#include "cmntracelog.h"
#include "processstate.h"
#include "refusal.h"
#include "scratch.h"
#include "scripted_platform.h"

#include <climits>
#include <new>
#include <string_view>

using namespace tarnix_cmn_4_4;
using Log = CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>>;

namespace
{

const char allocation[] = "allocation"; // as an operation
const std::string command = "a command with a word or two";
const std::string user = "a user with quite a long name";
const std::string password = "a password that is too long to lie within the string";

constexpr DWORD late = WAIT_TIMEOUT;

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
    int ExecCommandInChildContext(std::string text, Lines& output) override
    {
        output.push_back(text);
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
        traced();
    }
    void TearDown() override { expectBalance(); }

    void expectBalance()
    {
        EXPECT_TRUE(script.open.empty()) << script.open.size() << " handles are left open";
        EXPECT_FALSE(Bare::m_Lock.isLocked());
    }
    // Since the last time.
    std::string traced() const
    {
        const std::string text = m_Scratch.read("install/Logs/runner.log");
        m_Scratch.write("install/Logs/runner.log", "");
        return text;
    }
    // The end of the runner included. Result -1: an exception.
    Outcome run(const std::string& asUser = "", const std::string& directory = "",
                unsigned long seconds = 7)
    {
        Outcome outcome;
        try {
            const Refusal refusal(script.operation == allocation ? script.call : 0, script.onwards);
            CCmnExecPipeWindows runner;
            runner.setTraceLog(m_Log);
            outcome.result =
                runner.Exec(command, outcome.lines, "", seconds, directory, asUser, password);
            const Calm calm;
            outcome.record = runner.getLastError();
            runner.getExitStatus(outcome.status);
        } catch (const std::bad_alloc&) {
            outcome.result = -1;
        }
        return outcome;
    }

    Scratch m_Scratch;
    Log m_Log{true};
};

TEST_F(Scripted, WhatTheStartAsksFor)
{
    script.reads = {Script::pending, 'a'};
    run("", "/dir");
    // 0x400c0003, byte mode, 4 instances, the kernel's sizes, 3000 ms; 0x40000081; 0x8000220
    const std::string server = "CreateNamedPipeA 1074528259 0 4 0 3000 inherited ";
    const std::string client = "CreateFileA 2147483648 1 3 1073741953 ";
    const std::string output = R"(\\.\pipe\CCmnExecPipeWindows_OutputPipeName_0x)";
    const std::string input = R"(\\.\pipe\CCmnExecPipeWindows_InputPipeName_0x)";
    const Lines asked{"CreateEventA 0 0 CCmnExecPipeWindows_ReadEvent_0x",
                      server + output,
                      client + output,
                      "DuplicateHandle 0 inherited 2",
                      server + input,
                      client + input,
                      "DuplicateHandle 0 own 2",
                      "DuplicateHandle 0 own 2",
                      "CloseHandle",
                      "CloseHandle",
                      "CreateProcessA " + command + " in /dir flags 134218272"};
    for (std::size_t i = 0; i < asked.size(); ++i)
        EXPECT_EQ(script.log.at(i).substr(0, asked[i].size()), asked[i]);
    EXPECT_EQ(script.logged("WaitFor"),
              (Lines{"WaitForSingleObject 0", "WaitForMultipleObjectsEx 7000",
                     "WaitForSingleObject 0", "WaitForSingleObject 10000"}));
}

TEST_F(Scripted, CoursesOfARun)
{
    constexpr DWORD ended = WAIT_OBJECT_0, odd = 77, topBit = 0x80000000;
    constexpr int pending = Script::pending, failed = Script::failed, none = -1;
    const std::string ctrlC = "Stop event 0 4711", ctrlBreak = "Stop event 1 4711",
                      killed = "Stop kill 1067",
                      ofPipe = "GetNamedPipeHandles ERROR: ", ofRead = "ReadLine ERROR: ReadFile",
                      ofOutcome = "ReadLine ERROR: GetOverlappedResult";
    const std::wstring refused = L"scripted error 13", unknown = L"Error in WaitPid()",
                       exited = L"Command exited with status ";
    const struct {
        Course course;
        int result, status;
        Lines lines, stops;
        std::wstring description = L"";
        std::string traced = "", operation = ""; // that fails
        unsigned long seconds = 7;
    } cases[] = {
        {{}, 1, none, {"former"}, {}, L"", ofPipe + "CreateNamedPipeA", "CreateNamedPipeA"},
        {{}, 1, none, {"former"}, {}, L"", ofPipe + "CreateFileA", "CreateFileA"},
        {{}, 3, none, {"former"}, {}, refused, "", "CreateProcessA"},
        {{{'a', '\n', 'b'}}, 0, 0, {"a", "b"}, {}},
        {{{'a', failed}}, 0, 0, {"a"}, {}, L"", ofRead},
        {{{'a', pending, failed}}, 0, 0, {"a"}, {}, L"", ofOutcome},
        {{{'a', pending, Script::broken}}, 0, 0, {"a"}, {}},
        {{{'a', pending, Script::empty}}, 0, 0, {"a"}, {}},
        // A wait of an odd result goes on to the outcome of the read.
        {{{'a', pending, failed}, {WAIT_FAILED}}, 0, 0, {"a"}, {}, L"", ofOutcome},
        // The child ends, or falls silent, in the middle of a line, or ends between two.
        {{{'a', pending}, {ended}}, 0, 0, {"a"}, {}},
        {{{'a', '\n', 'b', pending}, {late}}, 5, none, {"a"}, {}},
        {{{'a', pending}}, 0, 0, {"a"}, {}, L"", "", "", 0},
        {{{'a', '\n', 'b', '\n'}, {}, {}, true, 3}, 0, 3, {"a", "b"}, {}},
        // What comes of the waits for its end.
        {{{}, {}, {ended}, false, 3}, 11, 3, {}, {}, exited + L"3"},
        {{{}, {}, {ended}, false, topBit}, 8, INT_MIN, {}, {}, unknown},
        {{{}, {}, {late, ended}}, 0, 0, {}, {ctrlC}},
        {{{}, {}, {late, late, ended}}, 0, 0, {}, {ctrlC, ctrlBreak}},
        {{{}, {}, {late, late, late}}, 11, 1067, {}, {ctrlC, ctrlBreak, killed}, exited + L"1067"},
        {{{}, {}, {WAIT_FAILED}}, 11, 1067, {}, {killed}, exited + L"1067"},
        {{{}, {}, {odd, odd, odd}}, 8, none, {}, {}, unknown},
        {{{}, {}, {odd, late, ended}}, 0, 0, {}, {ctrlBreak}},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(testing::Message() << "case " << &test - cases);
        script = Script();
        static_cast<Course&>(script) = test.course;
        script.operation = test.operation;
        testing::internal::CaptureStdout();
        const Outcome got = run("", "", test.seconds);
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  test.result == 1 ? "GetNamedPipeHandles() FAILED with error code (13)\n" : "");
        EXPECT_EQ(got.result, test.result);
        EXPECT_EQ(got.status, test.status);
        EXPECT_EQ(got.lines, test.lines);
        EXPECT_EQ(got.record.getDescription(), test.description);
        EXPECT_EQ(script.logged("Stop"), test.stops);
        EXPECT_TRUE(script.singleWaits.empty());
        const auto& reads = test.course.reads;
        EXPECT_EQ(script.calls["CancelIo"], !reads.empty() && reads.back() == pending ? 1 : 0);
        const std::string error = "CCmnExecPipeWindows::" + test.traced +
                                  " failed, Error Code: 13, Reason: scripted error 13\n";
        const std::string traces = traced();
        EXPECT_NE(traces.find(test.traced.empty() ? "" : error), std::string::npos);
        EXPECT_EQ(traces.empty(), test.traced.empty());
        expectBalance();
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
    runner.inContext = 1;
    Lines lines{"former"};
    EXPECT_EQ(runner.Exec("command", lines, "", 9, "", "", ""), 42);
    EXPECT_EQ(lines, (Lines{"former", "command"}));
    EXPECT_EQ(script.log, (Lines{script.log.at(0), "CloseHandle"})); // the read event
    ASSERT_EQ(runner.ExecPipe("command", ""), 0);
    script.singleWaits = {WAIT_TIMEOUT, WAIT_TIMEOUT};
    EXPECT_EQ(runner.WaitPid(40), 0);
    EXPECT_EQ(script.logged("WaitForSingleObject"),
              (Lines{"WaitForSingleObject 40000", "WaitForSingleObject 30000",
                     "WaitForSingleObject 30000"}));
}

TEST_F(Scripted, CopiesAreIdleAndOwnNothing)
{
    Bare source(Lines{"a", "b"});
    Lines lines;
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
            other->Abort();
            Bare aborted(*other); // starts its child, and reads nothing
            EXPECT_EQ(aborted.Exec("aborted", lines, "", 7, "", "", ""), 0);
            EXPECT_EQ(lines, Lines{});
        }
    }
    EXPECT_EQ(script.calls["ReadFile"], 1 + 3 + 3);
    EXPECT_EQ(script.logged("CreateProcessA aborted").size(), 2U);
    EXPECT_EQ(script.open, open);
    EXPECT_TRUE(Bare::m_Lock.isLocked());
}

// ---- Faults -------------------------------------------------------------------------------------

struct Kind {
    const char* name;
    Course course;
    std::string user;
    bool entitled;
    int code;
    bool busy = false; // another runner holds an added right
};

const Kind kinds[] = {
    {"plain", {{'a', '\n', Script::pending, 'b'}}, "", false, 0},
    {"ended early", {{'a', '\n', 'b'}, {}, {}, true, 3}, user, true, 0},
    {"timed out", {{'a', '\n', Script::pending}, {late}, {late, late, late}}, user, false, 5},
    {"stopped", {{'a', Script::failed}, {}, {late, late, late}}, "", false, 11},
    {"failed", {{'a', Script::pending}, {WAIT_OBJECT_0}, {}, false, 3}, user, false, 11},
    {"refused", {}, "nobody", false, 4},
    {"busy", {}, user, false, 9, true},
};

// What a failure may come to besides what the run comes to without it. The good end of a run is
// not among that where it stands here without 0. A run that could not read goes on to its end.
const std::map<std::string, std::set<int>> codesOf{
    {"CloseHandle", {0, 3}},
    {"CreateEventA", {0, 11}},
    {"CreateFileA", {1}},
    {"CreateNamedPipeA", {1}},
    {"CreateProcessA", {4}},
    {"CreateProcessAsUserA", {4}},
    {"DuplicateHandle", {2}},
    {"GetExitCodeProcess", {0, 8}},
    {"GetOverlappedResult", {0, 11}},
    {"GetTokenInformation", {0}},
    {"GetVersionExW", {0}},
    {"LogonUserA", {4, 10}},
    {"LsaAddAccountRights", {10}},
    {"LsaOpenPolicy", {0, 10}},
    {"ReadFile", {0, 11}},
    {"WaitForMultipleObjectsEx", {0, 11}},
    {"WaitForSingleObject", {0, 11}},
};

class Faults : public Scripted
{
protected:
    // A run with this failure. Returns how often each operation was called.
    std::map<std::string, int> inject(const Kind& kind, std::string_view operation, int call,
                                      bool onwards)
    {
        SCOPED_TRACE(testing::Message() << kind.name << ": " << operation << " " << call
                                        << (onwards ? " and on" : ""));
        static_cast<Course&>(script) = kind.course;
        script.operation = operation, script.call = call, script.onwards = onwards;
        script.entitled = kind.entitled;
        if (kind.busy)
            Bare::m_Lock.tryLock();
        const Outcome got = run(kind.user);
        EXPECT_EQ(Bare::m_Lock.isLocked(), kind.busy);
        Bare::m_Lock.unlock();
        expectBalance();
        expectTold(kind, std::string(operation), got);
        EXPECT_TRUE(!script.childRuns || operation == "Stop");
        auto calls = std::exchange(script.calls, {});
        // A system that does not tell its version changes no identities.
        EXPECT_TRUE(calls["CreateProcessA"] == 0 || kind.user.empty() ||
                    operation == "GetVersionExW");
        // Removing the right may itself fail.
        EXPECT_TRUE(script.entitled == kind.entitled ||
                    (!operation.empty() && calls["LsaRemoveAccountRights"] > 0));
        // 60 microseconds, 10 a look.
        EXPECT_TRUE(calls["Sleep"] == 6 || !kind.busy || !operation.empty());
        for (const std::string& entry : script.log)
            EXPECT_EQ(entry.find(password), std::string::npos);
        script = Script();
        calls[allocation] = Refusal::asked;
        return calls;
    }

    static void expectTold(const Kind& kind, const std::string& operation, const Outcome& got)
    {
        const int code = got.result < 0 ? -1 : got.record.getCode();
        const auto found = codesOf.find(operation);
        const bool known = found != codesOf.end();
        EXPECT_TRUE((code == kind.code && !(known && code == 0)) ||
                    (known && found->second.count(code) > 0) ||
                    (operation == allocation && (code == -1 || code == 8)))
            << code;
        const bool ofUser = code == 9 || code == 10;
        EXPECT_EQ(got.result, ofUser || code == 4 ? 3 : code);
        EXPECT_EQ(got.record.getSubject(), code <= 0 ? "" : ofUser ? kind.user : command);
    }
};

TEST_F(Faults, EveryCallAndEveryAllocation)
{
    int injected = 0;
    for (const Kind& kind : kinds) {
        const auto calls = inject(kind, "", 0, false);
        for (const auto& [operation, count] : calls) {
            for (int i = 2; i < 2 * (count + 1); ++i, ++injected) {
                const int blocks = Refusal::blocks;
                inject(kind, operation, i / 2, i % 2 != 0);
                EXPECT_EQ(Refusal::blocks, blocks);
                inject(kind, "", 0, false); // the next run is good
            }
        }
    }
    EXPECT_GT(injected, 0);
    std::printf("faults injected: %d\n", injected);
    EXPECT_EQ(traced().find(password), std::string::npos);
}

TEST(ExecPipe, EveryCodeHasItsKey)
{
    EXPECT_STREQ(ECmnExecPipe::keyOf(0), "TARNIX_EXEC_PIPE_SUCCESS");
    EXPECT_STREQ(ECmnExecPipe::keyOf(13), "TARNIX_EXEC_PIPE_CMD_ERROR_UNEXPECTED");
    EXPECT_TRUE(!ECmnExecPipe::keyOf(-1) && !ECmnExecPipe::keyOf(14));
}

} // namespace
