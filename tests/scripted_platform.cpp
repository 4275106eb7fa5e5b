// See scripted_platform.h. Handles are numbers; nothing of the system is touched.
#include "scripted_platform.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <gtest/gtest.h>
#include <stdexcept>

Script script;

bool Script::fails(const std::string& operation)
{
    const int call = ++calls[operation];
    const auto found = failCall.find(operation);
    if (found == failCall.end() || found->second != call) {
        return false;
    }
    lastError = error;
    return true;
}

HANDLE Script::give()
{
    const HANDLE handle = reinterpret_cast<HANDLE>(nextHandle += 4);
    open.insert(handle);
    return handle;
}

int Script::count(const std::string& entry) const
{
    return static_cast<int>(std::count(log.begin(), log.end(), entry));
}

tarnix_platform::FastSlot tarnix_platform::g_fastSlots[tarnix_platform::maxHandles];

DWORD GetLastError()
{
    return script.lastError;
}

void SetLastError(DWORD error)
{
    script.lastError = error;
}

DWORD FormatMessageW(DWORD, const void*, DWORD error, DWORD, wchar_t* buffer, DWORD, void*)
{
    if (script.fails("FormatMessageW")) {
        return 0;
    }
    const std::wstring text = L"scripted error " + std::to_wstring(error);
    *reinterpret_cast<wchar_t**>(buffer) = wcsdup(text.c_str());
    return static_cast<DWORD>(text.size());
}

HLOCAL LocalFree(HLOCAL memory)
{
    std::free(memory);
    return nullptr;
}

BOOL CloseHandle(HANDLE handle)
{
    if (script.open.erase(handle) == 0) {
        script.wrongCloses.push_back(std::to_string(reinterpret_cast<std::uintptr_t>(handle)));
        return false;
    }
    return !script.fails("CloseHandle");
}

BOOL DuplicateHandle(HANDLE, HANDLE, HANDLE, HANDLE* target, DWORD, BOOL, DWORD)
{
    if (script.fails("DuplicateHandle")) {
        return false;
    }
    *target = script.give();
    return true;
}

HANDLE GetCurrentProcess()
{
    return INVALID_HANDLE_VALUE;
}

HANDLE CreateEventA(SECURITY_ATTRIBUTES*, BOOL, BOOL, const char* name)
{
    script.log.push_back(std::string("CreateEventA ") + name);
    return script.give();
}

HANDLE CreateNamedPipeA(const char* name, DWORD, DWORD, DWORD, DWORD, DWORD, DWORD,
                        SECURITY_ATTRIBUTES*)
{
    script.log.push_back(std::string("CreateNamedPipeA ") + name);
    return script.fails("CreateNamedPipeA") ? INVALID_HANDLE_VALUE : script.give();
}

HANDLE CreateFileA(const char*, DWORD, DWORD, SECURITY_ATTRIBUTES*, DWORD, DWORD, HANDLE)
{
    return script.fails("CreateFileA") ? INVALID_HANDLE_VALUE : script.give();
}

BOOL tarnix_platform::readFile(HANDLE, void* buffer, DWORD, DWORD* count, OVERLAPPED* overlapped)
{
    const int next = script.reads.empty() ? Script::broken : script.reads.front();
    if (!script.reads.empty()) {
        script.reads.pop_front();
    }
    overlapped->Internal = ERROR_IO_PENDING;
    overlapped->Offset = static_cast<DWORD>(next); // for the result
    if (next == Script::pending) {
        script.lastError = ERROR_IO_PENDING;
        return false;
    }
    if (next == Script::broken || next == Script::readError) {
        script.lastError = next == Script::broken ? ERROR_BROKEN_PIPE : script.error;
        return false;
    }
    *static_cast<char*>(buffer) = static_cast<char>(next);
    *count = 1;
    return true;
}

BOOL tarnix_platform::overlappedResult(HANDLE, OVERLAPPED* overlapped, DWORD* count, BOOL)
{
    script.lastError =
        overlapped->Offset == Script::resultBroken ? ERROR_BROKEN_PIPE : script.error;
    *count = overlapped->Offset < 256 ? 1 : 0;
    return overlapped->Offset < 256 || overlapped->Offset == Script::emptyResult;
}

BOOL CancelIo(HANDLE)
{
    script.log.emplace_back("CancelIo");
    return true;
}

static BOOL start(const std::string& how, const char* command, DWORD flags, const char* directory,
                  PROCESS_INFORMATION* information)
{
    script.log.push_back(how + " " + command + " in " +
                         (directory == nullptr ? "null" : directory) + " flags " +
                         std::to_string(flags));
    if (script.startThrows) {
        throw std::runtime_error("scripted");
    }
    if (script.fails("CreateProcess")) {
        return false;
    }
    *information = PROCESS_INFORMATION{script.give(), script.give(), 4711, 4711};
    return true;
}

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
    if (token == nullptr) {
        script.lastError = script.error;
        return false;
    }
    EXPECT_EQ(script.open.count(token), 1U) << "a token that is closed already";
    return start("CreateProcessAsUserA", command, flags, directory, information);
}

