// SPDX-License-Identifier: LicenseRef-Tarnix
/// @file
/// The record of a failed run of a command.
#ifndef TARNIX_CMNEXECPIPE_H
#define TARNIX_CMNEXECPIPE_H

#include "cmnexport.h"

#include <string>

namespace tarnix_cmn_4_4
{

/// What a run failed on. A plain value: copies share nothing. Inside the runner it is also the
/// exception that the start of a run throws; Exec catches it and lets none out.
class TARNIX_CMN_API ECmnExecPipe
{
public:
    /// The codes of the records. Each has a key, see keyOf.
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
    /// Without arguments: code 0 and empty texts, which means that nothing failed.
    ECmnExecPipe() = default;
    ECmnExecPipe(const std::string& subject, int code);
    ECmnExecPipe(const std::string& subject, int code, const std::wstring& description);
    ECmnExecPipe(const std::string& subject, int code, const std::wstring& description,
                 int exitStatus);
    /// @}

    /// The command. For the codes 9 and 10: the name of the user.
    const std::string& getSubject() const { return m_Subject; }

    /// The text of the failure. It is empty except for code 4 (the system's error text), code 11,
    /// and code 8 if waiting for the child gave no status.
    const std::wstring& getDescription() const { return m_Description; }

    /// 0 for an empty record.
    int getCode() const { return m_Code; }

    /// The exit status of the child. It has a meaning only with code 11.
    int getExitStatus() const { return m_ExitStatus; }

    /// The key of a code, for example "TARNIX_EXEC_PIPE_READ_TIMEOUT" for 5. A key is the same in
    /// every language and can serve as a message id. Null for a code that does not exist.
    static const char* keyOf(int code);

private:
    std::string m_Subject;
    std::wstring m_Description;
    int m_Code = SUCCESS;
    int m_ExitStatus = 0;
};

} // namespace tarnix_cmn_4_4

#endif
