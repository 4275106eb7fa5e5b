// SPDX-License-Identifier: LicenseRef-Tarnix
// Objects of the whole process that are never destroyed.
#ifndef TARNIX_PLATFORM_NEVERDESTROYED_H
#define TARNIX_PLATFORM_NEVERDESTROYED_H

#include <memory>

namespace tarnix_platform
{

// The one object of its type, created by the first call and never destroyed: destructors that run
// at the end of the process may still close handles.
template <class T>
T& neverDestroyed()
{
    static T& instance = *std::make_unique<T>().release();
    return instance;
}

} // namespace tarnix_platform

#endif
