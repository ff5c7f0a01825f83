// Attach and detach of a module, the global singleton as the module holds it, and the chain of
// classes that the module files when it is registered. The variables here need no construction and
// no destruction: they are used before the module's static objects live and after they are gone.
#include "Library.h"

#include "ComServer.h"
#include "ObjectMemory.h"
#include "PublicUtil.h"

#include <atomic>
#include <new>

namespace Tavrik::Ossira
{

namespace
{

constinit std::atomic<ISingleton*> gSingleton = nullptr;
constinit const BootstrapRecord* gBootstrapChain = nullptr;

} // namespace

BootstrapRecord::BootstrapRecord(tDetail::CLastingGuid clsid, tDetail::CLastingGuid category,
                                 tDetail::CLastingGuid group, const char* text) noexcept
    : Next(gBootstrapChain), ClassId(clsid.Get()), Category(category.Get()), Group(group.Get()),
      Text(text)
{
    gBootstrapChain = this;
}

tSystem::CCriticalSection& GlobalCriticalSection() noexcept
{
    // Never destroyed: objects of this module may be released while the process ends.
    alignas(
        tSystem::CCriticalSection) static unsigned char storage[sizeof(tSystem::CCriticalSection)];
    static auto* const section =
        new (storage) tSystem::CCriticalSection(tSystem::ELockRank::ProcessWide);
    return *section;
}

bool AttachLibrary() noexcept
{
    static_cast<void>(GlobalCriticalSection()); // made now, while no other thread can be here
    if (ModuleServer() != nullptr)
        return true;
    AttachObjectMemory(true);
    CComServer::SetOfModule(CComServer::Create());
    if (ModuleServer() == nullptr)
    {
        DebugOutputF("\aOssira: CreateComServer failed - fatal [Build-DynLib]\n");
        return false;
    }
    if (Succeeded(OnAttached()))
        return true;
    DetachLibrary(false); // attached halfway is not attached
    return false;
}

void DetachLibrary(bool processEnds) noexcept
{
    CComServer* const server = ModuleServer();
    if (processEnds)
    {
        if (server != nullptr)
            server->DumpLiveObjects(true);
        return;
    }
    if (CanReleaseForeignObjects())
    {
        ObjectPtr<ISingleton>::Adopt(gSingleton.exchange(nullptr)).Reset();
        OnDetaching();
    }
    if (server != nullptr)
    {
        server->DumpLiveObjects(false); // in place: an object that dies meanwhile leaves its list
        CComServer::SetOfModule(nullptr);
        server->Destroy();
    }
    AttachObjectMemory(false);
}

ISingleton* ExistingSingleton() noexcept
{
    return gSingleton.load(std::memory_order_acquire);
}

bool IsSingletonVariable(void** out) noexcept
{
    return static_cast<void*>(out) == static_cast<void*>(&gSingleton);
}

// The loser of a race releases its object again.
static void KeepSingleton(ObjectPtr<ISingleton>& singleton) noexcept
    OSSIRA_UNDER(GlobalCriticalSection())
{
    if (ExistingSingleton() == nullptr)
        gSingleton = singleton.Detach();
}

Result InitializeGlobalSingleton()
{
    if (ExistingSingleton() != nullptr)
        return S_OK;
    if (ModuleServer() == nullptr)
        return E_ACCESSDENIED;

    ObjectPtr<ISingleton> singleton;
    const Result result = CreateGlobalSingleton(IID_ISingleton, singleton.PutVoid());
    if (Failed(result))
    {
        DebugOutputF("\aOssira: InitializeGlobalSingleton, cannot create CLSID_GlobalSingleton "
                     "object [Build-DynLib]\n");
        return result;
    }
    if (!singleton)
    {
        DebugOutputF("\aOssira: InitializeGlobalSingleton: error #5 [Build-DynLib]\n");
        return E_NOINTERFACE;
    }

    const tSystem::CLockGuard guard(GlobalCriticalSection());
    KeepSingleton(singleton);
    return result;
}

Result Library_BootstrapRegisterChain(IUnknown* registry)
try
{
    const std::uint32_t mask = CurrentLevelMask();
    if (registry == nullptr)
    {
        OSSIRA_PRINT(mask, PRINT_ERROR, "clsidRegistry == NULL\n");
        return E_INVALIDARG;
    }
    ObjectPtr<IClsidRegistry> clsidRegistry;
    if (const Result result = registry->QueryInterface(IID_IClsidRegistry, clsidRegistry.PutVoid());
        Failed(result))
    {
        OSSIRA_PRINT(mask, PRINT_ERROR,
                     "clsidRegistry->QueryInterface(IID_IClsidRegistry, ) failed\n");
        return result;
    }
    OSSIRA_CHECK(clsidRegistry, E_NOINTERFACE, "clsidRegistry->QueryInterface()");

    for (const BootstrapRecord* record = gBootstrapChain; record != nullptr; record = record->Next)
    {
        OSSIRA_PRINT(mask, PRINT_TRACE, "  Bootstrap Register %s - Cat:%s  Group:%s  Class:%s\n",
                     record->Text, CGuidText(*record->Category).Text(),
                     CGuidText(*record->Group).Text(), CGuidText(*record->ClassId).Text());
        const Result result =
            clsidRegistry->RegisterGroupClass(*record->Category, *record->Group, *record->ClassId);
        if (Failed(result))
        {
            OSSIRA_PRINT(mask, PRINT_ERROR,
                         "Bootstrap Register %s failed - Cat:%s  Group:%s  Class:%s\n",
                         record->Text, CGuidText(*record->Category).Text(),
                         CGuidText(*record->Group).Text(), CGuidText(*record->ClassId).Text());
            return result;
        }
    }
    return S_OK;
}
OSSIRA_CATCH_RETURN

} // namespace Tavrik::Ossira