BOOL GetVersionExW(OSVERSIONINFOW* information)
{
    information->dwPlatformId = VER_PLATFORM_WIN32_NT;
    information->dwBuildNumber = script.build;
    return !script.fails("GetVersionExW");
}

BOOL LogonUserA(const char* user, const char* domain, const char* password, DWORD type, DWORD,
                HANDLE* token)
{
    script.log.push_back(std::string("LogonUserA ") + user + " " + domain + " " + password + " " +
                         std::to_string(type));
    *token = nullptr;
    if (script.fails("LogonUserA") ||
        (type == LOGON32_LOGON_BATCH && script.rights.count("SeBatchLogonRight") == 0)) {
        return false;
    }
    *token = script.give();
    return true;
}

BOOL GetTokenInformation(HANDLE, TOKEN_INFORMATION_CLASS, void* buffer, DWORD size, DWORD* length)
{
    *length = size;
    static_cast<TOKEN_USER*>(buffer)->User.Sid = static_cast<char*>(buffer) + sizeof(TOKEN_USER);
    std::strcpy(static_cast<char*>(buffer) + sizeof(TOKEN_USER), "sid");
    return !script.fails("GetTokenInformation");
}

static std::string nameOf(const LSA_UNICODE_STRING& right)
{
    EXPECT_EQ(right.MaximumLength, right.Length + sizeof(wchar_t));
    return std::string(right.Buffer, right.Buffer + right.Length / sizeof(wchar_t));
}

NTSTATUS LsaOpenPolicy(LSA_UNICODE_STRING*, LSA_OBJECT_ATTRIBUTES*, DWORD access,
                       LSA_HANDLE* policy)
{
    script.log.push_back("LsaOpenPolicy " + std::to_string(access));
    if (script.fails("LsaOpenPolicy")) {
        return 1;
    }
    *policy = script.give();
    return 0;
}

NTSTATUS LsaEnumerateAccountRights(LSA_HANDLE, PSID, LSA_UNICODE_STRING** rights, DWORD* count)
{
    static wchar_t names[2][20] = {L"SeOtherRight", L"SeBatchLogonRight"};
    static LSA_UNICODE_STRING list[2] = {{24 * 2, 26 * 2, names[0]}, {34 * 2, 36 * 2, names[1]}};
    if (script.fails("LsaEnumerateAccountRights")) {
        return 1;
    }
    *rights = list;
    *count = script.rights.count("SeBatchLogonRight") > 0 ? 2 : 1;
    return 0;
}

NTSTATUS LsaAddAccountRights(LSA_HANDLE, PSID account, LSA_UNICODE_STRING* rights, DWORD)
{
    script.log.push_back(std::string("LsaAddAccountRights ") + static_cast<char*>(account));
    if (script.fails("LsaAddAccountRights")) {
        return 1;
    }
    script.rights.insert(nameOf(*rights));
    return 0;
}

NTSTATUS LsaRemoveAccountRights(LSA_HANDLE policy, PSID account, BOOL all,
                                LSA_UNICODE_STRING* rights, DWORD)
{
    EXPECT_EQ(script.open.count(policy), script.calls["LsaOpenPolicy"] == 0 ? 0U : 1U);
    script.log.push_back(std::string("LsaRemoveAccountRights ") + static_cast<char*>(account) +
                         (all ? " all" : ""));
    script.rights.erase(nameOf(*rights));
    return 0;
}

NTSTATUS LsaFreeMemory(void*)
{
    script.log.emplace_back("LsaFreeMemory");
    return 0;
}

NTSTATUS LsaClose(LSA_HANDLE policy)
{
    return CloseHandle(policy) ? 0 : 1;
}

DWORD LsaNtStatusToWinError(NTSTATUS status)
{
    return static_cast<DWORD>(status);
}

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

void Sleep(DWORD milliseconds)
{
    script.log.push_back("Sleep " + std::to_string(milliseconds));
}

BOOL GetExitCodeProcess(HANDLE, DWORD* status)
{
    *status = script.exitStatus;
    return !script.fails("GetExitCodeProcess");
}

BOOL GenerateConsoleCtrlEvent(DWORD event, DWORD processId)
{
    script.log.push_back("GenerateConsoleCtrlEvent " + std::to_string(event) + " " +
                         std::to_string(processId));
    return true;
}

BOOL TerminateProcess(HANDLE, UINT status)
{
    script.log.push_back("TerminateProcess " + std::to_string(status));
    return true;
}

DWORD WaitForSingleObject(HANDLE, DWORD milliseconds)
{
    if (milliseconds == 0) {
        return script.endedAtOnce ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
    }
    script.log.push_back("WaitForSingleObject " + std::to_string(milliseconds));
    if (script.singleWaits.empty()) {
        return WAIT_OBJECT_0;
    }
    const DWORD result = script.singleWaits.front();
    script.singleWaits.pop_front();
    return result;
}

DWORD WaitForMultipleObjectsEx(DWORD, const HANDLE*, BOOL, DWORD milliseconds, BOOL)
{
    script.log.push_back("WaitForMultipleObjectsEx " + std::to_string(milliseconds));
    if (script.multipleWaits.empty()) {
        return WAIT_OBJECT_0 + 1;
    }
    const DWORD result = script.multipleWaits.front();
    script.multipleWaits.pop_front();
    return result;
}
