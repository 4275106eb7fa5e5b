// Tokens: who a child may run as.
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

// Fails as the thread's last refused logon did. Returns false.
bool failAsLogonDid();

} // namespace tarnix_platform

#endif
