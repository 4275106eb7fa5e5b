// SPDX-License-Identifier: LicenseRef-Tarnix
// The function that runs when the library is loaded.
#include "platform.h"

namespace tarnix_cmn_4_4
{

extern "C" BOOL DllMain(HMODULE module, DWORD reason, void* reserved);

// The library has no state for each thread that must be created or destroyed, so the system need
// not report threads to it.
extern "C" BOOL DllMain(HMODULE module, DWORD reason, void* /*reserved*/)
{
    if (reason == DLL_PROCESS_ATTACH) {
        DisableThreadLibraryCalls(module);
    }
    return true;
}

} // namespace tarnix_cmn_4_4
