// What is missing is looked for before the library is loaded where the system's loader would not
// say what it was; loading what it needs first does nothing that its own load would not do.
#include "ModuleLibrary.h"

#include "FileKind.h"
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

std::string MissingImport(const std::string& path)
{
    const std::string folder = path.substr(0, path.find_last_of("/\\") + 1);
    std::string opened;
    tSystem::CLibrary library;
    for (const Import& import : ReadImports(FilePath(path)))
    {
        if (import.Function.empty())
        {
            opened = import.Library;
            if (!library.Open(tSystem::FromUtf8(folder + opened).c_str()) &&
                !library.Open(tSystem::FromUtf8(opened).c_str()))
                return "needs the library \"" + opened +
                       "\", which cannot be loaded: " + library.FailureText();
        }
        else if (library.Find(import.Function.c_str()) == nullptr)
        {
            return "needs \"" + import.Function + "\" of the library \"" + opened +
                   "\", which does not have it (undefined symbol)";
        }
    }
    return "";
}

template <class Function>
void Set(Function& function, void* address)
{
    function = reinterpret_cast<Function>(address);
}

} // namespace

CModuleLibrary::CModuleLibrary(const std::string& path) : mReason(WhyNoLibrary(FilePath(path)))
{
    const std::wstring file = tSystem::AbsolutePath(tSystem::FromUtf8(path));
    if (mReason.empty())
        mReason = MissingImport(tSystem::ToUtf8(file));
    if (!mReason.empty())
        return;
    const auto begin = std::chrono::steady_clock::now();
    if (!mLibrary.Open(file.c_str()))
    {
        mReason = "cannot be loaded: " + mLibrary.FailureText();
        if (mLibrary.Failure() == tSystem::ELoadFailure::NotALibrary)
            mReason += "; it is cut short or damaged";
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
