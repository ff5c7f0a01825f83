// Tells the library that it was attached to a process and is about to be detached. The run-time
// library calls this after the library's static objects were built and before they are destroyed.
// That a thread ends is told to it too, because then the thread's variables are given back.
#include "../Platform.h"
#include "ThreadVariables.h"

#include <windows.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID reserved)
{
    switch (reason)
    {
    case DLL_PROCESS_ATTACH:
        return Tavrik::Ossira::tSystem::PrepareVariables() && Tavrik::Ossira::AttachLibrary()
                   ? TRUE
                   : FALSE;
    case DLL_THREAD_DETACH:
        Tavrik::Ossira::tSystem::ReleaseVariablesOfThread();
        return TRUE;
    case DLL_PROCESS_DETACH:
    {
        const bool processEnds = reserved != nullptr; // else the library is unloaded
        Tavrik::Ossira::DetachLibrary(processEnds);
        if (processEnds)
            Tavrik::Ossira::tSystem::KeepVariablesOfAllThreads();
        return TRUE;
    }
    default:
        return TRUE;
    }
}
