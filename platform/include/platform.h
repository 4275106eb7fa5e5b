// SPDX-License-Identifier: LicenseRef-Tarnix
/// @file
/// The operations of the platform that the command runner is written against, on POSIX.
///
/// Names, sizes and results are those of the system that the runner's logic was designed on; the
/// comments document what each operation does on POSIX. On that system itself, the header of the
/// same name in platform/windows/include takes the place of this one.
///
/// Every operation may be called from any thread, but only one thread at a time may read from a
/// pipe end: reads are not serialised.
#ifndef TARNIX_PLATFORM_H
#define TARNIX_PLATFORM_H

// ACE defines some of the names below as macros for 0 where the system lacks them. Its header comes
// first, so that no later include can define them again and turn the constants into zeros.
#include <ace/Global_Macros.h>
#undef FILE_ATTRIBUTE_NORMAL
#undef FILE_FLAG_OVERLAPPED
#undef FILE_SHARE_READ
#undef GENERIC_READ
#undef GENERIC_WRITE
#undef MAXIMUM_WAIT_OBJECTS
#undef OPEN_EXISTING
#undef PIPE_READMODE_BYTE
#undef PIPE_TYPE_BYTE
#undef PIPE_WAIT

#include "platform_readahead.h"
#include "platform_types.h"

#include <cstdarg>
#include <cstddef>
#include <cstdint>

