// The platform layer below the runner: what no run of a command shows.
#include "commandline.h"
#include "platform.h"
#include "processstate.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <vector>

using Words = std::vector<std::string>;

namespace
{

constexpr char pipeName[] = R"(\\.\pipe\test)";

HANDLE makeServer(const char* name = pipeName)
{
    return CreateNamedPipeA(name, PIPE_ACCESS_DUPLEX, 0, 4, 0, 0, 0, nullptr);
}

HANDLE makeClient(const char* name = pipeName)
{
    return CreateFileA(name, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
}

// A child whose output comes back through a pipe.
struct Started {
    HANDLE server = makeServer();
    HANDLE client = makeClient();
    HANDLE event = CreateEventA(nullptr, false, false, nullptr);
    PROCESS_INFORMATION child{};
    OVERLAPPED read{};
    char byte = 0;

    explicit Started(std::string command)
    {
        STARTUPINFOA startup{sizeof startup, STARTF_USESTDHANDLES, client, server, server};
        EXPECT_TRUE(CreateProcessA(nullptr, command.data(), nullptr, nullptr, true, 0, nullptr,
                                   nullptr, &startup, &child));
        CloseHandle(server);
        CloseHandle(child.hThread);
        read.hEvent = event;
    }
    ~Started()
    {
        CloseHandle(client);
        CloseHandle(event);
        CloseHandle(child.hProcess);
    }
    Started(const Started&) = delete;
    Started& operator=(const Started&) = delete;

    BOOL readByte()
    {
        DWORD count = 0;
        return ReadFile(client, &byte, 1, &count, &read);
    }
    BOOL result(BOOL wait = true)
    {
        DWORD count = 0;
        return GetOverlappedResult(client, &read, &count, wait);
    }
    DWORD waitBoth(DWORD milliseconds)
    {
        const HANDLE both[] = {child.hProcess, event};
        return WaitForMultipleObjectsEx(2, both, false, milliseconds, false);
    }
    // Until the child is a zombie, which the layer has not seen yet.
    void awaitEnd() const
    {
        siginfo_t info;
        while (waitid(P_PID, static_cast<id_t>(child.dwProcessId), &info, WEXITED | WNOWAIT) != 0 &&
               errno == EINTR) {
        }
    }
};

class Platform : public testing::Test
{
protected:
    void SetUp() override
    {
        Started first("true"); // makes the layer's own tables
        WaitForSingleObject(first.child.hProcess, INFINITE);
    }
    ProcessState m_Before = ProcessState::now();
    void TearDown() override { EXPECT_EQ(ProcessState::now(), m_Before); }
};

// What the shell makes of a text, as words.
Words shellWords(const std::string& text)
{
    const std::string script = "printf '%s\\037' " + text;
    std::FILE* pipe = popen(script.c_str(), "r");
    std::string all;
    for (int c = 0; (c = std::getc(pipe)) != EOF;) {
        all.push_back(static_cast<char>(c));
    }
    pclose(pipe);
    Words words;
    for (std::size_t begin = 0, end = 0; (end = all.find('\037', begin)) != std::string::npos;
         begin = end + 1) {
        words.push_back(all.substr(begin, end - begin));
    }
    return words;
}

TEST(CommandLine, SplitsAsTheShellDoes)
{
    std::minstd_rand random(4);
    const std::string alphabet = "ab  \t\\'\"";
    int compared = 0;
    for (int i = 0; i < 3000 && compared < 400; ++i) {
        std::string text = "x";
        for (auto n = random() % 14; n > 0; --n) {
            text.push_back(alphabet[random() % alphabet.size()]);
        }
        Words words;
        // A backslash at the very end is the one place where shells differ.
        if (text.back() != '\\' && tarnix_platform::splitCommandLine(text.c_str(), words)) {
            ++compared;
            ASSERT_EQ(words, shellWords(text)) << text;
        }
    }
    EXPECT_EQ(compared, 400);
    const struct {
        const char* text;
        bool closed;
        Words words;
    } cases[] = {
        {"", true, {}},
        {" \n\t ", true, {}},
        {"'' \"\"", true, {"", ""}},
        {"a\\", true, {"a\\"}},
        {"a\\\nb", true, {"ab"}},
        {"\\\n", true, {}},
        {"'a", false, {}},
        {"\"a\\\"", false, {}},
        {"\"\\$\\`\\x\"", true, {"$`\\x"}},
        {"$HOME *;|", true, {"$HOME", "*;|"}},
    };
    for (const auto& test : cases) {
        Words words;
        EXPECT_EQ(tarnix_platform::splitCommandLine(test.text, words), test.closed) << test.text;
        if (test.closed) {
            EXPECT_EQ(words, test.words) << test.text;
        }
    }
}

TEST_F(Platform, HandlesAreClosedOnceWhoeverCloses)
{
    for (HANDLE wrong : {HANDLE{nullptr}, INVALID_HANDLE_VALUE, reinterpret_cast<HANDLE>(0x1234)}) {
        SetLastError(0);
        EXPECT_FALSE(CloseHandle(wrong));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(EBADF));
    }
    for (int round = 0; round < 200; ++round) {
        const HANDLE event = CreateEventA(nullptr, false, false, nullptr);
        std::atomic<int> closed{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&] { closed += CloseHandle(event) ? 1 : 0; });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        ASSERT_EQ(closed, 1);
        const HANDLE next = CreateEventA(nullptr, false, false, nullptr); // takes the same place
        ASSERT_FALSE(CloseHandle(event));
        ASSERT_TRUE(CloseHandle(next));
    }
}

