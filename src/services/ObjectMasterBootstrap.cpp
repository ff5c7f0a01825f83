// Runs the process's life: reads in the modules, starts the classes of three levels, cleans them up
// in reverse and clears the singletons. It knows none of the classes; they enrol in categories of
// the CLSID registry. Start-up stops at the first failure, clean-up goes on to the end.
#include "Library.h"
#include "OssiraBullets.h"
#include "OssiraFrame.h"
#include "PublicUtil.h"

#include <vector>

namespace Tavrik::Ossira
{

namespace
{

struct Level
{
    GUID Category;
    const char* Name;
};

// In the order in which they run.
constexpr Level StartupLevels[] = {
    {BootstrapRegistryStartup_Level0, "BootstrapRegistryStartup_Level0"},
    {BootstrapRegistryStartup_Level1, "BootstrapRegistryStartup_Level1"},
    {BootstrapRegistryStartup_Level2, "BootstrapRegistryStartup_Level2"}};
constexpr Level CleanupLevels[] = {
    {BootstrapRegistryCleanup_Level2, "BootstrapRegistryCleanup_Level2"},
    {BootstrapRegistryCleanup_Level1, "BootstrapRegistryCleanup_Level1"},
    {BootstrapRegistryCleanup_Level0, "BootstrapRegistryCleanup_Level0"}};

// What start-up and clean-up of a level differ in.
struct Phase
{
    const char* Name; // of the operation, also in the lines
    Result (IBootstrap::*Operation)(IUnknown* param);
    bool StopsAtFailure;
};

constexpr Phase StartupPhase = {"Startup", &IBootstrap::Startup, true};
constexpr Phase CleanupPhase = {"Cleanup", &IBootstrap::Cleanup, false};

// The bootstrap set: what one start-up or clean-up works with.
struct BT
{
    ObjectPtr<IObjectFactory> mFactory;
    ObjectPtr<IClsidRegistry> mClsidRegistry;
    ObjectPtr<IList> mFolders;
};

// A class of a level, or the code with which the registry failed to name it.
struct EnrolledClass
{
    Result Code;
    CLSID Clsid;
};

class T_MasterBootstrap : public IMasterBootstrap,
                          public IBootstrap,
                          public CObjectIdentity<T_MasterBootstrap>,
                          public CObjectName,
                          public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = CLSID_MasterBootstrap;
    static constexpr std::string_view ClassName = "MasterBootstrap";

    OSSIRA_INTERFACES(IMasterBootstrap, IBootstrap, IObjectIdentity, IObjectName)

    T_MasterBootstrap();

    Result Startup(IUnknown* param) override;
    Result Cleanup(IUnknown* param) override;
    Result SetFactory(IObjectFactory* factory) override;
    Result GetFactory(void** ppv) override;
    Result SetClsidRegistry(IClsidRegistry* registry) override;
    Result GetClsidRegistry(void** ppv) override;
    Result GetModuleFolders(void** ppv) override;

private:
    Result GetBootstrap(BT* bt);
    static Result RegisterFolder(const BT& bt, IUnknown* param);
    static Result RunLevel(const Phase& phase, const Level& level, const BT& bt, IUnknown* param);

