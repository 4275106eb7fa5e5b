// SPDX-License-Identifier: LicenseRef-Tarnix
// The platform layer below the runner, where runs of commands do not reach.
#include "cmnexecpipewindows.h"
#include "cmnsystemerror.h"
#include "errors.h"
#include "logon.h"
#include "platform.h"
#include "support/command.h"
#include "support/failure.h"
#include "support/fixture.h"

#include <security/pam_appl.h>

#include <fcntl.h>
#include <malloc.h>
#include <sys/ptrace.h>

#include <chrono>
#include <csignal>

using namespace tarnix_platform;

namespace
{

using Platform = LeakCheck;

constexpr char pipeName[] = R"(\\.\pipe\test)";

HANDLE makeServer(const char* name = pipeName, DWORD mode = PIPE_ACCESS_DUPLEX)
{
    return CreateNamedPipeA(name, mode, 0, 1, 0, 0, 0, nullptr);
}
HANDLE makeClient(const char* name = pipeName, DWORD access = GENERIC_READ,
                  DWORD how = OPEN_EXISTING)
{
    return CreateFileA(name, access, FILE_SHARE_READ, nullptr, how, 0, nullptr);
}
HANDLE makeEvent() { return CreateEventA(nullptr, false, false, nullptr); }
bool isOpen(HANDLE end) { return end != INVALID_HANDLE_VALUE; }

// A runner that has started its child, and reads of one byte.
struct Started : tarnix_cmn_4_4::CCmnExecPipeWindows {
    HANDLE &client = m_OutputHandle, &process = m_ProcessHandle;
    DWORD& pid = m_ProcessId;
    DWORD count = 0, status = 0;
    OVERLAPPED read{};
    char byte = 0;

