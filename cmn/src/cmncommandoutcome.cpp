// SPDX-License-Identifier: LicenseRef-Tarnix
// What became of a command, in words.
#include "cmncommandoutcome.h"

namespace tarnix_cmn_4_4
{

namespace
{

using Outcome = SCmnCommandOutcome;

const char* reasonText(Outcome::Reason reason)
{
    switch (reason) {
    case Outcome::Reason::caller:
        return "by its caller";
    case Outcome::Reason::silence:
        return "after its silence limit";
    case Outcome::Reason::timeLimit:
        return "after its time limit";
    case Outcome::Reason::outputLimit:
        return "at its output limit";
    default:
        return "";
    }
}

std::string howItEnded(const Outcome& outcome)
{
    return outcome.signal != 0 ? "signal " + std::to_string(outcome.signal)
                               : "status " + std::to_string(outcome.status);
}

} // namespace

bool SCmnCommandOutcome::ok() const
{
    return end == End::exited && status == 0;
}

std::string SCmnCommandOutcome::describe() const
{
    switch (end) {
    case End::notStarted:
        return "not started: " + errorText;
    case End::exited:
        return "exited with " + howItEnded(*this);
    case End::signalled:
        return "ended by " + howItEnded(*this) + (coreDumped ? ", core dumped" : "");
    case End::stopped:
        return std::string("stopped ") + reasonText(reason) + " (" + howItEnded(*this) + ")";
    default:
        return "ended with unknown status" +
               (reason != Reason::none ? std::string(", stopped ") + reasonText(reason) : "") +
               ": " + errorText;
    }
}

const char* SCmnCommandOutcome::messageKey() const
{
    switch (end) {
    case End::notStarted:
        return "TARNIX_COMMAND_NOT_STARTED";
    case End::exited:
        return "TARNIX_COMMAND_EXITED";
    case End::signalled:
        return "TARNIX_COMMAND_SIGNALLED";
    case End::stopped:
        break;
    default:
        return "TARNIX_COMMAND_STATUS_UNKNOWN";
    }
    switch (reason) {
    case Reason::silence:
        return "TARNIX_COMMAND_STOPPED_SILENT";
    case Reason::timeLimit:
        return "TARNIX_COMMAND_STOPPED_TIME_LIMIT";
    case Reason::outputLimit:
        return "TARNIX_COMMAND_STOPPED_OUTPUT_LIMIT";
    default:
        return "TARNIX_COMMAND_STOPPED";
    }
}

std::vector<std::string> SCmnCommandOutcome::messageArguments() const
{
    switch (end) {
    case End::exited:
        return {std::to_string(status)};
    case End::signalled:
        return {std::to_string(signal)};
    case End::stopped:
        return {std::to_string(status), std::to_string(signal)};
    default:
        return {errorText};
    }
}

} // namespace tarnix_cmn_4_4
