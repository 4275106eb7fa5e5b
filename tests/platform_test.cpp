// The platform layer below the runner: what no run of a command shows.
#include "commandline.h"
#include "platform.h"
#include "processstate.h"
#include "scratch.h"

#include <atomic>
#include <csignal>

using Words = std::vector<std::string>;

namespace
{

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
struct Started {
    HANDLE client = nullptr, event = makeEvent();
    PROCESS_INFORMATION child{};
    OVERLAPPED read{};
    char byte = 0;

    explicit Started(std::string command)
    {
        const HANDLE server = makeServer();
        client = makeClient();
        STARTUPINFOA startup{sizeof startup, STARTF_USESTDHANDLES, client, server, server};
        EXPECT_TRUE(CreateProcessA(nullptr, command.data(), nullptr, nullptr, true, 0, nullptr,
                                   nullptr, &startup, &child));
        CloseHandle(server);
        CloseHandle(child.hThread);
        read.hEvent = event;
    }
    ~Started()
    {
        for (HANDLE handle : {client, event, child.hProcess})
            CloseHandle(handle);
    }
    Started(const Started&) = delete;
    Started& operator=(const Started&) = delete;

    BOOL readFrom(HANDLE end)
    {
        DWORD count = 0;
        return ReadFile(end, &byte, 1, &count, &read);
    }
    BOOL readByte() { return readFrom(client); }
    BOOL result(BOOL wait = true)
    {
        DWORD count = 0;
        return GetOverlappedResult(client, &read, &count, wait);
    }
    DWORD waitBoth()
    {
        const HANDLE both[] = {child.hProcess, event};
        return WaitForMultipleObjectsEx(2, both, false, INFINITE, false);
    }
    DWORD wait(DWORD milliseconds = INFINITE)
    {
        return WaitForSingleObject(child.hProcess, milliseconds);
    }
    // Until the child is a zombie, which the layer has not seen yet.
    bool awaitEnd(int flags = 0) const
    {
        siginfo_t info;
        return waitid(P_PID, static_cast<id_t>(child.dwProcessId), &info,
                      WEXITED | WNOWAIT | flags) == 0;
    }
};

class Platform : public NothingLeft
{
protected:
    Platform()
    {
        Started("true").wait(); // makes the layer's own tables
        begin();
    }
};

TEST(CommandLine, SplitsAsTheShellDoes)
{
    Words words;
    const std::pair<const char*, Words> cases[] = {
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
        {"$HOME *;|", {"$HOME", "*;|"}},
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_TRUE(tarnix_platform::splitCommandLine(text, words));
        EXPECT_EQ(words, expected) << text;
    }
    EXPECT_FALSE(tarnix_platform::splitCommandLine("'a", words));
    EXPECT_FALSE(tarnix_platform::splitCommandLine("\"a\\\"", words));
}

TEST_F(Platform, HandlesAreClosedOnceWhoeverCloses)
{
    for (HANDLE wrong : {HANDLE{nullptr}, INVALID_HANDLE_VALUE, reinterpret_cast<HANDLE>(0x1234)}) {
        SetLastError(0);
        refused(CloseHandle(wrong), EBADF);
    }
    for (int round = 0; round < 200; ++round) {
        const HANDLE event = makeEvent();
        std::atomic<int> closed{0};
        onThreads(4, [&](int) { closed += CloseHandle(event) ? 1 : 0; });
        ASSERT_EQ(closed, 1);
        const HANDLE next = makeEvent(); // takes the same place
        ASSERT_FALSE(CloseHandle(event));
        ASSERT_TRUE(CloseHandle(next));
    }
}

TEST_F(Platform, PipeNamesAndInstances)
{
    refused(makeClient() != INVALID_HANDLE_VALUE, ENOENT);
    refused(makeServer("no prefix") != INVALID_HANDLE_VALUE, EINVAL);
    HANDLE ends[8];
    for (int i = 0; i < 8; ++i) {
        ends[i] = i < 4 ? makeServer() : makeClient();
        EXPECT_NE(ends[i], INVALID_HANDLE_VALUE);
    }
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
    refused(child.readByte(), ERROR_IO_PENDING);
    EXPECT_TRUE(child.result());
    std::string text(1, child.byte);
    const HANDLE second = duplicate(child.client), sameChild = duplicate(child.child.hProcess);
    for (HANDLE end : {second, child.client, second, second, child.client}) {
        EXPECT_TRUE(child.readFrom(end));
        text.push_back(child.byte);
    }
    EXPECT_EQ(text, "012345");
    // What was read ahead counts before the child's end is looked for, by any handle of it.
    kill(static_cast<pid_t>(child.child.dwProcessId), SIGKILL);
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
    EXPECT_FALSE(child.readByte());
    EXPECT_TRUE(child.awaitEnd());
    EXPECT_EQ(child.waitBoth(), WAIT_OBJECT_0 + 1);
    EXPECT_TRUE(child.result());
    EXPECT_EQ(child.byte, 'a');
    EXPECT_TRUE(child.readByte());
    refused(child.readByte(), ERROR_BROKEN_PIPE);
    EXPECT_EQ(child.waitBoth(), WAIT_OBJECT_0);
}

TEST_F(Platform, AGrandchildsOutputEndsWhereTheChildDid)
{
    Started child("sh -c 'printf first; (while :; do printf more; done) & printf second'");
    child.wait();
    std::size_t bytes = 0;
    while (child.readByte())
        ++bytes;
    EXPECT_EQ(GetLastError(), ERROR_BROKEN_PIPE);
    EXPECT_GE(bytes, std::string("firstsecond").size());
    EXPECT_LE(bytes, 64U * 1024);
}

TEST_F(Platform, OnlyOwnRunningChildrenAreTouched)
{
    for (const DWORD id : {DWORD{0}, static_cast<DWORD>(-1), static_cast<DWORD>(getpid())})
        refused(GenerateConsoleCtrlEvent(CTRL_C_EVENT, id), ESRCH);
    DWORD status = 0;
    HANDLE process = nullptr;
    {
        Started child("sleep 600");
        process = child.child.hProcess;
        refused(GetExitCodeProcess(process, &status), EBUSY);
        EXPECT_EQ(child.wait(20), WAIT_TIMEOUT);
        EXPECT_TRUE(GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, child.child.dwProcessId));
        EXPECT_EQ(child.wait(), WAIT_OBJECT_0);
        // The id may be another's now.
        refused(GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, child.child.dwProcessId), ESRCH);
        refused(TerminateProcess(process, 9), ESRCH);
        EXPECT_TRUE(GetExitCodeProcess(process, &status));
        EXPECT_EQ(status, 128U + SIGTERM);
    }
    refused(TerminateProcess(process, 9), EBADF);
    Started killed("sleep 600");
    EXPECT_TRUE(TerminateProcess(killed.child.hProcess, 1067));
    EXPECT_EQ(killed.wait(), WAIT_OBJECT_0);
    EXPECT_TRUE(GetExitCodeProcess(killed.child.hProcess, &status));
    EXPECT_EQ(status, 1067U);
}

