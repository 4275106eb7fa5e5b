// See scripted_platform.h. Handles are numbers; nothing of the system is touched. What can run out
// of memory in the real platform allocates here too, once, before anything has changed.
#include "scripted_platform.h"

#include "refusal.h"

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <gtest/gtest.h>
#include <sstream>

Script script;
tarnix_platform::FastSlot tarnix_platform::g_fastSlots[tarnix_platform::maxHandles];

std::vector<std::string> Script::logged(const std::string& start) const
{
    std::vector<std::string> found;
    std::copy_if(log.begin(), log.end(), std::back_inserter(found),
                 [&start](const std::string& entry) { return entry.rfind(start, 0) == 0; });
    return found;
}

namespace
{

constexpr DWORD error = 13;

// Takes note of a call, and tells whether it succeeds.
template <class... Details>
bool does(const char* operation, const Details&... details)
{
    const Calm calm;
    std::ostringstream entry;
    entry << operation;
    ((entry << ' ' << details), ...);
    script.log.push_back(entry.str());
    const int call = ++script.calls[operation];
    const bool fails = script.operation == operation &&
                       (call == script.call || (call > script.call && script.onwards));
    script.lastError = fails ? error : script.lastError;
    return !fails;
}

HANDLE give(HANDLE onFailure, bool good)
{
    static std::uintptr_t next = 100;
    return good ? *script.open.insert(reinterpret_cast<HANDLE>(next += 4)).first : onFailure;
}

bool takeBack(void* what)
{
    const bool wasOpen = script.open.erase(what) > 0;
    EXPECT_TRUE(wasOpen) << "closed twice, or never opened";
    return wasOpen;
}

template <class Value>
Value next(std::deque<Value>& values, Value otherwise)
{
    if (!values.empty()) {
        otherwise = values.front();
        values.pop_front();
    }
    return otherwise;
}

BOOL start(const char* how, const char* command, DWORD flags, const char* directory,
           PROCESS_INFORMATION* information)
{
    if (!does(how, command, "in", directory ? directory : "null", "flags", flags))
        return false;
    const HANDLE process = give(nullptr, true);
    const Calm calm;
    *information = {process, give(nullptr, true), 4711, 4711};
    script.childRuns = true;
    return true;
}

DWORD waited(DWORD woken)
{
    script.childRuns = script.childRuns && woken != WAIT_OBJECT_0;
    return woken;
}

NTSTATUS changeRight(const char* how, LSA_HANDLE policy, PSID account, BOOL all,
                     const LSA_UNICODE_STRING& right, bool entitled)
{
    const bool good = does(how, static_cast<char*>(account)) && script.open.count(policy) > 0;
    const std::string name(right.Buffer, right.Buffer + right.Length / sizeof(wchar_t));
    EXPECT_TRUE(name == "SeBatchLogonRight" && !all);
    EXPECT_EQ(right.MaximumLength, right.Length + sizeof(wchar_t));
    script.entitled = good ? entitled : script.entitled;
    return good ? 0 : 1;
}

} // namespace

