// The runner on a scripted platform: the outcome of each scenario; then each scenario again with
// each call of the platform and each allocation failing in turn.
#include "cmntracelog.h"
#include "scripted_platform.h"
#include "support/command.h"
#include "support/scratchinstallation.h"

#include <gtest/gtest.h>

using namespace tarnix_cmn_4_4;

namespace
{

const std::string command = "a command with a word or two";
const std::string user = "a user with quite a long name";
const std::string password = "a password that is too long for the string object itself";

constexpr long ended = WAIT_OBJECT_0, late = WAIT_TIMEOUT, odd = 77;
constexpr long pending = Script::pending, failed = Script::failed;
const Details both{CTRL_C_EVENT, CTRL_BREAK_EVENT}, all{CTRL_C_EVENT, CTRL_BREAK_EVENT, 1067};
const std::wstring exited = L"Command exited with status ";

// What happens during a run, and its expected outcome.
const struct Scenario {
    Script script;
    std::string user;
    int code, status; // of the error record; of the child, -1 if it is not known
    Lines lines;
    std::wstring description = L"";
    Details stops{};
    std::string operation = "", traced = ""; // the operation that fails, and the one in the trace
    unsigned long seconds = 7;
} scenarios[] = {
    {{}, "", 1, -1, {"former"}, L"", {}, "CreateNamedPipeA", "CreateNamedPipeA"},
    {{}, "", 3, -1, {"former"}, L"", {}, "CloseHandle"},
    {{}, "", 4, -1, {"former"}, L"scripted error 13", {}, "CreateProcessA"},
    // Another runner holds the lock of added rights.
    {{{}, {}, {}, late, 0, false, true}, user, 9, -1, {"former"}},
    {{{'a', '\n', 'b'}}, "", 0, 0, {"a", "b"}},
    {{{'a', failed}}, "", 0, 0, {"a"}, L"", {}, "", "ReadFile"},
    {{{'a', pending, Script::broken}}, "", 0, 0, {"a"}},
    {{{'a', pending, Script::empty}}, "", 0, 0, {"a"}},
    {{{'a', pending}}, "", 0, 0, {"a"}, L"", {}, "", "", 0},
    // An unknown result of a wait: the read itself decides.
    {{{'a', pending, failed}, {odd}}, "", 0, 0, {"a"}, L"", {}, "", "GetOverlappedResult"},
    // The child pauses within a line, or ends before its first line or after a complete one.
    {{{'a', '\n', 'b', pending}, {late}, {late, late, late}}, user, 5, -1, {"a"}, L"", all},
    {{{pending}, {ended}, {late, late, ended}, late, 3}, user, 11, 3, {}, exited + L"3", both},
    {{{'a', '\n', 'b', '\n'}, {}, {}, ended, 3, true}, user, 0, 3, {"a", "b"}},
    // Failures after the end of the output.
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

// Shows protected members, and can claim to run in a child.
struct OpenRunner : CCmnExecPipeWindows {
    using CCmnExecPipeWindows::CCmnExecPipeWindows;
    using CCmnExecPipeWindows::m_Lock;

    int inContext = 0;
    std::string fields() const { return m_ExtraList.at(1) + m_User + m_Password; }

    int IsChildContext() override { return inContext; }
};

struct Faults : testing::Test {
    Faults() { m_Log.get()->initialize(L"runner", L"", L"", 1, false); }
    void TearDown() override { EXPECT_TRUE(script.open.empty() && !OpenRunner::m_Lock.isLocked()); }

    // Runs a scenario in which an operation fails, and destroys the runner.
    Outcome run(const Scenario& scenario, const Fault& fault)
    {
        if (scenario.script.busy)
            OpenRunner::m_Lock.tryLock();
        Outcome got;
        if (endsWithoutMemory(scenario.script, fault, [&] {
                CCmnExecPipeWindows runner;
                runner.setTraceLog(m_Log);
                got = exec(runner, command, scenario.seconds, "", scenario.user, password);
            }))
            got.record = ECmnExecPipe("", -1);
        EXPECT_EQ(OpenRunner::m_Lock.isLocked(), script.busy);
        OpenRunner::m_Lock.unlock();

        const std::string operation(fault.operation);
        const auto* row = std::begin(codesOf);
        while (!row->operations.empty() && row->operations.count(operation) == 0)
            ++row;
        const int code = got.record.getCode();
        EXPECT_TRUE(row->codes.count(code) || (row->codes.count(same) && code == scenario.code))
            << code;
        const bool ofUser = code == 9 || code == 10;
        EXPECT_EQ(got.result, ofUser || code == 4 ? 3 : code);
        EXPECT_EQ(got.record.getSubject(), code <= 0 ? "" : ofUser ? user : command);
        // Without the system's version no user is switched.
        EXPECT_TRUE(script.calls["CreateProcessA"].empty() || scenario.user.empty() ||
                    operation == "GetVersionExW");
        const std::string log = m_Scratch.read("Logs/runner.log");
        EXPECT_EQ(log.find(password), std::string::npos);
        // The record of code 10 has no text, and that of a right that is not removed does not
        // exist.
        const bool ofRight =
            operation == "LsaAddAccountRights" || operation == "LsaRemoveAccountRights";
        EXPECT_TRUE(!ofRight || log.find(operation + " failed") != std::string::npos);
        EXPECT_TRUE(code != 10 || log.find("LogonUserA failed") != std::string::npos);
        // Removing the right may itself fail.
        EXPECT_TRUE(script.entitled == scenario.script.entitled ||
                    (!operation.empty() && !script.calls["LsaRemoveAccountRights"].empty()));
        return got;
    }

    void expectGood(const Scenario& scenario)
    {
        m_Scratch.write("Logs/runner.log", "");
        testing::internal::CaptureStdout();
        const Outcome got = run(scenario, {scenario.operation});
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  scenario.code == 1 ? "GetNamedPipeHandles() FAILED with error code (13)\n" : "");
        EXPECT_EQ(got.status, scenario.status);
        EXPECT_EQ(got.lines, scenario.lines);
        EXPECT_EQ(got.record.getDescription(), scenario.description);
        EXPECT_EQ(script.calls["Stop"], scenario.stops);
        // Waits for the lock for 60 microseconds, of which each look at the clock takes 10.
        EXPECT_EQ(script.calls["Sleep"].size(), script.busy ? 6U : 0U);
        const auto& reads = scenario.script.reads;
        EXPECT_EQ(script.calls["CancelIo"].empty(), reads.empty() || reads.back() != pending);
        const std::string where = scenario.code == 1 ? "GetNamedPipeHandles" : "ReadLine",
                          how = " failed, Error Code: 13, Reason: scripted error 13\n";
        EXPECT_EQ(m_Scratch.read("Logs/runner.log").erase(0, 48), // without the time and the class
                  scenario.traced.empty() ? "" : where + " ERROR: " + scenario.traced + how);
    }

    const ScratchInstallation m_Scratch;
    const CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>> m_Log{true};
};

TEST_F(Faults, EveryCallAndEveryAllocationOfEveryScenario)
{
    for (const Scenario& scenario : scenarios) {
        SCOPED_TRACE(testing::Message() << "scenario " << &scenario - scenarios);
        const auto good = [&] { expectGood(scenario); };
        if (scenario.operation.empty())
            failEach(good, [&](const Fault& fault) { run(scenario, fault); });
        else
            good();
    }
    EXPECT_EQ(ECmnExecPipe::keyOf(-1), nullptr);
}

TEST_F(Faults, NobodyIsLoggedOnForACommandThatCannotStart)
{
    script = {};
    CCmnExecPipeWindows runner;
    const std::string zero("/\0", 2);
    EXPECT_EQ(exec(runner, command, 7, zero, user, password).record.getCode(), 4);
    EXPECT_TRUE(script.calls["LogonUserA"].empty());
}

TEST_F(Faults, CopiesAreIdleAndOwnNothing)
{
    script = {{pending}, {late}};
    OpenRunner source(Lines{"a", "b"}), assigned;
    EXPECT_EQ(exec(source, "command", 7, "", "user", "word").result, 5);
    OpenRunner copy(source);
    assigned = source;
    for (OpenRunner* other : {&copy, &assigned}) {
        EXPECT_EQ(other->getLastError().getCode(), 5);
        EXPECT_EQ(other->fields(), "buserword");
        script.reads = {'o', '\n'};
        EXPECT_EQ(exec(*other, "own").lines, Lines{"o"});
        other->Abort();
        OpenRunner copied(*other), aborted;
        aborted = *other;
        for (OpenRunner* each : {&copied, &aborted})
            EXPECT_EQ(exec(*each, "started, but not read").lines, Lines{});
        aborted.inContext = 1;
        EXPECT_EQ(exec(aborted, "not started").lines, Lines{"former"});
    }
    EXPECT_EQ(script.calls["ReadFile"].size(), 1U + 3 + 3);
    EXPECT_TRUE(OpenRunner::m_Lock.isLocked());
}

} // namespace
