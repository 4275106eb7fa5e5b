// Tokens: who a child may run as.
#ifndef TARNIX_PLATFORM_LOGON_H
#define TARNIX_PLATFORM_LOGON_H

#include "handles.h"
#include "spawn.h"

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

// What a PSID points to: the account's name, terminated, behind its size.
struct Sid {
    std::uint32_t size; // of the whole
    std::uint32_t uid;
    char name[1];
};

inline std::string accountOf(PSID sid)
{
    return sid == nullptr ? std::string() : static_cast<const Sid*>(sid)->name;
}

} // namespace tarnix_platform

#endif
