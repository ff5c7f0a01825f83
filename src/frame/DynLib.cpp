// Loads a component module and calls its exports. Every call is a boundary: an object that a module
// throws may run the module's code when it is destroyed, so it must not travel to a place where the
// module has been unloaded.
#include "DynLib.h"

#include <mutex>

namespace Tavrik::Ossira
{

namespace
{

// Needed at the end of the process, when static objects may be gone: no construction, no
// destruction.
constinit tSystem::CFastCriticalSection gOpenListLock;
constinit CDynLib* gOpenList = nullptr;

} // namespace

CDynLib::~CDynLib()
{
    Close();
}

Result CDynLib::Open(const wchar_t* path)
{
    Close();
    if (path == nullptr || !mLibrary.Open(path))
        return E_FAIL;

    const bool isModule = Resolve("DllGetClassObject", mExports.GetClassObject) &&
                          Resolve("DllCanUnloadNow", mExports.CanUnloadNow) &&
                          Resolve("DLLGetOpenObjectCount", mExports.GetOpenObjectCount) &&
                          Resolve("DLLGetClassCount", mExports.GetClassCount) &&
                          Resolve("DLLGetClassObjectID", mExports.GetClassObjectID) &&
                          Resolve("DLLGetClassObjectInfo", mExports.GetClassObjectInfo);
    if (!isModule)
    {
        mLibrary.Close();
        return E_FAIL;
    }
    EnterOpenList();
    return S_OK;
}

template <class Export>
bool CDynLib::Resolve(const char* name, Export& export_) const noexcept
{
    export_ = reinterpret_cast<Export>(mLibrary.Find(name));
    return export_ != nullptr;
}

void CDynLib::EnterOpenList() noexcept
{
    const tSystem::CLockGuard guard(gOpenListLock);
    mNext = gOpenList;
    mPrevious = nullptr;
    if (mNext != nullptr)
        mNext->mPrevious = this;
    gOpenList = this;
}

// The library is unloaded after the list was left: its clean-up code may open and close others.
void CDynLib::Close() noexcept
{
    if (!mLibrary.IsOpen())
        return;
    {
        const tSystem::CLockGuard guard(gOpenListLock);
        (mPrevious != nullptr ? mPrevious->mNext : gOpenList) = mNext;
        if (mNext != nullptr)
            mNext->mPrevious = mPrevious;
    }
    mLibrary.Close();
}

bool CDynLib::AnyTornDown() noexcept
{
    const std::unique_lock guard(gOpenListLock, std::try_to_lock);
    if (!guard.owns_lock())
        return true;
    for (CDynLib* library = gOpenList; library != nullptr; library = library->mNext)
    {
        // What the exports answer once the module's server is gone.
        if (library->GetClassCount() == E_ACCESSDENIED)
            return true;
    }
    return false;
}

template <class Export, class... Arguments>
Result CDynLib::Call(Export Exports::*export_, Arguments... arguments)
try
{
    if (!mLibrary.IsOpen())
        return E_NOINTERFACE;
    return (mExports.*export_)(arguments...);
}
OSSIRA_CATCH_RETURN

Result CDynLib::GetClassObject(const CLSID& clsid, const IID& iid, void** out)
{
    return Call(&Exports::GetClassObject, &clsid, &iid, out);
}

Result CDynLib::CanUnloadNow()
{
    return Call(&Exports::CanUnloadNow);
}

Result CDynLib::GetOpenObjectCount()
{
    return Call(&Exports::GetOpenObjectCount);
}

Result CDynLib::GetClassCount()
{
    return Call(&Exports::GetClassCount);
}

Result CDynLib::GetClassObjectID(std::uint32_t first, std::uint32_t count, CLSID* out)
{
    return Call(&Exports::GetClassObjectID, first, count, out);
}

Result CDynLib::GetClassObjectInfo(std::uint32_t index, char* buffer, std::uint32_t size)
{
    return Call(&Exports::GetClassObjectInfo, index, buffer, size);
}

Result CDynLib::RegisterBootstrap(IUnknown* registry, IUnknown* argument)
try
{
    if (!mLibrary.IsOpen())
        return E_NOINTERFACE;
    Result (*registerBootstrap)(IUnknown*, IUnknown*) = nullptr;
    if (!Resolve("DLLRegisterBootstrap", registerBootstrap))
        return S_FALSE;
    return registerBootstrap(registry, argument);
}
OSSIRA_CATCH_RETURN

void CDynLib::Destroy()
{
}

Result CDynLib::RemoveObject(IUnknown* /*privateUnknown*/)
{
    return E_NOTIMPL;
}

Result CDynLib::AddObject(IUnknown* /*privateUnknown*/, const CLSID& /*clsid*/)
{
    return E_NOTIMPL;
}

Result CDynLib::IsForeignClass(const CLSID& /*clsid*/)
{
    return E_NOTIMPL;
}

} // namespace Tavrik::Ossira
