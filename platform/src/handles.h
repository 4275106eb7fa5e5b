// SPDX-License-Identifier: LicenseRef-Tarnix
// The table that maps handles to objects. It does not depend on the kinds of objects.
#ifndef TARNIX_PLATFORM_HANDLES_H
#define TARNIX_PLATFORM_HANDLES_H

#include "errors.h"
#include "platform.h"

#include <cerrno>
#include <functional>
#include <memory>

namespace tarnix_platform
{

class Object
{
public:
    Object() = default;
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;
    virtual ~Object() = default;
};

// A new handle of the object; null with the last error set if no slot is left.
HANDLE openHandle(std::shared_ptr<Object> object);

// Set what is found by the handle without a lock. No effect if the handle is not open.
void setAhead(HANDLE handle, ReadAhead* ahead);
void setOutput(HANDLE handle, ReadAhead* output, HANDLE writer);

// The object of an open handle, or null.
std::shared_ptr<Object> objectOf(HANDLE handle);

// The same for one kind of object; null with the last error EBADF for any other.
template <class T>
std::shared_ptr<T> find(HANDLE handle)
{
    std::shared_ptr<T> found = std::dynamic_pointer_cast<T>(objectOf(handle));
    if (!found) {
        fail(EBADF);
    }
    return found;
}

// The first object of an open handle that passes the test, or null.
std::shared_ptr<Object> findIf(const std::function<bool(const Object&)>& test);

} // namespace tarnix_platform

#endif
