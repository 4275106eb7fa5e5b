// SPDX-License-Identifier: LicenseRef-Tarnix
// The operations on pipes, reads and events.
#include "openfile.h"
#include "pipeend.h"
#include "polling.h"
#include "wakeup.h"

#include <cstring>
#include <string_view>

namespace tarnix_platform
{

namespace
{

HANDLE openEnd(const std::shared_ptr<PipeEnd>& end)
{
    const HANDLE handle = end ? openHandle(end) : nullptr;
    return handle == nullptr ? INVALID_HANDLE_VALUE : handle;
}

// Completes the pending read of the pipe, if there is one, and returns 0. With `wait` false it may
// stay pending: then the result is ERROR_IO_PENDING. If the system refuses the wait, the read is
// cancelled, because the caller then gives up its buffer; the result is the error.
DWORD awaitRead(Pipe& pipe, bool wait)
{
    while (!pipe.complete(true)) {
        if (!wait) {
            return ERROR_IO_PENDING;
        }
        if (!awaitDescriptor(pipe.readFd(), INFINITE)) {
            const int error = errno;
            pipe.cancel();
            return static_cast<DWORD>(error);
        }
    }
    return 0;
}

// The same for a write. Only waits continue a write, so that this does not have to wait itself.
DWORD awaitWrite(Pipe& pipe, bool wait)
{
    pipe.completeWrite();
    if (!pipe.writePending()) {
        return 0;
    }
    return wait ? ENOTSUP : ERROR_IO_PENDING;
}

} // namespace

HANDLE CreateEventA(SECURITY_ATTRIBUTES* /*attributes*/, BOOL manualReset, BOOL initialState,
                    const char* /*name*/)
{
    if (initialState) {
        fail(ENOTSUP);
        return nullptr;
    }
    return manualReset ? openWakeup() : openHandle(std::make_shared<Event>());
}

HANDLE CreateNamedPipeA(const char* name, DWORD openMode, DWORD /*pipeMode*/, DWORD maxInstances,
                        DWORD /*outSize*/, DWORD /*inSize*/, DWORD /*defaultTimeout*/,
                        SECURITY_ATTRIBUTES* /*attributes*/)
{
    constexpr std::string_view prefix = R"(\\.\pipe\)";
    if (name == nullptr || std::string_view(name).substr(0, prefix.size()) != prefix ||
        (openMode & PIPE_ACCESS_DUPLEX) == 0) {
        fail(EINVAL);
        return INVALID_HANDLE_VALUE;
    }
    return openEnd(createPipe(name, maxInstances));
}

HANDLE CreateFileA(const char* name, DWORD access, DWORD /*share*/,
                   SECURITY_ATTRIBUTES* /*attributes*/, DWORD disposition, DWORD /*flags*/,
                   HANDLE /*templateFile*/)
{
    const bool isNull = name != nullptr && std::strcmp(name, "NUL") == 0;
    if (name == nullptr || disposition != OPEN_EXISTING ||
        (access != GENERIC_READ && !(isNull && access == GENERIC_WRITE))) {
        fail(EINVAL);
        return INVALID_HANDLE_VALUE;
    }
    return isNull ? openNullDevice() : openEnd(connectPipe(name));
}

BOOL ReadFile(HANDLE file, void* buffer, DWORD size, DWORD* count, OVERLAPPED* overlapped)
{
    if (overlapped == nullptr) {
        return fail(EINVAL);
    }
    if (buffer == nullptr || size == 0 || count == nullptr) {
        return refuseRead(*overlapped, EINVAL);
    }
    const std::shared_ptr<PipeEnd> end = find<PipeEnd>(file);
    if (!end || end->side() != Side::client) {
        return refuseRead(*overlapped, EBADF);
    }
    const BOOL result = end->pipe()->read(end, buffer, size, count, overlapped);
    setAhead(file, end->pipe()->ahead());
    return result;
}

BOOL WriteFile(HANDLE file, const void* buffer, DWORD size, DWORD* count, OVERLAPPED* overlapped)
{
    if (overlapped == nullptr) {
        return fail(EINVAL);
    }
    if (buffer == nullptr || size == 0 || count == nullptr) {
        return refuseRead(*overlapped, EINVAL);
    }
    const std::shared_ptr<PipeEnd> end = find<PipeEnd>(file);
    if (!end || end->side() != Side::server) {
        return refuseRead(*overlapped, EBADF);
    }
    return end->pipe()->write(end, buffer, size, count, overlapped);
}

BOOL GetOverlappedResult(HANDLE file, OVERLAPPED* overlapped, DWORD* count, BOOL wait)
{
    if (overlapped->Internal == ERROR_IO_PENDING) {
        const std::shared_ptr<PipeEnd> end = find<PipeEnd>(file);
        if (!end) {
            overlapped->Internal = ECANCELED; // CloseHandle has cancelled it
            overlapped->Pending = 0;
            return fail(ECANCELED);
        }
        const bool isWrite = end->side() == Side::server;
        const DWORD error =
            isWrite ? awaitWrite(*end->pipe(), wait != 0) : awaitRead(*end->pipe(), wait != 0);
        if (error == ERROR_IO_PENDING) {
            return fail(error);
        }
        isWrite ? end->pipe()->writeOutcome(*overlapped) : end->pipe()->outcome(*overlapped);
        overlapped->Internal = error != 0 ? error : overlapped->Internal;
    }
    *count = static_cast<DWORD>(overlapped->InternalHigh);
    return overlapped->Internal == 0 ? true : fail(static_cast<DWORD>(overlapped->Internal));
}

BOOL CancelIo(HANDLE file)
{
    const std::shared_ptr<PipeEnd> end = find<PipeEnd>(file);
    if (!end) {
        return false;
    }
    end->side() == Side::server ? end->pipe()->cancelWrite() : end->pipe()->cancel();
    return true;
}

} // namespace tarnix_platform
