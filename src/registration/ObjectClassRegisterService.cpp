// Reads component modules into an object factory: one file, or a whole folder of them. What a
// module answers is not trusted; whatever is wrong with one file of a folder stays with that file.
#include "BulletDirectoryService.h"
#include "ClsidRegistry.h"
#include "FactoryModule.h"
#include "ObjectAddress.h"
#include "OssiraClasses.h"
#include "PublicUtil.h"

#include <optional>
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

[[nodiscard]] std::wstring JoinPath(std::wstring_view folder, std::wstring_view name)
{
    // An empty folder is scanned as the current one; a bare name would be looked up elsewhere.
    std::wstring path(folder.empty() ? L"." : folder);
    if (path.back() != L'\\' && path.back() != L'/')
        path += tSystem::PathSeparator;
    return path.append(name);
}

// A module file, and the path that leads to it even if the current folder changes meanwhile.
struct ModuleFile
{
    const std::wstring& Name;
    const std::wstring& Path;
};

// A module while it is read in. The factory gets the loader at once, so that one load serves both,
// and nobody unloads the module before this ends: its classes may be entered already while what it
// does next, entering a singleton perhaps, needs it still.
class CModuleInHand
{
public:
    CModuleInHand(IObjectFactory& factory, std::unique_ptr<CDynLib> opened, const ModuleFile& file)
        : mFile(file), mOpened(std::move(opened))
    {
        if (Succeeded(factory.QueryInterface(IID_IFactoryModules, mModules.PutVoid())) && mModules)
            HandOn();
    }

    CModuleInHand(const CModuleInHand&) = delete;
    CModuleInHand& operator=(const CModuleInHand&) = delete;

    ~CModuleInHand()
    {
        if (!mModules && mOpened->CanUnloadNow() != S_OK)
            KeepLoaded();
        if (mModule == nullptr)
            return;
        mUse.reset();
        mModules->Dismiss(*mModule);
    }

    [[nodiscard]] CDynLib& Library() const noexcept
    {
        return mUse ? *mUse->Loader() : *mOpened;
    }

private:
    void HandOn()
    {
        CFactoryModule& module = mModules->Admit(mFile.Name);
        mUse.emplace(module);
        mUse->Adopt(mOpened, mFile.Path);
        mModule = &module;
        mOpened.reset(); // the factory had the module loaded already
    }

    // A factory of somebody else's knows nothing of loaders; the global one unloads the module when
    // it is flushed. Where that is somebody else's too the module stays for good.
    void KeepLoaded() noexcept
    {
        try
        {
            ObjectPtr<IObjectFactory> global;
            if (Succeeded(CreateSingleton(CLSID_GlobalObjectFactory, global)) &&
                Succeeded(global.QueryTo(mModules)))
                return HandOn();
        }
        catch (...)
        {
            DiscardCaught();
        }
        static_cast<void>(mOpened.release());
    }

    ModuleFile mFile;
    std::unique_ptr<CDynLib> mOpened;
    ObjectPtr<IFactoryModules> mModules;
    std::optional<CFactoryModule::CUse> mUse;
    CFactoryModule* mModule = nullptr;
};

// Who is to blame for the last failure: the module that answered it, or the runtime.
class CAnswers
{
public:
    // To be called with every answer of a module.
    Result Note(Result answer) noexcept
    {
        mIsModules = Failed(answer);
        return answer;
    }

    // What the module answers for the registry that it was given is not its own.
    Result NoteBootstrap(CDynLib& module, IUnknown* registry, IUnknown* argument)
    {
        const std::uint32_t shortages = ClsidRegistryShortages();
        const Result answer = Note(module.RegisterBootstrap(registry, argument));
        mIsModules = mIsModules && ClsidRegistryShortages() == shortages;
        return answer;
    }

    [[nodiscard]] bool IsModules() const noexcept
    {
        return mIsModules;
    }

private:
    bool mIsModules = false;
};

Result InternalRegisterServer(IObjectFactory& factory, OssiraComServer& module,
                              const wchar_t* fileName, CAnswers& answers)
{
    const std::uint32_t mask = CurrentLevelMask();
    OssiraComServer* const server = &module;
    const Result count = answers.Note(server->GetClassCount());
    if (Failed(count))
        return count;
    OSSIRA_PRINT(mask, PRINT_TRACE, "Register Classes from Library \"%ls\" [#%d] [f:0x%x]:\n",
                 fileName, count, LowAddress(&factory));

    if (count == 0)
    {
        OSSIRA_PRINT(mask, PRINT_WARN,
                     "Library \"%ls\" has no class in its table: is OSSIRA_CLASS missing?\n",
                     fileName);
    }
    CLSID former = GUID_Null;
    std::string formerInfo;
    for (std::uint32_t index = 0; index < static_cast<std::uint32_t>(count); ++index)
    {
        CLSID clsid = GUID_Null;
        OSSIRA_CHECK_CALL_TWICE(answers.Note(server->GetClassObjectID(index, 1, &clsid)),
                                "server->GetClassObjectID()");
        char info[256] = {}; // one more than the module knows of, for the end of the text
        OSSIRA_CHECK_CALL_TWICE(
            answers.Note(server->GetClassObjectInfo(index, info, sizeof info - 1)),
            "server->GetClassObjectInfo()");
        if (index > 0 && SameGuid(clsid, former)) // the table is in order
        {
            OSSIRA_PRINT(mask, PRINT_WARN,
                         "Class %s stands twice in \"%ls\", as \"%s\" and as \"%s\"\n",
                         CGuidText(clsid).Text(), fileName, formerInfo.c_str(), info);
        }
        former = clsid;
        formerInfo = info;
        OSSIRA_CHECK_CALL_TWICE(factory.RegisterClass(clsid, fileName, info),
                                "Factory->RegisterClass()");
    }
    OSSIRA_PRINT(mask, PRINT_TRACE, "Register Classes Finished\n");
    return S_OK;
}

