// The operations of the platform that the command runner is written against, on POSIX.
//
// Names, sizes and results are those of the system that the runner's logic was designed on; each
// comment tells what the operation does here. Every operation may be called from any thread. One
// pipe end is read by one thread at a time: its reads are not serialised.
#ifndef TARNIX_PLATFORM_H
#define TARNIX_PLATFORM_H

// ACE defines some of the names below as macros for 0 where the system lacks them. They must be
// gone for good before the constants are declared, or a later include would turn them into zeros.
#include <ace/Global_Macros.h>
#undef FILE_ATTRIBUTE_NORMAL
#undef FILE_FLAG_OVERLAPPED
#undef FILE_SHARE_READ
#undef GENERIC_READ
#undef MAXIMUM_WAIT_OBJECTS
#undef OPEN_EXISTING
#undef PIPE_READMODE_BYTE
#undef PIPE_TYPE_BYTE
#undef PIPE_WAIT

#include <cstddef>
#include <cstdint>

using BOOL = int;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using UINT = unsigned int;
using ULONG_PTR = std::uintptr_t;
using HANDLE = void*;
using HMODULE = void*;
using HLOCAL = void*;
using LSA_HANDLE = void*;
using PSID = void*;

// A counted text; both lengths are in bytes, the second with the terminator.
struct LSA_UNICODE_STRING {
    std::uint16_t Length;
    std::uint16_t MaximumLength;
    wchar_t* Buffer;
};

// Names no object. It also stands for the current process, see GetCurrentProcess.
static const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(~std::uintptr_t{0});

constexpr DWORD INFINITE = 0xFFFFFFFF;

// ---- Errors ------------------------------------------------------------------------------------

// Errors are errno values, but for these two, which have numbers of their own.
constexpr DWORD ERROR_BROKEN_PIPE = 109; // all writers of a pipe have gone, or its run is over
constexpr DWORD ERROR_IO_PENDING = 997;  // a read goes on

constexpr DWORD FORMAT_MESSAGE_ALLOCATE_BUFFER = 0x100;
constexpr DWORD FORMAT_MESSAGE_IGNORE_INSERTS = 0x200;
constexpr DWORD FORMAT_MESSAGE_FROM_SYSTEM = 0x1000;
constexpr WORD LANG_NEUTRAL = 0;
constexpr WORD SUBLANG_DEFAULT = 1;

constexpr WORD MAKELANGID(WORD primary, WORD sub)
{
    return static_cast<WORD>((sub << 10) | primary);
}

// The error of the calling thread's last operation that failed. Success does not clear it.
DWORD GetLastError();
void SetLastError(DWORD error);

// The system's own text for an error, in English, without a line end. For the calling thread's
// last error the text also names what it was about, in front ("cannot enter directory '/x': No
// such file or directory"). Only the form with the flags ALLOCATE_BUFFER and FROM_SYSTEM exists:
// `buffer` is the address of a wchar_t*, which receives the terminated text; LocalFree frees it.
// Returns the length of the text; 0 on failure, with nothing to free.
DWORD FormatMessageW(DWORD flags, const void* source, DWORD error, DWORD language, wchar_t* buffer,
                     DWORD size, void* arguments);

// Frees what FormatMessageW allocated. Returns null.
HLOCAL LocalFree(HLOCAL memory);

// ---- Handles -----------------------------------------------------------------------------------

constexpr DWORD DUPLICATE_SAME_ACCESS = 2;

struct SECURITY_ATTRIBUTES {
    DWORD nLength;
    void* lpSecurityDescriptor;
    BOOL bInheritHandle;
};

// Closes one handle; the object goes with its last handle. A handle that is closed already or was
// never given out is refused with EBADF, and no other object is touched. Closing a process whose
// child still runs leaves the child running; it is reaped in the course of later operations.
BOOL CloseHandle(HANDLE handle);

// Another handle of the same object. Both processes must be the current one and the options
// DUPLICATE_SAME_ACCESS. Inheritance has no meaning here: a child gets the three handles named at
// its start and no other descriptor.
BOOL DuplicateHandle(HANDLE sourceProcess, HANDLE source, HANDLE targetProcess, HANDLE* target,
                     DWORD access, BOOL inherit, DWORD options);

