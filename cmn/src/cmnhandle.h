// Handles of the platform layer and who closes them.
#ifndef TARNIX_CMNHANDLE_H
#define TARNIX_CMNHANDLE_H

#include "platform.h"

#include <utility>

namespace tarnix_cmn_4_4
{

// Null counts as valid: it is the token of a refused logon, which must not be taken for "no token".
inline bool isValid(HANDLE handle)
{
    return handle != INVALID_HANDLE_VALUE;
}

inline void closeAndForget(HANDLE& handle)
{
    if (isValid(handle) && handle != nullptr) {
        CloseHandle(handle);
    }
    handle = INVALID_HANDLE_VALUE;
}

// Owns what a variable or field holds, which may be null: closes and resets it at the end.
class HandleOwner
{
public:
    explicit HandleOwner(HANDLE& handle) : m_Handle(handle) { m_Handle = INVALID_HANDLE_VALUE; }
    ~HandleOwner() { closeAndForget(m_Handle); }
    HandleOwner(const HandleOwner&) = delete;
    HandleOwner& operator=(const HandleOwner&) = delete;

    // Where an operation stores a new handle, after the former one is closed. Null until it does:
    // not every system stores something when it refuses a logon, and an invalid handle would mean
    // "as the caller".
    HANDLE* out()
    {
        closeAndForget(m_Handle);
        m_Handle = nullptr;
        return &m_Handle;
    }

    HANDLE release() { return std::exchange(m_Handle, INVALID_HANDLE_VALUE); }

private:
    HANDLE& m_Handle;
};

} // namespace tarnix_cmn_4_4

#endif
