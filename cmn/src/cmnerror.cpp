// SPDX-License-Identifier: LicenseRef-Tarnix
// CCmnError: the error record and the key of its message.
#include "cmnerror.h"

#include "TX_strings.h"
#include "cmnstringtool.h"
#include "cmntstr.h"

#include <limits>
#include <utility>

namespace tarnix_cmn_4_4
{

CCmnError::CCmnError(int code, tstr message, tstr file, int line, tstr function)
    : m_Code(code), m_Line(line)
{
    assign(m_Message, message);
    assign(m_File, file);
    assign(m_Function, function);
}

CCmnError::CCmnError(const CCmnError& other) : m_Code(other.m_Code), m_Line(other.m_Line)
{
    assign(m_Message, other.m_Message);
    assign(m_File, other.m_File);
    assign(m_Function, other.m_Function);
}

CCmnError& CCmnError::operator=(const CCmnError& other)
{
    CCmnError copy(other);
    std::swap(m_Code, copy.m_Code);
    m_Message.swap(copy.m_Message);
    m_File.swap(copy.m_File);
    std::swap(m_Line, copy.m_Line);
    m_Function.swap(copy.m_Function);
    return *this;
}

std::string CCmnError::getKeyPrefix(const std::string& component)
{
    return "MSG_ERROR_" + CCmnStringTool::tostrupper(component) + "_";
}

std::string CCmnError::getMessageKey(const std::string& component, int base) const
{
    // In 64 bits, because the difference may overflow an int if `base` is negative.
    const long long number = m_Code > base ? static_cast<long long>(m_Code) - base : m_Code;
    char digits[std::numeric_limits<long long>::digits]; // it has fewer decimal digits
    TX_snprintf(digits, sizeof digits, "%04lld", number);
    return getKeyPrefix(component) + digits;
}

} // namespace tarnix_cmn_4_4
