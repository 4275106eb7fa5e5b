// Overwrites secrets.
#ifndef TARNIX_CMNWIPE_H
#define TARNIX_CMNWIPE_H

#include <string>

namespace tarnix_cmn_4_4
{

// Zeros the text's memory, unused capacity included, and empties it. The writes are volatile: the
// compiler would drop others, for nobody reads them.
inline void wipe(std::string& secret)
{
    secret.resize(secret.capacity());
    volatile char* at = secret.data();
    for (std::size_t i = 0; i < secret.size(); ++i) {
        at[i] = 0;
    }
    secret.clear();
}

} // namespace tarnix_cmn_4_4

#endif
