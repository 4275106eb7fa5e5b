// See scripted_platform.h. Handles are numbers; nothing of the system is touched.
#include "scripted_platform.h"

#include <algorithm>
#include <cstdlib>
#include <cwchar>
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

BOOL CreateProcessA(const char*, char* command, SECURITY_ATTRIBUTES*, SECURITY_ATTRIBUTES*, BOOL,
                    DWORD flags, void*, const char* directory, STARTUPINFOA*,
                    PROCESS_INFORMATION* information)
{
    script.log.push_back(std::string("CreateProcessA ") + command + " in " +
                         (directory == nullptr ? "null" : directory) + " flags " +
                         std::to_string(flags));
    if (script.startThrows) {
        throw std::runtime_error("scripted");
    }
    if (script.fails("CreateProcessA")) {
        return false;
    }
    *information = PROCESS_INFORMATION{script.give(), script.give(), 4711, 4711};
    return true;
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
