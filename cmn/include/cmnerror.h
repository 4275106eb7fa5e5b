// SPDX-License-Identifier: LicenseRef-Tarnix
/// @file
/// The record of a failed operation, and the object that stores the last one.
#ifndef TARNIX_CMNERROR_H
#define TARNIX_CMNERROR_H

#include "cmnexport.h"
#include "cmntypes.h"

#include <cstdint>
#include <string>

namespace tarnix_cmn_4_4
{

/// The record of a failure; also an exception type. Only one thread at a time may use a record.
class TARNIX_CMN_API CCmnError
{
public:
    /// An empty record: empty texts, code 0 and line 0.
    CCmnError() = default;

    /// @param code  Status of the failed operation.
    /// @param message  What failed, in English.
    /// @param file  Path of the source file with the failure.
    /// @param line  Its line.
    /// @param function  Qualified name of the function.
    CCmnError(int code, tstr message, tstr file, int line, tstr function);

    /// @{
    /// Copies share nothing.
    CCmnError(const CCmnError& other);
    CCmnError& operator=(const CCmnError& other);
    virtual ~CCmnError() = default;
    /// @}

    /// The key for the text of the failure in a catalog: "MSG_ERROR_", the component in upper case,
    /// "_" and the code with at least four digits. If the code is greater than `base`, `base` is
    /// subtracted from it.
    virtual std::string getMessageKey(const std::string& component, int base) const;

    /// What failed, in English; never null. The texts that this and the other functions return are
    /// valid until the record is changed or destroyed.
    virtual const wchar_t* getMessage() const { return m_Message.c_str(); }

    /// @{
    /// The arguments of the constructor; the texts are never null.
    int getCode() const { return m_Code; }
    const wchar_t* getFile() const { return m_File.c_str(); }
    int getLine() const { return m_Line; }
    const wchar_t* getFunction() const { return m_Function.c_str(); }
    /// @}

private:
    static std::string getKeyPrefix(const std::string& component);

    std::int32_t m_Code = 0;
    tstr m_Message;
    tstr m_File;
    std::int32_t m_Line = 0;
    tstr m_Function;
};

/// Stores the last failure. A later success does not clear it.
class TARNIX_CMN_API CCmnErrorHolder
{
public:
    /// Stores a copy in place of the record before.
    void setError(const CCmnError& error) { m_Error = error; }

    /// The last record; an empty one before the first failure. The reference stays valid as long as
    /// this object and shows later failures too.
    const CCmnError& getError() const { return m_Error; }

private:
    CCmnError m_Error;
};

} // namespace tarnix_cmn_4_4

#endif