DWORD GetLastError() { return script.lastError; }
void SetLastError(DWORD code) { script.lastError = code; }
DWORD FormatMessageW(DWORD, const void*, DWORD code, DWORD, wchar_t* buffer, DWORD, void*)
{
    static wchar_t text[40];
    if (!does("FormatMessageW"))
        return 0;
    std::swprintf(text, std::size(text), L"scripted error %u", code);
    *reinterpret_cast<void**>(buffer) = *script.open.insert(text).first;
    return 1;
}
HLOCAL LocalFree(HLOCAL memory)
{
    if (memory)
        takeBack(memory);
    return nullptr;
}
BOOL CloseHandle(HANDLE handle) { return takeBack(handle) && does("CloseHandle"); }
BOOL DuplicateHandle(HANDLE, HANDLE, HANDLE, HANDLE* target, DWORD access, BOOL inherit,
                     DWORD options)
{
    const bool good = does("DuplicateHandle", access, inherit ? "inherited" : "own", options);
    *target = give(*target, good);
    return good;
}
HANDLE GetCurrentProcess() { return INVALID_HANDLE_VALUE; }
HANDLE CreateEventA(SECURITY_ATTRIBUTES*, BOOL manual, BOOL set, const char* name)
{
    return give(nullptr, does("CreateEventA", manual, set, name));
}
HANDLE CreateNamedPipeA(const char* name, DWORD open, DWORD mode, DWORD instances, DWORD out,
                        DWORD in, DWORD timeout, SECURITY_ATTRIBUTES* attributes)
{
    return give(INVALID_HANDLE_VALUE,
                does("CreateNamedPipeA", open, mode, instances, out + in, timeout,
                     attributes->bInheritHandle ? "inherited" : "own", name));
}
HANDLE CreateFileA(const char* name, DWORD access, DWORD share, SECURITY_ATTRIBUTES*,
                   DWORD disposition, DWORD flags, HANDLE)
{
    return give(INVALID_HANDLE_VALUE, does("CreateFileA", access, share, disposition, flags, name));
}
BOOL tarnix_platform::readFile(HANDLE, void* buffer, DWORD, DWORD* count, OVERLAPPED* overlapped)
{
    const int what = does("ReadFile") ? next<int>(script.reads, Script::broken) : Script::failed;
    overlapped->Internal = ERROR_IO_PENDING; // so that the outcome is asked for
    script.target = static_cast<char*>(buffer);
    script.what = what;
    script.lastError = what == Script::pending  ? ERROR_IO_PENDING
                       : what == Script::broken ? ERROR_BROKEN_PIPE
                                                : error;
    *count = 1;
    return what < Script::pending;
}
BOOL tarnix_platform::overlappedResult(HANDLE, OVERLAPPED*, DWORD* count, BOOL)
{
    int what = script.what;
    if (what == Script::pending)
        what = next<int>(script.reads, Script::broken);
    if (!does("GetOverlappedResult"))
        what = Script::failed;
    script.lastError = what == Script::broken ? ERROR_BROKEN_PIPE : error;
    *script.target = static_cast<char>(what);
    *count = what < Script::pending ? 1 : 0;
    return what < Script::pending || what == Script::empty;
}
BOOL CancelIo(HANDLE) { return does("CancelIo"); }
BOOL CreateProcessA(const char*, char* command, SECURITY_ATTRIBUTES*, SECURITY_ATTRIBUTES*, BOOL,
                    DWORD flags, void*, const char* directory, STARTUPINFOA*,
                    PROCESS_INFORMATION* information)
{
    return start("CreateProcessA", command, flags, directory, information);
}
BOOL CreateProcessAsUserA(HANDLE token, const char*, char* command, SECURITY_ATTRIBUTES*,
                          SECURITY_ATTRIBUTES*, BOOL, DWORD flags, void*, const char* directory,
                          STARTUPINFOA*, PROCESS_INFORMATION* information)
{
    EXPECT_TRUE(token == nullptr || script.open.count(token) == 1) << "a closed token";
    return token && start("CreateProcessAsUserA", command, flags, directory, information);
}
BOOL GetExitCodeProcess(HANDLE, DWORD* status)
{
    *status = script.exitStatus;
    return does("GetExitCodeProcess");
}
BOOL GenerateConsoleCtrlEvent(DWORD event, DWORD id) { return does("Stop", "event", event, id); }
BOOL TerminateProcess(HANDLE, UINT status)
{
    const bool good = does("Stop", "kill", status);
    script.childRuns = script.childRuns && !good;
    return good;
}
DWORD WaitForSingleObject(HANDLE, DWORD milliseconds)
{
    if (!does("WaitForSingleObject", milliseconds))
        return WAIT_FAILED;
    return waited(milliseconds > 0     ? next<DWORD>(script.singleWaits, WAIT_OBJECT_0)
                  : script.endedAtOnce ? WAIT_OBJECT_0
                                       : WAIT_TIMEOUT);
}
DWORD WaitForMultipleObjectsEx(DWORD, const HANDLE*, BOOL, DWORD milliseconds, BOOL)
{
    return does("WaitForMultipleObjectsEx", milliseconds)
               ? waited(next<DWORD>(script.multipleWaits, WAIT_OBJECT_0 + 1))
               : WAIT_FAILED;
}

