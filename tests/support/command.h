// A command that is run, and its outcome.
#ifndef TARNIX_SUPPORT_COMMAND_H
#define TARNIX_SUPPORT_COMMAND_H

#include "cmnexecpipewindows.h"

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

#endif
