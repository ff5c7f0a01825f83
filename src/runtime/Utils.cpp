// The runtime's front door: `CreateClassObject`. It creates the runtime's own classes by itself,
// asks the global object factory for others, and hands out the one global singleton.
#include "ComServer.h"
#include "Library.h"
#include "ObjectAddress.h"
#include "OssiraClasses.h"

namespace Tavrik::Ossira
{

namespace
{

Result HandOutGlobalSingleton(const IID& iid, void** out)
{
    if (IsSingletonVariable(out))
    {
        DebugOutputF("\aOssira: CreateClassObject: Forbidden use of &gbSingleton as ppv "
                     "[Build-DynLib]\n");
        return E_ACCESSDENIED;
    }
    *out = nullptr;
    const std::uint32_t mask = CurrentLevelMask();
    if (const Result result = InitializeGlobalSingleton(); Failed(result))
        return result;

    const Result result = ExistingSingleton()->QueryInterface(iid, out);
    if (Failed(result))
    {
        OSSIRA_PRINT(mask, PRINT_WARN, "GlobalSingleton Object failed: IID %s  [Build-DynLib]\n",
                     CGuidText(iid).Text());
        return result;
    }
    OSSIRA_PRINT(mask, PRINT_TRACE, "GlobalSingleton Object 0x%x obtained [Build-DynLib]\n",
                 LowAddress(*out));
    return result;
}

Result CreateByFactory(ISingleton& singleton, const CLSID& clsid, const IID& iid, void** out)
{
    ObjectPtr<IObjectFactory> factory;
    const Result result =
        singleton.GetClassObject(CLSID_GlobalObjectFactory, IID_IObjectFactory, factory.PutVoid());
    return Failed(result) ? result : factory->GetClassObject(clsid, iid, out);
}

} // namespace

} // namespace Tavrik::Ossira

using namespace Tavrik::Ossira;

// What is refused, and what is not created by a class of the runtime's own.
[[gnu::noinline]] static Result CreateClassObject(CComServer* server, const CLSID* clsid,
                                                  const IID* iid, void** out)
try
{
    if (server == nullptr)
    {
        DebugOutputF("\aOssira: CreateClassObject: gbComServer not available: Access Denied "
                     "[Build-DynLib]\n");
        return E_ACCESSDENIED;
    }
    if (out == nullptr)
    {
        DebugOutputF("\aOssira: CreateClassObject: invalid pointer 'ppv' [Build-DynLib]\n");
        return E_POINTER;
    }
    if (clsid == nullptr || iid == nullptr)
    {
        *out = nullptr;
        DebugOutputF("\aOssira: CreateClassObject: invalid pointer '%s' [Build-DynLib]\n",
                     clsid == nullptr ? "clsid" : "iid");
        return E_POINTER;
    }
    if (SameGuid(*clsid, CLSID_GlobalSingleton))
        return HandOutGlobalSingleton(*iid, out);

    const ClassEntry* const entry = server->FindClass(*clsid);
    if (ISingleton* const singleton = ExistingSingleton(); entry == nullptr && singleton != nullptr)
    {
        const Result result = CreateByFactory(*singleton, *clsid, *iid, out);
        if (Succeeded(result))
            return result;
        *out = nullptr;
        if (result == E_OUTOFMEMORY) // and not that there is no such class
            return result;
    }
    return server->CreateObject(entry, *clsid, *iid, out);
}
OSSIRA_CATCH_RETURN

Result CreateClassObject(const CLSID* clsid, const IID* iid, void** out)
{
    CComServer* const server = ModuleServer();
    if (server != nullptr && out != nullptr && clsid != nullptr && iid != nullptr) [[likely]]
    {
        const ClassEntry* const entry = server->FindClassAtOnce(*clsid);
        if (entry != nullptr && !SameGuid(*clsid, CLSID_GlobalSingleton)) [[likely]]
            return server->CreateObject(entry, *clsid, *iid, out);
    }
    return CreateClassObject(server, clsid, iid, out);
}

std::uint32_t GetObjectOpenCount()
{
    CComServer* const server = ModuleServer();
    return server == nullptr ? 0 : static_cast<std::uint32_t>(server->GetOpenObjectCount());
}