TEST_F(Platform, PipeNamesAndInstances)
{
    EXPECT_EQ(makeClient(), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ENOENT));
    EXPECT_EQ(makeServer("no prefix"), INVALID_HANDLE_VALUE);
    HANDLE servers[4];
    for (HANDLE& server : servers) {
        server = makeServer();
        EXPECT_NE(server, INVALID_HANDLE_VALUE);
    }
    EXPECT_EQ(makeServer(), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(EBUSY));
    HANDLE clients[4];
    for (HANDLE& client : clients) {
        client = makeClient();
        EXPECT_NE(client, INVALID_HANDLE_VALUE);
    }
    EXPECT_EQ(makeClient(), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(EBUSY));
    CloseHandle(servers[0]);
    servers[0] = makeServer(); // its place is free again
    EXPECT_NE(servers[0], INVALID_HANDLE_VALUE);
    for (int i = 0; i < 4; ++i) {
        CloseHandle(servers[i]);
        CloseHandle(clients[i]);
    }
}

TEST_F(Platform, ReadsPendAreCancelledAndShareOneSequence)
{
    Started child("sh -c 'sleep 0.2; printf 0123456789; sleep 0.2; printf x; sleep 600'");
    EXPECT_FALSE(child.readByte());
    EXPECT_EQ(GetLastError(), ERROR_IO_PENDING);
    EXPECT_FALSE(child.result(false));
    EXPECT_EQ(GetLastError(), ERROR_IO_PENDING);
    EXPECT_FALSE(child.readByte()); // one read at a time
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(EBUSY));
    EXPECT_TRUE(CancelIo(child.client));
    EXPECT_FALSE(child.result());
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ECANCELED));
    EXPECT_EQ(child.byte, 0);

    EXPECT_FALSE(child.readByte());
    EXPECT_TRUE(child.result());
    EXPECT_EQ(child.byte, '0');
    HANDLE second = nullptr;
    ASSERT_TRUE(DuplicateHandle(GetCurrentProcess(), child.client, GetCurrentProcess(), &second, 0,
                                false, DUPLICATE_SAME_ACCESS));
    std::string text;
    for (HANDLE end : {second, child.client, second, second, child.client}) {
        DWORD count = 0;
        EXPECT_TRUE(ReadFile(end, &child.byte, 1, &count, &child.read));
        text.push_back(child.byte);
    }
    EXPECT_EQ(text, "12345");
    // What was read ahead counts before the child's end is looked for.
    kill(static_cast<pid_t>(child.child.dwProcessId), SIGKILL);
    child.awaitEnd();
    HANDLE sameChild = nullptr;
    ASSERT_TRUE(DuplicateHandle(GetCurrentProcess(), child.child.hProcess, GetCurrentProcess(),
                                &sameChild, 0, false, DUPLICATE_SAME_ACCESS));
    EXPECT_EQ(WaitForSingleObject(child.child.hProcess, 0), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForSingleObject(sameChild, 0), WAIT_TIMEOUT);
    CloseHandle(sameChild);
    DWORD none = 0;
    EXPECT_FALSE(ReadFile(child.child.hProcess, &child.byte, 1, &none, &child.read));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(EBADF));
    char rest[8] = {};
    DWORD count = 0;
    EXPECT_TRUE(ReadFile(second, rest, 8, &count, &child.read));
    EXPECT_EQ(std::string(rest, count), "6789");
    EXPECT_EQ(WaitForSingleObject(child.child.hProcess, 0), WAIT_OBJECT_0);
    CloseHandle(second);
    EXPECT_FALSE(ReadFile(second, rest, 1, &count, &child.read));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(EBADF));
    kill(-static_cast<pid_t>(child.child.dwProcessId), SIGKILL); // the sleep that is left
}

TEST_F(Platform, WhatWasWrittenComesBeforeTheEnd)
{
    Started child("sh -c 'sleep 0.1; printf ab'");
    EXPECT_FALSE(child.readByte());
    child.awaitEnd();
    EXPECT_EQ(child.waitBoth(10000), WAIT_OBJECT_0 + 1);
    EXPECT_TRUE(child.result());
    EXPECT_EQ(child.byte, 'a');
    EXPECT_TRUE(child.readByte());
    EXPECT_EQ(child.byte, 'b');
    EXPECT_FALSE(child.readByte());
    EXPECT_EQ(GetLastError(), ERROR_BROKEN_PIPE);
    EXPECT_EQ(child.waitBoth(10000), WAIT_OBJECT_0);

    Started silent("sh -c 'sleep 0.1'");
    EXPECT_FALSE(silent.readByte());
    silent.awaitEnd();
    EXPECT_EQ(silent.waitBoth(10000), WAIT_OBJECT_0);
    EXPECT_TRUE(CancelIo(silent.client));
}

