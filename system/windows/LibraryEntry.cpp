// Tells the library that it was attached to a process and is about to be detached. The run-time
// library calls this after the library's static objects were built and before they are destroyed.
// That a thread ends is told to it too, because then the thread's variables are given back.
#include "../Platform.h"
#include "ThreadVariables.h"

#include <windows.h>

// Of the compiler's run-time library, of which every module has its own copy: gives back the memory
// that the copy keeps for exceptions when there is no other. It would stay behind at each unload.
namespace __gnu_cxx
{
void __freeres();
}

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
        else
            __gnu_cxx::__freeres();
        return TRUE;
    }
    default:
        return TRUE;
    }
}
