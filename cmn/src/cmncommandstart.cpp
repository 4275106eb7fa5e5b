// SPDX-License-Identifier: LicenseRef-Tarnix
// The start of a run: its streams, its environment, its user.
#include "TX_strings.h"
#include "cmncommandrun.h"
#include "cmnexecpipewindows.h"
#include "cmnstringtool.h"
#include "cmnsystemerror.h"
#include "cmntracelog.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <thread>

namespace tarnix_cmn_4_4
{

namespace
{

using Streams = CCmnCommand::Streams;
using Environment = CCmnCommand::Environment;

constexpr DWORD kInvalidArgument = 22; // the system's EINVAL
constexpr int kAllPermissions = 0777;

// Gets the token of a user as every runner does. At the end of the object the right that this may
// have added is revoked.
class BatchLogon : public CCmnExecPipeWindows
{
public:
    // Throws ECmnExecPipe if the logon is refused. Another run of the process may hold the lock of
    // added rights, usually for the moment of its own start: waits for that.
    HANDLE logOn(const CommandSettings& settings, const StopRequest& stop)
    {
        m_User = *settings.user;
        m_Password = settings.password;
        const auto deadline = std::chrono::steady_clock::now() + kLockTimeout;
        for (;;) {
            try {
                return Impersonate();
            } catch (const ECmnExecPipe& failure) {
                if (failure.getCode() != ECmnExecPipe::IMPERSONATION_TIMEOUT ||
                    !awaitUnlock(deadline, stop)) {
                    throw;
                }
            }
        }
    }

private:
    static constexpr std::chrono::seconds kLockTimeout{10};