// Null when the file is no component module. When nobody can know that, because memory or
// descriptors ran out or the file could not be read, it throws.
std::unique_ptr<CDynLib> OpenModule(const ModuleFile& file)
{
    const std::uint32_t mask = CurrentLevelMask();
    auto library = std::make_unique<CDynLib>();
    const Result opened = library->Open(file.Path.c_str());
    if (Succeeded(opened))
    {
        OSSIRA_PRINT(mask, PRINT_TRACE, "Library \"%ls\" opened\n", file.Name.c_str());
        return library;
    }
    OSSIRA_PRINT(mask, PRINT_TRACE, "Cannot open Library \"%ls\"\n", file.Name.c_str());
    library->ReportFailure(file.Name.c_str());
    OSSIRA_CHECK(!library->LacksResources(), opened, "DynLib.Open()");
    return nullptr;
}

Result InternalRegisterModule(IObjectFactory& factory, std::unique_ptr<CDynLib> opened,
                              const ModuleFile& file, IUnknown* registry, IUnknown* argument,
                              CAnswers& answers)
{
    const CModuleInHand module(factory, std::move(opened), file);
    CDynLib& library = module.Library();
    const Result result = InternalRegisterServer(factory, library, file.Name.c_str(), answers);
    return Failed(result) || registry == nullptr
               ? result
               : answers.NoteBootstrap(library, registry, argument);
}

// One file of a folder. A module's failures end here; what the runtime lacks does not, for the
// files behind it would fare no better, and the caller has to know.
void RegisterFolderItem(IObjectFactory& factory, const ModuleFile& file, IUnknown* registry,
                        IUnknown* argument)
{
    std::unique_ptr<CDynLib> opened = OpenModule(file);
    if (opened == nullptr)
        return;
    CAnswers answers;
    Result result = S_OK;
    try
    {
        result =
            InternalRegisterModule(factory, std::move(opened), file, registry, argument, answers);
        OSSIRA_CHECK(result != E_OUTOFMEMORY, result, "InternalRegisterModule()");
    }
    catch (...)
    {
        OSSIRA_LOCATION(here);
        result = ReportCaught(here);
    }
    OSSIRA_CHECK(result != E_OUTOFMEMORY || answers.IsModules(), result, "RegisterFolderItem()");
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
    const ObjectPtr<IObjectFactory> factory = FactoryToFill();
    const std::wstring name = fileName;
    const ModuleFile file = {name, name};
    std::unique_ptr<CDynLib> opened = OpenModule(file);
    if (opened == nullptr)
        return E_FAIL;
    CAnswers answers;
    return InternalRegisterModule(*factory, std::move(opened), file, registry, argument, answers);
}
OSSIRA_CATCH_RETURN

// Says why a folder could not be scanned.
void ReportFolder(const wchar_t* path, const std::wstring& folder, const wchar_t* files)
{
    const std::uint32_t mask = CurrentLevelMask();
    if ((mask & PRINT_WARN) == 0)
        return;
    tSystem::CFolderSearch search; // each folder has an entry for itself
    const bool isThere = search.Open(JoinPath(folder, L"*"));
    OSSIRA_PRINT(mask, PRINT_WARN,
                 isThere
                     ? "Module folder \"%ls\" has no file that matches \"%ls\"\n"
                     : "Module folder \"%ls\", which was searched for \"%ls\", is not there, or "
                       "cannot be read\n",
                 path, files);
}

Result T_ClassRegisterService::RegisterFolder(const wchar_t* path, const wchar_t* pattern,
                                              IUnknown* registry, IUnknown* argument)
try
{
    OSSIRA_CHECK_POINTER(path);
    // Before the first module can change the current folder.
    const std::wstring folder = tSystem::AbsolutePath(*path == L'\0' ? L"." : path);
    const wchar_t* const files = pattern == nullptr ? L"*.dll" : pattern;
    CDirectoryCollection Directory;
    if (Failed(Directory.ScanDirectory(path, files)))
    {
        const Result result = Directory.ScanDirectory(path, files);
        if (Failed(result) && result != E_OUTOFMEMORY)
            ReportFolder(path, folder, files);
        OSSIRA_CHECK_CALL(result, "Directory.ScanDirectory()");
    }
    const ObjectPtr<IObjectFactory> factory = FactoryToFill();
    Result moved = Directory.MoveNext();
    for (; moved == S_OK; moved = Directory.MoveNext())
    {
        std::wstring ModulPath;
        OSSIRA_CHECK_CALL_TWICE(Directory.CurrentItemPath(&ModulPath),
                                "Directory.CurrentItemPath(&ModulPath)");
        if (IsRuntimeFile(ModulPath.c_str()))
            continue;
        const std::wstring name = JoinPath(path, ModulPath);
        RegisterFolderItem(*factory, {name, JoinPath(folder, ModulPath)}, registry, argument);
    }
    OSSIRA_CHECK(Succeeded(moved), moved, "Directory.MoveNext()");
    return S_OK;
}
OSSIRA_CATCH_RETURN

} // namespace

OSSIRA_CLASS(T_ClassRegisterService, "ClassRegisterService")

} // namespace Tavrik::Ossira
