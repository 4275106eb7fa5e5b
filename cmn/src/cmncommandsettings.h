// SPDX-License-Identifier: LicenseRef-Tarnix
// What a CCmnCommand holds, and how it is stopped.
#ifndef TARNIX_CMNCOMMANDSETTINGS_H
#define TARNIX_CMNCOMMANDSETTINGS_H

#include "cmncommand.h"
#include "cmnhandle.h"
#include "cmnwipe.h"

#include <atomic>
#include <optional>
#include <utility>

namespace tarnix_cmn_4_4
{

struct CommandSettings {
    enum class Input { none, text, descriptor };
    enum class Delivery { keptLines, keptBytes, lineCallback, byteCallback };

    CommandSettings() = default;
    CommandSettings(const CommandSettings&) = default;
    CommandSettings& operator=(const CommandSettings&) = delete;
    ~CommandSettings() { wipe(password); }

    std::string text; // the command in the form that the platform splits
    std::string directory;
    CCmnCommand::Environment environment = CCmnCommand::Environment::inherited;
    // The changes in their order; one without a value removes the variable.
    std::vector<std::pair<std::string, std::optional<std::string>>> variables;
    Input input = Input::none;
    std::string inputText;
    int inputDescriptor = -1;
    int mask = -1; // umask; -1: the platform's default
    bool endsWithCaller = false;
    std::optional<std::string> user;

    CCmnCommand::Streams streams = CCmnCommand::Streams::together;
    Delivery delivery = Delivery::keptLines;
    CCmnCommand::Callback callback;
    std::uint64_t byteLimit = 0; // 0: none
    std::uint64_t lineLimit = 0;

    CCmnCommand::Duration silenceLimit{0}; // 0: none
    CCmnCommand::Duration timeLimit{0};
    std::vector<SCmnStopStage> stages;
    std::string password; // the last one: no copy of a later member can throw and leave it unwiped
};

// One request, signalled until it is reset.
class Request
{
public:
    // A signal handler may call this.
    void set() noexcept
    {
        m_IsSet.store(true, std::memory_order_release);
        SetEvent(m_Event.get());
    }

    void reset()
    {
        m_IsSet.store(false, std::memory_order_release);
        ResetEvent(m_Event.get());
    }

    bool isSet() const { return m_IsSet.load(std::memory_order_acquire); }
    const OwnedHandle& event() const { return m_Event; }
    // Why there is no event, or 0.
    DWORD error() const { return m_Error; }

private:
    std::atomic<bool> m_IsSet{false};
    const OwnedHandle m_Event{CreateEventA(nullptr, true, false, nullptr)};
    const DWORD m_Error = m_Event ? 0 : GetLastError();
};

// A kill is also a stop.
struct StopRequest {
    Request stop;
    Request kill;
};

} // namespace tarnix_cmn_4_4

#endif