    explicit Started(const std::string& command)
    {
        EXPECT_EQ(ExecPipe(command, ""), 0);
        read.hEvent = m_ReadEvent;
    }
    BOOL readFrom(HANDLE end) { return ReadFile(end, &byte, 1, &count, &read); }
    BOOL result(BOOL wait = true) { return GetOverlappedResult(client, &read, &count, wait); }
    char next() { return readFrom(client) || result() ? byte : '-'; }
    // Waits until the child is a zombie, without the layer noticing.
    bool awaitEnd() const { return waitid(P_PID, pid, nullptr, WEXITED | WNOWAIT) == 0; }
};

TEST_F(Platform, HandlesAndPipeNames)
{
    for (HANDLE wrong : {HANDLE{nullptr}, INVALID_HANDLE_VALUE, reinterpret_cast<HANDLE>(0x1234)})
        expectFailure(CloseHandle(wrong), EBADF);
    for (int i = 0; i < 70000; ++i) // more than can be open at a time
        EXPECT_TRUE(CloseHandle(makeEvent()));
    const HANDLE event = makeEvent();
    CloseHandle(event);
    const HANDLE next = makeEvent(), server = makeServer(), client = makeClient();
    expectFailure(isOpen(makeServer()), EBUSY);
    expectFailure(CloseHandle(event), EBADF); // `next` has its slot
    expectFailure(isOpen(makeClient()), EBUSY);
    for (HANDLE open : {next, server, client})
        EXPECT_TRUE(CloseHandle(open));
    expectFailure(isOpen(makeClient()), ENOENT); // the name has gone
    // Closes the last handle of a running child: a later close reaps the child.
    Started left("sleep 600");
    EXPECT_TRUE(CloseHandle(left.process));
    EXPECT_TRUE(kill(static_cast<pid_t>(left.pid), SIGKILL) == 0 && left.awaitEnd());
}

TEST_F(Platform, ErrorTexts)
{
    constexpr DWORD flags = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM;
    const struct {
        const char* name;
        DWORD flags, error;
        std::wstring text; // empty: none
    } cases[] = {
        {"of the last failure", flags, ENOENT, LR"(\\.\pipe\test: No such file or directory)"},
        {"of another error", flags, EACCES, L"Permission denied"},
        {"pending", flags, ERROR_IO_PENDING, L"Read is pending"},
        {"end of file", flags, ERROR_BROKEN_PIPE, L"End of file on pipe"},
        {"unknown", flags, 12345, L""},
        {"into a buffer", FORMAT_MESSAGE_FROM_SYSTEM, ENOENT, L""},
    };
    for (const auto& test : cases) {
        expectFailure(isOpen(makeClient()), ENOENT);
        wchar_t* text = nullptr;
        const DWORD length = FormatMessageW(test.flags, nullptr, test.error, 0,
                                            reinterpret_cast<wchar_t*>(&text), 0, nullptr);
        EXPECT_EQ(length, test.text.size()) << test.name;
        EXPECT_EQ(text != nullptr ? text : L"", test.text) << test.name;
        EXPECT_EQ(GetLastError(), DWORD(test.text.empty() ? EINVAL : ENOENT)) << test.name;
        LocalFree(text);
    }
    // Larger than the blocks that the C library keeps for a thread, which count as used.
    const std::size_t used = mallinfo2().uordblks;
    LocalFree(wcsdup(std::wstring(2000, L'x').c_str()));
    EXPECT_EQ(mallinfo2().uordblks, used);
    expectFailure(FormatMessageW(flags, nullptr, ENOENT, 0, nullptr, 0, nullptr) != 0, EINVAL);
    // It does not mention the subject of an earlier failure.
    SetLastError(ENOENT);
    EXPECT_EQ(tarnix_cmn_4_4::systemErrorText(ENOENT), L"No such file or directory");
    fail(ENOENT, '\xff' + std::string(300, 'n'));
    EXPECT_EQ(tarnix_cmn_4_4::systemErrorText(ENOENT),
              L'?' + std::wstring(254, L'n') + L": No such file or directory");
}

// The usual module of PAM asks for one secret and nothing else.
TEST_F(Platform, QuestionsOfPam)
{
    const pam_message text{PAM_TEXT_INFO, ""}, secret{PAM_PROMPT_ECHO_OFF, ""},
        problem{PAM_ERROR_MSG, ""}, forPerson{PAM_PROMPT_ECHO_ON, ""};
    const pam_message *answered[] = {&secret, &text, &problem, &secret},
                      *refused[] = {&secret, &forPerson};
    char word[] = "word";
    pam_response* answers = nullptr;
    EXPECT_EQ(answerQuestions(2, refused, &answers, word), PAM_CONV_ERR);
    EXPECT_EQ(answers, nullptr);
    EXPECT_EQ(answerQuestions(4, answered, &answers, word), PAM_SUCCESS);
    for (int i = 0; i < 4; ++i) {
        EXPECT_STREQ(answers[i].resp, answered[i] == &secret ? word : nullptr) << i;
        std::free(answers[i].resp);
    }
    std::free(answers);
}

// The table of handles is full, and then has room for some handles of a run, but not for all.
TEST_F(Platform, NoHandleLeft)
{
    std::vector<HANDLE> all;
    for (HANDLE event = makeEvent(); event != nullptr; event = makeEvent())
        all.push_back(event);
    EXPECT_GT(all.size(), 65000U);
    expectFailure(isOpen(makeServer()), EMFILE);
    std::size_t freed = 0;
    while (freed < 20 && run("true").result != 0)
        CloseHandle(all[freed++]);
    EXPECT_GT(freed, 3U); // two ends of a pipe, process, thread, input
    EXPECT_LT(freed, 20U);
    for (; freed < all.size(); ++freed)
        EXPECT_TRUE(CloseHandle(all[freed]));
}

TEST_F(Platform, ManualResetEvents)
{
    const HANDLE event = CreateEventA(nullptr, true, false, nullptr);
    EXPECT_EQ(waitForChild(forkChild([=] { return SetEvent(event) == 0; })), 0);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT); // a copy of this process has no effect
    errno = ERANGE;
    EXPECT_TRUE(SetEvent(event));
    EXPECT_EQ(errno, ERANGE);
    for (int wait = 0; wait < 2; ++wait)
        EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);
    for (int reset = 0; reset < 2; ++reset)
        EXPECT_TRUE(ResetEvent(event));
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT);
    EXPECT_TRUE(CloseHandle(event));
    const HANDLE other = makeEvent(); // takes the same slot
    EXPECT_FALSE(SetEvent(event));
    EXPECT_FALSE(SetEvent(other));
    expectFailure(ResetEvent(other), EBADF);
    EXPECT_TRUE(CloseHandle(other));
}