// The pseudo handle of this process, for DuplicateHandle. It is never closed.
HANDLE GetCurrentProcess();

// A new event, not signalled. Only auto-reset events that start unsignalled exist; anything else is
// refused with ENOTSUP, as a null handle. Nothing but the end of an overlapped read signals an
// event. The name is not shared: every call makes an event of its own.
HANDLE CreateEventA(SECURITY_ATTRIBUTES* attributes, BOOL manualReset, BOOL initialState,
                    const char* name);

// ---- Pipes and reads ---------------------------------------------------------------------------

constexpr DWORD PIPE_ACCESS_DUPLEX = 3;
constexpr DWORD WRITE_DAC = 0x00040000;
constexpr DWORD WRITE_OWNER = 0x00080000;
constexpr DWORD FILE_FLAG_OVERLAPPED = 0x40000000;
constexpr DWORD PIPE_TYPE_BYTE = 0;
constexpr DWORD PIPE_READMODE_BYTE = 0;
constexpr DWORD PIPE_WAIT = 0;
constexpr DWORD GENERIC_READ = 0x80000000;
constexpr DWORD FILE_SHARE_READ = 1;
constexpr DWORD OPEN_EXISTING = 3;
constexpr DWORD FILE_ATTRIBUTE_READONLY = 0x1;
constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;

// The state of one read. The caller zeroes it, sets hEvent and keeps it, and the place that the
// read fills, until the read has ended or was cancelled.
struct OVERLAPPED {
    ULONG_PTR Internal;     // 0: ended well; otherwise the error, or ERROR_IO_PENDING
    ULONG_PTR InternalHigh; // bytes read
    DWORD Offset;           // not used
    DWORD OffsetHigh;       // not used
    HANDLE hEvent;          // signalled when a pending read ends
};

// The server end of a kernel pipe. The name must begin with "\\.\pipe\" and is known to this
// process only. Data flows from the server end to the client end. Open mode, pipe mode, buffer
// sizes and time-out are those of the kernel's pipe, whatever is passed. At most `maxInstances`
// server ends of one name are open at a time; one more is refused with EBUSY. A refusal gives
// INVALID_HANDLE_VALUE.
HANDLE CreateNamedPipeA(const char* name, DWORD openMode, DWORD pipeMode, DWORD maxInstances,
                        DWORD outSize, DWORD inSize, DWORD defaultTimeout,
                        SECURITY_ATTRIBUTES* attributes);

// The client end of the oldest instance of that pipe that has none yet, at once. Only GENERIC_READ
// and OPEN_EXISTING are possible. No such name: ENOENT; no instance free: EBUSY. A refusal gives
// INVALID_HANDLE_VALUE.
HANDLE CreateFileA(const char* name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* attributes,
                   DWORD disposition, DWORD flags, HANDLE templateFile);

// Reads from a client end without waiting. True: `*count` bytes (at least one) stand in the buffer
// and the OVERLAPPED, which is required, tells the same. False with ERROR_IO_PENDING: nothing is
// there yet; the read goes on until a wait for its event, GetOverlappedResult or CancelIo ends it,
// and only those calls fill the buffer. False with ERROR_BROKEN_PIPE: all writers have gone, or the
// child that wrote here has ended and what stood in the pipe at that moment has been handed out.
inline BOOL ReadFile(HANDLE file, void* buffer, DWORD size, DWORD* count, OVERLAPPED* overlapped);

// How a read ended. With wait true a pending read is awaited, without a limit; with wait false it
// gives false with ERROR_IO_PENDING.
inline BOOL GetOverlappedResult(HANDLE file, OVERLAPPED* overlapped, DWORD* count, BOOL wait);

// Gives up the pending read of a client end. When this returns, nothing writes to its buffer any
// more and its result is ECANCELED.
BOOL CancelIo(HANDLE file);

// ---- Processes ---------------------------------------------------------------------------------

