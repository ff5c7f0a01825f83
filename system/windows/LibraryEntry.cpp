// Tells the library that it was attached to a process and is about to be detached. The run-time
// library calls this after the library's static objects were built and before they are destroyed.
#include "../Platform.h"

#include <windows.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID reserved)
{
    switch (reason)
    {
    case DLL_PROCESS_ATTACH:
        DisableThreadLibraryCalls(module);
        return Tavrik::Ossira::AttachLibrary(module) ? TRUE : FALSE;
    case DLL_PROCESS_DETACH:
        // Set when the process ends, null when the library is unloaded.
        Tavrik::Ossira::DetachLibrary(reserved != nullptr);
        return TRUE;
    default:
        return TRUE;
    }
}
