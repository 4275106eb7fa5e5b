// What the library does while it is being loaded.
#include "platform.h"

extern "C" BOOL DllMain(HMODULE module, DWORD reason, void* reserved);

// Nothing that the library has for a thread needs a start or an end, so it need not be told of
// them. There is nothing else
// to set up, and nothing to do when the library goes.
extern "C" BOOL DllMain(HMODULE module, DWORD reason, void* /*reserved*/)
{
    if (reason == DLL_PROCESS_ATTACH) {
        DisableThreadLibraryCalls(module);
    }
    return true;
}