    static bool awaitUnlock(std::chrono::steady_clock::time_point deadline, const StopRequest& stop)
    {
        constexpr std::chrono::milliseconds interval{1};
        while (std::chrono::steady_clock::now() < deadline && !stop.stop.isSet()) {
            std::this_thread::sleep_for(interval);
            if (!m_Lock.isLocked()) {
                return true;
            }
        }
        return false;
    }
};

bool isStage(const SCmnStopStage& stage)
{
    constexpr int lastSignal = 64;
    return stage.signal > 0 && stage.signal <= lastSignal;
}

bool hasZeroByte(const std::string& text)
{
    return text.find('\0') != std::string::npos;
}

std::string newPipeName()
{
    static std::atomic<unsigned long> last{};
    char name[BUFSIZ];
    TX_snprintf(name, sizeof name, R"(\\.\pipe\CCmnCommand_%p_%lu)", static_cast<void*>(&last),
                last++);
    return name;
}

bool isOf(const std::string& variable, const std::string& name)
{
    return variable.compare(0, name.size(), name) == 0 && variable[name.size()] == '=';
}

bool readBlock(const char* block, std::vector<std::string>& variables)
{
    for (const char* at = block; at != nullptr && *at != '\0'; at += variables.back().size() + 1) {
        variables.emplace_back(at);
    }
    return block != nullptr;
}

// False with the last error set if the system cannot provide what the environment starts with.
bool initialVariables(Environment environment, HANDLE token, std::vector<std::string>& variables)
{
    if (environment == Environment::empty) {
        return true;
    }
    if (environment == Environment::account) {
        const std::unique_ptr<char, HLOCAL (*)(HLOCAL)> block(
            tarnix_platform::accountEnvironment(token), LocalFree);
        return readBlock(block.get(), variables);
    }
    const std::unique_ptr<char, BOOL (*)(char*)> block(GetEnvironmentStringsA(),
                                                       FreeEnvironmentStringsA);
    return readBlock(block.get(), variables);
}

HANDLE openNull(DWORD access)
{
    return CreateFileA("NUL", access, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
}

std::string blockOf(std::vector<std::string> variables, const CommandSettings& settings)
{
    for (const auto& [name, value] : settings.variables) {
        const auto hasName = [&name = name](const std::string& variable) {
            return isOf(variable, name);
        };
        variables.erase(std::remove_if(variables.begin(), variables.end(), hasName),
                        variables.end());
        if (value) {
            variables.push_back(name + '=' + *value);
        }
    }
    std::string block;
    for (const std::string& variable : variables) {
        block.append(variable.c_str(), variable.size() + 1);
    }
    return block + '\0';
}

} // namespace

bool CommandRun::start()
{
    ChildEnds ends;
    return checkSettings() && openStreams(ends) && startChild(ends);
}

// For a reason that is not the system's.
bool CommandRun::refuse(const char* text)
{
    m_Outcome.errorText = text;
    return false;
}

bool CommandRun::refuse(DWORD error, const char* text)
{
    m_Outcome.error = error;
    return refuse(text);
}

bool CommandRun::refuseBySystem(DWORD error)
{
    return refuse(error, CCmnStringTool::wstr2str(systemErrorText(error)).c_str());
}

bool CommandRun::refuseBySystem()
{
    return refuseBySystem(GetLastError());
}

bool CommandRun::refuseByStop()
{
    m_Outcome.reason = Reason::caller;
    return refuse("a stop was requested before the start");
}

bool CommandRun::checkSettings()
{
    if (m_Stop.stop.isSet()) {
        return refuseByStop();
    }
    if (const DWORD error = std::max(m_Stop.stop.error(), m_Stop.kill.error())) {
        return refuseBySystem(error);
    }
    if (!std::all_of(m_Settings.stages.begin(), m_Settings.stages.end(), isStage)) {
        return refuse(kInvalidArgument, "a stop stage has a signal that does not exist");
    }
    if (m_Settings.silenceLimit.count() < 0 || m_Settings.timeLimit.count() < 0) {
        return refuse(kInvalidArgument, "a limit is negative");
    }
    if (m_Settings.mask > kAllPermissions) {
        return refuse(kInvalidArgument, "the umask has more than permissions");
    }
    return checkTexts();
}

bool CommandRun::checkTexts()
{
    if (hasZeroByte(m_Settings.text)) {
        return refuse(kInvalidArgument, "an argument contains a 0 byte");
    }
    if (hasZeroByte(m_Settings.directory)) {
        return refuse(kInvalidArgument, "the working directory contains a 0 byte");
    }
    if (m_Settings.user && m_Settings.user->empty()) {
        return refuse(kInvalidArgument, "the user has no name"); // never as the calling user
    }
    if (m_Settings.user && (hasZeroByte(*m_Settings.user) || hasZeroByte(m_Settings.password))) {
        return refuse(kInvalidArgument, "the user or the password contains a 0 byte");
    }
    if (m_Settings.environment == Environment::account && !m_Settings.user) {
        return refuse(kInvalidArgument, "the environment of an account needs a user");
    }
    for (const auto& [name, value] : m_Settings.variables) {
        if (name.empty() || name.find('=') != std::string::npos || hasZeroByte(name) ||
            (value && hasZeroByte(*value))) {
            return refuse(kInvalidArgument, "a variable has no name, or '=' or a 0 byte in it");
        }
    }
    return true;
}

// ---- Streams -----------------------------------------------------------------------------------

bool CommandRun::openStreams(ChildEnds& ends)
{
    const Streams streams = m_Settings.streams;
    const auto openUnread = [this](OwnedHandle& end) {
        end.reset(openNull(GENERIC_WRITE));
        return end ? true : refuseBySystem();
    };
    if (!openInput(ends.input) ||
        !(streams == Streams::errorOnly ? openUnread(ends.output)
                                        : openReader(m_OutputReader, ends.output))) {
        return false;
    }
    switch (streams) {
    case Streams::together:
        return true;
    case Streams::outputOnly:
        return openUnread(ends.error);
    default:
        return openReader(m_ErrorReader, ends.error);
    }
}

bool CommandRun::openInput(OwnedHandle& childEnd)
{
    switch (m_Settings.input) {
    case CommandSettings::Input::text:
        m_Writer.left = m_Settings.inputText;
        m_Writer.event.reset(CreateEventA(nullptr, false, false, nullptr));
        m_Writer.state.hEvent = m_Writer.event.get();
        return (m_Writer.event || refuseBySystem()) && openPipe(childEnd, m_Writer.end);
    case CommandSettings::Input::descriptor:
        childEnd.reset(tarnix_platform::openDescriptor(m_Settings.inputDescriptor));
        break;
    default:
        childEnd.reset(openNull(GENERIC_READ));
    }
    return childEnd ? true : refuseBySystem();
}

bool CommandRun::openReader(Reader& reader, OwnedHandle& childEnd)
{
    reader.buffer.reset(new char[kPieceSize]);
    reader.event.reset(CreateEventA(nullptr, false, false, nullptr));
    reader.state.hEvent = reader.event.get();
    return (reader.event || refuseBySystem()) && openPipe(reader.end, childEnd);
}

bool CommandRun::openPipe(OwnedHandle& reader, OwnedHandle& writer)
{
    SECURITY_ATTRIBUTES attributes{sizeof(SECURITY_ATTRIBUTES), nullptr, true};
    constexpr DWORD timeout = 3000; // milliseconds; has no effect
    const std::string name = newPipeName();
    writer.reset(CreateNamedPipeA(name.c_str(), PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED,
                                  PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT, 1, 0, 0, timeout,
                                  &attributes));
    if (!writer) {
        return refuseBySystem();
    }
    reader.reset(CreateFileA(name.c_str(), GENERIC_READ, FILE_SHARE_READ, &attributes,
                             OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
    return reader ? true : refuseBySystem();
}

// ---- Process -----------------------------------------------------------------------------------

bool CommandRun::startChild(const ChildEnds& ends)
{
    if (!m_Settings.user) {
        return createProcess(ends, INVALID_HANDLE_VALUE);
    }
    BatchLogon logon;
    logon.setTraceLog(m_Log);
    HANDLE token = INVALID_HANDLE_VALUE;
    const HandleOwner owner(token);
    try {
        token = logon.logOn(m_Settings, m_Stop);
    } catch (const ECmnExecPipe& failure) {
        if (m_Stop.stop.isSet()) {
            return refuseByStop();
        }
        return failure.getCode() == ECmnExecPipe::IMPERSONATION_TIMEOUT
                   ? refuse("another run of this process holds the lock of added logon rights")
                   : refuseBySystem();
    }
    if (m_Stop.stop.isSet()) { // a logon can take seconds
        return refuseByStop();
    }
    // Without a token the command would run as the calling user.
    return isValid(token) ? createProcess(ends, token)
                          : refuse("the system does not support batch logons");
}

bool CommandRun::createProcess(const ChildEnds& ends, HANDLE token)
{
    const tarnix_platform::TxStartAttributes attributes{m_Settings.mask, m_Settings.endsWithCaller,
                                                        true};
    STARTUPINFOEXA startup{};
    startup.StartupInfo.cb = sizeof startup;
    startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
    startup.StartupInfo.hStdInput = ends.input.get();
    startup.StartupInfo.hStdOutput = ends.output.get();
    startup.StartupInfo.hStdError = ends.error ? ends.error.get() : ends.output.get();
    tarnix_platform::setStartAttributes(startup, attributes);
    std::vector<std::string> variables;
    const bool inherits =
        m_Settings.environment == Environment::inherited && m_Settings.variables.empty();
    if (!inherits && !initialVariables(m_Settings.environment, token, variables)) {
        return refuseBySystem();
    }
    std::string block = blockOf(std::move(variables), m_Settings);
    void* const environment = inherits ? nullptr : block.data();
    std::string command = m_Settings.text;
    const char* directory = m_Settings.directory.empty() ? nullptr : m_Settings.directory.c_str();
    constexpr DWORD flags = CREATE_NO_WINDOW | CREATE_NEW_PROCESS_GROUP | NORMAL_PRIORITY_CLASS |
                            EXTENDED_STARTUPINFO_PRESENT;
    PROCESS_INFORMATION child{};
    const BOOL started =
        isValid(token)
            ? CreateProcessAsUserA(token, nullptr, command.data(), nullptr, nullptr, true, flags,
                                   environment, directory, &startup.StartupInfo, &child)
            : CreateProcessA(nullptr, command.data(), nullptr, nullptr, true, flags, environment,
                             directory, &startup.StartupInfo, &child);
    if (!started) {
        return refuseBySystem();
    }
    m_Process.reset(child.hProcess);
    CloseHandle(child.hThread);
    return true;
}

} // namespace tarnix_cmn_4_4
