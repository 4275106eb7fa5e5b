// SPDX-License-Identifier: LicenseRef-Tarnix
// Overwrites secrets.
#ifndef TARNIX_CMNWIPE_H
#define TARNIX_CMNWIPE_H

#include <algorithm>
#include <string>

namespace tarnix_cmn_4_4
{

// Overwrites the text with zeros, unused capacity included, and empties it. The writes are
// volatile, because the compiler may remove ordinary writes that nothing reads.
inline void wipe(std::string& secret)
{
    secret.resize(secret.capacity());
    std::fill_n(static_cast<volatile char*>(secret.data()), secret.size(), '\0');
    secret.clear();
}

// Wipes the secret at the end of the scope, also when an exception leaves it.
class WipeAtEnd
{
public:
    explicit WipeAtEnd(std::string& secret) : m_Secret(secret) {}
    ~WipeAtEnd() { wipe(m_Secret); }
    WipeAtEnd(const WipeAtEnd&) = delete;
    WipeAtEnd& operator=(const WipeAtEnd&) = delete;

private:
    std::string& m_Secret;
};

} // namespace tarnix_cmn_4_4

#endif