TEST_F(Platform, AGrandchildsOutputEndsWhereTheChildDid)
{
    Started child("sh -c 'printf first; (while :; do printf more; done) & printf second'");
    child.awaitEnd();
    WaitForSingleObject(child.child.hProcess, INFINITE);
    std::size_t bytes = 0;
    while (child.readByte()) {
        ++bytes;
    }
    EXPECT_EQ(GetLastError(), ERROR_BROKEN_PIPE);
    EXPECT_GE(bytes, std::string("firstsecond").size());
    EXPECT_LE(bytes, 64U * 1024);
}

TEST_F(Platform, OnlyOwnRunningChildrenAreTouched)
{
    for (const DWORD id : {DWORD{0}, static_cast<DWORD>(-1), static_cast<DWORD>(getpid())}) {
        EXPECT_FALSE(GenerateConsoleCtrlEvent(CTRL_C_EVENT, id));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ESRCH));
    }
    DWORD status = 0;
    DWORD id = 0;
    HANDLE process = nullptr;
    {
        Started child("sh -c 'sleep 600'");
        process = child.child.hProcess;
        id = child.child.dwProcessId;
        EXPECT_FALSE(GetExitCodeProcess(process, &status));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(EBUSY));
        EXPECT_EQ(WaitForSingleObject(process, 20), WAIT_TIMEOUT);
        EXPECT_TRUE(GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, id));
        EXPECT_EQ(WaitForSingleObject(process, INFINITE), WAIT_OBJECT_0);
        EXPECT_FALSE(GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, id)); // the id may be another's now
        EXPECT_FALSE(TerminateProcess(process, 9));
        EXPECT_TRUE(GetExitCodeProcess(process, &status));
        EXPECT_EQ(status, 128U + SIGTERM);
    }
    EXPECT_FALSE(TerminateProcess(process, 9));
    EXPECT_EQ(WaitForSingleObject(process, 0), WAIT_FAILED);
    Started killed("sleep 600");
    EXPECT_TRUE(TerminateProcess(killed.child.hProcess, 1067));
    EXPECT_EQ(WaitForSingleObject(killed.child.hProcess, INFINITE), WAIT_OBJECT_0);
    EXPECT_TRUE(GetExitCodeProcess(killed.child.hProcess, &status));
    EXPECT_EQ(status, 1067U);
}

TEST_F(Platform, AChildWhoseHandleWasClosedEarlyIsReaped)
{
    pid_t pid = 0;
    {
        Started child("sleep 0.1");
        pid = static_cast<pid_t>(child.child.dwProcessId);
    }
    siginfo_t info;
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT), 0);
    CloseHandle(CreateEventA(nullptr, false, false, nullptr)); // looks after it
    EXPECT_NE(waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT | WNOHANG), 0);
}

// Against the rules, but it must not reach beyond the end's own bytes, or another's end.
TEST_F(Platform, ReadersThatMeetDoNoHarm)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "it is the race that is tried";
#endif
    for (int round = 0; round < 10; ++round) {
        Started child("yes");
        std::vector<std::thread> threads;
        for (int i = 0; i < 2; ++i) {
            threads.emplace_back([&child] {
                OVERLAPPED read{};
                char byte = 0;
                DWORD count = 0;
                for (int n = 0; n < 100000; ++n) {
                    if (ReadFile(child.client, &byte, 1, &count, &read)) {
                        EXPECT_TRUE(byte == 'y' || byte == '\n');
                    } else {
                        CancelIo(child.client);
                    }
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        TerminateProcess(child.child.hProcess, 0);
        WaitForSingleObject(child.child.hProcess, INFINITE);
        HANDLE moved = nullptr;
        DuplicateHandle(GetCurrentProcess(), child.client, GetCurrentProcess(), &moved, 0, false,
                        DUPLICATE_SAME_ACCESS);
        std::swap(moved, child.client);
        EXPECT_TRUE(CloseHandle(moved));
    }
}

TEST_F(Platform, OneSignalForEachRequest)
{
    Started child("sh -c 'trap \"echo int\" INT; echo ready; while :; do sleep 0.01; done'");
    const auto readLine = [&child] {
        std::string line;
        while (child.readByte() || (GetLastError() == ERROR_IO_PENDING && child.result())) {
            if (child.byte == '\n') {
                break;
            }
            line.push_back(child.byte);
        }
        return line;
    };
    EXPECT_EQ(readLine(), "ready");
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(GenerateConsoleCtrlEvent(CTRL_C_EVENT, child.child.dwProcessId));
        EXPECT_EQ(readLine(), "int");
    }
    EXPECT_FALSE(child.readByte()); // no more than were sent
    CancelIo(child.client);
    EXPECT_TRUE(TerminateProcess(child.child.hProcess, 1));
}

TEST_F(Platform, RefusesWhatItDoesNotOffer)
{
    EXPECT_EQ(CreateEventA(nullptr, true, false, nullptr), nullptr);
    const HANDLE event = CreateEventA(nullptr, false, false, nullptr);
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
