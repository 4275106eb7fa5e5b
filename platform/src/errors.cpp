// SPDX-License-Identifier: LicenseRef-Tarnix
// The last error of each thread and its text.
#include "errors.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>

namespace tarnix_platform
{

namespace
{

// Trivial types only: no destructor has to run when a thread ends.
struct LastError {
    DWORD code;
    char about[256];
};

thread_local LastError t_lastError;

const char* systemText(DWORD error)
{
    switch (error) {
    case ERROR_IO_PENDING:
        return "Read is pending";
    case ERROR_BROKEN_PIPE:
        return "End of file on pipe";
    default:
        return ::strerrordesc_np(static_cast<int>(error));
    }
}

// An error text may contain names of programs and directories, which can be any bytes: a byte that
// is not valid in the locale becomes a question mark.
std::wstring widen(const std::string& text)
{
    std::wstring wide;
    std::mbstate_t state{};
    const char* at = text.data();
    std::size_t left = text.size();
    while (left > 0) {
        wchar_t unit{};
        std::size_t used = std::mbrtowc(&unit, at, left, &state);
        if (used > left) {
            unit = L'?';
            used = 1;
            state = std::mbstate_t{};
        }
        wide.push_back(unit);
        at += used;
        left -= used;
    }
    return wide;
}

} // namespace

bool fail(DWORD error)
{
    t_lastError.code = error;
    t_lastError.about[0] = '\0';
    return false;
}

bool fail(int error)
{
    return fail(static_cast<DWORD>(error));
}

bool fail(int error, const std::string& about)
{
    t_lastError.code = static_cast<DWORD>(error);
    std::snprintf(t_lastError.about, sizeof t_lastError.about, "%s", about.c_str());
    return false;
}

const char* lastErrorAbout()
{
    return t_lastError.about;
}

DWORD GetLastError()
{
    return t_lastError.code;
}

void SetLastError(DWORD error)
{
    fail(error);
}

DWORD FormatMessageW(DWORD flags, const void* /*source*/, DWORD error, DWORD /*language*/,
                     wchar_t* buffer, DWORD /*size*/, std::va_list* /*arguments*/)
{
    constexpr DWORD required = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM;
    const char* known = systemText(error);
    if ((flags & required) != required || buffer == nullptr || known == nullptr) {
        fail(EINVAL);
        return 0;
    }
    std::string text;
    if (error == t_lastError.code && t_lastError.about[0] != '\0') {
        text.append(t_lastError.about).append(": ");
    }
    const std::wstring wide = widen(text.append(known));
    wchar_t* const copy = ::wcsdup(wide.c_str()); // LocalFree frees it
    if (copy == nullptr) {
        fail(ENOMEM);
        return 0;
    }
    std::memcpy(buffer, &copy, sizeof copy);
    return static_cast<DWORD>(wide.size());
}

HLOCAL LocalFree(HLOCAL memory)
{
    std::free(memory);
    return nullptr;
}

} // namespace tarnix_platform
