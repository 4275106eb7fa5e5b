// What the library does while it is being loaded.
#include "platform.h"

namespace tarnix_cmn_4_4
{

extern "C" BOOL DllMain(HMODULE module, DWORD reason, void* reserved);

// Nothing that the library keeps for a thread needs a start or an end, so the system need not
// report threads to it. There is nothing else to set up, and nothing to do at unloading.
extern "C" BOOL DllMain(HMODULE module, DWORD reason, void* /*reserved*/)
{
    if (reason == DLL_PROCESS_ATTACH) {
        DisableThreadLibraryCalls(module);
    }
    return true;
}

} // namespace tarnix_cmn_4_4