namespace tarnix_platform
{

using WORD = std::uint16_t;
using UINT = unsigned int;
using BOOLEAN = unsigned char;
using HMODULE = void*;
using HLOCAL = void*;
using ULONG_PTR = std::uintptr_t;

constexpr DWORD INFINITE = 0xFFFFFFFF;

// ---- Errors ------------------------------------------------------------------------------------

/// Errors are errno values, except for these two, which have numbers of their own.
constexpr DWORD ERROR_BROKEN_PIPE = 109; ///< the end of a pipe's data: see ReadFile
constexpr DWORD ERROR_IO_PENDING = 997;  ///< the read is pending

constexpr DWORD FORMAT_MESSAGE_ALLOCATE_BUFFER = 0x100;
constexpr DWORD FORMAT_MESSAGE_IGNORE_INSERTS = 0x200;
constexpr DWORD FORMAT_MESSAGE_FROM_SYSTEM = 0x1000;
constexpr WORD LANG_NEUTRAL = 0;
constexpr WORD SUBLANG_DEFAULT = 1;

constexpr WORD MAKELANGID(WORD primary, WORD sub)
{
    return static_cast<WORD>((sub << 10) | primary);
}

/// The error of the calling thread's last failed operation. Success does not clear it.
DWORD GetLastError();
void SetLastError(DWORD error);

/// The system's text for an error, in English, without a newline. For the calling thread's last
/// error the text starts with what was attempted ("cannot enter directory '/x': No such file or
/// directory"). Only the form with the flags ALLOCATE_BUFFER and FROM_SYSTEM exists: `buffer` is
/// the address of a wchar_t*, which receives the terminated text; LocalFree frees it. Returns the
/// length of the text; 0 on failure, with nothing to free.
DWORD FormatMessageW(DWORD flags, const void* source, DWORD error, DWORD language, wchar_t* buffer,
                     DWORD size, std::va_list* arguments);

/// Frees what FormatMessageW allocated. Returns null.
HLOCAL LocalFree(HLOCAL memory);

// ---- Handles -----------------------------------------------------------------------------------

constexpr DWORD DUPLICATE_SAME_ACCESS = 2;

/// Closes one handle; the object is destroyed with its last handle. A handle that is closed already
/// or never existed fails with EBADF, and no other object is affected. Closing a process whose
/// child still runs leaves the child running; the first start, wait or close after the child's end
/// reaps it. After TerminateProcess, closing waits for the child's end, at most 2 seconds. Closing
/// a client end completes its pending read with ECANCELED; but while another thread waits for that
/// read, the end stays open until the wait returns.
BOOL CloseHandle(HANDLE handle);

/// Opens another handle of the same object. Both processes must be the current one, and the options
/// DUPLICATE_SAME_ACCESS. `inherit` has no effect: a child gets the three handles that are passed
/// at its start and no other descriptor.
BOOL DuplicateHandle(HANDLE sourceProcess, HANDLE source, HANDLE targetProcess, HANDLE* target,
                     DWORD access, BOOL inherit, DWORD options);

/// The pseudo handle of this process, for DuplicateHandle. It is never closed.
HANDLE GetCurrentProcess();

/// A new event, not signalled. One that starts signalled does not exist (ENOTSUP). Only the end of
/// an overlapped read or write signals an auto-reset event, and only SetEvent a manual-reset event.
/// The name has no effect: every call creates a separate event. Returns null on failure.
HANDLE CreateEventA(SECURITY_ATTRIBUTES* attributes, BOOL manualReset, BOOL initialState,
                    const char* name);

/// Signals a manual-reset event until ResetEvent. SetEvent may be called in a signal handler: it
/// makes one system call, takes no lock and leaves errno and the last error unchanged. The caller
/// makes sure that the event is not being closed meanwhile. False for any other handle, and in a
/// process that was forked later.
BOOL SetEvent(HANDLE event);
BOOL ResetEvent(HANDLE event);

// ---- Pipes and reads ---------------------------------------------------------------------------

constexpr DWORD PIPE_ACCESS_DUPLEX = 3;
constexpr DWORD WRITE_DAC = 0x00040000;
constexpr DWORD WRITE_OWNER = 0x00080000;
constexpr DWORD FILE_FLAG_OVERLAPPED = 0x40000000;
constexpr DWORD PIPE_TYPE_BYTE = 0;
constexpr DWORD PIPE_READMODE_BYTE = 0;
constexpr DWORD PIPE_WAIT = 0;
constexpr DWORD GENERIC_READ = 0x80000000;
constexpr DWORD GENERIC_WRITE = 0x40000000;
constexpr DWORD FILE_SHARE_READ = 1;
constexpr DWORD OPEN_EXISTING = 3;
constexpr DWORD FILE_ATTRIBUTE_READONLY = 0x1;
constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;

/// Creates a kernel pipe and returns its server end. Data flows from the server end to the client
/// end. The name must begin with "\\.\pipe\" and is known to this process only. The open mode must
/// name a direction; otherwise open mode, pipe mode, buffer sizes and timeout have no effect. At
/// most `maxInstances` server ends of one name can be open at a time; one more fails with EBUSY.
/// Returns INVALID_HANDLE_VALUE on failure.
HANDLE CreateNamedPipeA(const char* name, DWORD openMode, DWORD pipeMode, DWORD maxInstances,
                        DWORD outSize, DWORD inSize, DWORD defaultTimeout,
                        SECURITY_ATTRIBUTES* attributes);

/// Returns the client end of the oldest instance of that pipe that is not connected yet, without
/// waiting. Only GENERIC_READ and OPEN_EXISTING are possible. ENOENT: no pipe of that name; EBUSY:
/// all its instances are connected. The name "NUL" opens the null device instead, also with
/// GENERIC_WRITE, as a standard handle of a child. Returns INVALID_HANDLE_VALUE on failure.
HANDLE CreateFileA(const char* name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* attributes,
                   DWORD disposition, DWORD flags, HANDLE templateFile);

/// An operation of the layer's own. A handle of a duplicate of the descriptor, as a standard handle
/// of a child. Returns INVALID_HANDLE_VALUE on failure.
HANDLE openDescriptor(int fd);

/// The state of one read or write. The caller zeroes it and sets hEvent. It keeps the state and the
/// buffer until the read or write has ended or was cancelled. The layer keeps no pointer to the
/// state. It keeps the result of a pending one until another of that end becomes pending. Do not
/// copy a state that has been used: zero another one.
struct OVERLAPPED {
    ULONG_PTR Internal;     ///< 0: success; otherwise the error, or ERROR_IO_PENDING
    ULONG_PTR InternalHigh; ///< bytes read or written
    DWORD Offset;           ///< not used
    DWORD OffsetHigh;       ///< not used
    HANDLE hEvent;          ///< signalled when a pending one ends
    ULONG_PTR Pending;      ///< for the layer only: number of the pending one, or 0
};

/// Reads from a client end without waiting. `overlapped` is required.
///
/// True: `*count` bytes (at least one) are in the buffer, and InternalHigh is the same number.
/// False with ERROR_IO_PENDING: there are no bytes yet; the read is pending until a wait for its
/// event, GetOverlappedResult or CancelIo ends it, and only those calls fill the buffer. False with
/// ERROR_BROKEN_PIPE: no writer is left; or the child that wrote to the pipe has ended, and all
/// bytes that were in the pipe at that moment have been read.
BOOL ReadFile(HANDLE file, void* buffer, DWORD size, DWORD* count, OVERLAPPED* overlapped);

/// Writes to a server end without waiting. `overlapped` is required.
///
/// True: all bytes are in the pipe. False with ERROR_IO_PENDING: the pipe is full; the write is
/// pending, and waits for its event write more bytes as the reader makes room. Until it has ended
/// the caller keeps the buffer. GetOverlappedResult with `wait` false has the result.
/// False with ERROR_BROKEN_PIPE: no reader is left. The calling process gets no SIGPIPE.
BOOL WriteFile(HANDLE file, const void* buffer, DWORD size, DWORD* count, OVERLAPPED* overlapped);

/// The result of a read or write. If a read is pending, the call waits for its end without a limit;
/// or, if `wait` is false, returns false with ERROR_IO_PENDING. For a pending write `wait` must be
/// false (ENOTSUP). If the system refuses the wait, the read is cancelled and fails with the error.
BOOL GetOverlappedResult(HANDLE file, OVERLAPPED* overlapped, DWORD* count, BOOL wait);

/// Cancels the pending read of a client end, or the pending write of a server end. Once this has
/// returned, nothing uses the buffer and the result is ECANCELED; its event is not signalled.
BOOL CancelIo(HANDLE file);

// ---- Processes ---------------------------------------------------------------------------------

constexpr DWORD STARTF_USESTDHANDLES = 0x100;
constexpr DWORD NORMAL_PRIORITY_CLASS = 0x20;
constexpr DWORD CREATE_NEW_PROCESS_GROUP = 0x200;
constexpr DWORD CREATE_NO_WINDOW = 0x8000000;
constexpr DWORD CTRL_C_EVENT = 0;
constexpr DWORD CTRL_BREAK_EVENT = 1;
constexpr DWORD ERROR_PROCESS_ABORTED = 1067; ///< the status that the logic gives a killed child

constexpr DWORD EXTENDED_STARTUPINFO_PRESENT = 0x00080000;

struct STARTUPINFOA {
    DWORD cb;
    DWORD dwFlags;
    HANDLE hStdInput;
    HANDLE hStdOutput;
    HANDLE hStdError;
};

/// What this layer can set in a child besides; with EXTENDED_STARTUPINFO_PRESENT only.
struct TxStartAttributes {
    int Umask;           ///< -1: the calling process's, or 022 for another user
    bool EndsWithCaller; ///< the child is killed when the calling thread ends
    /// The child is not reaped when its end is noticed, but when its last handle is closed. Until
    /// then its process group can be killed.
    bool KeepsGroup;
};

struct STARTUPINFOEXA {
    STARTUPINFOA StartupInfo;
    const TxStartAttributes* lpAttributeList;
};

/// An operation of the layer's own: has the start use the attributes, which must outlive it.
inline void setStartAttributes(STARTUPINFOEXA& startup, const TxStartAttributes& attributes)
{
    startup.lpAttributeList = &attributes;
}

struct PROCESS_INFORMATION {
    HANDLE hProcess;
    HANDLE hThread;
    DWORD dwProcessId;
    DWORD dwThreadId;
};

/// Starts a child. The command text is split into words by the shell's quoting rules (blanks,
/// single and double quotes, backslash); nothing is expanded and no shell runs. The first word is
/// the program: a path if it contains a slash, relative to the child's directory; otherwise it is
/// searched in PATH. The child gets a process group of its own, the three handles as its standard
/// handles and no other descriptor, default signal dispositions and an empty signal mask. Its
/// environment, in which PATH is looked up too, is the block: texts "NAME=value", each with its
/// terminator, and an empty text; without a block it is this process's.
///
/// Required: no application name, no attributes, STARTF_USESTDHANDLES. The caller closes both
/// handles of `information`. The environment of this process is read without a lock: no other
/// thread may change it meanwhile.
///
/// Returns false for: an empty command or an unterminated quote (EINVAL), a program or directory
/// that is missing, not executable or not permitted, a file that is no program and lacks "#!"
/// (ENOEXEC), a handle that is no pipe end, no process or descriptor left. The error's text names
/// what was attempted. After a failure no child is left, and `information` is unchanged.
BOOL CreateProcessA(const char* application, char* command, SECURITY_ATTRIBUTES* process,
                    SECURITY_ATTRIBUTES* thread, BOOL inheritHandles, DWORD flags,
                    void* environment, const char* directory, STARTUPINFOA* startup,
                    PROCESS_INFORMATION* information);

struct FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};