    ObjectPtr<IObjectFactory> mFactory;       // null: the global one
    ObjectPtr<IClsidRegistry> mClsidRegistry; // null: the global one
    ObjectPtr<IList> mFolders;
    bool mStartupCalled = false;
    bool mCleanupDone = false;
};

template <class Interface>
void HandOut(ObjectPtr<Interface> object, void** ppv)
{
    OSSIRA_CHECK_POINTER(ppv);
    *ppv = object.Detach();
}

T_MasterBootstrap::T_MasterBootstrap()
{
    OSSIRA_CHECK_CALL_TWICE(CreateNodeList(mFolders.Put()), "CreateNodeList()");
    ObjectPtr<IValue> folder;
    OSSIRA_CHECK_CALL_TWICE(CreateValue(folder.Put()), "CreateValue(&Value)");
    OSSIRA_CHECK_CALL_TWICE(SetValueUniString(folder.Get(), L".\\"), "SetValueUniString(Value, )");
    OSSIRA_CHECK_CALL_TWICE(mFolders->Add(folder.Get()), "Add(Value)");
}

Result T_MasterBootstrap::SetFactory(IObjectFactory* factory)
{
    mFactory = ObjectPtr<IObjectFactory>(factory);
    return S_OK;
}

Result T_MasterBootstrap::GetFactory(void** ppv)
try
{
    HandOut(mFactory, ppv);
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_MasterBootstrap::SetClsidRegistry(IClsidRegistry* registry)
{
    mClsidRegistry = ObjectPtr<IClsidRegistry>(registry);
    return S_OK;
}

Result T_MasterBootstrap::GetClsidRegistry(void** ppv)
try
{
    HandOut(mClsidRegistry, ppv);
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_MasterBootstrap::GetModuleFolders(void** ppv)
try
{
    HandOut(mFolders, ppv);
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_MasterBootstrap::GetBootstrap(BT* bt)
try
{
    bt->mFolders = mFolders;
    bt->mFactory = mFactory;
    if (!bt->mFactory)
    {
        OSSIRA_CHECK_CALL_TWICE(CreateSingleton(CLSID_GlobalObjectFactory, bt->mFactory),
                                "CreateSingletonObjectFactory()");
    }
    bt->mClsidRegistry = mClsidRegistry;
    if (!bt->mClsidRegistry)
    {
        OSSIRA_CHECK_CALL_TWICE(CreateSingleton(CLSID_ClsidRegistry, bt->mClsidRegistry),
                                "CreateSingletonClsidRegistry()");
    }
    return S_OK;
}
OSSIRA_CATCH_RETURN

// A folder is a value that holds its path, or a value set with the path in it.
[[nodiscard]] Result ReadFolder(IEnumerator& folders, std::wstring& path)
{
    ObjectPtr<IValue> value;
    const Result isValue = folders.GetCurrent(IID_IValue, value.PutVoid());
    if (isValue == E_OUTOFMEMORY) // of a host's own object
        return isValue;
    if (Succeeded(isValue))
    {
        const Result read = GetValueUniString(value.Get(), &path);
        if (Succeeded(read) || read == E_OUTOFMEMORY)
            return read;
    }
    ObjectPtr<IValueSet> values;
    const Result result = folders.GetCurrent(IID_IValueSet, values.PutVoid());
    if (Failed(result))
        return result;
    return GetValueUniString(values.Get(), DirectoryServiceParam_Path, &path);
}

// Answers how the last folder's text was read: a bad one before it is passed over, a bad last one
// is a failure.
Result T_MasterBootstrap::RegisterFolder(const BT& bt, IUnknown* param)
try
{
    const std::uint32_t mask = CurrentLevelMask();
    ObjectPtr<IClassRegisterService> RegisterService;
    OSSIRA_CHECK_CALL_TWICE(CreateObject(CLSID_ClassRegisterService, RegisterService),
                            "CreateClassRegisterService()");
    ObjectPtr<IEnumerator> folders;
    OSSIRA_CHECK_CALL_TWICE(bt.mFolders->GetEnumerator(IID_IEnumerator, folders.PutVoid()),
                            "mFolders->GetEnumerator()");
    OSSIRA_CHECK_CALL_TWICE(RegisterService->SetFactory(bt.mFactory.Get()),
                            "RegisterService->SetFactory(bt.mFactory)");

    Result result = S_OK;
    while (folders->MoveNext() == S_OK)
    {
        std::wstring path;
        result = ReadFolder(*folders, path);
        OSSIRA_CHECK(result != E_OUTOFMEMORY, result, "ReadFolder(*folders, path)");
        if (Failed(result))
        {
            OSSIRA_PRINT(mask, PRINT_WARN, "Cannot get path-string from Folder-Collection: %s\n",
                         ErrorText(result));
            continue;
        }
        if (path.empty())
        {
            OSSIRA_PRINT(mask, PRINT_WARN, "Empty path-string at Folder-Collection\n");
            continue;
        }
        OSSIRA_CHECK_CALL_TWICE(
            RegisterService->RegisterFolder(path.c_str(), nullptr, bt.mClsidRegistry.Get(), param),
            "RegisterService->RegisterFolder()");
    }
    return result;
}
OSSIRA_CATCH_RETURN

// The classes are listed before the first one runs: it may file others, which would end the
// registry's enumerator.
[[nodiscard]] std::vector<EnrolledClass> ListClasses(IEnumeratorGUID& enumerator)
{
    std::vector<EnrolledClass> classes;
    Result moved = enumerator.MoveNext();
    for (; moved == S_OK; moved = enumerator.MoveNext())
    {
        EnrolledClass& enrolled = classes.emplace_back();
        enrolled.Code = enumerator.GetCurrentGUID(&enrolled.Clsid);
    }
    if (Failed(moved))
        classes.push_back({moved, GUID_Null});
    return classes;
}

Result CallBootstrap(const Phase& phase, IBootstrap& bootstrap, IUnknown* param)
try
{
    return (bootstrap.*phase.Operation)(param);
}
OSSIRA_CATCH_RETURN

Result RunClass(const Phase& phase, const Level& level, const EnrolledClass& enrolled, const BT& bt,
                IUnknown* param, std::uint32_t mask)
{
    if (Failed(enrolled.Code))
    {
        OSSIRA_PRINT(mask, PRINT_TRACE, "%s %s: Enumerator->GetCurrentGUID(&Clsid) failed: %s\n",
                     phase.Name, level.Name, ErrorText(enrolled.Code));
        return enrolled.Code;
    }

    ObjectPtr<IUnknown> object;
    Result result = bt.mFactory->GetClassObject(enrolled.Clsid, IID_IUnknown, object.PutVoid());
    if (Failed(result))
    {
        OSSIRA_PRINT(mask, PRINT_TRACE, "%s %s: CreateClassObject(%s) failed: %s\n", phase.Name,
                     level.Name, CGuidText(enrolled.Clsid).Text(), ErrorText(result));
        return result;
    }

    ObjectPtr<IBootstrap> bootstrap;
    result = object.QueryTo(bootstrap);
    if (Failed(result))
    {
        OSSIRA_PRINT(mask, PRINT_TRACE, "%s %s: Object %s not supports IBootstrap: %s\n",
                     phase.Name, level.Name, CGuidText(enrolled.Clsid).Text(), ErrorText(result));
        return result;
    }

    result = CallBootstrap(phase, *bootstrap, param);
    if (Failed(result))
    {
        OSSIRA_PRINT(mask, PRINT_TRACE, "%s %s: %s() of %s failed: %s\n", phase.Name, level.Name,
                     phase.Name, CGuidText(enrolled.Clsid).Text(), ErrorText(result));
    }
    return result;
}

// Names a class that failed, and its module, to whoever reads warnings.
void ReportClass(const Phase& phase, const Level& level, const CLSID& clsid, const BT& bt,
                 Result failure, std::uint32_t mask)
try
{
    if ((mask & PRINT_WARN) == 0)
        return;
    std::wstring file;
    std::string info;
    // Asked only for what it has, since it reports a class that it does not know as an error.
    ObjectPtr<IEnumeratorGUID> known;
    CLSID at = GUID_Null;
    bool isKnown = false;
    if (Succeeded(bt.mFactory->GetClasses(IID_IEnumeratorGUID, known.PutVoid())) && known)
    {
        while (!isKnown && known->MoveNext() == S_OK && Succeeded(known->GetCurrentGUID(&at)))
            isKnown = SameGuid(at, clsid);
    }
    ObjectPtr<IValueSet> values;
    if (isKnown && Succeeded(bt.mFactory->GetClassValue(clsid, IID_IValueSet, values.PutVoid())))
    {
        GetValueUniString(values.Get(), ObjectFactoryItem_FileName, &file);
        GetValueCharString(values.Get(), ObjectFactoryItem_InfoText, &info);
    }
    OSSIRA_PRINT(mask, PRINT_WARN, "%s %s: class \"%s\" %s of \"%ls\" failed: 0x%x %s\n",
                 phase.Name, level.Name, info.c_str(), CGuidText(clsid).Text(), file.c_str(),
                 static_cast<std::uint32_t>(failure), ErrorText(failure));
}
catch (...)
{
    DiscardCaught(); // the failure itself is answered
}

// Answers the code of the last class handled.
Result T_MasterBootstrap::RunLevel(const Phase& phase, const Level& level, const BT& bt,
                                   IUnknown* param)
try
{
    const std::uint32_t mask = CurrentLevelMask();
    ObjectPtr<IEnumeratorGUID> enumerator;
    const Result listed =
        bt.mClsidRegistry->GetClasses(level.Category, IID_IEnumeratorGUID, enumerator.PutVoid());
    if (listed == E_OUTOFMEMORY) // nobody knows what the level has
        return listed;
    if (Failed(listed))
    {
        OSSIRA_PRINT(mask, PRINT_TRACE, "%s-Category %s is empty\n", phase.Name, level.Name);
        return S_FALSE;
    }
    OSSIRA_CHECK(enumerator, E_NOINTERFACE, "mClsidRegistry->GetClasses()");

    OSSIRA_PRINT(mask, PRINT_TRACE, "%s %s:\n", phase.Name, level.Name);
    Result result = S_OK;
    for (const EnrolledClass& enrolled : ListClasses(*enumerator))
    {
        // A class before it may have taken it out.
        const Result filed = Failed(enrolled.Code)
                                 ? S_OK
                                 : bt.mClsidRegistry->ContainsClass(level.Category, enrolled.Clsid);
        if (filed == S_FALSE)
            continue;
        result = filed == E_OUTOFMEMORY ? filed : RunClass(phase, level, enrolled, bt, param, mask);
        if (Failed(result) && Succeeded(enrolled.Code))
            ReportClass(phase, level, enrolled.Clsid, bt, result, mask);
        if (Failed(result) && phase.StopsAtFailure)
            break;
    }
    OSSIRA_PRINT(mask, PRINT_TRACE, "%s %s finished\n", phase.Name, level.Name);
    return result;
}
OSSIRA_CATCH_RETURN

Result T_MasterBootstrap::Startup(IUnknown* param)
try
{
    const std::uint32_t mask = CurrentLevelMask();
    OSSIRA_CHECK(!mStartupCalled, E_FAIL, "Startup already called");
    if ((mask & PRINT_TRACE) != 0)
    {
        OSSIRA_PRINT(mask, PRINT_TRACE, "\n");
        OSSIRA_PRINT(mask, PRINT_TRACE, "Performing MasterBootstrap::Startup:\n");
        OSSIRA_PRINT(mask, PRINT_TRACE, "------------------------------------\n");
    }
    else
    {
        OSSIRA_PRINT(mask, PRINT_PROGRESS, "Performing MasterBootstrap-Startup\n");
    }

    BT bt;
    OSSIRA_CHECK_CALL_TWICE(GetBootstrap(&bt), "GetBootstrap(&BT)");
    mStartupCalled = true;
    OSSIRA_CHECK_CALL(RegisterFolder(bt, param), "RegisterFolder");
    for (const Level& level : StartupLevels)
        OSSIRA_CHECK_CALL(RunLevel(StartupPhase, level, bt, param), level.Name);

    OSSIRA_PRINT(mask, PRINT_TRACE, "------------------------------------\n");
    OSSIRA_PRINT(mask, PRINT_TRACE, "MasterBootstrap::Startup finished\n");
    OSSIRA_PRINT(mask, PRINT_TRACE, "\n");
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_MasterBootstrap::Cleanup(IUnknown* param)
try
{
    const std::uint32_t mask = CurrentLevelMask();
    if (!mStartupCalled)
    {
        OSSIRA_PRINT(mask, PRINT_WARN, "Skip Cleanup(), because Startup() was never called\n");
        return S_OK;
    }
    if (mCleanupDone)
        return S_OK;
    if ((mask & PRINT_TRACE) != 0)
    {
        OSSIRA_PRINT(mask, PRINT_TRACE, "\n");
        OSSIRA_PRINT(mask, PRINT_TRACE, "Performing MasterBootstrap::Cleanup:\n");
        OSSIRA_PRINT(mask, PRINT_TRACE, "------------------------------------\n");
    }
    else
    {
        OSSIRA_PRINT(mask, PRINT_PROGRESS, "Performing MasterBootstrap Cleanup\n");
    }

    BT bt;
    OSSIRA_CHECK_CALL_TWICE(GetBootstrap(&bt), "GetBootstrap(&BT)");
    Result result = S_OK;
    for (const Level& level : CleanupLevels)
    {
        const Result cleaned = RunLevel(CleanupPhase, level, bt, param);
        if (Failed(cleaned) && Succeeded(result))
            result = cleaned;
    }
    mCleanupDone = true;

    if (ISingleton* const singletons = ExistingSingleton(); singletons != nullptr)
    {
        OSSIRA_PRINT(mask, PRINT_TRACE,
                     "Cleanup of MasterBootstrap also cleans all singleton object\n");
        singletons->ClearObjects();
    }

    OSSIRA_PRINT(mask, PRINT_TRACE, "------------------------------------\n");
    OSSIRA_PRINT(mask, PRINT_TRACE, "MasterBootstrap::Cleanup finished\n");
    OSSIRA_PRINT(mask, PRINT_TRACE, "\n");
    return result;
}
OSSIRA_CATCH_RETURN

} // namespace

OSSIRA_CLASS(T_MasterBootstrap, "MasterBootstrap")

} // namespace Tavrik::Ossira
