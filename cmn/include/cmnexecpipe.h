/// @file
/// The record of a failed run of a command.
#ifndef TARNIX_CMNEXECPIPE_H
#define TARNIX_CMNEXECPIPE_H

#include "cmnexport.h"

#include <string>

namespace tarnix_cmn_4_4
{

/// What a run failed on. A value: copies share nothing. It is also what the start of a run raises
/// and catches inside; it never leaves Exec.
class TARNIX_CMN_API ECmnExecPipe
{
public:
    /// The codes of records, each with its key (see keyOf).
    enum ECode {
        SUCCESS = 0,
        CREATE_PIPE_FAILED = 1,
        DUPLICATE_HANDLE_FAILED = 2,
        CLOSE_HANDLE_FAILED = 3,
        CREATE_CHILD_PROCESS_FAILED = 4,
        READ_TIMEOUT = 5,
        PARSE_COMMAND_FAILED = 6,
        EXE_DOES_NOT_EXIST = 7,
        ERROR_UNEXPECTED = 8,
        IMPERSONATION_TIMEOUT = 9,
        CANNOT_IMPERSONATE = 10,
        CMD_FAILED = 11,
        CMD_KILLED = 12,
        CMD_ERROR_UNEXPECTED = 13
    };

    /// @{
    /// Code 0 and empty texts: nothing failed.
    ECmnExecPipe() = default;
    ECmnExecPipe(const std::string& subject, int code);
    ECmnExecPipe(const std::string& subject, int code, const std::wstring& description);
    ECmnExecPipe(const std::string& subject, int code, const std::wstring& description,
                 int exitStatus);
    /// @}

    /// The command; for the codes 9 and 10 the user's name.
    const std::string& getSubject() const { return m_Subject; }

    /// The text of the failure. Empty but for code 4 (the system's text), code 11 and the code 8 of
    /// a wait that gave no status.
    const std::wstring& getDescription() const { return m_Description; }

    /// 0 for an empty record.
    int getCode() const { return m_Code; }

    /// The child's exit status. It has a meaning with code 11 only.
    int getExitStatus() const { return m_ExitStatus; }

    /// The key of a code, for example "TARNIX_EXEC_PIPE_READ_TIMEOUT" for 5: a name that stays the
    /// same in every language and is fit as a message id. Null for a code that does not exist.
    static const char* keyOf(int code);

private:
    std::string m_Subject;
    std::wstring m_Description;
    int m_Code = SUCCESS;
    int m_ExitStatus = 0;
};

} // namespace tarnix_cmn_4_4

#endif
