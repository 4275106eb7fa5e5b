// The platform layer below the runner: what no run of a command shows.
#include "commandline.h"
#include "platform.h"
#include "processstate.h"
#include "scratch.h"

#include <atomic>
#include <csignal>
#include <cwchar>

namespace
{

using Platform = NothingLeft;

constexpr char pipeName[] = R"(\\.\pipe\test)";

HANDLE makeServer(const char* name = pipeName)
{
    return CreateNamedPipeA(name, PIPE_ACCESS_DUPLEX, 0, 4, 0, 0, 0, nullptr);
}
HANDLE makeClient()
{
    return CreateFileA(pipeName, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
}
HANDLE makeEvent() { return CreateEventA(nullptr, false, false, nullptr); }

HANDLE duplicate(HANDLE handle)
{
    HANDLE copy = nullptr;
    EXPECT_TRUE(DuplicateHandle(GetCurrentProcess(), handle, GetCurrentProcess(), &copy, 0, false,
                                DUPLICATE_SAME_ACCESS));
    return copy;
}

// Expects a refusal with that error.
template <class Error>
void refused(BOOL result, Error error)
{
    EXPECT_FALSE(result);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(error));
}

// A child whose output comes back through a pipe.
class Started
{
public:
    HANDLE client = nullptr, event = makeEvent(), process = nullptr;
    DWORD pid = 0;
    OVERLAPPED read{};
    char byte = 0;

    explicit Started(std::string command)
    {
        const HANDLE server = makeServer();
        client = makeClient();
        STARTUPINFOA startup{sizeof startup, STARTF_USESTDHANDLES, client, server, server};
        PROCESS_INFORMATION child{};
        EXPECT_TRUE(CreateProcessA(nullptr, command.data(), nullptr, nullptr, true, 0, nullptr,
                                   nullptr, &startup, &child));
        CloseHandle(server);
        CloseHandle(child.hThread);
        process = child.hProcess;
        pid = child.dwProcessId;
        read.hEvent = event;
    }
    ~Started()
    {
        for (HANDLE handle : {client, event, process})
            CloseHandle(handle);
    }
    Started(const Started&) = delete;
    Started& operator=(const Started&) = delete;

    BOOL readFrom(HANDLE end) { return ReadFile(end, &byte, 1, &m_Count, &read); }
    BOOL readByte() { return readFrom(client); }
    BOOL result(BOOL wait = true) { return GetOverlappedResult(client, &read, &m_Count, wait); }
    char next() { return readByte() || result() ? byte : '-'; }
    DWORD wait(DWORD milliseconds = INFINITE) { return WaitForSingleObject(process, milliseconds); }
    // Until the child is a zombie, which the layer has not seen yet.
    bool awaitEnd(int flags = 0) const
    {
        siginfo_t info;
        return waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT | flags) == 0;
    }

private:
    DWORD m_Count = 0;
};

TEST(CommandLine, SplitsAsTheShellDoes)
{
    Lines words;
    const std::pair<const char*, Lines> cases[] = {
        {" \n\t ", {}},
        {"a \t b\nc", {"a", "b", "c"}},
        {"'' \"\" x''\"\"", {"", "", "x"}},
        {"a'b \"\\'\"c 'd\\e\"f", {"ab \"\\c 'd\\ef"}},
        {"\\ \\'\\\"\\\\\\a", {" '\"\\a"}},
        {"a\\", {"a\\"}},
        {"a\\\nb", {"ab"}},
        {"\\\n", {}},
        {"\"\\$\\`\\\"\\\\\\x\\\ny\"", {"$`\"\\\\xy"}},
        {"'a\\\nb\n'", {"a\\\nb\n"}},
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_TRUE(tarnix_platform::splitCommandLine(text, words));
        EXPECT_EQ(words, expected) << text;
    }
    EXPECT_FALSE(tarnix_platform::splitCommandLine("'a", words));
    EXPECT_FALSE(tarnix_platform::splitCommandLine("\"a\\\"", words));
}