// What the layer lacks is refused, and so are arguments that make no sense.
TEST_F(Platform, RefusedCalls)
{
    const HANDLE server = makeServer(), client = makeClient(), event = makeEvent(),
                 self = GetCurrentProcess();
    const std::vector<HANDLE> events(65, event);
    char bytes[1] = {}, command[] = "true";
    wchar_t space[] = L"Se Other", control[] = L"Se\x7f";
    DWORD count = 0;
    OVERLAPPED state{};
    HANDLE made = event, policy = nullptr;
    STARTUPINFOA startup{sizeof startup, STARTF_USESTDHANDLES, server, server, server};
    PROCESS_INFORMATION information{};
    LSA_OBJECT_ATTRIBUTES attributes{};
    LSA_UNICODE_STRING text{8, 8, space}, withSpace{32, 32, space}, empty{0, 0, space},
        withControl{12, 12, control};
    LsaOpenPolicy(nullptr, &attributes, 0, &policy);
    char account[] = "second", noAccount[] = "", twoWords[] = "a b";
    const auto waits = [&](DWORD number, const HANDLE* handles, BOOL forAll, BOOL alertable) {
        return WaitForMultipleObjectsEx(number, handles, forAll, 0, alertable) != WAIT_FAILED;
    };
    const auto duplicate = [&](HANDLE from, HANDLE handle, HANDLE to, HANDLE* target, DWORD how) {
        return DuplicateHandle(from, handle, to, target, 0, false, how);
    };
    const auto start = [&](DWORD flags, HANDLE error) {
        STARTUPINFOA with{sizeof with, flags, server, server, error};
        return CreateProcessA(nullptr, command, nullptr, nullptr, false, 0, nullptr, nullptr, &with,
                              &information);
    };
    const auto adds = [&](HANDLE to, PSID name, LSA_UNICODE_STRING& right) {
        return LsaAddAccountRights(to, name, &right, 1) == 0;
    };
    constexpr DWORD batch = LOGON32_LOGON_BATCH, same = DUPLICATE_SAME_ACCESS;
    const struct {
        const char* name;
        std::function<bool()> call;
        DWORD error;
    } rows[] = {
        {"wait for nothing", [&] { return waits(0, events.data(), false, false); }, EINVAL},
        {"wait for too many", [&] { return waits(65, events.data(), false, false); }, EINVAL},
        {"wait for all", [&] { return waits(2, events.data(), true, false); }, ENOTSUP},
        {"version of nothing", [] { return GetVersionExW(nullptr); }, EINVAL},
        {"alertable wait", [&] { return waits(1, events.data(), false, true); }, ENOTSUP},
        {"wait for a pipe", [&] { return waits(1, &client, false, false); }, EBADF},
        {"signalled event", [&] { return CreateEventA(nullptr, true, true, nullptr); }, ENOTSUP},
        {"name of no pipe", [] { return isOpen(makeServer(R"(\\.\pipe/x)")); }, EINVAL},
        {"no direction", [] { return isOpen(makeServer(pipeName, 4)); }, EINVAL},
        {"new file", [] { return isOpen(makeClient("NUL", GENERIC_READ, 1)); }, EINVAL},
        {"written pipe", [] { return isOpen(makeClient(pipeName, GENERIC_WRITE)); }, EINVAL},
        {"closed descriptor", [] { return isOpen(openDescriptor(-1)); }, EBADF},
        {"read, no state", [&] { return ReadFile(client, bytes, 1, &count, nullptr); }, EINVAL},
        {"read, no size", [&] { return ReadFile(client, bytes, 0, &count, &state); }, EINVAL},
        {"read of a server", [&] { return ReadFile(server, bytes, 1, &count, &state); }, EBADF},
        {"write, no state", [&] { return WriteFile(server, bytes, 1, &count, nullptr); }, EINVAL},
        {"write, no size", [&] { return WriteFile(server, bytes, 0, &count, &state); }, EINVAL},
        {"write by a client", [&] { return WriteFile(client, bytes, 1, &count, &state); }, EBADF},
        {"cancel of an event", [&] { return CancelIo(event); }, EBADF},
        {"to a process", [&] { return duplicate(self, event, nullptr, &made, same); }, EINVAL},
        {"other access", [&] { return duplicate(self, event, self, &made, 1); }, EINVAL},
        {"duplicate of none", [&] { return duplicate(self, self, self, &made, same); }, EBADF},
        {"no standard handles", [&] { return start(0, server); }, EINVAL},
        {"handle of no file", [&] { return start(STARTF_USESTDHANDLES, event); }, EBADF},
        {"no counters", [&] { return K32GetProcessMemoryInfo(event, nullptr, 0); }, EINVAL},
        {"signal to an event", [&] { return sendSignal(event, SIGCONT); }, EBADF},
        {"no module", [&] { return DisableThreadLibraryCalls(nullptr); }, EINVAL},
        {"no attributes", [&] { return LsaOpenPolicy(nullptr, nullptr, 0, &made) == 0; }, EINVAL},
        {"other policy", [&] { return adds(event, account, text); }, EBADF},
        {"empty account", [&] { return adds(policy, noAccount, text); }, EINVAL},
        {"account of two words", [&] { return adds(policy, twoWords, text); }, EINVAL},
        {"right with a blank", [&] { return adds(policy, account, withSpace); }, EINVAL},
        {"right with a control", [&] { return adds(policy, account, withControl); }, EINVAL},
        {"empty right", [&] { return adds(policy, account, empty); }, EINVAL},
        {"all rights", [&] { return LsaRemoveAccountRights(policy, account, true, &text, 1) == 0; },
         ENOTSUP},
        {"no logon yet", [&] { return accountEnvironment(nullptr); }, EACCES},
        {"no token", [&] { return LogonUserA("a", ".", "b", batch, 0, nullptr); }, EINVAL},
        {"other domain", [&] { return LogonUserA("a", "x", "b", batch, 0, &made); }, EINVAL},
        {"no password", [&] { return LogonUserA("a", ".", nullptr, batch, 0, &made); }, EINVAL},
        {"other logon", [&] { return LogonUserA("a", ".", "b", 2, 0, &made); }, EINVAL},
        {"token of an event", [&] { return accountEnvironment(event); }, EBADF},
    };
    for (const auto& row : rows) {
        SetLastError(0);
        EXPECT_FALSE(row.call()) << row.name;
        EXPECT_EQ(GetLastError(), row.error) << row.name;
    }
    expectFailure(accountEnvironment(nullptr), EINVAL); // as the last logon
    EXPECT_STREQ(lastErrorAbout(), "cannot log on (only local accounts can log on) as 'a'");
    expectRefusedStarts(CreateProcessA, startup);
    EXPECT_TRUE(DisableThreadLibraryCalls(&made));
    EXPECT_TRUE(waits(1, events.data(), true, false));
    EXPECT_TRUE(waits(64, events.data(), false, false));
    setLimit(RLIMIT_NOFILE, 9); // the system refuses to poll more descriptors
    expectFailure(waits(64, events.data(), false, false), EINVAL);
    setLimit(RLIMIT_NOFILE, RLIM_INFINITY);
    EXPECT_EQ(made, nullptr); // of the refused logon
    for (const HANDLE open : {server, client, event, policy})
        EXPECT_TRUE(CloseHandle(open));
}

