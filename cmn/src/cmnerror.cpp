// CCmnError: the record and its key.
#include "cmnerror.h"

#include "TX_strings.h"
#include "cmnstringtool.h"

namespace tarnix_cmn_4_4
{

CCmnError::CCmnError(int code, tstr message, tstr file, int line, tstr function)
    : m_Code(code), m_Message(message), m_File(file), m_Line(line), m_Function(function)
{
}

std::string CCmnError::getKeyPrefix(const std::string& component)
{
    return "MSG_ERROR_" + CCmnStringTool::tostrupper(component) + "_";
}

std::string CCmnError::getMessageKey(const std::string& component, int base) const
{
    // In 64 bits, where a negative base cannot make the difference overflow.
    const long long number = m_Code > base ? static_cast<long long>(m_Code) - base : m_Code;
    char digits[64];
    TX_snprintf(digits, sizeof digits, "%04lld", number);
    return getKeyPrefix(component) + digits;
}

} // namespace tarnix_cmn_4_4
