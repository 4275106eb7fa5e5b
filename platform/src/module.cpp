// SPDX-License-Identifier: LicenseRef-Tarnix
// Calls the library's DllMain when it is loaded, as the loader does on the system that the library
// was designed on.
#include "platform.h"

#include <dlfcn.h>

#include <cerrno>

namespace tarnix_platform
{

extern "C" BOOL DllMain(HMODULE module, DWORD reason, void* reserved);

BOOL DisableThreadLibraryCalls(HMODULE module)
{
    if (module == nullptr) {
        SetLastError(EINVAL);
        return false;
    }
    return true;
}

namespace
{

__attribute__((constructor)) void attach()
{
    Dl_info info{};
    ::dladdr(reinterpret_cast<void*>(&attach), &info);
    DllMain(info.dli_fbase, DLL_PROCESS_ATTACH, nullptr);
}

} // namespace

} // namespace tarnix_platform
