// SPDX-License-Identifier: LicenseRef-Tarnix
// CCmnCommand on a scripted platform: the outcome of each scenario; then each scenario again with
// each call of the platform and each allocation failing in turn.
#include "scripted_platform.h"
#include "support/command.h"

#include <gtest/gtest.h>

using namespace tarnix_cmn_4_4;

namespace
{

using End = SCmnCommandOutcome::End;
using Environment = CCmnCommand::Environment;
using Streams = CCmnCommand::Streams;

constexpr long late = tarnix_platform::WAIT_TIMEOUT, pending = Script::pending;

const struct Scenario {
    const char* name;
    std::string outcome; // see textOf
    void (*make)(Script& during, CCmnCommand& command);
    Details stops{};
} scenarios[] = {
    {"apart, input, variables", "|||error: ae",
     [](auto& during, auto& command) {
         during.reads = {pending, 'a', 'e', '\n', pending, '\n', pending, '\n'};
         during.writes = {pending, 1};
         command.setStreams(Streams::apart).setInput("a text that does not fit into the pipe");
         command.setVariable("NAME", "a value that is stored on the heap").unsetVariable("HOME");
     }},
    {"descriptor, one stream", "exited with status 3|error: a|error: b",
     [](auto& during, auto& command) {
         during.reads = {'a', pending, '\n', 'b'};
         during.exitStatus = 3;
         command.setStreams(Streams::errorOnly).setInputDescriptor(7).setKeepBytes(false);
         command.setEnvironment(Environment::empty).setDirectory("/a/directory/somewhere");
     }},
    {"user", "|u",
     [](auto& during, auto& command) {
         during.reads = {'u'};
         command.setUser("a user with quite a long name", "a password on the heap, as it is long");
         command.setEnvironment(Environment::account).setStreams(Streams::outputOnly);
     }},
    {"stubborn",
     "stopped at its output limit (signal 9)|s",
     [](auto& during, auto& command) {
         during.reads = {'s', '\n', 't'};
         during.readWaits = {late, late, 0};
         during.exitStatus = 1067;
         command.setLineLimit(1).setStopStages({{2, {}}, {15, {}}}).setInput("");
     },
     {2, 15, 1067}},
    {"silent",
     "stopped after its silence limit (status 0) bytes: s", // it had just ended
     [](auto& during, auto& command) {
         during.reads = {'s', pending};
         during.readWaits = {late, 1};
         command.setSilenceLimit(std::chrono::milliseconds(1)).setKeepBytes(true).setStopStages({});
     },
     {1067}},
};

// The ends of a run in which an operation fails: these, or (`same`) that without the failure. The
// last row is for any other operation.
const struct {
    std::set<End> ends;
    std::set<std::string> operations;
    bool same = false;
} endsOf[] = {
    {{End::notStarted},
     {"CreateNamedPipeA", "CreateFileA", "openDescriptor", "GetEnvironmentStringsA",
      "accountEnvironment", "CreateProcessA", "CreateProcessAsUserA", "LsaAddAccountRights",
      "GetVersionExW", "LogonUserA", "DuplicateHandle"}},
    {{End::notStarted}, {"CreateEventA", "GetTokenInformation", "LsaOpenPolicy"}, true},
    {{End::unknown},
     {"WaitForMultipleObjectsEx", "GetExitCodeProcess", "ReadFile", "WriteFile",
      "GetOverlappedResult"}},
    {{}, {}, true},
};

// Runs a scenario in which an operation fails, and destroys the command.
SCmnCommandOutcome runFaulty(const Scenario& scenario, const Fault& fault = {})
{
    SCmnCommandOutcome got;
    Script during, unused;
    scenario.make(during, CCmnCommand(Lines{}).setInput(""));
    during.anyTimeout = true;
    const bool thrown = endsWithoutMemory(during, fault, [&] {
        CCmnCommand command({"a command", "with a word or two"});
        scenario.make(unused, command);
        got = command.run();
    });
    EXPECT_TRUE(!script.entitled || !script.calls["LsaRemoveAccountRights"].empty());
    const auto* row = std::begin(endsOf);
    const std::string operation(fault.operation);
    while (!row->operations.empty() && row->operations.count(operation) == 0)
        ++row;
    const bool isOfStop = operation == "CreateEventA" && fault.call <= 2; // its two events
    const bool isSame = row->same && !isOfStop && textOf(got) == scenario.outcome;
    EXPECT_TRUE(thrown || row->ends.count(got.end) > 0 || isSame) << got.describe();
    EXPECT_TRUE(!thrown || operation == allocation) << operation;
    EXPECT_EQ(got.error != 0, got.errorText == "scripted error 13");
    EXPECT_EQ(operation == "GetProcessTimes" ? got.userTime.count() : 0, 0);
    EXPECT_EQ(operation == "K32GetProcessMemoryInfo" ? got.peakMemory : 0, 0U);
    const bool hasText = !thrown && (got.end == End::notStarted || got.end == End::unknown);
    EXPECT_EQ(got.error != 0, hasText && operation != "GetVersionExW"); // a reason of its own
    return got;
}

void checkGood(const Scenario& scenario)
{
    const SCmnCommandOutcome got = runFaulty(scenario);
    EXPECT_EQ(textOf(got), scenario.outcome);
    EXPECT_EQ(script.calls["Stop"], scenario.stops);
    EXPECT_EQ(script.killsGroup, !scenario.stops.empty());
    EXPECT_EQ(got.userTime.count(), ((1L << 32) + 7) * 100);
    EXPECT_EQ(got.systemTime.count(), 700);
    EXPECT_EQ(got.peakMemory, 4096U);
}

TEST(CommandFaults, EveryCallAndEveryAllocationOfEveryScenario)
{
    for (const Scenario& scenario : scenarios) {
        SCOPED_TRACE(scenario.name);
        failEach([&] { checkGood(scenario); },
                 [&](const Fault& fault) { runFaulty(scenario, fault); });
    }
}

} // namespace