constexpr DWORD STARTF_USESTDHANDLES = 0x100;
constexpr DWORD NORMAL_PRIORITY_CLASS = 0x20;
constexpr DWORD CREATE_NEW_PROCESS_GROUP = 0x200;
constexpr DWORD CREATE_NO_WINDOW = 0x8000000;
constexpr DWORD CTRL_C_EVENT = 0;
constexpr DWORD CTRL_BREAK_EVENT = 1;

struct STARTUPINFOA {
    DWORD cb;
    DWORD dwFlags;
    HANDLE hStdInput;
    HANDLE hStdOutput;
    HANDLE hStdError;
};

struct PROCESS_INFORMATION {
    HANDLE hProcess;
    HANDLE hThread;
    DWORD dwProcessId;
    DWORD dwThreadId;
};

// Starts a child. The command text is split into words by the shell's quoting rules (blanks, single
// and double quotes, backslash); nothing is expanded and no shell runs. The first word is the
// program: with a slash a path, seen from the child's directory, otherwise searched in PATH. The
// child gets a process group of its own, the three handles as its standard handles and no other
// descriptor, default signal dispositions, an empty signal mask, and this process's environment.
//
// Required: no application name, no attributes, no environment block, STARTF_USESTDHANDLES. False,
// with an error whose text tells what it was about, for: an empty command or an unclosed quote
// (EINVAL), a program or directory that is missing, not executable or not permitted, a handle that
// is no pipe end, no process or descriptor left. The failed child is gone then. The caller closes
// both handles of `information`.
BOOL CreateProcessA(const char* application, char* command, SECURITY_ATTRIBUTES* process,
                    SECURITY_ATTRIBUTES* thread, BOOL inheritHandles, DWORD flags,
                    void* environment, const char* directory, STARTUPINFOA* startup,
                    PROCESS_INFORMATION* information);

// The status of a child that has ended: 0 to 255 as it exited, 128 + n when signal n ended it, the
// status given to TerminateProcess when that killed it. False with EBUSY while it runs, and with
// ECHILD when the status went elsewhere: the process ignores SIGCHLD, or reaped the child itself.
BOOL GetExitCodeProcess(HANDLE process, DWORD* status);

// Sends SIGINT (CTRL_C_EVENT) or SIGTERM (CTRL_BREAK_EVENT) to the group of a child that was
// started here, is still held by a handle and has not been seen to end. Any other id is refused
// with ESRCH and nothing is sent.
BOOL GenerateConsoleCtrlEvent(DWORD event, DWORD processId);

// Sends SIGKILL to the child and its whole group. A child that has ended is refused with ESRCH.
BOOL TerminateProcess(HANDLE process, UINT status);

// ---- Waits -------------------------------------------------------------------------------------

constexpr DWORD WAIT_OBJECT_0 = 0;
constexpr DWORD WAIT_TIMEOUT = 258;
constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;
constexpr DWORD MAXIMUM_WAIT_OBJECTS = 64;

// Waits for the end of a process or for an event, on the monotonic clock. With a time of 0 the end
// of a child is reported only when what was read ahead of its output has been taken: it wrote that
// before it ended. Returns WAIT_OBJECT_0, WAIT_TIMEOUT or WAIT_FAILED.
DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);

// Waits for the first of several processes and events; waiting for all of them, and alertable
// waits, do not exist (ENOTSUP). Returns the index, WAIT_TIMEOUT or WAIT_FAILED. The order is that
// of the events themselves: a pending read with a byte in its pipe has ended before the child that
// wrote it, so its event wins; with an empty or broken pipe the process wins.
DWORD WaitForMultipleObjectsEx(DWORD count, const HANDLE* handles, BOOL waitAll, DWORD milliseconds,
                               BOOL alertable);

// ---- Modules -----------------------------------------------------------------------------------

constexpr DWORD DLL_PROCESS_ATTACH = 1;

// Asks the system not to tell a module of threads that start and end. POSIX never tells, so this
// only tests that the handle is not null.
BOOL DisableThreadLibraryCalls(HMODULE module);

#include "platform_readahead.h"

#endif
