// SPDX-License-Identifier: LicenseRef-Tarnix
// Runs on named pipes: starting the child, reading its lines, waiting for it and stopping it.
#include "cmnexecpipewindows.h"

#include "TX_strings.h"
#include "cmnhandle.h"
#include "cmnsystemerror.h"
#include "cmntracelog.h"
#include "platform.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <memory>
#include <string_view>

namespace tarnix_cmn_4_4
{

CCmnLock CCmnExecPipeWindows::m_Lock;

namespace
{

constexpr char kReadEventStem[] = "CCmnExecPipeWindows_ReadEvent";
constexpr char kInputPipeStem[] = R"(\\.\pipe\CCmnExecPipeWindows_InputPipeName)";
constexpr char kOutputPipeStem[] = R"(\\.\pipe\CCmnExecPipeWindows_OutputPipeName)";

constexpr int kFailureTraceLevel = 1;
constexpr long kCloseSeconds = 10;
constexpr long kLongestStage = 30;
constexpr DWORD kNoProcess = static_cast<DWORD>(-1);
constexpr int kStartFailed = 3; // the result for every ECmnExecPipe, whatever its code

DWORD toMilliseconds(long seconds)
{
    return static_cast<DWORD>(seconds) * 1000U;
}

// The address and the time make the names of concurrent runners different.
std::string objectName(const char* stem, const void* runner, std::time_t now)
{
    char name[BUFSIZ];
    TX_snprintf(name, sizeof name, "%s_%p_%lu", stem, runner,
                static_cast<unsigned long>(static_cast<std::uint32_t>(now)));
    return name;
}

// Removes the newline, and a carriage return before it.
void terminateLine(char* begin, const char* newline)
{
    std::string_view line(begin, static_cast<std::size_t>(newline - begin));
    if (!line.empty() && line.back() == '\r') {
        line.remove_suffix(1);
    }
    begin[line.size()] = '\0';
}

// The system would end the text there, and start another command or start it elsewhere.
void refuseZeroByte(const std::string& command, const std::string& text, const wchar_t* refusal)
{
    if (text.find('\0') != std::string::npos) {
        throw ECmnExecPipe(command, ECmnExecPipe::CREATE_CHILD_PROCESS_FAILED, refusal);
    }
}

} // namespace

// Pipe ends that are needed only for the start. They are closed however it ends.
struct CCmnExecPipeWindows::StartHandles {
    explicit StartHandles(CCmnExecPipeWindows& owner) : runner(owner) {}
    ~StartHandles()
    {
        runner.FlushHandles(outputServer, errorCopy, inputClient, inputServer, outputClient);
    }
    StartHandles(const StartHandles&) = delete;
    StartHandles& operator=(const StartHandles&) = delete;