TEST_F(Platform, HandlesAndWhatIsNotOffered)
{
    for (HANDLE wrong : {HANDLE{nullptr}, INVALID_HANDLE_VALUE, reinterpret_cast<HANDLE>(0x1234)})
        refused(CloseHandle(wrong), EBADF);
    const HANDLE event = makeEvent();
    EXPECT_TRUE(CloseHandle(event));
    const HANDLE next = makeEvent(), two[] = {next, next}; // takes the same place
    refused(CloseHandle(event), EBADF);
    EXPECT_EQ(WaitForMultipleObjectsEx(2, two, true, 0, false), WAIT_FAILED);
    EXPECT_EQ(WaitForMultipleObjectsEx(2, two, false, 0, true), WAIT_FAILED);
    EXPECT_EQ(WaitForMultipleObjectsEx(2, two, false, 10, false), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForSingleObject(nullptr, 0), WAIT_FAILED);
    refused(CreateEventA(nullptr, true, false, nullptr) != nullptr, ENOTSUP);
    void* text = nullptr;
    constexpr DWORD flags = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM;
    const auto describe = [&text](DWORD error) {
        return FormatMessageW(flags, nullptr, error, 0, reinterpret_cast<wchar_t*>(&text), 0,
                              nullptr);
    };
    refused(describe(99999) != 0, EINVAL);
    refused(GetVersionExW(nullptr), EINVAL);
    EXPECT_EQ(describe(ERROR_BROKEN_PIPE), std::wcslen(L"The pipe has ended"));
    EXPECT_STREQ(static_cast<wchar_t*>(text), L"The pipe has ended");
    LocalFree(text);
    // What an earlier failure was about is no part of a later one.
    char empty[] = "";
    const HANDLE server = makeServer(), client = makeClient();
    STARTUPINFOA startup{sizeof startup, STARTF_USESTDHANDLES, client, server, server};
    PROCESS_INFORMATION child{};
    refused(CreateProcessA(nullptr, empty, nullptr, nullptr, true, 0, nullptr, nullptr, &startup,
                           &child),
            EINVAL);
    EXPECT_EQ(describe(EINVAL), std::wcslen(L"the command is empty: Invalid argument"));
    LocalFree(text);
    refused(DisableThreadLibraryCalls(nullptr), EINVAL);
    EXPECT_EQ(describe(EINVAL), std::wcslen(L"Invalid argument"));
    LocalFree(text);
    CloseHandle(server);
    CloseHandle(client);
    std::atomic<int> closed{0};
    onThreads(4, [&](int) { closed += CloseHandle(next) ? 1 : 0; });
    EXPECT_EQ(closed, 1);
}

TEST_F(Platform, PipeNamesAndInstances)
{
    refused(makeClient() != INVALID_HANDLE_VALUE, ENOENT);
    refused(makeServer("no prefix") != INVALID_HANDLE_VALUE, EINVAL);
    HANDLE ends[8];
    for (int i = 0; i < 8; ++i)
        ends[i] = i < 4 ? makeServer() : makeClient();
    refused(makeServer() != INVALID_HANDLE_VALUE, EBUSY);
    refused(makeClient() != INVALID_HANDLE_VALUE, EBUSY);
    CloseHandle(ends[0]);
    ends[0] = makeServer(); // its place is free again
    for (HANDLE end : ends)
        EXPECT_TRUE(CloseHandle(end));
}