/// The status of a child that has ended: its exit status (0 to 255), 128 + n if signal n ended it,
/// or the status passed to TerminateProcess if that killed it. False with EBUSY while the child
/// runs, and with ECHILD if there is no status: the calling process ignores SIGCHLD, or has reaped
/// the child itself.
BOOL GetExitCodeProcess(HANDLE process, DWORD* status);

/// An operation of the layer's own. Returns true and sets both values if a signal ended the child:
/// GetExitCodeProcess reports 128 + n for it, which a child can also exit with. Returns false and
/// changes nothing for any other child, one that TerminateProcess killed included. The last error
/// stays.
bool endingSignal(HANDLE process, int& signal, bool& coreDumped);

/// The processor time of a child that has ended and of its own children that it has waited for;
/// `creation` and `exit` are set to 0. False with ECHILD if it is not known.
BOOL GetProcessTimes(HANDLE process, FILETIME* creation, FILETIME* exit, FILETIME* kernel,
                     FILETIME* user);

struct PROCESS_MEMORY_COUNTERS {
    DWORD cb;
    DWORD PageFaultCount;
    std::size_t PeakWorkingSetSize; ///< bytes
};

/// The largest resident memory of a child that has ended; 0 if the calling process had as much at
/// the start, which the kernel then counts instead.
BOOL K32GetProcessMemoryInfo(HANDLE process, PROCESS_MEMORY_COUNTERS* counters, DWORD size);

