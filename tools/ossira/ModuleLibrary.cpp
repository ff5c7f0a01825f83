// The platform says why a file is no library; what is told here is why a library is no module.
#include "ModuleLibrary.h"

#include "Program.h"
#include "WideText.h"

#include <chrono>

namespace Tavrik::tHost
{

namespace
{

struct ExportName
{
    const char* Name;
    bool IsOursAlone; // the others are known to the platform too
};

// All of them are in place in a module; in `ModuleExports` in this order.
constexpr ExportName Required[] = {
    {"DllGetClassObject", false}, {"DllCanUnloadNow", false},    {"DLLGetOpenObjectCount", true},
    {"DLLGetClassCount", true},   {"DLLGetClassObjectID", true}, {"DLLGetClassObjectInfo", true}};

template <class Function>
void Set(Function& function, void* address)
{
    function = reinterpret_cast<Function>(address);
}

} // namespace

CModuleLibrary::CModuleLibrary(const std::string& path)
{
    const std::wstring file = tSystem::AbsolutePath(tSystem::FromUtf8(path));
    mReason = tSystem::HiddenLibraryFault(file);
    if (!mReason.empty())
        return;
    const auto begin = std::chrono::steady_clock::now();
    if (!mLibrary.Open(file.c_str()))
    {
        mReason = mLibrary.FailureText();
        return;
    }
    mLoadMilliseconds =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count();
    FindExports();
}

void CModuleLibrary::FindExports()
{
    std::string missing;
    mIsOtherLibrary = true;
    for (const ExportName& each : Required)
    {
        const bool isThere = mLibrary.Find(each.Name) != nullptr;
        mIsOtherLibrary = mIsOtherLibrary && !(isThere && each.IsOursAlone);
        if (!isThere)
            missing += (missing.empty() ? "" : ", ") + std::string(each.Name);
    }
    mIsOtherLibrary = mIsOtherLibrary && !missing.empty();
    if (!missing.empty())
        mReason = "is no component module: it has no " + missing;
    Set(mExports.GetClassObject, mLibrary.Find(Required[0].Name));
    Set(mExports.CanUnloadNow, mLibrary.Find(Required[1].Name));
    Set(mExports.GetOpenObjectCount, mLibrary.Find(Required[2].Name));
    Set(mExports.GetClassCount, mLibrary.Find(Required[3].Name));
    Set(mExports.GetClassObjectID, mLibrary.Find(Required[4].Name));
    Set(mExports.GetClassObjectInfo, mLibrary.Find(Required[5].Name));
    Set(mExports.RegisterBootstrap, mLibrary.Find("DLLRegisterBootstrap"));
}

} // namespace Tavrik::tHost