TEST_F(Platform, ReadsPendAreCancelledAndShareOneSequence)
{
    Started child("sh -c 'sleep 0.2; printf 0123456789; exec sleep 600'");
    refused(child.readByte(), ERROR_IO_PENDING);
    refused(child.result(false), ERROR_IO_PENDING);
    refused(child.readByte(), EBUSY); // one read at a time
    EXPECT_TRUE(CancelIo(child.client));
    refused(child.result(), ECANCELED);
    std::string text(1, child.next());
    const HANDLE second = duplicate(child.client), sameChild = duplicate(child.process);
    for (HANDLE end : {second, child.client, second, second, child.client}) {
        EXPECT_TRUE(child.readFrom(end));
        text.push_back(child.byte);
    }
    EXPECT_EQ(text, "012345");
    // What was read ahead counts before the child's end is looked for, by any handle of it.
    kill(static_cast<pid_t>(child.pid), SIGKILL);
    EXPECT_TRUE(child.awaitEnd());
    EXPECT_EQ(child.wait(0), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForSingleObject(sameChild, 0), WAIT_TIMEOUT);
    refused(child.readFrom(sameChild), EBADF);
    char rest[8] = {};
    DWORD count = 0;
    EXPECT_TRUE(ReadFile(second, rest, 8, &count, &child.read));
    EXPECT_EQ(std::string(rest, count), "6789");
    EXPECT_EQ(child.wait(0), WAIT_OBJECT_0);
    CloseHandle(second);
    CloseHandle(sameChild);
    refused(child.readFrom(second), EBADF);
}

TEST_F(Platform, WhatWasWrittenComesBeforeTheEnd)
{
    Started child("sh -c 'sleep 0.1; printf ab'");
    const HANDLE both[] = {child.process, child.event};
    EXPECT_FALSE(child.readByte());
    EXPECT_TRUE(child.awaitEnd());
    EXPECT_EQ(WaitForMultipleObjectsEx(2, both, false, INFINITE, false), WAIT_OBJECT_0 + 1);
    EXPECT_TRUE(child.result());
    EXPECT_EQ(child.byte, 'a');
    EXPECT_EQ(child.next(), 'b');
    refused(child.readByte(), ERROR_BROKEN_PIPE);
    EXPECT_EQ(WaitForMultipleObjectsEx(2, both, false, INFINITE, false), WAIT_OBJECT_0);
}

TEST_F(Platform, OnlyOwnRunningChildrenAreTouched)
{
    for (const DWORD id : {DWORD{0}, static_cast<DWORD>(-1), static_cast<DWORD>(getpid())})
        refused(GenerateConsoleCtrlEvent(CTRL_C_EVENT, id), ESRCH);
    DWORD status = 0;
    Started child("sleep 600");
    refused(GetExitCodeProcess(child.process, &status), EBUSY);
    EXPECT_EQ(child.wait(20), WAIT_TIMEOUT);
    EXPECT_TRUE(GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, child.pid));
    EXPECT_EQ(child.wait(), WAIT_OBJECT_0);
    // The id may be another's now.
    refused(GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, child.pid), ESRCH);
    refused(TerminateProcess(child.process, 9), ESRCH);
    EXPECT_TRUE(GetExitCodeProcess(child.process, &status));
    EXPECT_EQ(status, 128U + SIGTERM);
    // One signal for each request.
    Started killed("sh -c 'trap \"printf i\" INT; printf r; while :; do sleep 0.01; done'");
    EXPECT_EQ(killed.next(), 'r');
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(GenerateConsoleCtrlEvent(CTRL_C_EVENT, killed.pid));
        EXPECT_EQ(killed.next(), 'i');
    }
    EXPECT_FALSE(killed.readByte()); // no more than were sent
    CancelIo(killed.client);
    EXPECT_TRUE(TerminateProcess(killed.process, 1067));
    EXPECT_EQ(killed.wait(), WAIT_OBJECT_0);
    EXPECT_TRUE(GetExitCodeProcess(killed.process, &status));
    EXPECT_EQ(status, 1067U);
    // The last handle of a child that runs: a later closing looks after it.
    Started left("sleep 0.1");
    EXPECT_TRUE(CloseHandle(left.process));
    EXPECT_TRUE(left.awaitEnd());
    CloseHandle(makeEvent());
    EXPECT_FALSE(left.awaitEnd(WNOHANG));
}

} // namespace