/// An operation of the layer's own. Sends the signal to the child and its process group, and then
/// SIGCONT, because a suspended child could not react. False if the child has ended.
BOOL sendSignal(HANDLE process, int signal);

/// An operation of the layer's own: the end of a child that keeps its group also kills what is left
/// of the group, now if the child has ended already. Without effect if the calling process ignores
/// SIGCHLD or reaps the child itself: then another group may have the number.
void killGroupAtEnd(HANDLE process);

/// Sends SIGINT (CTRL_C_EVENT) or SIGTERM (CTRL_BREAK_EVENT) to the process group of a child that
/// was started by this layer, has an open handle and has not been seen to end. Any other id fails
/// with ESRCH, and nothing is sent.
BOOL GenerateConsoleCtrlEvent(DWORD event, DWORD processId);

/// Sends SIGKILL to the child and its whole group. Fails with ESRCH if the child has ended.
BOOL TerminateProcess(HANDLE process, UINT status);

// ---- Waits -------------------------------------------------------------------------------------

constexpr DWORD WAIT_OBJECT_0 = 0;
constexpr DWORD WAIT_TIMEOUT = 258;
constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;
constexpr DWORD MAXIMUM_WAIT_OBJECTS = 64;

/// Waits for the end of a process or for an event, on the monotonic clock. With a timeout of 0 the
/// end of a child is reported only after the caller has taken all bytes that were read ahead of the
/// child's output: the child wrote them before it ended. Returns WAIT_OBJECT_0, WAIT_TIMEOUT or
/// WAIT_FAILED; the latter also if the system refuses the wait, for lack of memory for example.
DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);

/// Waits for the first of several processes and events; waiting for all of them, and alertable
/// waits, do not exist (ENOTSUP). Returns the index, WAIT_TIMEOUT or WAIT_FAILED. If several are
/// ready, the one that happened first wins: a byte in the pipe of a pending read was written before
/// the child ended, so the event of that read wins; with an empty or broken pipe the process wins.
DWORD WaitForMultipleObjectsEx(DWORD count, const HANDLE* handles, BOOL waitAll, DWORD milliseconds,
                               BOOL alertable);