TEST_F(Platform, WritesPendAndCanBeCancelled)
{
    const HANDLE server = makeServer(), client = makeClient(), event = makeEvent();
    const std::string text(100000, 'w');
    char got[65536]; // the capacity of a pipe
    DWORD count = 0, read = 0;
    OVERLAPPED state{}, readState{};
    const auto write = [&](HANDLE signalled) {
        state = {0, 0, 0, 0, signalled, 0};
        return WriteFile(server, text.data(), 100000, &count, &state);
    };
    const auto result = [&](BOOL w) { return GetOverlappedResult(server, &state, &count, w); };
    expectFailure(write(event), ERROR_IO_PENDING);
    EXPECT_EQ(count, sizeof got);
    expectFailure(WriteFile(server, text.data(), 1, &count, &readState), EBUSY); // one at a time
    expectFailure(result(false), ERROR_IO_PENDING);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT);
    EXPECT_TRUE(ReadFile(client, got, sizeof got, &read, &readState));
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);
    EXPECT_TRUE(result(false));
    EXPECT_EQ(count, 100000U);
    EXPECT_TRUE(ReadFile(client, got, sizeof got, &read, &readState)); // the rest
    expectFailure(ReadFile(client, got, sizeof got, &read, &readState), ERROR_IO_PENDING);
    setLimit(RLIMIT_NOFILE, 0); // the system refuses the wait, which cancels the read
    expectFailure(GetOverlappedResult(client, &readState, &read, true), EINVAL);
    setLimit(RLIMIT_NOFILE, RLIM_INFINITY);
    expectFailure(ReadFile(client, got, sizeof got, &read, &readState), ERROR_IO_PENDING);
    EXPECT_TRUE(WriteFile(server, text.data(), 1, &count, &state));
    EXPECT_TRUE(GetOverlappedResult(client, &readState, &read, false));
    expectFailure(write(nullptr), ERROR_IO_PENDING);
    EXPECT_TRUE(ReadFile(client, got, sizeof got, &read, &readState));
    EXPECT_TRUE(result(false)); // continues the write
    expectFailure(write(event), ERROR_IO_PENDING);
    expectFailure(result(true), ENOTSUP);
    EXPECT_TRUE(CancelIo(server));
    expectFailure(write(event), ERROR_IO_PENDING);
    EXPECT_TRUE(CancelIo(server));
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT);
    expectFailure(result(false), ECANCELED);
    expectFailure(write(event), ERROR_IO_PENDING);
    EXPECT_TRUE(CloseHandle(server));
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);
    expectFailure(result(false), ECANCELED);
    EXPECT_TRUE(CloseHandle(client) && CloseHandle(event));
}

