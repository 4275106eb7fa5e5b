// SPDX-License-Identifier: LicenseRef-Tarnix
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

const std::set<int> notStarted{1, 2, 3, 4, 9, 10};

const Details line{'a', '\n'}, interrupts{CTRL_C_EVENT, CTRL_BREAK_EVENT},
    kill{CTRL_C_EVENT, CTRL_BREAK_EVENT, 1067};
const Lines both{"a", "b"};
const std::string readError =
    "ERROR: GetOverlappedResult failed, Error Code: 13, Reason: scripted error 13\n";

// The outcome of a run; by default the child prints "a", and ends.
struct Expected {
    int code = 0, status = 0; // of the error record, and of the command; status -1: not known
    Lines lines{"a"};
    Details stops{};
    std::string traced = ""; // after the name of the function
};

const struct Scenario {
    const char* name;
    Script during;
    Expected expected{};
    std::string user = "", failing = ""; // the operation that fails
    unsigned long seconds = 7;
} scenarios[] = {
    {"a pipe is not closed", {line}, {3, -1, {"former"}}, "", "CloseHandle"},
    {"rights are locked", {line, {}, {}, late, 0, false, true}, {9, -1, {"former"}}, user},
    {"pending read that finds the end", {{'a', '\n', pending, Script::broken}}},
    {"pending read without a byte", {{'a', pending, Script::empty}}},
    {"no time", {{'a', pending}}, {}, "", "", 0},
    // The read itself decides.
    {"odd wait", {{'a', pending, failed}, {odd}}, {0, 0, {"a"}, {}, readError}},
    {"pause", {{'a', '\n', 'b', pending}, {late}, {late, late, late}}, {5, -1, {"a"}, kill}, user},
    {"no line", {{pending}, {ended}, {late, late, ended}, late, 1}, {11, 1, {}, interrupts}, user},
    {"ended", {{'a', '\n', 'b', '\n', pending}, {}, {}, ended, 3, true}, {0, 3, both}, user},
    {"failed wait", {{'a', '\n', 'b'}, {}, {WAIT_FAILED}}, {11, 1067, both, {1067}}},
    {"no status after the end", {line}, {8, -1}, "", "GetExitCodeProcess"},
};

// The code of a run in which an operation fails: one of these, `same` for the code without the
// failure. A run that cannot read goes on to its end. The last row is for any other operation.
constexpr int same = 100;
const struct {
    std::set<int> codes;
    std::set<std::string> operations;
    bool isTraced = false;
} codesOf[] = {
    {{1}, {"CreateFileA", "CreateNamedPipeA"}, true},
    {{2}, {"DuplicateHandle"}},
    {{4}, {"CreateProcessA", "CreateProcessAsUserA"}},
    {{4, 10}, {"LogonUserA"}},
    {{10}, {"LsaAddAccountRights"}, true},
    {{same}, {"LsaRemoveAccountRights"}, true},
    {{same, 10}, {"LsaOpenPolicy"}},
    {{same, 0}, {"GetTokenInformation", "GetVersionExW"}},
    {{same, 0, 11}, {"ReadFile"}, true},
    {{same, 0, 11}, {"CreateEventA", "GetOverlappedResult"}},
    {{same, 0, 11}, {"WaitForMultipleObjectsEx", "WaitForSingleObject"}},
    {{same, 3}, {"CloseHandle"}},
    {{same, 8}, {"GetExitCodeProcess"}},
    {{same, 8, -1}, {allocation}},
    {{same}, {}},
};

// Shows protected members, and can claim to run in a child.
struct OpenRunner : CCmnExecPipeWindows {
    using CCmnExecPipeWindows::CCmnExecPipeWindows;
    using CCmnExecPipeWindows::m_LastSystemError;
    using CCmnExecPipeWindows::m_Lock;
    using CCmnExecPipeWindows::WaitPid;

    int inContext = 0;
    std::string fields() const { return m_ExtraList.at(1) + m_User + m_Password; }

    int IsChildContext() override { return inContext; }
    int Close(long seconds) override
    {
        EXPECT_EQ(seconds, 10);
        return CCmnExecPipeWindows::Close(seconds);
    }
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
        if (scenario.during.busy)
            OpenRunner::m_Lock.tryLock();
        m_Scratch.write("Logs/runner.log", "");
        testing::internal::CaptureStdout();
        Outcome got;
        if (endsWithoutMemory(scenario.during, fault, [&] {
                OpenRunner runner;
                runner.setTraceLog(m_Log);
                got = exec(runner, command, scenario.seconds, "", scenario.user, password);
            }))
            got.record = ECmnExecPipe("", -1);
        const std::string printed = testing::internal::GetCapturedStdout();
        EXPECT_EQ(OpenRunner::m_Lock.isLocked(), script.busy);
        OpenRunner::m_Lock.unlock();

