/// @file
/// The record that a failing operation leaves behind, and the object that keeps the last one.
#ifndef TARNIX_CMNERROR_H
#define TARNIX_CMNERROR_H

#include "cmnexport.h"
#include "cmntypes.h"

#include <cstdint>
#include <string>

namespace tarnix_cmn_4_4
{

/// Also serves as an exception type. A record belongs to one thread at a time.
class TARNIX_CMN_API CCmnError
{
public:
    /// An empty record: no text, code and line 0.
    CCmnError() = default;

    /// File, line and function are those of the failing site: its source path, its line and its
    /// qualified name. The code is the status that the failing operation gave.
    CCmnError(int code, tstr message, tstr file, int line, tstr function);

    /// @{
    /// Copies share nothing.
    CCmnError(const CCmnError& other);
    CCmnError& operator=(const CCmnError& other);
    virtual ~CCmnError() = default;
    /// @}

    /// The key of the failure's text: "MSG_ERROR_", the component in capitals, "_", and at least
    /// four digits of the code, from which `base` is taken away when the code is above it.
    virtual std::string getMessageKey(const std::string& component, int base) const;

    /// English, never null. The texts of this and the other accessors are valid until the record is
    /// changed or destroyed.
    virtual const wchar_t* getMessage() const { return m_Message.c_str(); }

    /// @{
    /// What the record was made with; never null.
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

/// Keeps the latest failure. Nothing clears it on success.
class TARNIX_CMN_API CCmnErrorHolder
{
public:
    /// Keeps a copy in place of the one before.
    void setError(const CCmnError& error) { m_Error = error; }

    /// Before the first failure an empty record. The reference follows later failures.
    const CCmnError& getError() const { return m_Error; }

private:
    CCmnError m_Error;
};

} // namespace tarnix_cmn_4_4

#endif
