// See scripted_platform.h. Handles are numbers; nothing of the system is touched.
#include "scripted_platform.h"

#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <gtest/gtest.h>
#include <stdexcept>

Script script;
tarnix_platform::FastSlot tarnix_platform::g_fastSlots[tarnix_platform::maxHandles];

std::vector<std::string> Script::logged(const std::string& start) const
{
    std::vector<std::string> found;
    for (const std::string& entry : log) {
        if (entry.find(start) == 0) {
            found.push_back(entry);
        }
    }
    return found;
}

namespace
{

// Takes note of a call, and tells whether it succeeds.
bool does(const std::string& operation, const std::string& details = "")
{
    script.log.push_back(operation + (details.empty() ? "" : " ") + details);
    const auto found = script.failCall.find(operation);
    if (++script.calls[operation] != (found == script.failCall.end() ? 0 : found->second)) {
        return true;
    }
    script.lastError = script.error;
    return false;
}

HANDLE give(HANDLE onFailure, bool good)
{
    static std::uintptr_t next = 100;
    if (!good) {
        return onFailure;
    }
    const HANDLE handle = reinterpret_cast<HANDLE>(next += 4);
    script.open.insert(handle);
    return handle;
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

std::string text(DWORD number) { return std::to_string(number); }

BOOL start(const char* how, const std::string& command, DWORD flags, const char* directory,
           PROCESS_INFORMATION* information)
{
    script.log.push_back(how + (" " + command) + " in " + (directory ? directory : "null") +
                         " flags " + text(flags));
    if (script.startThrows) {
        throw std::runtime_error("scripted");
    }
    if (!does("Start")) {
        return false;
    }
    *information = {give(nullptr, true), give(nullptr, true), 4711, 4711};
    return true;
}

} // namespace

DWORD GetLastError() { return script.lastError; }
void SetLastError(DWORD error) { script.lastError = error; }
DWORD FormatMessageW(DWORD, const void*, DWORD error, DWORD, wchar_t* buffer, DWORD, void*)
{
    if (!does("FormatMessageW")) {
        return 0;
    }
    *reinterpret_cast<wchar_t**>(buffer) =
        wcsdup((L"scripted error " + std::to_wstring(error)).c_str());
    return 1;
}
HLOCAL LocalFree(HLOCAL memory)
{
    std::free(memory);
    return nullptr;
}
BOOL CloseHandle(HANDLE handle)
{
    const bool wasOpen = script.open.erase(handle) > 0;
    script.wrongCloses += wasOpen ? 0 : 1;
    return wasOpen && does("CloseHandle");
}
BOOL DuplicateHandle(HANDLE, HANDLE, HANDLE, HANDLE* target, DWORD access, BOOL inherit,
                     DWORD options)
{
    const bool good =
        does("DuplicateHandle", text(access) + (inherit ? " inherited " : " own ") + text(options));
    *target = give(*target, good);
    return good;
}
HANDLE GetCurrentProcess() { return INVALID_HANDLE_VALUE; }
HANDLE CreateEventA(SECURITY_ATTRIBUTES*, BOOL manual, BOOL set, const char* name)
{
    EXPECT_FALSE(manual || set);
    return give(nullptr, does("CreateEventA", name));
}
HANDLE CreateNamedPipeA(const char* name, DWORD open, DWORD mode, DWORD instances, DWORD out,
                        DWORD in, DWORD timeout, SECURITY_ATTRIBUTES* attributes)
{
    EXPECT_TRUE(attributes->bInheritHandle && attributes->lpSecurityDescriptor == nullptr);
    return give(INVALID_HANDLE_VALUE,
                does("CreateNamedPipeA", text(open) + " " + text(mode) + " " + text(instances) +
                                             " " + text(out + in) + " " + text(timeout) + " " +
                                             name));
}
HANDLE CreateFileA(const char* name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* attributes,
                   DWORD disposition, DWORD flags, HANDLE)
{
    EXPECT_EQ(attributes, nullptr);
    return give(INVALID_HANDLE_VALUE,
                does("CreateFileA", text(access) + " " + text(share) + " " + text(disposition) +
                                        " " + text(flags) + " " + name));
}
BOOL tarnix_platform::readFile(HANDLE, void* buffer, DWORD, DWORD* count, OVERLAPPED* overlapped)
{
    const int what = next<int>(script.reads, Script::broken);
    overlapped->Internal = ERROR_IO_PENDING;
    overlapped->Offset = static_cast<DWORD>(what); // for the result
    script.lastError = what == Script::pending  ? ERROR_IO_PENDING
                       : what == Script::broken ? ERROR_BROKEN_PIPE
                                                : script.error;
    *static_cast<char*>(buffer) = static_cast<char>(what);
    *count = 1;
    return what < Script::pending || what > Script::readError;
}
BOOL tarnix_platform::overlappedResult(HANDLE, OVERLAPPED* overlapped, DWORD* count, BOOL)
{
    const DWORD what = overlapped->Offset;
    script.lastError = what == Script::resultBroken ? ERROR_BROKEN_PIPE : script.error;
    *count = what < Script::pending ? 1 : 0;
    return what < Script::pending || what == Script::emptyResult;
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
    script.lastError = script.error;
    EXPECT_TRUE(token == nullptr || script.open.count(token) == 1) << "a closed token";
    return token != nullptr &&
           start("CreateProcessAsUserA", command, flags, directory, information);
}
BOOL GetExitCodeProcess(HANDLE, DWORD* status)
{
    *status = script.exitStatus;
    return does("GetExitCodeProcess");
}
BOOL GenerateConsoleCtrlEvent(DWORD event, DWORD processId)
{
    return does("Stop", "event " + text(event) + " to " + text(processId));
}
BOOL TerminateProcess(HANDLE, UINT status) { return does("Stop", "kill " + text(status)); }
DWORD WaitForSingleObject(HANDLE, DWORD milliseconds)
{
    if (milliseconds == 0) {
        return script.endedAtOnce ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
    }
    does("WaitForSingleObject", text(milliseconds));
    return next<DWORD>(script.singleWaits, WAIT_OBJECT_0);
}
DWORD WaitForMultipleObjectsEx(DWORD, const HANDLE*, BOOL, DWORD milliseconds, BOOL)
{
    does("WaitForMultipleObjectsEx", text(milliseconds));
    return next<DWORD>(script.multipleWaits, WAIT_OBJECT_0 + 1);
}

BOOL GetVersionExW(OSVERSIONINFOW* information)
{
    information->dwPlatformId = VER_PLATFORM_WIN32_NT;
    information->dwBuildNumber = script.build;
    return does("GetVersionExW");
}
BOOL LogonUserA(const char*, const char* domain, const char*, DWORD type, DWORD, HANDLE* token)
{
    EXPECT_STREQ(domain, ".");
    const bool entitled = type != LOGON32_LOGON_BATCH || script.rights.count("SeBatchLogonRight");
    *token = give(nullptr, does("LogonUserA") && entitled);
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
    *policy = give(*policy, does("LsaOpenPolicy", text(access)));
    return *policy == INVALID_HANDLE_VALUE ? 1 : 0;
}
NTSTATUS LsaEnumerateAccountRights(LSA_HANDLE, PSID, LSA_UNICODE_STRING** rights, DWORD* count)
{
    static wchar_t names[2][20] = {L"SeOtherRight", L"SeBatchLogonRight"};
    static LSA_UNICODE_STRING list[2] = {{48, 52, names[0]}, {68, 72, names[1]}};
    *rights = list;
    *count = script.rights.count("SeBatchLogonRight") > 0 ? 2 : 1;
    return does("LsaEnumerateAccountRights") ? 0 : 1;
}
NTSTATUS LsaAddAccountRights(LSA_HANDLE, PSID account, LSA_UNICODE_STRING* right, DWORD)
{
    EXPECT_EQ(right->MaximumLength, right->Length + sizeof(wchar_t));
    if (!does("LsaAddAccountRights", static_cast<char*>(account))) {
        return 1;
    }
    script.rights.insert(std::string(right->Buffer, right->Buffer + right->Length / 4));
    return 0;
}
NTSTATUS LsaRemoveAccountRights(LSA_HANDLE, PSID account, BOOL all, LSA_UNICODE_STRING* right,
                                DWORD)
{
    EXPECT_FALSE(all);
    script.rights.erase(std::string(right->Buffer, right->Buffer + right->Length / 4));
    return does("LsaRemoveAccountRights", static_cast<char*>(account)) ? 0 : 1;
}
NTSTATUS LsaFreeMemory(void*) { return 0; }
NTSTATUS LsaClose(LSA_HANDLE policy) { return CloseHandle(policy) ? 0 : 1; }
DWORD LsaNtStatusToWinError(NTSTATUS status) { return static_cast<DWORD>(status); }
void GetSystemTime(SYSTEMTIME* time)
{
    *time = SYSTEMTIME{};
    time->wMilliseconds = static_cast<WORD>(++script.calls["GetSystemTime"]);
}
BOOL SystemTimeToFileTime(const SYSTEMTIME* time, FILETIME* ticks)
{
    *ticks = FILETIME{time->wMilliseconds * 100U, 0}; // 10 microseconds a look
    return true;
}
void Sleep(DWORD milliseconds) { does("Sleep", text(milliseconds)); }