BOOL GetVersionExW(OSVERSIONINFOW* information)
{
    information->dwPlatformId = VER_PLATFORM_WIN32_NT;
    information->dwBuildNumber = script.build;
    return does("GetVersionExW");
}
BOOL LogonUserA(const char* user, const char* domain, const char*, DWORD type, DWORD, HANDLE* token)
{
    const bool permitted = std::strcmp(domain, ".") == 0 && std::strcmp(user, "nobody") != 0 &&
                           (type != LOGON32_LOGON_BATCH || script.entitled);
    *token = give(nullptr, does("LogonUserA") && permitted);
    return *token != nullptr;
}
BOOL GetTokenInformation(HANDLE, TOKEN_INFORMATION_CLASS, void* buffer, DWORD, DWORD*)
{
    char* sid = static_cast<char*>(buffer) + sizeof(TOKEN_USER);
    static_cast<TOKEN_USER*>(buffer)->User.Sid = std::strcpy(sid, "sid");
    return does("GetTokenInformation");
}
NTSTATUS LsaOpenPolicy(LSA_UNICODE_STRING*, LSA_OBJECT_ATTRIBUTES*, DWORD access,
                       LSA_HANDLE* policy)
{
    *policy = give(*policy, does("LsaOpenPolicy", access));
    return *policy == INVALID_HANDLE_VALUE ? 1 : 0;
}
NTSTATUS LsaEnumerateAccountRights(LSA_HANDLE policy, PSID, LSA_UNICODE_STRING** rights,
                                   DWORD* count)
{
    static wchar_t names[2][20] = {L"SeOtherRight", L"SeBatchLogonRight"};
    static LSA_UNICODE_STRING list[2] = {{48, 52, names[0]}, {68, 72, names[1]}};
    if (!does("LsaEnumerateAccountRights") || script.open.count(policy) == 0)
        return 1;
    script.open.insert(*rights = list);
    *count = script.entitled ? 2 : 1;
    return 0;
}
NTSTATUS LsaAddAccountRights(LSA_HANDLE policy, PSID account, LSA_UNICODE_STRING* right, DWORD)
{
    return changeRight("LsaAddAccountRights", policy, account, false, *right, true);
}
NTSTATUS LsaRemoveAccountRights(LSA_HANDLE policy, PSID account, BOOL all,
                                LSA_UNICODE_STRING* right, DWORD)
{
    return changeRight("LsaRemoveAccountRights", policy, account, all, *right, false);
}
NTSTATUS LsaFreeMemory(void* memory) { return takeBack(memory) ? 0 : 1; }
NTSTATUS LsaClose(LSA_HANDLE policy) { return CloseHandle(policy) ? 0 : 1; }
DWORD LsaNtStatusToWinError(NTSTATUS status) { return static_cast<DWORD>(status); }
void GetSystemTime(SYSTEMTIME* time)
{
    static WORD ticks = 0;
    *time = SYSTEMTIME{};
    time->wMilliseconds = ++ticks;
}
BOOL SystemTimeToFileTime(const SYSTEMTIME* time, FILETIME* ticks)
{
    *ticks = FILETIME{time->wMilliseconds * 100U, 0}; // 10 microseconds a look
    return true;
}
void Sleep(DWORD milliseconds) { does("Sleep", milliseconds); }
