// Loads a component module and calls its exports. Every call is a boundary: an object that a module
// throws may run the module's code when it is destroyed, so it must not travel to a place where the
// module has been unloaded.
#include "DynLib.h"

#include "Library.h"

#include <mutex>

namespace Tavrik::Ossira
{

namespace
{

// Needed at the end of the process, when static objects may be gone: no construction, no
// destruction.
constinit tSystem::CLinkedList<CDynLib> gOpenList OSSIRA_GUARDED_BY(GlobalCriticalSection());

// The platform's own lock, which nobody sees, as the check of the order knows it.
constinit const char gLoaderLock = 0;

// A library's start-up and clean-up code runs under the platform's lock and may ask for singletons,
// which are made under the process-wide section; so whoever takes the one has taken the other
// before.
class OSSIRA_GUARD CLoading
{
public:
    explicit CLoading(const tSystem::LockPlace& place = tSystem::LockPlace::current())
        OSSIRA_TAKES(GlobalCriticalSection())
        : mSection(GlobalCriticalSection(), place)
    {
        tSystem::EnterLock(&gLoaderLock, tSystem::ELockRank::Loader, place);
    }

    ~CLoading() OSSIRA_GIVES()
    {
        tSystem::LeaveLock(&gLoaderLock);
    }

    CLoading(const CLoading&) = delete;
    CLoading& operator=(const CLoading&) = delete;

private:
    const tSystem::CLockGuard<tSystem::CCriticalSection> mSection;
};

} // namespace

CDynLib::~CDynLib()
{
    Close();
}

Result CDynLib::Open(const wchar_t* path)
{
    const CLoading loading;
    Close();
    // A module may have failed to attach for want of memory, which does not show: once more then.
    for (int chance = 0; chance < 2; ++chance)
    {
        if (!mLibrary.Open(path))
            return mLibrary.Failure() == tSystem::ELoadFailure::NoMemory ? E_OUTOFMEMORY : E_FAIL;
        ResolveExports();
        if (mMissingCount == 0 && IsAttached())
        {
            gOpenList.Enter(*this);
            return S_OK;
        }
        mLibrary.Close();
        if (mMissingCount != 0)
            break;
    }
    return E_FAIL;
}

void CDynLib::ResolveExports() noexcept
{
    mMissingCount = 0;
    Require("DllGetClassObject", mExports.GetClassObject);
    Require("DllCanUnloadNow", mExports.CanUnloadNow);
    Require("DLLGetOpenObjectCount", mExports.GetOpenObjectCount);
    Require("DLLGetClassCount", mExports.GetClassCount);
    Require("DLLGetClassObjectID", mExports.GetClassObjectID);
    Require("DLLGetClassObjectInfo", mExports.GetClassObjectInfo);
}

bool CDynLib::LacksResources() const noexcept
{
    const tSystem::ELoadFailure failure = mLibrary.Failure();
    return failure == tSystem::ELoadFailure::NoMemory ||
           failure == tSystem::ELoadFailure::NoResources || failure == tSystem::ELoadFailure::Io;
}

// A module whose start-up failed and that the platform loaded all the same refuses every call for
// as long as it is loaded. What it throws here it will throw again where it is reported.
bool CDynLib::IsAttached() const noexcept
{
    for (Result (*const ask)() :
         {mExports.GetOpenObjectCount, mExports.GetClassCount, mExports.CanUnloadNow})
    {
        try
        {
            if (ask() != E_ACCESSDENIED)
                return true;
        }
        catch (...)
        {
            DiscardCaught();
            return true;
        }
    }
    return false;
}

template <class Export>
bool CDynLib::Resolve(const char* name, Export& export_) const noexcept
{
    export_ = reinterpret_cast<Export>(mLibrary.Find(name));
    return export_ != nullptr;
}

template <class Export>
void CDynLib::Require(const char* name, Export& export_) noexcept
{
    if (!Resolve(name, export_))
        mMissing[mMissingCount++] = name;
}

std::string CDynLib::WhyNot() const
{
    if (mLibrary.Failure() != tSystem::ELoadFailure::None)
        return "it " + mLibrary.FailureText();
    if (mMissingCount == 0)
        return "its start-up failed, and it refuses every call";
    std::string text = "it is no component module: it has no ";
    for (std::size_t index = 0; index < mMissingCount; ++index)
        text.append(index == 0 ? "" : ", ").append(mMissing[index]);
    return text;
}

void CDynLib::ReportFailure(const wchar_t* name) const
{
    OSSIRA_PRINT(CurrentLevelMask(), PRINT_WARN, "Library \"%ls\" is not used: %s\n", name,
                 WhyNot().c_str());
}

// It leaves the list first: the library's clean-up code may open and close others.
void CDynLib::Close() noexcept
{
    if (!mLibrary.IsOpen())
        return;
    const CLoading loading;
    gOpenList.Leave(*this);
    mLibrary.Close();
}

bool CDynLib::AnyTornDown() noexcept OSSIRA_UNCHECKED_GUARDS // does not wait for it
{
    const std::unique_lock section(GlobalCriticalSection(), std::try_to_lock);
    if (!section.owns_lock())
        return true;
    for (CDynLib* library = gOpenList.First(); library != nullptr;
         library = gOpenList.Next(*library))
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
    tSystem::CheckForeignCall();
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