// ---- Identity ----------------------------------------------------------------------------------

constexpr DWORD VER_PLATFORM_WIN32_NT = 2;
constexpr DWORD LOGON32_LOGON_NETWORK = 3;
constexpr DWORD LOGON32_LOGON_BATCH = 4;
constexpr DWORD LOGON32_PROVIDER_DEFAULT = 0;
constexpr DWORD POLICY_CREATE_ACCOUNT = 0x010;
constexpr DWORD POLICY_LOOKUP_NAMES = 0x800;

using NTSTATUS = std::int32_t;
enum TOKEN_INFORMATION_CLASS { TokenUser = 1 };

struct OSVERSIONINFOW {
    DWORD dwOSVersionInfoSize;
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    wchar_t szCSDVersion[128];
};

struct SID_AND_ATTRIBUTES {
    PSID Sid;
    DWORD Attributes;
};

struct TOKEN_USER {
    SID_AND_ATTRIBUTES User;
};

struct LSA_OBJECT_ATTRIBUTES {
    DWORD Length;
    HANDLE RootDirectory;
    LSA_UNICODE_STRING* ObjectName;
    DWORD Attributes;
    void* SecurityDescriptor;
    void* SecurityQualityOfService;
};

struct SYSTEMTIME {
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
};

/// Reports the kernel's version, the platform id of a system with logon rights, and the lowest
/// build that supports batch logons.
BOOL GetVersionExW(OSVERSIONINFOW* information);

/// Authenticates an account that the system's name service knows (domain ".") and checks that it
/// may be used, through PAM under the service name "tarnix". A batch logon also needs the right
/// SeBatchLogonRight in the rights file. The token holds the account's name, user id, group id and
/// groups. On failure the token is null, so that no start can mistake the refusal for "no change of
/// identity"; CreateProcessAsUserA with that token fails with the same reason, which for an unknown
/// account is that of a wrong password. EPERM: this process may not switch user. The layer's copies
/// of the password are wiped.
BOOL LogonUserA(const char* user, const char* domain, const char* password, DWORD logonType,
                DWORD provider, HANDLE* token);

/// The account of a token: a TOKEN_USER at the start of the buffer, followed by the SID that it
/// points to, so the buffer must outlive the use of the SID. Only TokenUser exists. `*length`
/// receives the required size.
BOOL GetTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS kind, void* buffer, DWORD size,
                         DWORD* length);

/// CreateProcessA as the token's user. The child gets a session of its own, and switches
/// permanently to the user's groups, group and id before it enters the directory and starts the
/// program; the user becomes the owner of the pipe ends. The child's umask is 022, or that of the
/// attributes; its niceness and resource limits are those of this process, but never its real-time
/// scheduling. The child never shares memory with this process under that identity. If the user
/// stalls the start for 10 seconds, the child is killed and the start fails (ETIMEDOUT). A null
/// token stands for a refused logon: false, with the reason of the thread's last refusal.
BOOL CreateProcessAsUserA(HANDLE token, const char* application, char* command,
                          SECURITY_ATTRIBUTES* process, SECURITY_ATTRIBUTES* thread,
                          BOOL inheritHandles, DWORD flags, void* environment,
                          const char* directory, STARTUPINFOA* startup,
                          PROCESS_INFORMATION* information);

/// An operation of the layer's own: HOME, USER, LOGNAME, SHELL and PATH of the token's account as
/// an environment block, which LocalFree frees. Null on failure.
char* accountEnvironment(HANDLE token);

/// A copy of this process's environment, as a block. Null without memory.
char* GetEnvironmentStringsA();
BOOL FreeEnvironmentStringsA(char* block);

/// The rights of accounts are kept in a text file, one line "account right" for each. Lines of
/// another form are kept unchanged. A change holds a file lock and replaces the whole file, so
/// neither a crash nor a full disk loses a line, and several processes may change it at once. An
/// added right is a line that is marked with this process, and grants the right as long as the
/// process runs. All return a status, which LsaNtStatusToWinError turns into 0 or an error. EPERM:
/// others could have written the file. ELOOP: it is a symbolic link. EINVAL: its path is relative.
NTSTATUS LsaOpenPolicy(LSA_UNICODE_STRING* systemName, LSA_OBJECT_ATTRIBUTES* attributes,
                       DWORD access, LSA_HANDLE* policy);
