// Objects of the whole process that outlive every destructor.
#ifndef TARNIX_PLATFORM_NEVERDESTROYED_H
#define TARNIX_PLATFORM_NEVERDESTROYED_H

#include <memory>

namespace tarnix_platform
{

// The one object of its type, made at the first call and never destroyed: destructors that run
// while the process ends may still close handles.
template <class T>
T& neverDestroyed()
{
    static T& instance = *std::make_unique<T>().release();
    return instance;
}

} // namespace tarnix_platform

#endif