        const std::string operation(fault.operation);
        const auto* row = std::begin(codesOf);
        while (!row->operations.empty() && row->operations.count(operation) == 0)
            ++row;
        const int code = got.record.getCode();
        const bool isSame = row->codes.count(same) > 0 && code == scenario.expected.code;
        EXPECT_TRUE(row->codes.count(code) > 0 || isSame) << code;
        const bool ofUser = code == 9 || code == 10;
        EXPECT_EQ(got.result, ofUser || code == 4 ? 3 : code);
        EXPECT_EQ(got.record.getSubject(), code <= 0 ? "" : ofUser ? user : command);
        const int status = got.record.getExitStatus();
        EXPECT_EQ(status, code != 11 ? 0 : got.status != 0 ? got.status : 1067); // kill failed
        const std::wstring description =
            code == 4                              ? L"scripted error 13"
            : code == 8 && operation != allocation ? L"Error in WaitPid()"
            : code == 11 ? L"Command exited with status " + std::to_wstring(status)
                         : L"";
        EXPECT_TRUE(got.record.getDescription() == description || operation == "FormatMessageW");
        EXPECT_TRUE(notStarted.count(code) == 0 || got.lines == Lines{"former"});
        EXPECT_EQ(printed, code == 1 ? "GetNamedPipeHandles() FAILED with error code (13)\n" : "");
        // Without the system's version no user is switched.
        const bool switches = !scenario.user.empty() && operation != "GetVersionExW";
        EXPECT_TRUE(script.calls[switches ? "CreateProcessA" : "CreateProcessAsUserA"].empty());
        const std::string log = m_Scratch.read("Logs/runner.log");
        EXPECT_EQ(log.find(password), std::string::npos);
        EXPECT_TRUE(!row->isTraced ||
                    log.find(operation + " failed, Error Code: ") != std::string::npos);
        // The record of code 10 has no text.
        EXPECT_TRUE(code != 10 || log.find("LogonUserA failed") != std::string::npos);
        // A right that is not found is added, and removed. To remove it may fail, but not twice.
        EXPECT_TRUE(script.entitled == scenario.during.entitled ||
                    operation == "LsaEnumerateAccountRights" ||
                    (fault.laterToo && script.calls["LsaRemoveAccountRights"].size() == 2));
        return got;
    }

    void checkGood(const Scenario& scenario)
    {
        const Outcome got = run(scenario, {scenario.failing});
        EXPECT_EQ(got.record.getCode(), scenario.expected.code);
        EXPECT_EQ(got.status, scenario.expected.status);
        EXPECT_EQ(got.lines, scenario.expected.lines);
        EXPECT_EQ(script.calls["Stop"], scenario.expected.stops);
        // Only the copy for standard error is inherited.
        EXPECT_EQ(script.calls["DuplicateHandle"], (Details{true, false, false}));
        EXPECT_EQ(script.calls["LsaRemoveAccountRights"], script.calls["LsaAddAccountRights"]);
        // Waits for the lock for 60 microseconds, of which each look at the clock takes 30, the
        // last less.
        EXPECT_EQ(script.calls["Sleep"], Details(script.busy ? 2U : 0U));
        EXPECT_EQ(script.calls["CancelIo"].empty(), scenario.during.reads.back() != pending);
        const std::string log = m_Scratch.read("Logs/runner.log");
        // Without time and name.
        EXPECT_EQ(log.substr(log.find(' ', 48) + 1), scenario.expected.traced);
    }

    const ScratchInstallation m_Scratch;
    const CCmnSmartPtr<CCmnTraceLog, CCmnDefaultAllocator<CCmnTraceLog>> m_Log{true};
};

TEST_F(Faults, EveryCallAndEveryAllocationOfEveryScenario)
{
    for (const Scenario& scenario : scenarios) {
        SCOPED_TRACE(scenario.name);
        if (scenario.failing.empty())
            failEach([&] { checkGood(scenario); },
                     [&](const Fault& fault) { run(scenario, fault); });
        else
            checkGood(scenario);
    }
}

