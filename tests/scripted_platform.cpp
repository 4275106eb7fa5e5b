// SPDX-License-Identifier: LicenseRef-Tarnix
// See scripted_platform.h. Handles are numbers; no system call is made. An operation that can run
// out of memory in the real platform also allocates here, once, before it changes anything.
#include "scripted_platform.h"

#include "support/allocationfault.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <thread>

Script script;

bool endsWithoutMemory(const Script& made, const Fault& fault, const std::function<void()>& run)
{
    script = made;
    script.fault = fault;
    bool thrown = false;
    try {
        const bool isDue = fault.operation == allocation;
        const AllocationFault failing(isDue ? fault.call : 0, fault.laterToo);
        run();
    } catch (const std::bad_alloc&) {
        thrown = true;
    }
    EXPECT_TRUE(script.open.empty() && !script.childRuns);
    script.calls[allocation].resize(AllocationFault::requests);
    return thrown;
}

void failEach(const std::function<void()>& checkGood, const std::function<void(const Fault&)>& run)
{
    checkGood();
    int injected = 0;
    const auto calls = script.calls;
    for (const auto& [operation, details] : calls)
        for (std::size_t i = 2; i < 2 * (details.size() + 1); ++i, ++injected) {
            SCOPED_TRACE(operation + std::to_string(i / 2) + (i % 2 != 0 ? " and on" : ""));
            const int blocks = AllocationFault::liveBlocks;
            run({operation, i / 2, i % 2 != 0});
            checkGood(); // the next run
            EXPECT_EQ(AllocationFault::liveBlocks, blocks);
        }
    std::printf("faults injected: %d\n", injected);
}

