// The table that turns handles into objects. It knows no kind of object.
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

// A new handle of the object; null with the last error set when none is left.
HANDLE openHandle(std::shared_ptr<Object> object);

// What the fast path of reads finds by the handle, if that is still open at that moment.
void setAhead(HANDLE handle, ReadAhead* ahead);
void setOutput(HANDLE handle, ReadAhead* output, HANDLE writer);

// The object of an open handle, or null.
std::shared_ptr<Object> objectOf(HANDLE handle);

// The same for one kind of object; null and EBADF for any other.
template <class T>
std::shared_ptr<T> find(HANDLE handle)
{
    std::shared_ptr<T> found = std::dynamic_pointer_cast<T>(objectOf(handle));
    if (!found) {
        fail(EBADF);
    }
    return found;
}

// The first object held by an open handle for which the test holds, or null.
std::shared_ptr<Object> findIf(const std::function<bool(const Object&)>& test);

} // namespace tarnix_platform

#endif