TEST_F(Platform, ClockAndVersion)
{
    constexpr std::uint64_t ticksOfSecond = 10000000, from1601To1970 = 11644473600;
    const auto ticksOf = [](const SYSTEMTIME& time) {
        FILETIME ticks{};
        EXPECT_TRUE(SystemTimeToFileTime(&time, &ticks));
        return std::uint64_t{ticks.dwHighDateTime} << 32 | ticks.dwLowDateTime;
    };
    EXPECT_EQ(ticksOf({2001, 2, 6, 3, 4, 5, 6, 789}), 126256467067890000ULL);
    using Clock = std::chrono::system_clock; // time() may be late
    const time_t before = Clock::to_time_t(Clock::now());
    SYSTEMTIME now{};
    GetSystemTime(&now);
    const auto seconds = static_cast<time_t>(ticksOf(now) / ticksOfSecond - from1601To1970);
    EXPECT_GE(seconds, before);
    EXPECT_LE(seconds, Clock::to_time_t(Clock::now()));
    EXPECT_EQ(now.wDayOfWeek, gmtime(&seconds)->tm_wday);
    OSVERSIONINFOW version{sizeof version, 0, 0, 0, 0, {}};
    EXPECT_TRUE(GetVersionExW(&version));
    EXPECT_GT(version.dwMajorVersion, 0U);
}

TEST_F(Platform, ReadsPendAndCanBeCancelledAndShareOneStream)
{
    Started child("sh -c 'sleep 0.2; printf 0123456789; exec sleep 600'");
    expectFailure(child.readFrom(child.client), ERROR_IO_PENDING);
    expectFailure(child.result(false), ERROR_IO_PENDING);
    expectFailure(child.readFrom(child.client), EBUSY); // one read at a time
    EXPECT_TRUE(CancelIo(child.client));
    EXPECT_EQ(WaitForSingleObject(child.read.hEvent, 0), WAIT_TIMEOUT);
    expectFailure(child.result(), ECANCELED);
    std::string text(1, child.next());
    const HANDLE self = GetCurrentProcess();
    HANDLE second = nullptr, sameChild = nullptr;
    DuplicateHandle(self, child.client, self, &second, 0, false, DUPLICATE_SAME_ACCESS);
    DuplicateHandle(self, child.process, self, &sameChild, 0, false, DUPLICATE_SAME_ACCESS);
    for (HANDLE end : {second, child.client, second, second, child.client}) {
        EXPECT_TRUE(child.readFrom(end) && child.result());
        text.push_back(child.byte);
    }
    EXPECT_EQ(text, "012345");
    // Bytes that were read ahead come before the child's end, through any of its handles.
    EXPECT_TRUE(TerminateProcess(child.process, 1067));
    EXPECT_TRUE(child.awaitEnd());
    EXPECT_EQ(WaitForSingleObject(child.process, 0), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForSingleObject(sameChild, 0), WAIT_TIMEOUT);
    expectFailure(child.readFrom(sameChild), EBADF);
    // A handle that takes a closed one's slot does not take its bytes.
    CloseHandle(second);
    const HANDLE event = makeEvent();
    expectFailure(child.readFrom(event), EBADF);
    CloseHandle(event);
    char rest[8] = {};
    EXPECT_TRUE(ReadFile(child.client, rest, 8, &child.count, &child.read));
    EXPECT_EQ(std::string(rest, child.count), "6789");
    EXPECT_EQ(WaitForSingleObject(child.process, 0), WAIT_OBJECT_0);
    EXPECT_TRUE(GetExitCodeProcess(child.process, &child.status));
    EXPECT_EQ(child.status, 1067U);
    expectFailure(child.readFrom(child.client), ERROR_BROKEN_PIPE);
    CloseHandle(sameChild);
}

