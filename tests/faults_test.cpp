// The runner over a scripted platform: what comes of a run and what it records; then every call of
// the platform and every allocation refused in turn.
#include "cmntracelog.h"
#include "scripted_platform.h"
#include "support/allocationfault.h"
#include "support/command.h"
#include "support/scratchinstallation.h"

#include <gtest/gtest.h>

using namespace tarnix_cmn_4_4;

namespace
{

const char allocation[] = "allocation"; // as an operation
const std::string command = "a command with a word or two";
const std::string user = "a user with quite a long name";
const std::string password = "a password that is too long to lie within the string";

constexpr long ended = WAIT_OBJECT_0, late = WAIT_TIMEOUT, odd = 77;
constexpr long pending = Script::pending, failed = Script::failed;
const Details both{CTRL_C_EVENT, CTRL_BREAK_EVENT}, all{CTRL_C_EVENT, CTRL_BREAK_EVENT, 1067};
const std::wstring exited = L"Command exited with status ";

// How a run goes, and what comes of it.
const struct Course {
    Script script;
    std::string user;
    int code, status; // of the record; of the child, -1 for none
    Lines lines;
    std::wstring description = L"";
    Details stops{};
    std::string operation = "", traced = ""; // what fails, and what is traced
    unsigned long seconds = 7;
} courses[] = {
    {{}, "", 1, -1, {"former"}, L"", {}, "CreateNamedPipeA", "CreateNamedPipeA"},
    {{}, "", 1, -1, {"former"}, L"", {}, "CreateFileA", "CreateFileA"},
    {{}, "", 3, -1, {"former"}, L"", {}, "CloseHandle"},
    {{}, "", 4, -1, {"former"}, L"scripted error 13", {}, "CreateProcessA"},
    // Another runner holds an added right.
    {{{}, {}, {}, late, 0, false, true}, user, 9, -1, {"former"}},
    {{{'a', '\n', 'b'}}, "", 0, 0, {"a", "b"}},
    {{{'a', failed}}, "", 0, 0, {"a"}, L"", {}, "", "ReadFile"},
    {{{'a', pending, Script::broken}}, "", 0, 0, {"a"}},
    {{{'a', pending, Script::empty}}, "", 0, 0, {"a"}},
    {{{'a', pending}}, "", 0, 0, {"a"}, L"", {}, "", "", 0},
    // A wait of an odd result goes on to the outcome of the read.
    {{{'a', pending, failed}, {odd}}, "", 0, 0, {"a"}, L"", {}, "", "GetOverlappedResult"},
    // The child falls silent in the middle of a line, or ends before one or between two.
    {{{'a', '\n', 'b', pending}, {late}, {late, late, late}}, user, 5, -1, {"a"}, L"", all},
    {{{pending}, {ended}, {late, late, ended}, late, 3}, user, 11, 3, {}, exited + L"3", both},
    {{{'a', '\n', 'b', '\n'}, {}, {}, ended, 3, true}, user, 0, 3, {"a", "b"}},
    // What else comes of the waits for its end.
    {{{}, {}, {WAIT_FAILED}}, "", 11, 1067, {}, exited + L"1067", {1067}},
    {{}, "", 8, -1, {}, L"Error in WaitPid()", {}, "GetExitCodeProcess"},
};

// The code of a run in which an operation fails: one of these, `same` for the code without the
// failure. A run that cannot read goes on to its end. The last row is for any other operation.
constexpr int same = 100;
const struct {
    std::set<int> codes;
    std::set<std::string> operations;
} codesOf[] = {
    {{1}, {"CreateFileA", "CreateNamedPipeA"}},
    {{2}, {"DuplicateHandle"}},
    {{4}, {"CreateProcessA", "CreateProcessAsUserA"}},
    {{4, 10}, {"LogonUserA"}},
    {{10}, {"LsaAddAccountRights"}},
    {{same, 10}, {"LsaOpenPolicy"}},
    {{same, 0}, {"GetTokenInformation", "GetVersionExW"}},
    {{same, 0, 11}, {"CreateEventA", "GetOverlappedResult", "ReadFile"}},
    {{same, 0, 11}, {"WaitForMultipleObjectsEx", "WaitForSingleObject"}},
    {{same, 3}, {"CloseHandle"}},
    {{same, 8}, {"GetExitCodeProcess"}},
    {{same, 8, -1}, {allocation}},
    {{same}, {}},
};

// Reaches what is protected, and can be in a child's context.
struct Bare : CCmnExecPipeWindows {
    using CCmnExecPipeWindows::CCmnExecPipeWindows;
    using CCmnExecPipeWindows::m_Lock;

    int inContext = 0;
    std::string fields() const { return m_ExtraList.at(1) + m_User + m_Password; }

    int IsChildContext() override { return inContext; }
};

struct Faults : testing::Test {
    Faults() { m_Log.get()->initialize(L"runner", L"", L"", 1, false); }
    void TearDown() override { EXPECT_TRUE(script.open.empty() && !Bare::m_Lock.isLocked()); }

