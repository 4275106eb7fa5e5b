// SPDX-License-Identifier: LicenseRef-Tarnix
// What a run does with the output of its command.
#include "cmncommandoutput.h"

#include "cmncommandsettings.h"

#include <utility>

namespace tarnix_cmn_4_4
{

namespace
{

using Stream = CCmnCommand::Stream;
using Reason = SCmnCommandOutcome::Reason;
using Delivery = CommandSettings::Delivery;

} // namespace

CommandOutput::CommandOutput(const CommandSettings& settings, SCmnCommandOutcome& outcome,
                             std::function<bool()> wantsMore)
    : m_Settings(settings), m_Outcome(outcome), m_WantsMore(std::move(wantsMore))
{
}

Reason CommandOutput::take(Stream stream, std::string_view piece)
{
    const std::string_view taken = withinLimits(piece);
    if (!deliver(stream, taken)) {
        return Reason::caller;
    }
    return taken.size() < piece.size() ? Reason::outputLimit : Reason::none;
}

Reason CommandOutput::finish(Stream stream)
{
    std::string line;
    line.swap(begunLine(stream));
    if (line.empty()) {
        return Reason::none;
    }
    // Until now only lines with a newline were counted.
    if (m_Settings.lineLimit != 0 && m_Lines++ >= m_Settings.lineLimit) {
        return Reason::outputLimit;
    }
    return passLine(stream, line) ? Reason::none : Reason::caller;
}

// The part of the piece up to the limit that it reaches.
std::string_view CommandOutput::withinLimits(std::string_view piece)
{
    if (m_Settings.byteLimit != 0) {
        piece = piece.substr(0, m_Settings.byteLimit - m_Bytes);
    }
    if (m_Settings.lineLimit != 0) {
        piece = withinLineLimit(piece);
    }
    m_Bytes += piece.size();
    return piece;
}

std::string_view CommandOutput::withinLineLimit(std::string_view piece)
{
    std::size_t end = 0;
    while (m_Lines < m_Settings.lineLimit) {
        const std::size_t newline = piece.find('\n', end);
        if (newline == std::string_view::npos) {
            return piece;
        }
        ++m_Lines;
        end = newline + 1;
    }
    return piece.substr(0, end);
}

// False if the callback does not want more.
bool CommandOutput::deliver(Stream stream, std::string_view piece)
{
    switch (m_Settings.delivery) {
    case Delivery::byteCallback:
        return piece.empty() || m_Settings.callback(piece, stream);
    case Delivery::keptBytes:
        (stream == Stream::output ? m_Outcome.bytes : m_Outcome.errorBytes) += piece;
        return true;
    default:
        return deliverLines(stream, piece);
    }
}

bool CommandOutput::deliverLines(Stream stream, std::string_view piece)
{
    std::string& begun = begunLine(stream);
    for (;;) {
        const std::size_t newline = piece.find('\n');
        if (newline == std::string_view::npos) {
            begun += piece;
            return true;
        }
        std::string_view line = piece.substr(0, newline);
        if (!begun.empty()) {
            begun += line;
            line = begun;
        }
        if (!line.empty() && line.back() == '\r') {
            line.remove_suffix(1);
        }
        if (!passLine(stream, line)) {
            return false;
        }
        begun.clear();
        piece.remove_prefix(newline + 1);
    }
}

bool CommandOutput::passLine(Stream stream, std::string_view line)
{
    if (m_Settings.delivery == Delivery::lineCallback) {
        return m_Settings.callback(line, stream) && m_WantsMore();
    }
    (stream == Stream::output ? m_Outcome.lines : m_Outcome.errorLines).emplace_back(line);
    return true;
}

std::string& CommandOutput::begunLine(Stream stream)
{
    return stream == Stream::output ? m_BegunLine : m_BegunErrorLine;
}

} // namespace tarnix_cmn_4_4
