// SPDX-License-Identifier: LicenseRef-Tarnix
// Ownership of the handles of the platform layer.
#ifndef TARNIX_CMNHANDLE_H
#define TARNIX_CMNHANDLE_H

#include "platform.h"

#include <utility>

namespace tarnix_cmn_4_4
{

// Null counts as valid: a failed logon may leave a null token. If that counted as "no token", the
// command would run as the calling user.
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

// Owns the handle in a variable or member, which may be null. Closes and resets it at the end of
// the scope.
class HandleOwner
{
public:
    explicit HandleOwner(HANDLE& handle) : m_Handle(handle) { m_Handle = INVALID_HANDLE_VALUE; }
    ~HandleOwner() { closeAndForget(m_Handle); }
    HandleOwner(const HandleOwner&) = delete;
    HandleOwner& operator=(const HandleOwner&) = delete;

    // For a function that stores a handle; the previous handle is closed first. The value is null
    // until the function stores one, and not INVALID_HANDLE_VALUE: some systems store nothing when
    // a logon fails, and an invalid token means "run as the calling user".
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

// Owns a handle.
class OwnedHandle
{
public:
    explicit OwnedHandle(HANDLE handle = INVALID_HANDLE_VALUE) : m_Handle(handle) {}
    ~OwnedHandle() { closeAndForget(m_Handle); }
    OwnedHandle(const OwnedHandle&) = delete;
    OwnedHandle& operator=(const OwnedHandle&) = delete;

    HANDLE get() const { return m_Handle; }
    // Null is what some operations return on failure.
    explicit operator bool() const { return isValid(m_Handle) && m_Handle != nullptr; }

    void reset(HANDLE handle = INVALID_HANDLE_VALUE)
    {
        closeAndForget(m_Handle);
        m_Handle = handle;
    }

private:
    HANDLE m_Handle;
};

} // namespace tarnix_cmn_4_4

#endif