    // With a failure; the end of the runner included.
    Outcome run(const Course& course, const std::string& operation, std::size_t call = 1,
                bool onwards = false)
    {
        script = course.script;
        script.operation = operation;
        script.call = call;
        script.onwards = onwards;
        if (script.busy)
            Bare::m_Lock.tryLock();
        Outcome got;
        try {
            const AllocationFault fault(operation == allocation ? call : 0, onwards);
            CCmnExecPipeWindows runner;
            runner.setTraceLog(m_Log);
            got = exec(runner, command, course.seconds, "", course.user, password);
        } catch (const std::bad_alloc&) {
            got.record = ECmnExecPipe("", -1);
        }
        EXPECT_EQ(Bare::m_Lock.isLocked(), script.busy);
        Bare::m_Lock.unlock();
        EXPECT_TRUE(script.open.empty() && !script.childRuns);
        script.calls[allocation].resize(AllocationFault::requests);

        const auto* row = std::begin(codesOf);
        while (!row->operations.empty() && row->operations.count(operation) == 0)
            ++row;
        const int code = got.record.getCode();
        EXPECT_TRUE(row->codes.count(code) || (row->codes.count(same) && code == course.code))
            << code;
        const bool ofUser = code == 9 || code == 10;
        EXPECT_EQ(got.result, ofUser || code == 4 ? 3 : code);
        EXPECT_EQ(got.record.getSubject(), code <= 0 ? "" : ofUser ? user : command);
        // A system that does not tell its version changes no identities.
        EXPECT_TRUE(script.calls["CreateProcessA"].empty() || course.user.empty() ||
                    operation == "GetVersionExW");
        EXPECT_EQ(m_Scratch.read("Logs/runner.log").find(password), std::string::npos);
        // Removing the right may itself fail.
        EXPECT_TRUE(script.entitled == course.script.entitled ||
                    (!operation.empty() && !script.calls["LsaRemoveAccountRights"].empty()));
        return got;
    }

    void expectGood(const Course& course)
    {
        m_Scratch.write("Logs/runner.log", "");
        testing::internal::CaptureStdout();
        const Outcome got = run(course, course.operation);
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  course.code == 1 ? "GetNamedPipeHandles() FAILED with error code (13)\n" : "");
        EXPECT_EQ(got.status, course.status);
        EXPECT_EQ(got.lines, course.lines);
        EXPECT_EQ(got.record.getDescription(), course.description);
        EXPECT_EQ(script.calls["Stop"], course.stops);
        // 60 microseconds, 10 a look.
        EXPECT_EQ(script.calls["Sleep"].size(), script.busy ? 6U : 0U);
        const auto& reads = course.script.reads;
        EXPECT_EQ(script.calls["CancelIo"].empty(), reads.empty() || reads.back() != pending);
        const std::string where = course.code == 1 ? "GetNamedPipeHandles" : "ReadLine",
                          how = " failed, Error Code: 13, Reason: scripted error 13\n";
        EXPECT_EQ(m_Scratch.read("Logs/runner.log").erase(0, 48), // the time and the class
                  course.traced.empty() ? "" : where + " ERROR: " + course.traced + how);
    }

    const ScratchInstallation m_Scratch;
    const CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>> m_Log{true};
};

TEST_F(Faults, EveryCallAndEveryAllocationOfEveryCourse)
{
    int injected = 0;
    for (const Course& course : courses) {
        SCOPED_TRACE(testing::Message() << "course " << &course - courses);
        expectGood(course);
        const auto calls = course.operation.empty() ? script.calls : decltype(script.calls)();
        for (const auto& [operation, details] : calls) {
            for (std::size_t i = 2; i < 2 * (details.size() + 1); ++i, ++injected) {
                SCOPED_TRACE(operation + std::to_string(i / 2) + (i % 2 != 0 ? " and on" : ""));
                const int blocks = AllocationFault::liveBlocks;
                run(course, operation, i / 2, i % 2 != 0);
                expectGood(course); // the next run
                EXPECT_EQ(AllocationFault::liveBlocks, blocks);
            }
        }
    }
    std::printf("faults injected: %d\n", injected);
    EXPECT_EQ(ECmnExecPipe::keyOf(-1), nullptr);
}

TEST_F(Faults, CopiesAreIdleAndOwnNothing)
{
    script = {{pending}, {late}};
    Bare source(Lines{"a", "b"}), assigned;
    EXPECT_EQ(exec(source, "command", 7, "", "user", "word").result, 5);
    Bare copy(source);
    assigned = source;
    for (Bare* other : {&copy, &assigned}) {
        EXPECT_EQ(other->getLastError().getCode(), 5);
        EXPECT_EQ(other->fields(), "buserword");
        script.reads = {'o', '\n'};
        EXPECT_EQ(exec(*other, "own").lines, Lines{"o"});
        other->Abort();
        Bare copied(*other), aborted;
        aborted = *other;
        for (Bare* each : {&copied, &aborted})
            EXPECT_EQ(exec(*each, "started, and not read").lines, Lines{});
        aborted.inContext = 1;
        EXPECT_EQ(exec(aborted, "not started").lines, Lines{"former"});
    }
    EXPECT_EQ(script.calls["ReadFile"].size(), 1U + 3 + 3);
    EXPECT_TRUE(Bare::m_Lock.isLocked());
}

} // namespace
