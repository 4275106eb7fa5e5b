// SPDX-License-Identifier: LicenseRef-Tarnix
// The settings of a command.
#include "cmncommand.h"

#include "cmncommandrun.h"
#include "cmncommandsettings.h"
#include "cmnstringtool.h"
#include "cmntracelog.h"

#include <algorithm>
#include <csignal>
#include <limits>
#include <utility>

namespace tarnix_cmn_4_4
{

namespace
{

constexpr std::chrono::milliseconds kPatience{2000};

std::unique_ptr<CommandSettings> newSettings(std::string text)
{
    auto settings = std::make_unique<CommandSettings>();
    settings->text = std::move(text);
    settings->stages = {{SIGINT, kPatience}, {SIGTERM, kPatience}};
    return settings;
}

// In the form that the platform splits into the same words again.
std::string joined(const std::vector<std::string>& arguments)
{
    std::string text;
    for (const std::string& argument : arguments) {
        text += text.empty() ? "" : " ";
        text += CCmnStringTool::quote(argument);
    }
    return text;
}

} // namespace

CCmnCommand::CCmnCommand(std::unique_ptr<CommandSettings> settings)
    : m_Settings(std::move(settings)), m_Stop(std::make_unique<StopRequest>())
{
}

CCmnCommand::CCmnCommand(std::vector<std::string> arguments)
    : CCmnCommand(newSettings(joined(arguments)))
{
}

CCmnCommand CCmnCommand::fromText(std::string command)
{
    return CCmnCommand(newSettings(std::move(command)));
}

CCmnCommand::CCmnCommand(const CCmnCommand& other)
    : CCmnTraceable(other),
      m_Settings(std::make_unique<CommandSettings>(*other.m_Settings)),
      m_Stop(std::make_unique<StopRequest>())
{
}

CCmnCommand& CCmnCommand::operator=(const CCmnCommand& other)
{
    if (this != &other) {
        auto settings = std::make_unique<CommandSettings>(*other.m_Settings);
        CCmnTraceable::operator=(other);
        m_Settings = std::move(settings);
        if (m_Stop) {
            resetStop();
        } else { // moved from
            m_Stop = std::make_unique<StopRequest>();
        }
    }
    return *this;
}

CCmnCommand::CCmnCommand(CCmnCommand&& other) noexcept = default;

CCmnCommand& CCmnCommand::operator=(CCmnCommand&& other) noexcept = default;

CCmnCommand::~CCmnCommand() = default;

// ---- What the command gets ---------------------------------------------------------------------

CCmnCommand& CCmnCommand::setDirectory(std::string directory)
{
    m_Settings->directory = std::move(directory);
    return *this;
}

CCmnCommand& CCmnCommand::setEnvironment(Environment environment)
{
    m_Settings->environment = environment;
    return *this;
}

CCmnCommand& CCmnCommand::setVariable(std::string name, std::string value)
{
    m_Settings->variables.emplace_back(std::move(name), std::move(value));
    return *this;
}

CCmnCommand& CCmnCommand::unsetVariable(std::string name)
{
    m_Settings->variables.emplace_back(std::move(name), std::nullopt);
    return *this;
}

CCmnCommand& CCmnCommand::setInput(std::string text)
{
    m_Settings->input = CommandSettings::Input::text;
    m_Settings->inputText = std::move(text);
    return *this;
}

CCmnCommand& CCmnCommand::setInputDescriptor(int fd)
{
    m_Settings->input = CommandSettings::Input::descriptor;
    m_Settings->inputDescriptor = fd;
    return *this;
}

CCmnCommand& CCmnCommand::setUmask(unsigned int mask)
{
    constexpr unsigned int most = std::numeric_limits<int>::max();
    m_Settings->mask = static_cast<int>(std::min(mask, most));
    return *this;
}

CCmnCommand& CCmnCommand::setUser(std::string user, std::string password)
{
    const WipeAtEnd wiped(password);
    wipe(m_Settings->password);
    m_Settings->user = std::move(user);
    m_Settings->password = password;
    return *this;
}

CCmnCommand& CCmnCommand::setEndsWithCaller(bool endsWithCaller)
{
    m_Settings->endsWithCaller = endsWithCaller;
    return *this;
}

// ---- Output ------------------------------------------------------------------------------------

CCmnCommand& CCmnCommand::setStreams(Streams streams)
{
    m_Settings->streams = streams;
    return *this;
}

CCmnCommand& CCmnCommand::setKeepBytes(bool keepBytes)
{
    m_Settings->delivery =
        keepBytes ? CommandSettings::Delivery::keptBytes : CommandSettings::Delivery::keptLines;
    m_Settings->callback = nullptr;
    return *this;
}

CCmnCommand& CCmnCommand::setLineCallback(Callback callback)
{
    m_Settings->delivery =
        callback ? CommandSettings::Delivery::lineCallback : CommandSettings::Delivery::keptLines;
    m_Settings->callback = std::move(callback);
    return *this;
}

CCmnCommand& CCmnCommand::setByteCallback(Callback callback)
{
    m_Settings->delivery =
        callback ? CommandSettings::Delivery::byteCallback : CommandSettings::Delivery::keptLines;
    m_Settings->callback = std::move(callback);
    return *this;
}

CCmnCommand& CCmnCommand::setByteLimit(std::uint64_t bytes)
{
    m_Settings->byteLimit = bytes;
    return *this;
}

CCmnCommand& CCmnCommand::setLineLimit(std::uint64_t lines)
{
    m_Settings->lineLimit = lines;
    return *this;
}

// ---- Time --------------------------------------------------------------------------------------

CCmnCommand& CCmnCommand::setSilenceLimit(Duration limit)
{
    m_Settings->silenceLimit = limit;
    return *this;
}

CCmnCommand& CCmnCommand::setTimeLimit(Duration limit)
{
    m_Settings->timeLimit = limit;
    return *this;
}

CCmnCommand& CCmnCommand::setStopStages(std::vector<SCmnStopStage> stages)
{
    m_Settings->stages = std::move(stages);
    return *this;
}

SCmnCommandOutcome CCmnCommand::run() const
{
    return CommandRun(*m_Settings, *m_Stop, m_TraceLog).run();
}

void CCmnCommand::stop() const noexcept
{
    m_Stop->stop.set();
}

void CCmnCommand::kill() const noexcept
{
    m_Stop->kill.set();
    m_Stop->stop.set();
}

void CCmnCommand::resetStop()
{
    m_Stop->stop.reset();
    m_Stop->kill.reset();
}

} // namespace tarnix_cmn_4_4
