// SPDX-License-Identifier: LicenseRef-Tarnix
// ECmnExecPipe: the record of a failed run, and the keys of its codes.
#include "cmnexecpipe.h"

#include <iterator>

namespace tarnix_cmn_4_4
{

namespace
{

const char* const kKeys[] = {
    "TARNIX_EXEC_PIPE_SUCCESS",
    "TARNIX_EXEC_PIPE_CREATE_PIPE_FAILED",
    "TARNIX_EXEC_PIPE_DUPLICATE_HANDLE_FAILED",
    "TARNIX_EXEC_PIPE_CLOSE_HANDLE_FAILED",
    "TARNIX_EXEC_PIPE_CREATE_CHILD_PROCESS_FAILED",
    "TARNIX_EXEC_PIPE_READ_TIMEOUT",
    "TARNIX_EXEC_PIPE_PARSE_COMMAND_FAILED",
    "TARNIX_EXEC_PIPE_EXE_DOES_NOT_EXIST",
    "TARNIX_EXEC_PIPE_ERROR_UNEXPECTED",
    "TARNIX_EXEC_PIPE_IMPERSONATION_TIMEOUT",
    "TARNIX_EXEC_PIPE_CANNOT_IMPERSONATE",
    "TARNIX_EXEC_PIPE_CMD_FAILED",
    "TARNIX_EXEC_PIPE_CMD_KILLED",
    "TARNIX_EXEC_PIPE_CMD_ERROR_UNEXPECTED",
};
static_assert(std::size(kKeys) == ECmnExecPipe::CMD_ERROR_UNEXPECTED + 1, "a key for each code");

} // namespace

ECmnExecPipe::ECmnExecPipe(const std::string& subject, int code) : m_Subject(subject), m_Code(code)
{
}

ECmnExecPipe::ECmnExecPipe(const std::string& subject, int code, const std::wstring& description)
    : m_Subject(subject), m_Description(description), m_Code(code)
{
}

ECmnExecPipe::ECmnExecPipe(const std::string& subject, int code, const std::wstring& description,
                           int exitStatus)
    : m_Subject(subject), m_Description(description), m_Code(code), m_ExitStatus(exitStatus)
{
}

const char* ECmnExecPipe::keyOf(int code)
{
    return code >= 0 && code < static_cast<int>(std::size(kKeys)) ? kKeys[code] : nullptr;
}

} // namespace tarnix_cmn_4_4
