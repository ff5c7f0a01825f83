// The seven entry points that every component module exports. They forward to the module's server;
// callers may be of any language, so null arguments are answered here and nothing is thrown out.
//
// `DllGetClassObject` and `DllCanUnloadNow` are declared by platform headers too, with other types
// for the same shape; that is why no public header declares these entries and why they are looked
// up by name.
#include "ComServer.h"
#include "Library.h"

using namespace Tavrik::Ossira;

OSSIRA_EXPORT Result DllGetClassObject(const CLSID* clsid, const IID* iid, void** out)
try
{
    CComServer* const server = ModuleServer();
    if (server == nullptr)
        return E_ACCESSDENIED;
    if (out == nullptr)
        return E_INVALIDARG;
    *out = nullptr;
    if (clsid == nullptr || iid == nullptr)
        return E_POINTER;
    return server->GetClassObject(*clsid, *iid, out);
}
OSSIRA_CATCH_RETURN

OSSIRA_EXPORT Result DllCanUnloadNow()
{
    CComServer* const server = ModuleServer();
    return server == nullptr ? E_ACCESSDENIED : server->CanUnloadNow();
}

OSSIRA_EXPORT Result DLLGetOpenObjectCount()
{
    CComServer* const server = ModuleServer();
    return server == nullptr ? E_ACCESSDENIED : server->GetOpenObjectCount();
}

OSSIRA_EXPORT Result DLLGetClassCount()
{
    CComServer* const server = ModuleServer();
    return server == nullptr ? E_ACCESSDENIED : server->GetClassCount();
}

OSSIRA_EXPORT Result DLLGetClassObjectID(std::uint32_t first, std::uint32_t count, CLSID* out)
{
    CComServer* const server = ModuleServer();
    if (server == nullptr)
        return E_ACCESSDENIED;
    if (out == nullptr)
        return E_INVALIDARG;
    return server->GetClassObjectID(first, count, out);
}

OSSIRA_EXPORT Result DLLGetClassObjectInfo(std::uint32_t index, char* buffer, std::uint32_t size)
{
    CComServer* const server = ModuleServer();
    if (server == nullptr)
        return E_ACCESSDENIED;
    if (buffer == nullptr)
        return E_INVALIDARG;
    return server->GetClassObjectInfo(index, buffer, size);
}

// The second argument is the host's and of no use to a module that only files its chain.
OSSIRA_EXPORT Result DLLRegisterBootstrap(IUnknown* registry, IUnknown* /*argument*/)
{
    return Library_BootstrapRegisterChain(registry);
}
