// SPDX-License-Identifier: LicenseRef-Tarnix
// A command that is run, and its outcome, for both classes.
#ifndef TARNIX_SUPPORT_COMMAND_H
#define TARNIX_SUPPORT_COMMAND_H

#include "cmncommand.h"
#include "cmnexecpipewindows.h"
#include "process.h"

#include <csignal>
#include <string>
#include <vector>

using Lines = std::vector<std::string>;

struct Outcome {
    int result = -1, status = -1; // status -1: not known
    int signal = 0;
    bool coreDumped = false;
    Lines lines{"former"}; // stays if the command does not start
    tarnix_cmn_4_4::ECmnExecPipe record;
};

inline Outcome exec(tarnix_cmn_4_4::CCmnExecPipeWindows& runner, const std::string& command,
                    unsigned long seconds = 60, const std::string& directory = "",
                    const std::string& user = "", const std::string& password = "")
{
    Outcome outcome;
    outcome.result = runner.Exec(command, outcome.lines, "", seconds, directory, user, password);
    outcome.record = runner.getLastError();
    runner.getExitStatus(outcome.status);
    runner.getEndingSignal(outcome.signal, outcome.coreDumped);
    return outcome;
}

inline Outcome run(const std::string& command, unsigned long seconds = 60)
{
    tarnix_cmn_4_4::CCmnExecPipeWindows runner;
    return exec(runner, command, seconds);
}

// How the command ended, unless that is with status 0, and what it printed.
inline std::string textOf(const tarnix_cmn_4_4::SCmnCommandOutcome& outcome)
{
    std::string text = outcome.describe() == "exited with status 0" ? "" : outcome.describe();
    text += outcome.ok() == text.empty() ? "" : " (ok is wrong)";
    for (const std::string& line : outcome.lines)
        text += "|" + line;
    for (const std::string& line : outcome.errorLines)
        text += "|error: " + line;
    text += outcome.bytes.empty() ? "" : " bytes: " + outcome.bytes;
    return text + (outcome.errorBytes.empty() ? "" : " error bytes: " + outcome.errorBytes);
}

// Runs the command in a process that kills itself when the command has printed a line. Returns the
// process of the command when that has ended too. This process must be the one that gets orphans.
inline pid_t leftByKilledCaller(tarnix_cmn_4_4::CCmnCommand& command)
{
    waitForChild(forkChild([&command] {
        command.setLineCallback([](auto, auto) { return ::raise(SIGKILL) == 0; });
        return command.run().ok();
    }));
    siginfo_t ended{};
    ::waitid(P_ALL, 0, &ended, WEXITED | WNOWAIT);
    return ended.si_pid;
}

#endif
