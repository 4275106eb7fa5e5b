// What the library does while it is being loaded.
#include "platform.h"

extern "C" BOOL DllMain(HMODULE module, DWORD reason, void* reserved);

// The library keeps nothing for each thread, so it need not be told of them. There is nothing else
// to set up, and nothing to do when the library goes.
extern "C" BOOL DllMain(HMODULE module, DWORD reason, void* /*reserved*/)
{
    if (reason == DLL_PROCESS_ATTACH) {
        DisableThreadLibraryCalls(module);
    }
    return true;
}
