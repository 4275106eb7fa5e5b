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
    std::string user;
    std::string password;

    CCmnCommand::Streams streams = CCmnCommand::Streams::together;
    Delivery delivery = Delivery::keptLines;
    CCmnCommand::Callback callback;
    std::uint64_t byteLimit = 0; // 0: none
    std::uint64_t lineLimit = 0;

    CCmnCommand::Duration silenceLimit{0}; // 0: none
    CCmnCommand::Duration timeLimit{0};
    std::vector<SCmnStopStage> stages;
};

// One request, signalled until it is reset.
class Request
{
public:
    Request() { m_Event.reset(CreateEventA(nullptr, true, false, nullptr)); }

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
    // Null or invalid if the system could not create it.
    const OwnedHandle& event() const { return m_Event; }

private:
    std::atomic<bool> m_IsSet{false};
    OwnedHandle m_Event;
};

// A kill is also a stop.
struct StopRequest {
    Request stop;
    Request kill;
};

} // namespace tarnix_cmn_4_4

#endif