// Where the child ended.
TEST_F(Platform, TheOutputOfAGrandchildThatNeverStopsWritingIsCut)
{
    Started shell("sh -c 'yes & sleep 0.1'");
    EXPECT_EQ(WaitForSingleObject(shell.process, INFINITE), WAIT_OBJECT_0);
    int bytes = 0;
    while (bytes <= 65536 && shell.next() != '-')
        ++bytes;
    EXPECT_LE(bytes, 65536); // the capacity of a pipe
}

// A tracer delays the reaping of a child that has ended, but not the timeout of a wait.
TEST_F(Platform, ATracedChildDelaysNoWait)
{
    Started ended("sh -c 'sleep 1 & sleep 0.2'"); // its output has no end of file yet
    const HANDLE both[] = {ended.process, ended.read.hEvent};
    EXPECT_FALSE(ended.readFrom(ended.client));
    const pid_t tracer = forkChild([&] {
        return ptrace(PTRACE_SEIZE, ended.pid, nullptr, nullptr) == 0 && raise(SIGSTOP) == 0;
    });
    waitid(P_PID, static_cast<id_t>(tracer), nullptr, WEXITED | WSTOPPED | WNOWAIT);
    const DWORD woken = WaitForMultipleObjectsEx(2, both, false, 400, false);
    kill(tracer, SIGKILL);
    SKIP_IF(waitForChild(tracer) == SIGKILL ? "" : "this user cannot trace processes");
    EXPECT_EQ(woken, WAIT_TIMEOUT);
}

TEST_F(Platform, OnlyOwnRunningChildrenAreTouched)
{
    for (const DWORD id : {DWORD{0}, static_cast<DWORD>(-1), static_cast<DWORD>(getpid())})
        expectFailure(GenerateConsoleCtrlEvent(CTRL_C_EVENT, id), ESRCH);
    // Each request sends one signal.
    Started child("sh -c 'trap \"printf i\" INT; printf r; while :; do sleep 0.01; done'");
    EXPECT_EQ(child.next(), 'r');
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(GenerateConsoleCtrlEvent(CTRL_C_EVENT, child.pid));
        EXPECT_EQ(child.next(), 'i');
    }
    EXPECT_FALSE(child.readFrom(child.client)); // no further signal arrives
    expectFailure(GetExitCodeProcess(child.process, &child.status), EBUSY);
    EXPECT_TRUE(GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, child.pid));
    EXPECT_TRUE(child.awaitEnd());
    expectFailure(TerminateProcess(child.process, 9), ESRCH);
    EXPECT_TRUE(CloseHandle(child.client));
    EXPECT_EQ(WaitForSingleObject(child.read.hEvent, 0), WAIT_OBJECT_0);
    // A child that has moved to the caller's process group, and has left a process in its own.
    Started moved("perl -e 'if (fork) { setpgrp(0, getpgrp(getppid)); syswrite(STDOUT, \"r\") } "
                  "sleep 600'");
    EXPECT_EQ(moved.next(), 'r');
    EXPECT_TRUE(GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, moved.pid));
    EXPECT_TRUE(moved.awaitEnd());
    expectFailure(GenerateConsoleCtrlEvent(2, moved.pid), EINVAL);
    expectFailure(GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, moved.pid), ESRCH); // it has ended
}

} // namespace