TEST_F(Platform, AChildWhoseHandleWasClosedEarlyIsReaped)
{
    Started child("sleep 0.1");
    CloseHandle(child.child.hProcess);
    EXPECT_TRUE(child.awaitEnd());
    CloseHandle(makeEvent()); // looks after it
    EXPECT_FALSE(child.awaitEnd(WNOHANG));
}

// Against the rules, but it must not reach beyond the end's own bytes.
TEST_F(Platform, ReadersThatMeetDoNoHarm)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "it is the race that is tried";
#endif
    Started child("yes");
    onThreads(2, [&child](int) {
        OVERLAPPED read{};
        char byte = 'y';
        DWORD count = 0;
        for (int n = 0; n < 1000000; ++n) {
            ReadFile(child.client, &byte, 1, &count, &read) || CancelIo(child.client);
            ASSERT_TRUE(byte == 'y' || byte == '\n');
        }
    });
    EXPECT_TRUE(TerminateProcess(child.child.hProcess, 0));
}

TEST_F(Platform, OneSignalForEachRequest)
{
    Started child("sh -c 'trap \"printf i\" INT; printf r; while :; do sleep 0.01; done'");
    const auto next = [&child] { return child.readByte() || child.result() ? child.byte : '-'; };
    EXPECT_EQ(next(), 'r');
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(GenerateConsoleCtrlEvent(CTRL_C_EVENT, child.child.dwProcessId));
        EXPECT_EQ(next(), 'i');
    }
    EXPECT_FALSE(child.readByte()); // no more than were sent
    CancelIo(child.client);
    EXPECT_TRUE(TerminateProcess(child.child.hProcess, 1));
}

TEST_F(Platform, RefusesWhatItDoesNotOffer)
{
    EXPECT_EQ(CreateEventA(nullptr, true, false, nullptr), nullptr);
    const HANDLE event = makeEvent();
    const HANDLE two[] = {event, event};
    EXPECT_EQ(WaitForMultipleObjectsEx(2, two, true, 0, false), WAIT_FAILED);
    EXPECT_EQ(WaitForMultipleObjectsEx(2, two, false, 0, true), WAIT_FAILED);
    EXPECT_EQ(WaitForMultipleObjectsEx(2, two, false, 10, false), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForSingleObject(nullptr, 0), WAIT_FAILED);
    CloseHandle(event);
    wchar_t* text = nullptr;
    EXPECT_EQ(FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_ALLOCATE_BUFFER, nullptr,
                             123456, 0, reinterpret_cast<wchar_t*>(&text), 0, nullptr),
              0U);
    EXPECT_FALSE(DisableThreadLibraryCalls(nullptr));
}

} // namespace