    CCmnExecPipeWindows& runner;
    HANDLE outputServer = INVALID_HANDLE_VALUE;
    HANDLE errorCopy = INVALID_HANDLE_VALUE;
    HANDLE inputClient = INVALID_HANDLE_VALUE;
    HANDLE inputServer = INVALID_HANDLE_VALUE;
    HANDLE outputClient = INVALID_HANDLE_VALUE;
};

CCmnExecPipeWindows::CCmnExecPipeWindows()
{
    CCmnExecPipeWindows::Init();
}

CCmnExecPipeWindows::CCmnExecPipeWindows(std::vector<std::string> extraList)
    : CCmnExecPipeBase(std::move(extraList))
{
    CCmnExecPipeWindows::Init();
}

CCmnExecPipeWindows::CCmnExecPipeWindows(const CCmnExecPipeWindows& other)
    : CCmnExecPipeBase(other), m_Command(other.m_Command)
{
    CCmnExecPipeWindows::Init();
    m_LastSystemError = other.m_LastSystemError;
}

CCmnExecPipeWindows& CCmnExecPipeWindows::operator=(const CCmnExecPipeWindows& other)
{
    if (this != &other) {
        Close(kCloseSeconds);
        CCmnExecPipeBase::operator=(other);
        m_Command = other.m_Command;
        Init();
        m_LastSystemError = other.m_LastSystemError;
    }
    return *this;
}

CCmnExecPipeWindows::~CCmnExecPipeWindows()
{
    try {
        CCmnExecPipeWindows::Close(kCloseSeconds);
    } catch (...) {
        // Close throws only if it cannot allocate the error record, and nobody could read that now.
    }
    RevokeRight();               // if Close could not: the child has ended by now
    closeAndForget(m_ReadEvent); // Close does not reach this when it throws
}

void CCmnExecPipeWindows::Init()
{
    if (isValid(m_ProcessHandle) || isValid(m_OutputHandle) || isValid(m_InputHandle) ||
        m_RightAdded != 0) {
        Close(kCloseSeconds);
    }
    RevokeRight(); // if Close could not: the child has ended by now
    closeAndForget(m_ReadEvent);
    const std::string name = objectName(kReadEventStem, this, std::time(nullptr));
    m_ReadEvent = CreateEventA(nullptr, false, false, name.c_str());
    if (m_ReadEvent == nullptr) {
        m_ReadEvent = INVALID_HANDLE_VALUE; // ReadLine reads nothing without a timeout
    }
    m_LastSystemError = 0;
    m_ProcessId = kNoProcess;
    m_UserToken = INVALID_HANDLE_VALUE;
    m_ExitStatus.reset();
    m_EndingSignal = 0;
}

bool CCmnExecPipeWindows::getExitStatus(int& status) const
{
    if (!m_ExitStatus) {
        return false;
    }
    status = *m_ExitStatus;
    return true;
}

bool CCmnExecPipeWindows::getEndingSignal(int& signal, bool& coreDumped) const
{
    if (m_EndingSignal == 0) {
        return false;
    }
    signal = m_EndingSignal;
    coreDumped = m_CoreDumped;
    return true;
}

// ---- Start -------------------------------------------------------------------------------------

int CCmnExecPipeWindows::ExecPipe(std::string command, std::string workingDirectory)
{
    // The previous run may have ended without Close, and what it holds would leak.
    RevokeRight();
    ClosePipes();
    EndChild();
    RevokeRight(); // if the first attempt failed
    m_Command = command;
    m_ExitStatus.reset();
    m_EndingSignal = 0;
    StartHandles handles(*this);
    try {
        refuseZeroByte(command, command, L"command contains a 0 byte");
        refuseZeroByte(command, workingDirectory, L"working directory contains a 0 byte");
        const int failed = MakePipes(handles);
        if (failed != ECmnExecPipe::SUCCESS) {
            m_LastError = ECmnExecPipe(command, failed);
            return failed;
        }
        const HandleOwner token(m_UserToken); // needed only to start the child
        m_UserToken = m_User.empty() ? INVALID_HANDLE_VALUE : Impersonate();
        CreateChildProcess(command, handles.inputClient, handles.outputServer, handles.errorCopy,
                           workingDirectory);
        return ECmnExecPipe::SUCCESS;
    } catch (const ECmnExecPipe& failure) {
        m_LastError = failure;
        return kStartFailed;
    } catch (...) {
        m_LastError = ECmnExecPipe(command, ECmnExecPipe::ERROR_UNEXPECTED);
        return ECmnExecPipe::ERROR_UNEXPECTED;
    }
}

// Makes two pipes. The child writes to the server end of the output pipe, as standard output and,
// duplicated, as standard error. It reads from the client end of the input pipe. The runner keeps
// the other ends. Returns 0 or a code of ECmnExecPipe.
int CCmnExecPipeWindows::MakePipes(StartHandles& handles)
{
    SECURITY_ATTRIBUTES attributes{sizeof(SECURITY_ATTRIBUTES), nullptr, true};
    const std::time_t now = std::time(nullptr);
    const std::string inputName = objectName(kInputPipeStem, this, now);
    const std::string outputName = objectName(kOutputPipeStem, this, now);
    const auto makePipe = [&](const std::string& name, HANDLE& client, HANDLE& server) {
        const DWORD error = GetNamedPipeHandles(name.c_str(), &client, &server, &attributes);
        if (error != 0) {
            std::printf("GetNamedPipeHandles() FAILED with error code (%d)\n",
                        static_cast<int>(error));
        }
        return error == 0;
    };
    const auto duplicate = [](HANDLE source, HANDLE& target, bool inherit) {
        return DuplicateHandle(GetCurrentProcess(), source, GetCurrentProcess(), &target, 0,
                               inherit, DUPLICATE_SAME_ACCESS);
    };
    const auto close = [](HANDLE& handle) {
        const HANDLE closed = handle;
        handle = INVALID_HANDLE_VALUE;
        return CloseHandle(closed);
    };
    if (!makePipe(outputName, handles.outputClient, handles.outputServer)) {
        return ECmnExecPipe::CREATE_PIPE_FAILED;
    }
    if (!duplicate(handles.outputServer, handles.errorCopy, true)) {
        return ECmnExecPipe::DUPLICATE_HANDLE_FAILED;
    }
    if (!makePipe(inputName, handles.inputClient, handles.inputServer)) {
        return ECmnExecPipe::CREATE_PIPE_FAILED;
    }
    if (!duplicate(handles.inputServer, m_InputHandle, false) ||
        !duplicate(handles.outputClient, m_OutputHandle, false)) {
        return ECmnExecPipe::DUPLICATE_HANDLE_FAILED;
    }
    if (!close(handles.inputServer) || !close(handles.outputClient)) {
        return ECmnExecPipe::CLOSE_HANDLE_FAILED;
    }
    return ECmnExecPipe::SUCCESS;
}

DWORD CCmnExecPipeWindows::GetNamedPipeHandles(const char* name, HANDLE* clientEnd,
                                               HANDLE* serverEnd, SECURITY_ATTRIBUTES* attributes)
{
    constexpr DWORD maxInstances = 4;
    constexpr DWORD defaultTimeout = 3000; // milliseconds
    *serverEnd =
        CreateNamedPipeA(name, PIPE_ACCESS_DUPLEX | WRITE_DAC | WRITE_OWNER | FILE_FLAG_OVERLAPPED,
                         PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT, maxInstances, 0, 0,
                         defaultTimeout, attributes);
    if (!isValid(*serverEnd)) {
        return PipeFailed("CCmnExecPipeWindows::GetNamedPipeHandles ERROR: CreateNamedPipeA "
                          "failed, Error Code: %d, Reason: %S");
    }
    *clientEnd = CreateFileA(name, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                             FILE_FLAG_OVERLAPPED | FILE_ATTRIBUTE_NORMAL | FILE_ATTRIBUTE_READONLY,
                             nullptr);
    if (!isValid(*clientEnd)) {
        return PipeFailed("CCmnExecPipeWindows::GetNamedPipeHandles ERROR: CreateFileA failed, "
                          "Error Code: %d, Reason: %S");
    }
    return 0;
}

DWORD CCmnExecPipeWindows::PipeFailed(const char* format)
{
    m_LastSystemError = GetLastError();
    TraceSystemError(format, m_LastSystemError);
    return m_LastSystemError;
}

// The format takes the error code and its text.
void CCmnExecPipeWindows::TraceSystemError(const char* format, DWORD error)
{
    CCmnTraceLog* log = m_TraceLog.get();
    if (log != nullptr) {
        log->trace(kFailureTraceLevel, format, static_cast<int>(error),
                   systemErrorText(error).c_str());
    }
}

int CCmnExecPipeWindows::CreateChildProcess(std::string& command, HANDLE standardInput,
                                            HANDLE standardOutput, HANDLE standardError,
                                            std::string workingDirectory)
{
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = standardInput;
    startup.hStdOutput = standardOutput;
    startup.hStdError = standardError;
    PROCESS_INFORMATION child{};
    constexpr DWORD flags = CREATE_NO_WINDOW | CREATE_NEW_PROCESS_GROUP | NORMAL_PRIORITY_CLASS;
    const char* directory = workingDirectory.empty() ? nullptr : workingDirectory.c_str();
    const BOOL started =
        isValid(m_UserToken)
            ? CreateProcessAsUserA(m_UserToken, nullptr, command.data(), nullptr, nullptr, true,
                                   flags, nullptr, directory, &startup, &child)
            : CreateProcessA(nullptr, command.data(), nullptr, nullptr, true, flags, nullptr,
                             directory, &startup, &child);
    if (!started) {
        throw ECmnExecPipe(command, ECmnExecPipe::CREATE_CHILD_PROCESS_FAILED,
                           systemErrorText(GetLastError()));
    }
    m_ProcessId = child.dwProcessId;
    m_ProcessHandle = child.hProcess;
    CloseHandle(child.hThread);
    return 0;
}

void CCmnExecPipeWindows::FlushHandles(HANDLE first, HANDLE second, HANDLE third, HANDLE fourth,
                                       HANDLE fifth)
{
    for (HANDLE handle : {first, second, third, fourth, fifth}) {
        closeAndForget(handle);
    }
}

// ---- Reading -----------------------------------------------------------------------------------

int CCmnExecPipeWindows::ReadLine(char* buffer, int size, int* timedOut, long seconds)
{
    *timedOut = 0;
    if (!isValid(m_OutputHandle) || !isValid(m_ReadEvent)) {
        return 0;
    }
    if (ChildHasEnded()) {
        seconds = 0; // read only what is already in the pipe
    }
    char* end = buffer;
    char* const limit = buffer + size;
    while (end < limit) {
        const std::size_t taken =
            tarnix_platform::takeLine(m_OutputHandle, end, static_cast<std::size_t>(limit - end));
        const std::size_t got = taken != 0 ? taken : ReadByte(end, timedOut, seconds);
        if (got == 0) {
            break;
        }
        end += got;
        if (end[-1] == '\n') {
            terminateLine(buffer, end - 1);
            return 1;
        }
    }
    *end = '\0';
    return end > buffer ? 1 : 0;
}

// When this returns true, the process handle is closed: Close no longer sees the exit status, but
// getExitStatus returns it.
bool CCmnExecPipeWindows::ChildHasEnded()
{
    if (!isValid(m_ProcessHandle)) {
        return true;
    }
    if (WaitForSingleObject(m_ProcessHandle, 0) != WAIT_OBJECT_0) {
        return false;
    }
    ReadExitStatus();
    closeAndForget(m_ProcessHandle);
    return true;
}

// Reads a byte that was not read ahead, and waits for it if need be. Returns the number of bytes
// read: 0 if the output, the time or the child has ended.
std::size_t CCmnExecPipeWindows::ReadByte(char* target, int* timedOut, long seconds)
{
    OVERLAPPED read{};
    read.hEvent = m_ReadEvent;
    DWORD got;
    if (!ReadFile(m_OutputHandle, target, 1, &got, &read)) {
        switch (AwaitByte(seconds)) {
        case Awaited::byte:
            break;
        case Awaited::timeout:
            *timedOut = 1;
            [[fallthrough]];
        case Awaited::cancelled:
            // The system writes to `read` and to the target until the read has ended.
            CancelIo(m_OutputHandle);
            GetOverlappedResult(m_OutputHandle, &read, &got, true);
            [[fallthrough]];
        case Awaited::noByte:
            return 0;
        }
    }
    if (!GetOverlappedResult(m_OutputHandle, &read, &got, true)) {
        TraceReadFailure("CCmnExecPipeWindows::ReadLine ERROR: GetOverlappedResult failed, "
                         "Error Code: %d, Reason: %S",
                         GetLastError());
        return 0;
    }
    return got;
}

// Call after ReadFile returned false: waits for the byte.
CCmnExecPipeWindows::Awaited CCmnExecPipeWindows::AwaitByte(long seconds)
{
    const DWORD error = GetLastError();
    if (error != ERROR_IO_PENDING) {
        TraceReadFailure("CCmnExecPipeWindows::ReadLine ERROR: ReadFile failed, Error Code: %d, "
                         "Reason: %S",
                         error);
        return Awaited::noByte;
    }
    if (seconds == 0) {
        return Awaited::cancelled;
    }
    const HANDLE awaited[] = {m_ProcessHandle, m_ReadEvent};
    switch (WaitForMultipleObjectsEx(2, awaited, false, toMilliseconds(seconds), false)) {
    case WAIT_OBJECT_0: // the child has ended
        return Awaited::cancelled;
    case WAIT_TIMEOUT:
        return Awaited::timeout;
    default:
        return Awaited::byte;
    }
}

void CCmnExecPipeWindows::TraceReadFailure(const char* format, DWORD error)
{
    if (error != ERROR_BROKEN_PIPE) {
        TraceSystemError(format, error);
    }
}

// ---- Waiting and closing -----------------------------------------------------------------------

int CCmnExecPipeWindows::WaitPid(long seconds)
{
    static constexpr DWORD stages[] = {CTRL_C_EVENT, CTRL_BREAK_EVENT};
    constexpr int attempts = 3;
    if (!isValid(m_ProcessHandle)) {
        return -1;
    }
    for (int attempt = 0; attempt < attempts; ++attempt) {
        const DWORD woken = WaitForSingleObject(m_ProcessHandle, toMilliseconds(seconds));
        if (woken == WAIT_OBJECT_0) {
            return ReadExitStatus();
        }
        if (woken == WAIT_FAILED || (woken == WAIT_TIMEOUT && attempt == attempts - 1)) {
            if (TerminateProcess(m_ProcessHandle, ERROR_PROCESS_ABORTED)) {
                m_ExitStatus = static_cast<int>(ERROR_PROCESS_ABORTED);
            } else {
                ReadExitStatus(); // the child may have ended by itself just before
            }
            return static_cast<int>(ERROR_PROCESS_ABORTED);
        }
        if (woken == WAIT_TIMEOUT) {
            GenerateConsoleCtrlEvent(stages[attempt], m_ProcessId);
            seconds = std::min(seconds, kLongestStage);
        }
    }
    return -1;
}

int CCmnExecPipeWindows::ReadExitStatus()
{
    DWORD status;
    if (!GetExitCodeProcess(m_ProcessHandle, &status)) {
        return -1;
    }
    m_ExitStatus = static_cast<int>(status);
    tarnix_platform::endingSignal(m_ProcessHandle, m_EndingSignal, m_CoreDumped);
    return *m_ExitStatus;
}

int CCmnExecPipeWindows::Close(long /*seconds*/)
{
    RevokeRight();
    ClosePipes();
    const int result = EndChild();
    closeAndForget(m_ReadEvent);
    m_ProcessId = kNoProcess;
    return result;
}

void CCmnExecPipeWindows::ClosePipes()
{
    closeAndForget(m_OutputHandle);
    closeAndForget(m_InputHandle);
}

// Returns 0 or the code of the record that it stored in m_LastError.
int CCmnExecPipeWindows::EndChild()
{
    if (!isValid(m_ProcessHandle)) {
        return ECmnExecPipe::SUCCESS;
    }
    const int status = WaitPid(kCloseSeconds);
    closeAndForget(m_ProcessHandle);
    if (status < 0) {
        m_LastError =
            ECmnExecPipe(m_Command, ECmnExecPipe::ERROR_UNEXPECTED, L"Error in WaitPid()");
        return ECmnExecPipe::ERROR_UNEXPECTED;
    }
    if (status > 0) {
        m_LastError =
            ECmnExecPipe(m_Command, ECmnExecPipe::CMD_FAILED,
                         L"Command exited with status " + std::to_wstring(status), status);
        return ECmnExecPipe::CMD_FAILED;
    }
    return ECmnExecPipe::SUCCESS;
}

} // namespace tarnix_cmn_4_4