/// The rights of lines without a mark, and those that this process has added. ENOENT: the account
/// has none. LsaFreeMemory frees the array.
NTSTATUS LsaEnumerateAccountRights(LSA_HANDLE policy, PSID account, LSA_UNICODE_STRING** rights,
                                   DWORD* count);
NTSTATUS LsaAddAccountRights(LSA_HANDLE policy, PSID account, LSA_UNICODE_STRING* rights,
                             DWORD count);
/// Removes rights that LsaAddAccountRights has added with this handle, from the file that it has
/// added them to. ENOTSUP: `allRights` is not 0.
NTSTATUS LsaRemoveAccountRights(LSA_HANDLE policy, PSID account, BOOLEAN allRights,
                                LSA_UNICODE_STRING* rights, DWORD count);
NTSTATUS LsaFreeMemory(void* memory);
NTSTATUS LsaClose(LSA_HANDLE policy);
DWORD LsaNtStatusToWinError(NTSTATUS status);

/// Sets the absolute path of the rights file for this process; null or "" restores the default
/// path.
void setRightsFile(const char* path);

/// Sets how many milliseconds a start as another user may take from the moment that its child runs;
/// at first 10,000. Any thread may call; it counts for the starts that begin after it.
void setUserStartLimit(DWORD milliseconds);

/// The wall clock in UTC, to the millisecond; and the same as 100-nanosecond ticks since 1601.
void GetSystemTime(SYSTEMTIME* time);
BOOL SystemTimeToFileTime(const SYSTEMTIME* time, FILETIME* ticks);

/// Stores the machine's own name, up to `*size` units followed by a terminator, and its length in
/// `*size`. Returns non-zero; or 0, with the buffer unchanged, if the name is longer or is not
/// valid in the locale's encoding.
BOOL GetComputerNameW(wchar_t* buffer, DWORD* size);

/// With 0: yields the processor.
void Sleep(DWORD milliseconds);

// ---- Modules -----------------------------------------------------------------------------------

constexpr DWORD DLL_PROCESS_ATTACH = 1;

/// Asks the system not to notify a module of the start and end of threads. POSIX never does, so
/// this only checks that the handle is not null.
BOOL DisableThreadLibraryCalls(HMODULE module);

} // namespace tarnix_platform

