// Tells the library that it was attached to a process and is about to be detached.
//
// This object stands last on the library's link line, so that it runs after the library's own
// static objects were built. Detaching has two triggers, because no single one comes early enough:
// on unloading, the destructor function runs before any static object of the library is destroyed;
// when the process ends, a library that was loaded at run time loses its static objects before its
// destructor functions run, and only what was registered with `atexit` after they were built comes
// before that. A library that was loaded with the program registers too early: its destructor
// functions come first, but as it is never unloaded they always tell of the process's end.
#include "../Platform.h"

#include <cstdlib>
#include <dlfcn.h>
#include <sys/auxv.h>
#include <unwind.h>

namespace
{

bool IsDetached = false;
bool IsLoadedWithProgram = false;

// The loader itself then stands where otherwise the program or a thread of it began.
bool IsCalledBeforeTheProgram() noexcept
{
    void* outermost = nullptr;
    const auto takePlace = [](_Unwind_Context* context, void* place)
    {
        if (void* const at = reinterpret_cast<void*>(_Unwind_GetIP(context)); at != nullptr)
            *static_cast<void**>(place) = at;
        return _URC_NO_REASON;
    };
    _Unwind_Backtrace(takePlace, &outermost);
    Dl_info owner;
    return dladdr(outermost, &owner) != 0 &&
           reinterpret_cast<std::uintptr_t>(owner.dli_fbase) == getauxval(AT_BASE);
}

void Detach(bool processEnds)
{
    if (!IsDetached)
        Tavrik::Ossira::DetachLibrary(processEnds);
    IsDetached = true;
}

// Other threads run on here while the process ends, and use what would be released.
[[maybe_unused]] void OnProcessEnd()
{
    Detach(true);
}

// Here a library cannot refuse to be loaded. If attaching fails, the library stays until whoever
// loaded it closes it, and every one of its exports answers `E_ACCESSDENIED` as it does before
// attaching and after detaching.
__attribute__((constructor)) void OnLoad()
{
    IsLoadedWithProgram = IsCalledBeforeTheProgram();
#ifndef __SANITIZE_THREAD__ // which would call the function of a library that is gone
    if (Tavrik::Ossira::AttachLibrary() && std::atexit(OnProcessEnd) != 0)
        Tavrik::Ossira::DetachLibrary(false);
#else
    static_cast<void>(Tavrik::Ossira::AttachLibrary());
#endif
}

__attribute__((destructor)) void OnUnload()
{
    Detach(IsLoadedWithProgram);
}

} // namespace
