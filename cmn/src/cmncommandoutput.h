// SPDX-License-Identifier: LicenseRef-Tarnix
// What a run does with the output of its command: limits, lines, callbacks.
#ifndef TARNIX_CMNCOMMANDOUTPUT_H
#define TARNIX_CMNCOMMANDOUTPUT_H

#include "cmncommand.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace tarnix_cmn_4_4
{

class CommandOutput
{
public:
    // `wantsMore` is asked after each call of a callback for a line. If it is false, the rest is
    // dropped, as if the callback did not want it.
    CommandOutput(const CommandSettings& settings, SCmnCommandOutcome& outcome,
                  std::function<bool()> wantsMore);

    // Takes what came from a stream. Returns why the command must be stopped, or Reason::none.
    SCmnCommandOutcome::Reason take(CCmnCommand::Stream stream, std::string_view piece);

    // The stream has ended, or is read no more: its last line may have no newline.
    SCmnCommandOutcome::Reason finish(CCmnCommand::Stream stream);

private:
    std::string_view withinLimits(std::string_view piece);
    std::string_view withinLineLimit(std::string_view piece);
    bool deliver(CCmnCommand::Stream stream, std::string_view piece);
    bool deliverLines(CCmnCommand::Stream stream, std::string_view piece);
    bool passLine(CCmnCommand::Stream stream, std::string_view line);
    std::string& begunLine(CCmnCommand::Stream stream);

    const CommandSettings& m_Settings;
    SCmnCommandOutcome& m_Outcome;
    const std::function<bool()> m_WantsMore;
    std::uint64_t m_Bytes = 0;
    std::uint64_t m_Lines = 0;
    std::string m_BegunLine; // the bytes since the last newline
    std::string m_BegunErrorLine;
};

} // namespace tarnix_cmn_4_4

#endif
