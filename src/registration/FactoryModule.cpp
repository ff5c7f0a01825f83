// A use is counted under the word; whoever unloads asks first, with no lock held, and looks
// afterwards whether somebody came meanwhile. Loading waits for unloading by the process-wide
// section, so a file is never opened while it is being closed.
#include "FactoryModule.h"

#include "Library.h"

namespace Tavrik::Ossira
{

CFactoryModule::~CFactoryModule()
try
{
    const std::uint32_t mask = CurrentLevelMask();
    const Result count =
        mLibrary == nullptr || (mask & PRINT_WARN) == 0 ? 0 : mLibrary->GetOpenObjectCount();
    if (count > 0)
    {
        OSSIRA_PRINT(mask, PRINT_WARN,
                     "Module \"%ls\" is unloaded while %d of its objects are alive: somebody keeps "
                     "them still, or forgot to release them\n",
                     mPath.c_str(), count);
    }
}
catch (...)
{
    DiscardCaught(); // a destructor has nobody to tell
}

// The module's start-up code runs in here and may come here itself; whoever is through first wins.
Result CFactoryModule::CUse::LoadNow()
{
    const tSystem::CLockGuard section(GlobalCriticalSection());
    std::unique_ptr<CDynLib> opened;
    std::wstring path = mModule->mPath;
    mLoader = mModule->Install(opened, path);
    if (mLoader == nullptr)
    {
        opened = std::make_unique<CDynLib>();
        if (const Result result = opened->Open(path.c_str()); Failed(result))
        {
            opened->ReportFailure(path.c_str());
            return result;
        }
        mLoader = mModule->Install(opened, path);
    }
    return S_OK;
}

void CFactoryModule::CUse::Adopt(std::unique_ptr<CDynLib>& opened, const std::wstring& path)
{
    const tSystem::CLockGuard section(GlobalCriticalSection());
    std::wstring newPath = path;
    mLoader = mModule->Install(opened, newPath);
}

CDynLib* CFactoryModule::Install(std::unique_ptr<CDynLib>& opened, std::wstring& path) noexcept
{
    const tSystem::CLockGuard guard(mLock);
    if (mLibrary == nullptr)
    {
        mLibrary = std::move(opened);
        mPath.swap(path);
    }
    return mLibrary.get();
}

// It goes out of use only, and only while nobody loads it.
std::unique_ptr<CDynLib> CFactoryModule::TakeLibrary() noexcept
{
    return std::move(mLibrary);
}

bool CFactoryModule::UnloadIfIdle()
{
    CUse use;
    std::uint64_t begun = 0;
    {
        const tSystem::CLockGuard guard(mLock);
        if (mLibrary == nullptr || IsInUse())
            return false;
        use.Begin(*this);
        begun = mUsesBegun;
    }
    if (use.Loader()->CanUnloadNow() != S_OK)
        return false;
    const tSystem::CLockGuard section(GlobalCriticalSection());
    std::unique_ptr<CDynLib> unloaded; // outside the word: the module's clean-up code runs then
    const tSystem::CLockGuard guard(mLock);
    use.End();
    if (mUsesBegun == begun) // then none lasts either
        unloaded = TakeLibrary();
    return unloaded != nullptr;
}

} // namespace Tavrik::Ossira