TEST_F(Faults, KeysOfCodes)
{
    using Record = ECmnExecPipe;
    const std::string prefix = "TARNIX_EXEC_PIPE_";
    EXPECT_EQ(Record::keyOf(-1), nullptr);
    EXPECT_EQ(Record::keyOf(0), prefix + "SUCCESS");
    EXPECT_EQ(Record::keyOf(Record::PARSE_COMMAND_FAILED), prefix + "PARSE_COMMAND_FAILED");
    EXPECT_EQ(Record::keyOf(Record::EXE_DOES_NOT_EXIST), prefix + "EXE_DOES_NOT_EXIST");
    EXPECT_EQ(Record::keyOf(Record::CMD_KILLED), prefix + "CMD_KILLED");
    EXPECT_EQ(Record::keyOf(13), prefix + "CMD_ERROR_UNEXPECTED");
    EXPECT_EQ(Record::keyOf(14), nullptr);
}

TEST_F(Faults, NobodyIsLoggedOnForACommandThatCannotStart)
{
    script = {};
    CCmnExecPipeWindows runner;
    EXPECT_EQ(exec(runner, command, 7, std::string(1, '\0'), user, password).record.getCode(), 4);
    EXPECT_TRUE(script.calls["LogonUserA"].empty());
}

TEST_F(Faults, CopiesAreIdleAndOwnNothing)
{
    script = {{pending, Script::broken, pending, Script::broken, pending}, {late, late, late}};
    script.exitStatus = 4;
    script.fault = {"LsaRemoveAccountRights"}; // which is tried again
    OpenRunner source(Lines{"a", "b"}), assigned;
    source.m_LastSystemError = 7;
    EXPECT_EQ(exec(assigned, "is stopped by the assignment", 7).result, 5);
    for (const char* each : {"is stopped by the next run", "command"})
        EXPECT_EQ(exec(source, each, 7, "", "user", "word").result, 5);
    OpenRunner copy(source);
    assigned = source;
    Outcome o;
    for (OpenRunner* other : {&copy, &assigned}) {
        EXPECT_EQ(other->getLastError().getCode(), 5);
        EXPECT_EQ(other->m_LastSystemError, 7U);
        EXPECT_EQ(other->fields(), "buserword");
        script.reads = {'o', '\n'};
        EXPECT_EQ(exec(*other, "own").lines, Lines{"o"});
        EXPECT_EQ(exec(*other, "not read without Init").lines, Lines{});
        const OpenRunner& itself = *other;
        EXPECT_TRUE((*other = itself).getExitStatus(o.status));
        other->Abort();
        OpenRunner copied(*other), aborted;
        aborted = *other;
        for (OpenRunner* each : {&copied, &aborted})
            EXPECT_EQ(exec(*each, "started, but not read").lines, Lines{});
        aborted.inContext = 1;
        const Outcome inChild = exec(aborted, "not started");
        EXPECT_EQ(inChild.lines, Lines{"former"});
        EXPECT_EQ(inChild.result, 0);
    }
    EXPECT_EQ(script.calls["ReadFile"].size(), 3U + 3 + 3);
    EXPECT_TRUE(OpenRunner::m_Lock.isLocked());
    script.fault.call = 3;
    source.Init(); // ends its run
    EXPECT_EQ(source.m_LastSystemError, 0U);
    EXPECT_FALSE(script.entitled);
    EXPECT_FALSE(OpenRunner::m_Lock.isLocked());
    EXPECT_FALSE(source.getExitStatus(o.status));
    EXPECT_FALSE(source.getEndingSignal(o.signal, o.coreDumped));
}

TEST_F(Faults, TheStagesOfAStop)
{
    script = {{pending}, {late}, {late, late, late}};
    OpenRunner runner;
    EXPECT_EQ(runner.WaitPid(60), -1); // there is no child
    EXPECT_EQ(exec(runner, command, 7).result, 5);
    script.calls.clear();
    script.anyTimeout = true;
    EXPECT_EQ(runner.WaitPid(60), 1067);
    EXPECT_EQ(script.calls["WaitForSingleObject"], (Details{60000, 30000, 30000}));
    script.endWaits = {odd, odd, odd};
    EXPECT_EQ(runner.WaitPid(60), -1);
    EXPECT_EQ(script.calls["Stop"], kill);
}

TEST_F(Faults, TheLimitOfAStartAsAUser)
{
    script = {};
    for (const unsigned int seconds : {0U, 7U, 4294967U, 4294968U})
        CCmnExecPipeWindows::setUserStartLimit(seconds);
    EXPECT_EQ(script.calls["setUserStartLimit"], (Details{10000, 7000, 4294967000, 4294967000}));
}

} // namespace
