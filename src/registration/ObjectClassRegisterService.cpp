// Reads component modules into an object factory: one file, or a whole folder of them. What a
// module answers is not trusted; whatever is wrong with one file of a folder stays with that file.
#include "BulletDirectoryService.h"
#include "DynLib.h"
#include "ObjectAddress.h"
#include "OssiraClasses.h"
#include "PublicUtil.h"

#include <algorithm>
#include <string>
#include <string_view>

namespace Tavrik::Ossira
{

namespace
{

class T_ClassRegisterService : public IClassRegisterService,
                               public CObjectIdentity<T_ClassRegisterService>,
                               public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = CLSID_ClassRegisterService;
    static constexpr std::string_view ClassName = "ClassRegisterService";

    OSSIRA_INTERFACES(IClassRegisterService, IObjectIdentity)

    Result SetFactory(IObjectFactory* factory) override;
    Result GetFactory(IObjectFactory** ppv) override;
    Result RegisterModule(const wchar_t* fileName, IUnknown* registry, IUnknown* argument) override;
    Result RegisterFolder(const wchar_t* path, const wchar_t* pattern, IUnknown* registry,
                          IUnknown* argument) override;

private:
    [[nodiscard]] ObjectPtr<IObjectFactory> FactoryToFill() const;

    ObjectPtr<IObjectFactory> mFactory; // null: the global one
};

// The runtime's own classes are never read in as a module's.
[[nodiscard]] bool IsRuntimeFile(std::wstring_view fileName)
{
    constexpr std::wstring_view own = L"tavrikossira.dll";
    return std::ranges::equal(fileName, own,
                              [](wchar_t a, wchar_t b)
                              { return (a >= L'A' && a <= L'Z' ? a + (L'a' - L'A') : a) == b; });
}

[[nodiscard]] std::wstring JoinPath(std::wstring_view folder, std::wstring_view name)
{
    // An empty folder is scanned as the current one; a bare name would be looked up elsewhere.
    std::wstring path(folder.empty() ? L"." : folder);
    if (path.back() != L'\\' && path.back() != L'/')
        path += tSystem::PathSeparator;
    return path.append(name);
}

Result InternalRegisterServer(IObjectFactory& factory, OssiraComServer& module,
                              const wchar_t* fileName)
{
    const std::uint32_t mask = CurrentLevelMask();
    OssiraComServer* const server = &module;
    const Result count = server->GetClassCount();
    if (Failed(count))
        return count;
    OSSIRA_PRINT(mask, PRINT_TRACE, "Register Classes from Library \"%ls\" [#%d] [f:0x%x]:\n",
                 fileName, count, LowAddress(&factory));

    for (std::uint32_t index = 0; index < static_cast<std::uint32_t>(count); ++index)
    {
        CLSID clsid = GUID_Null;
        OSSIRA_CHECK_CALL_TWICE(server->GetClassObjectID(index, 1, &clsid),
                                "server->GetClassObjectID()");
        constexpr std::uint32_t infoSize = 255;
        char info[infoSize + 1] = {}; // one more than the module knows of, for the end of the text
        OSSIRA_CHECK_CALL_TWICE(server->GetClassObjectInfo(index, info, infoSize),
                                "server->GetClassObjectInfo()");
        info[infoSize] = '\0';
        OSSIRA_CHECK_CALL_TWICE(factory.RegisterClass(clsid, fileName, info),
                                "Factory->RegisterClass()");
    }
    OSSIRA_PRINT(mask, PRINT_TRACE, "Register Classes Finished\n");
    return S_OK;
}

// The library is loaded only while this runs; the factory has a loader of its own.
Result InternalRegisterModule(IObjectFactory& factory, const wchar_t* fileName, IUnknown* registry,
                              IUnknown* argument)
{
    const std::uint32_t mask = CurrentLevelMask();
    CDynLib library;
    if (const Result opened = library.Open(fileName); Failed(opened))
    {
        OSSIRA_PRINT(mask, PRINT_TRACE, "Cannot open Library \"%ls\"\n", fileName);
        return opened;
    }
    OSSIRA_PRINT(mask, PRINT_TRACE, "Library \"%ls\" opened\n", fileName);
    const Result result = InternalRegisterServer(factory, library, fileName);
    return Failed(result) || registry == nullptr ? result
                                                 : library.RegisterBootstrap(registry, argument);
}

// One file of a folder. Its failures end here, but for exhausted memory: without memory the files
// after it would fare no better, and the caller has to know.
void RegisterFolderItem(IObjectFactory& factory, const wchar_t* fileName, IUnknown* registry,
                        IUnknown* argument)
{
    try
    {
        InternalRegisterModule(factory, fileName, registry, argument);
    }
    catch (IException*)
    {
        OSSIRA_LOCATION(here);
        if (ReportCaught(here) == E_OUTOFMEMORY)
            throw std::bad_alloc();
    }
}

ObjectPtr<IObjectFactory> T_ClassRegisterService::FactoryToFill() const
{
    ObjectPtr<IObjectFactory> factory = mFactory;
    if (!factory)
    {
        OSSIRA_CHECK_CALL_TWICE(CreateSingleton(CLSID_GlobalObjectFactory, factory),
                                "CreateSingletonObjectFactory(&Factory)");
    }
    return factory;
}

Result T_ClassRegisterService::SetFactory(IObjectFactory* factory)
{
    mFactory = ObjectPtr<IObjectFactory>(factory);
    return S_OK;
}

Result T_ClassRegisterService::GetFactory(IObjectFactory** ppv)
try
{
    OSSIRA_CHECK_POINTER(ppv);
    *ppv = mFactory.Get(); // borrowed
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_ClassRegisterService::RegisterModule(const wchar_t* fileName, IUnknown* registry,
                                              IUnknown* argument)
try
{
    OSSIRA_CHECK_POINTER(fileName);
    OSSIRA_CHECK(!IsRuntimeFile(fileName), E_INVALIDARG, "Cannot register base-dll");
    return InternalRegisterModule(*FactoryToFill(), fileName, registry, argument);
}
OSSIRA_CATCH_RETURN

Result T_ClassRegisterService::RegisterFolder(const wchar_t* path, const wchar_t* pattern,
                                              IUnknown* registry, IUnknown* argument)
try
{
    OSSIRA_CHECK_POINTER(path);
    CDirectoryCollection Directory;
    OSSIRA_CHECK_CALL_TWICE(Directory.ScanDirectory(path, pattern == nullptr ? L"*.dll" : pattern),
                            "Directory.ScanDirectory()");
    const ObjectPtr<IObjectFactory> factory = FactoryToFill();
    while (Directory.MoveNext() == S_OK)
    {
        std::wstring ModulPath;
        OSSIRA_CHECK_CALL_TWICE(Directory.CurrentItemPath(&ModulPath),
                                "Directory.CurrentItemPath(&ModulPath)");
        if (IsRuntimeFile(ModulPath))
            continue;
        RegisterFolderItem(*factory, JoinPath(path, ModulPath).c_str(), registry, argument);
    }
    return S_OK;
}
OSSIRA_CATCH_RETURN

} // namespace

OSSIRA_CLASS(T_ClassRegisterService, "ClassRegisterService")

} // namespace Tavrik::Ossira
