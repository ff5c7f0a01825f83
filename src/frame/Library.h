// The module as a whole: its server, its way to the global singleton, its bootstrap chain and its
// process-wide lock. `AttachLibrary` and `DetachLibrary`, which the platform's library entry calls,
// are declared with what a platform supplies.
#pragma once

#include "OssiraFrame.h"
#include "OssiraServices.h"
#include "Platform.h"

namespace Tavrik::Ossira
{

// In the runtime the process-wide section, under which singletons are created and released and
// modules are loaded and unloaded; in a module a section of its own.
[[nodiscard]] tSystem::CCriticalSection& GlobalCriticalSection() noexcept;

// Gets hold of the global singleton, creating it at the first request. `E_ACCESSDENIED` before
// attach and after detach. Threads that race end with one singleton.
[[nodiscard]] Result InitializeGlobalSingleton();

// The global singleton, borrowed: the module holds it until detach. Throws `E_NOINTERFACE` when
// there is none to be had. Returns `out`.
ISingleton** GetSingleton(ISingleton** out);

// The global singleton if this module has it already, borrowed, or null.
[[nodiscard]] ISingleton* ExistingSingleton() noexcept;

// Whether an out parameter points at the module's own variable of the singleton: filling it would
// overwrite the owning pointer.
[[nodiscard]] bool IsSingletonVariable(void** out) noexcept;

// Releases what is being handled, for where nobody can be told of it. A thread that is being ended
// goes on through it. Call it in a catch clause only.
void DiscardCaught();

// Files every class of the module's bootstrap chain with a CLSID registry.
Result Library_BootstrapRegisterChain(IUnknown* registry);

// The levels that an observer prints; 0 for none, and for one that throws. Foreign: call it while
// no spin word is held.
[[nodiscard]] std::uint32_t LevelMaskOf(IObserverPrint* observer);

// --- What the runtime does in one way and a component module in another ------------------------

// The runtime makes the one singleton; a module asks the runtime for it.
[[nodiscard]] Result CreateGlobalSingleton(const IID& iid, void** out);

// The runtime puts the default observer in place; a module has nothing to do. A failure refuses
// the load.
[[nodiscard]] Result OnAttached() noexcept;

// The runtime releases the observer. After this nothing is printed but the list of live objects.
void OnDetaching() noexcept;

// Whether the library itself holds an object until it is detached: the global singleton and the
// observer in place. Waits for no lock.
[[nodiscard]] bool IsHeldByLibrary(IUnknown* object) noexcept;

// Whether objects of other modules can still be released. At the end of a process modules are torn
// down before the runtime that they depend on; their objects must then be left alone.
[[nodiscard]] bool CanReleaseForeignObjects() noexcept;

} // namespace Tavrik::Ossira
