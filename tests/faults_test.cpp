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
struct Scenario : Script {
    std::string user = "", failing = ""; // the operation that fails
    unsigned long seconds = 7;
    int code = 0, status = -1; // of the error record; of the child, -1 if it is not known
    Lines lines{};
    std::wstring description = L"";
    Details stops{};
    std::string traced = ""; // the operation that the trace names
};

const struct {
    const char* name;
    void (*make)(Scenario&);
} scenarios[] = {
    {"no pipe",
     [](Scenario& s) {
         s.failing = s.traced = "CreateNamedPipeA";
         s.code = 1;
         s.lines = {"former"};
     }},
    {"pipe end that cannot be closed",
     [](Scenario& s) {
         s.failing = "CloseHandle";
         s.code = 3;
         s.lines = {"former"};
     }},
    {"no process",
     [](Scenario& s) {
         s.failing = "CreateProcessA";
         s.code = 4;
         s.lines = {"former"};
         s.description = L"scripted error 13";
     }},
    {"another runner holds the lock of added rights",
     [](Scenario& s) {
         s.busy = true;
         s.user = user;
         s.code = 9;
         s.lines = {"former"};
     }},
    {"last line without a newline",
     [](Scenario& s) {
         s.reads = {'a', '\n', 'b'};
         s.status = 0;
         s.lines = {"a", "b"};
     }},
    {"failed read",
     [](Scenario& s) {
         s.reads = {'a', failed};
         s.status = 0;
         s.lines = {"a"};
         s.traced = "ReadFile";
     }},
    {"pending read that finds the end",
     [](Scenario& s) {
         s.reads = {'a', pending, Script::broken};
         s.status = 0;
         s.lines = {"a"};
     }},
    {"pending read without a byte",
     [](Scenario& s) {
         s.reads = {'a', pending, Script::empty};
         s.status = 0;
         s.lines = {"a"};
     }},
    {"no time",
     [](Scenario& s) {
         s.seconds = 0;
         s.reads = {'a', pending};
         s.status = 0;
         s.lines = {"a"};
     }},
    {"unknown result of a wait: the read itself decides",
     [](Scenario& s) {
         s.reads = {'a', pending, failed};
         s.readWaits = {odd};
         s.status = 0;
         s.lines = {"a"};
         s.traced = "GetOverlappedResult";
     }},
    {"pause within a line",
     [](Scenario& s) {
         s.user = user;
         s.reads = {'a', '\n', 'b', pending};
         s.readWaits = {late};
         s.endWaits = {late, late, late};
         s.code = 5;
         s.lines = {"a"};
         s.stops = all;
     }},
    {"end before the first line",
     [](Scenario& s) {
         s.user = user;
         s.reads = {pending};
         s.readWaits = {ended};
         s.endWaits = {late, late, ended};
         s.exitStatus = 3;
         s.code = 11;
         s.status = 3;
         s.description = exited + L"3";
         s.stops = both;
     }},
    {"end after a complete line",
     [](Scenario& s) {
         s.user = user;
         s.reads = {'a', '\n', 'b', '\n'};
         s.test = ended;
         s.entitled = true;
         s.exitStatus = 3;
         s.status = 3;
         s.lines = {"a", "b"};
     }},
    {"failed wait after the end of the output",
     [](Scenario& s) {
         s.endWaits = {WAIT_FAILED};
         s.code = 11;
         s.status = 1067;
         s.description = exited + L"1067";
         s.stops = {1067};
     }},
    {"no status after the end of the output",
     [](Scenario& s) {
         s.failing = "GetExitCodeProcess";
         s.code = 8;
         s.description = L"Error in WaitPid()";
     }},
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
    void TearDown() override
    {
        EXPECT_TRUE(script.open.empty());
        EXPECT_FALSE(OpenRunner::m_Lock.isLocked());
    }

    // Runs a scenario in which an operation fails, and destroys the runner.
    Outcome run(const Scenario& scenario, const Fault& fault)
    {
        if (scenario.busy)
            OpenRunner::m_Lock.tryLock();
        Outcome got;
        if (endsWithoutMemory(scenario, fault, [&] {
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
        const bool isSame = row->codes.count(same) > 0 && code == scenario.code;
        EXPECT_TRUE(row->codes.count(code) > 0 || isSame) << code;
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
        EXPECT_TRUE(script.entitled == scenario.entitled ||
                    (!operation.empty() && !script.calls["LsaRemoveAccountRights"].empty()));
        return got;
    }

    void expectGood(const Scenario& scenario)
    {
        m_Scratch.write("Logs/runner.log", "");
        testing::internal::CaptureStdout();
        const Outcome got = run(scenario, {scenario.failing});
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  scenario.code == 1 ? "GetNamedPipeHandles() FAILED with error code (13)\n" : "");
        EXPECT_EQ(got.status, scenario.status);
        EXPECT_EQ(got.lines, scenario.lines);
        EXPECT_EQ(got.record.getDescription(), scenario.description);
        EXPECT_EQ(script.calls["Stop"], scenario.stops);
        // Waits for the lock for 60 microseconds, of which each look at the clock takes 10.
        EXPECT_EQ(script.calls["Sleep"].size(), script.busy ? 6U : 0U);
        const auto& reads = scenario.reads;
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
    for (const auto& [name, make] : scenarios) {
        SCOPED_TRACE(name);
        Scenario scenario;
        make(scenario);
        const auto good = [&] { expectGood(scenario); };
        if (scenario.failing.empty())
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