namespace tarnix_cmn_4_4
{
using tarnix_platform::BOOLEAN;
using tarnix_platform::CancelIo;
using tarnix_platform::CloseHandle;
using tarnix_platform::CREATE_NEW_PROCESS_GROUP;
using tarnix_platform::CREATE_NO_WINDOW;
using tarnix_platform::CreateEventA;
using tarnix_platform::CreateFileA;
using tarnix_platform::CreateNamedPipeA;
using tarnix_platform::CreateProcessA;
using tarnix_platform::CreateProcessAsUserA;
using tarnix_platform::CTRL_BREAK_EVENT;
using tarnix_platform::CTRL_C_EVENT;
using tarnix_platform::DisableThreadLibraryCalls;
using tarnix_platform::DLL_PROCESS_ATTACH;
using tarnix_platform::DUPLICATE_SAME_ACCESS;
using tarnix_platform::DuplicateHandle;
using tarnix_platform::ERROR_BROKEN_PIPE;
using tarnix_platform::ERROR_IO_PENDING;
using tarnix_platform::ERROR_PROCESS_ABORTED;
using tarnix_platform::EXTENDED_STARTUPINFO_PRESENT;
using tarnix_platform::FILE_ATTRIBUTE_NORMAL;
using tarnix_platform::FILE_ATTRIBUTE_READONLY;
using tarnix_platform::FILE_FLAG_OVERLAPPED;
using tarnix_platform::FILE_SHARE_READ;
using tarnix_platform::FILETIME;
using tarnix_platform::FORMAT_MESSAGE_ALLOCATE_BUFFER;
using tarnix_platform::FORMAT_MESSAGE_FROM_SYSTEM;
using tarnix_platform::FORMAT_MESSAGE_IGNORE_INSERTS;
using tarnix_platform::FormatMessageW;
using tarnix_platform::FreeEnvironmentStringsA;
using tarnix_platform::GenerateConsoleCtrlEvent;
using tarnix_platform::GENERIC_READ;
using tarnix_platform::GENERIC_WRITE;
using tarnix_platform::GetComputerNameW;
using tarnix_platform::GetCurrentProcess;
using tarnix_platform::GetEnvironmentStringsA;
using tarnix_platform::GetExitCodeProcess;
using tarnix_platform::GetLastError;
using tarnix_platform::GetOverlappedResult;
using tarnix_platform::GetProcessTimes;
using tarnix_platform::GetSystemTime;
using tarnix_platform::GetTokenInformation;
using tarnix_platform::GetVersionExW;
using tarnix_platform::HLOCAL;
using tarnix_platform::HMODULE;
using tarnix_platform::INFINITE;
using tarnix_platform::K32GetProcessMemoryInfo;
using tarnix_platform::LANG_NEUTRAL;
using tarnix_platform::LocalFree;
using tarnix_platform::LOGON32_LOGON_BATCH;
using tarnix_platform::LOGON32_LOGON_NETWORK;
using tarnix_platform::LOGON32_PROVIDER_DEFAULT;
using tarnix_platform::LogonUserA;
using tarnix_platform::LSA_OBJECT_ATTRIBUTES;
using tarnix_platform::LsaAddAccountRights;
using tarnix_platform::LsaClose;
using tarnix_platform::LsaEnumerateAccountRights;
using tarnix_platform::LsaFreeMemory;
using tarnix_platform::LsaNtStatusToWinError;
using tarnix_platform::LsaOpenPolicy;
using tarnix_platform::LsaRemoveAccountRights;
using tarnix_platform::MAKELANGID;
using tarnix_platform::MAXIMUM_WAIT_OBJECTS;
using tarnix_platform::NORMAL_PRIORITY_CLASS;
using tarnix_platform::NTSTATUS;
using tarnix_platform::OPEN_EXISTING;
using tarnix_platform::OSVERSIONINFOW;
using tarnix_platform::OVERLAPPED;
using tarnix_platform::PIPE_ACCESS_DUPLEX;
using tarnix_platform::PIPE_READMODE_BYTE;
using tarnix_platform::PIPE_TYPE_BYTE;
using tarnix_platform::PIPE_WAIT;
using tarnix_platform::POLICY_CREATE_ACCOUNT;
using tarnix_platform::POLICY_LOOKUP_NAMES;
using tarnix_platform::PROCESS_INFORMATION;
using tarnix_platform::PROCESS_MEMORY_COUNTERS;
using tarnix_platform::ReadFile;
using tarnix_platform::ResetEvent;
using tarnix_platform::SetEvent;
using tarnix_platform::SetLastError;
using tarnix_platform::SID_AND_ATTRIBUTES;
using tarnix_platform::Sleep;
using tarnix_platform::STARTF_USESTDHANDLES;
using tarnix_platform::STARTUPINFOA;
using tarnix_platform::STARTUPINFOEXA;
using tarnix_platform::SUBLANG_DEFAULT;
using tarnix_platform::SYSTEMTIME;
using tarnix_platform::SystemTimeToFileTime;
using tarnix_platform::TerminateProcess;
using tarnix_platform::TOKEN_INFORMATION_CLASS;
using tarnix_platform::TOKEN_USER;
using tarnix_platform::TokenUser;
using tarnix_platform::UINT;
using tarnix_platform::ULONG_PTR;
using tarnix_platform::VER_PLATFORM_WIN32_NT;
using tarnix_platform::WAIT_FAILED;
using tarnix_platform::WAIT_OBJECT_0;
using tarnix_platform::WAIT_TIMEOUT;
using tarnix_platform::WaitForMultipleObjectsEx;
using tarnix_platform::WaitForSingleObject;
using tarnix_platform::WORD;
using tarnix_platform::WRITE_DAC;
using tarnix_platform::WRITE_OWNER;
using tarnix_platform::WriteFile;
} // namespace tarnix_cmn_4_4

#endif
