// Tokens: the users that a child may run as.
#ifndef TARNIX_PLATFORM_LOGON_H
#define TARNIX_PLATFORM_LOGON_H

#include "handles.h"
#include "identity.h"

#include <string>

namespace tarnix_platform
{

class Token : public Object
{
public:
    Token(std::string name, Identity identity)
        : m_Name(std::move(name)), m_Identity(std::move(identity))
    {
    }

    const std::string& name() const { return m_Name; }
    const Identity& identity() const { return m_Identity; }

private:
    const std::string m_Name;
    const Identity m_Identity;
};

// Fails with the error of the thread's last refused logon. Returns false.
bool failWithLastRefusal();

} // namespace tarnix_platform

#endif