namespace tarnix_platform
{

FastSlot g_fastSlots[kMaxHandles];

namespace
{

constexpr DWORD error = 13, child = 4711;

// Records a call, and returns whether it works.
bool works(const char* operation, long detail = 0)
{
    const AllocationFaultPause pause;
    Details& calls = script.calls[operation];
    calls.push_back(detail);
    const auto& [failing, call, laterToo] = script.fault;
    const bool isDue = laterToo ? calls.size() >= call : calls.size() == call;
    const bool fails = isDue && failing == operation;
    script.lastError = fails ? error : script.lastError;
    return !fails;
}

HANDLE give(const char* operation, HANDLE onFailure = nullptr, long detail = 0)
{
    static std::uintptr_t next = 100;
    const bool good = works(operation, detail);
    return good ? *script.open.insert(reinterpret_cast<HANDLE>(next += 4)).first : onFailure;
}

bool takeBack(void* what)
{
    EXPECT_EQ(script.open.count(what), 1U) << "closed twice, or never opened";
    return script.open.erase(what) > 0;
}

long next(Details& values, long otherwise)
{
    if (values.empty())
        return otherwise;
    const long value = values.front();
    values.erase(values.begin());
    return value;
}

BOOL start(const char* how, BOOL inherits, DWORD flags, const STARTUPINFOA& startup,
           PROCESS_INFORMATION* information)
{
    EXPECT_TRUE(inherits);
    EXPECT_EQ(flags & ~EXTENDED_STARTUPINFO_PRESENT,
              CREATE_NO_WINDOW | CREATE_NEW_PROCESS_GROUP | NORMAL_PRIORITY_CLASS);
    EXPECT_EQ(flags == (flags | EXTENDED_STARTUPINFO_PRESENT),
              startup.cb == sizeof(STARTUPINFOEXA));
    const HANDLE process = give(how);
    if (!process)
        return false;
    const AllocationFaultPause pause;
    // Any unique number serves as the thread's handle.
    *information = {process, *script.open.insert(information).first, child, child};
    script.process = process;
    script.childRuns = true;
    return true;
}

DWORD waited(const char* how, const HANDLE* handles, DWORD count, DWORD milliseconds, long woken)
{
    if (!works(how, milliseconds))
        return WAIT_FAILED;
    const bool ended = woken >= 0 && woken < count && handles[woken] == script.process;
    script.childRuns = script.childRuns && !ended;
    return static_cast<DWORD>(woken);
}

// Passes on the result of a read or write, and the byte of a read.
BOOL passOn(long result, char* target, DWORD* count)
{
    script.lastError = static_cast<DWORD>(-result);
    *count = result >= 0 ? 1 : 0;
    if (result >= 0 && target != nullptr)
        *target = static_cast<char>(result);
    return result >= Script::empty;
}

char* newBlock(const char* how)
{
    static char block[] = "HOME=/a/directory/of/an/account\0";
    if (!works(how))
        return nullptr;
    const AllocationFaultPause pause;
    return static_cast<char*>(*script.open.insert(block).first);
}

NTSTATUS changeRight(const char* how, LSA_HANDLE policy, LSA_UNICODE_STRING right, bool added)
{
    const bool good = works(how) && script.open.count(policy) > 0;
    EXPECT_EQ(std::wstring(right.Buffer, right.Length / sizeof(wchar_t)), L"SeBatchLogonRight");
    EXPECT_EQ(right.MaximumLength, right.Length + sizeof(wchar_t));
    script.entitled = good ? added : script.entitled;
    return good ? 0 : 1;
}

} // namespace

void SetLastError(DWORD code) { script.lastError = code; }
DWORD GetLastError() { return script.lastError; }
DWORD FormatMessageW(DWORD, const void*, DWORD code, DWORD, wchar_t* buffer, DWORD, std::va_list*)
{
    static wchar_t text[] = L"scripted error 13";
    if (!works(__func__) || code != error)
        return 0;
    *reinterpret_cast<void**>(buffer) = *script.open.insert(text).first;
    return 1;
}
HLOCAL LocalFree(HLOCAL memory) { return takeBack(memory) ? nullptr : memory; }
BOOL CloseHandle(HANDLE handle) { return takeBack(handle) && works(__func__); }
BOOL DuplicateHandle(HANDLE, HANDLE, HANDLE, HANDLE* target, DWORD access, BOOL inherits, DWORD)
{
    EXPECT_EQ(access, 0U);
    const HANDLE former = *target;
    *target = give(__func__, former, inherits);
    return *target != former;
}
HANDLE GetCurrentProcess() { return INVALID_HANDLE_VALUE; }
HANDLE CreateEventA(SECURITY_ATTRIBUTES*, BOOL, BOOL, const char*) { return give(__func__); }
HANDLE CreateNamedPipeA(const char* name, DWORD mode, DWORD, DWORD instances, DWORD outSize,
                        DWORD inSize, DWORD timeout, SECURITY_ATTRIBUTES* attributes)
{
    const bool isOfRunner = std::strstr(name, "CCmnExecPipeWindows_") != nullptr;
    EXPECT_EQ(mode, PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED |
                        (isOfRunner ? WRITE_DAC | WRITE_OWNER : 0));
    EXPECT_EQ(instances, isOfRunner ? 4U : 1U);
    EXPECT_EQ(outSize, 0U);
    EXPECT_EQ(inSize, 0U);
    EXPECT_EQ(timeout, 3000U);
    EXPECT_TRUE(attributes->bInheritHandle);
    return give(__func__, INVALID_HANDLE_VALUE);
}
HANDLE CreateFileA(const char* name, DWORD, DWORD, SECURITY_ATTRIBUTES*, DWORD, DWORD flags, HANDLE)
{
    EXPECT_EQ((flags & FILE_FLAG_OVERLAPPED) != 0, std::strcmp(name, "NUL") != 0);
    return give(__func__, INVALID_HANDLE_VALUE);
}
BOOL ReadFile(HANDLE file, void* buffer, DWORD size, DWORD* count, OVERLAPPED*)
{
    EXPECT_TRUE(size == 1 || size == 65536); // what a pipe can hold
    const bool good = works(__func__);
    const AllocationFaultPause pause;
    const long result = good ? next(script.reads, Script::broken) : Script::failed;
    script.begun[file] = {static_cast<char*>(buffer), result};
    return passOn(result, static_cast<char*>(buffer), count);
}
BOOL WriteFile(HANDLE file, const void*, DWORD, DWORD* count, OVERLAPPED*)
{
    const bool good = works(__func__);
    const AllocationFaultPause pause;
    const long result = good ? next(script.writes, 1) : Script::failed;
    script.begun[file] = {nullptr, result};
    return passOn(result, nullptr, count);
}
BOOL GetOverlappedResult(HANDLE file, OVERLAPPED*, DWORD* count, BOOL waits)
{
    EXPECT_EQ(waits == 0, script.anyTimeout); // only the runner waits here
    auto& [target, result] = script.begun[file];
    if (result == Script::pending)
        result = target != nullptr ? next(script.reads, Script::broken) : next(script.writes, 1);
    if (!works(__func__))
        result = Script::failed;
    return passOn(result, target, count);
}
BOOL CancelIo(HANDLE) { return works(__func__); }
BOOL CreateProcessA(const char*, char*, SECURITY_ATTRIBUTES*, SECURITY_ATTRIBUTES*, BOOL inherits,
                    DWORD flags, void*, const char*, STARTUPINFOA* startup,
                    PROCESS_INFORMATION* information)
{
    return start(__func__, inherits, flags, *startup, information);
}
BOOL CreateProcessAsUserA(HANDLE token, const char*, char*, SECURITY_ATTRIBUTES*,
                          SECURITY_ATTRIBUTES*, BOOL inherits, DWORD flags, void*, const char*,
                          STARTUPINFOA* startup, PROCESS_INFORMATION* information)
{
    return script.open.count(token) > 0 && start(__func__, inherits, flags, *startup, information);
}
BOOL GetExitCodeProcess(HANDLE, DWORD* status)
{
    *status = script.exitStatus;
    return works(__func__);
}
bool endingSignal(HANDLE, int&, bool&) { return false; }
BOOL GetProcessTimes(HANDLE, FILETIME*, FILETIME*, FILETIME* kernel, FILETIME* user)
{
    *kernel = {7, 0};
    *user = {7, 1};
    return works(__func__);
}
BOOL K32GetProcessMemoryInfo(HANDLE, PROCESS_MEMORY_COUNTERS* counters, DWORD)
{
    counters->PeakWorkingSetSize = 4096;
    return works(__func__);
}
BOOL sendSignal(HANDLE process, int signal)
{
    EXPECT_EQ(process, script.process);
    return works("Stop", signal);
}
void killGroupAtEnd(HANDLE) { script.killsGroup = true; }
HANDLE openDescriptor(int) { return give(__func__, INVALID_HANDLE_VALUE); }
BOOL SetEvent(HANDLE) { return true; }
BOOL ResetEvent(HANDLE) { return true; }
char* GetEnvironmentStringsA() { return newBlock(__func__); }
char* accountEnvironment(HANDLE) { return newBlock(__func__); }
BOOL FreeEnvironmentStringsA(char* block) { return LocalFree(block) == nullptr; }
BOOL GenerateConsoleCtrlEvent(DWORD event, DWORD id) { return id == child && works("Stop", event); }
BOOL TerminateProcess(HANDLE, UINT status)
{
    script.childRuns = false; // to the runner it has ended
    return works("Stop", status);
}
DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds)
{
    EXPECT_TRUE(milliseconds == 0 || milliseconds == 10000 || script.anyTimeout);
    return waited(__func__, &handle, 1, milliseconds,
                  milliseconds == 0 ? script.test : next(script.endWaits, WAIT_OBJECT_0));
}
DWORD WaitForMultipleObjectsEx(DWORD count, const HANDLE* handles, BOOL waitsForAll,
                               DWORD milliseconds, BOOL)
{
    EXPECT_FALSE(waitsForAll);
    if (milliseconds == 0) // only a look whether anything has happened
        return works(__func__) ? WAIT_TIMEOUT : WAIT_FAILED;
    EXPECT_TRUE(milliseconds == 7000 || script.anyTimeout);
    // Short waits are for limits that the script lets pass. One may have passed before its wait.
    Details& results = script.readWaits;
    if (script.anyTimeout && milliseconds >= 100)
        results.erase(std::remove(results.begin(), results.end(), long{WAIT_TIMEOUT}),
                      results.end());
    const long woken = next(results, count > 1 ? 1 : 0);
    if (woken == WAIT_TIMEOUT && script.anyTimeout)
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    return waited(__func__, handles, count, milliseconds, woken);
}
BOOL GetVersionExW(OSVERSIONINFOW* information)
{
    *information = {0, 0, 0, 1057, VER_PLATFORM_WIN32_NT, {}}; // the oldest supported build
    return works(__func__);
}
BOOL LogonUserA(const char*, const char*, const char*, DWORD type, DWORD, HANDLE* token)
{
    const bool permitted = type != LOGON32_LOGON_BATCH || script.entitled;
    const HANDLE given = permitted ? give(__func__) : nullptr;
    *token = given != nullptr ? given : *token; // not every system sets it to null
    return given != nullptr;
}
BOOL GetTokenInformation(HANDLE, TOKEN_INFORMATION_CLASS, void* buffer, DWORD, DWORD*)
{
    static_cast<TOKEN_USER*>(buffer)->User.Sid = buffer;
    return works(__func__);
}
NTSTATUS LsaOpenPolicy(LSA_UNICODE_STRING*, LSA_OBJECT_ATTRIBUTES*, DWORD access,
                       LSA_HANDLE* policy)
{
    EXPECT_EQ(access, POLICY_CREATE_ACCOUNT | POLICY_LOOKUP_NAMES);
    *policy = give(__func__, *policy);
    return *policy == INVALID_HANDLE_VALUE ? 1 : 0;
}
NTSTATUS LsaEnumerateAccountRights(LSA_HANDLE policy, PSID, LSA_UNICODE_STRING** rights,
                                   DWORD* count)
{
    static wchar_t names[2][20] = {L"SeOtherRight", L"SeBatchLogonRight"};
    static LSA_UNICODE_STRING list[2] = {{48, 52, names[0]}, {68, 72, names[1]}};
    if (!works(__func__) || script.open.count(policy) == 0)
        return 1;
    script.open.insert(*rights = list);
    *count = script.entitled ? 2 : 1;
    return 0;
}
NTSTATUS LsaAddAccountRights(LSA_HANDLE policy, PSID, LSA_UNICODE_STRING* right, DWORD)
{
    return changeRight(__func__, policy, *right, true);
}
NTSTATUS LsaRemoveAccountRights(LSA_HANDLE policy, PSID, BOOLEAN all, LSA_UNICODE_STRING* right,
                                DWORD)
{
    EXPECT_FALSE(all);
    return changeRight(__func__, policy, *right, false);
}
NTSTATUS LsaFreeMemory(void* memory) { return takeBack(memory) ? 0 : 1; }
NTSTATUS LsaClose(LSA_HANDLE policy) { return CloseHandle(policy) ? 0 : 1; }
DWORD LsaNtStatusToWinError(NTSTATUS status) { return static_cast<DWORD>(status); }
void GetSystemTime(SYSTEMTIME* time) { time->wMilliseconds = script.looks++; }
BOOL SystemTimeToFileTime(const SYSTEMTIME* time, FILETIME* ticks)
{
    const DWORD elapsed = std::min(time->wMilliseconds * 300U, 601U); // the limit is 600
    *ticks = {elapsed - 1, elapsed > 0 ? 1U : 0U};
    return true;
}
void setRightsFile(const char*) {}
void setUserStartLimit(DWORD milliseconds) { works(__func__, milliseconds); }
void Sleep(DWORD milliseconds) { works(__func__, milliseconds); }

} // namespace tarnix_platform
