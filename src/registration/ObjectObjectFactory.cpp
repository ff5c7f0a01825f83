// The object factory: which module file implements which class, and the creation of objects by
// class identifier. Modules are loaded, and their classes created, with no lock held, so their code
// may call back; a loader is therefore shared, and a call in progress keeps its module from being
// unloaded.
#include "DynLib.h"
#include "GuidKeyEnumerator.h"
#include "OssiraBullets.h"
#include "PublicUtil.h"
#include "TryMakeObject.h"

#include <map>
#include <string>
#include <vector>

namespace Tavrik::Ossira
{

namespace
{

struct ClassItem
{
    std::wstring FileName; // empty for a class of the runtime itself
    std::string InfoText;
};

using Loader = std::shared_ptr<CDynLib>;

struct ModuleItem
{
    std::uint64_t KeepLoaded = 0; // other than 0: not to be flushed
    std::int32_t ClassCount = 0;  // of all classes that were ever registered from this file
    Loader Library;               // null while the module is not loaded
};

class T_ObjectFactory : public IObjectFactory,
                        public IEnumerable,
                        public CObjectIdentity<T_ObjectFactory>,
                        public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = CLSID_ObjectFactory;
    static constexpr std::string_view ClassName = "ObjectFactory";

    OSSIRA_INTERFACES(IObjectFactory, IEnumerable, IObjectIdentity)

    Result GetClassObject(const CLSID& clsid, const IID& iid, void** ppv) override;
    Result RegisterClass(const CLSID& clsid, const wchar_t* fileName, const char* info) override;
    Result UnregisterClass(const CLSID& clsid) override;
    Result GetClassValue(const CLSID& clsid, const IID& iid, void** ppv) override;
    Result FlushModules() override;
    Result GetModuleValue(const wchar_t* fileName, const IID& iid, void** ppv) override;
    Result GetClasses(const IID& iid, void** ppv) override;
    Result GetModules(const IID& iid, void** ppv) override;
    Result GetEnumerator(const IID& iid, void** ppv) override;

    // For the enumerator.
    [[nodiscard]] tSystem::CFastCriticalSection& EnumerationLock() noexcept
    {
        return mLock;
    }

    [[nodiscard]] std::uint32_t EnumerationStamp() const noexcept
    {
        return mClassStamp;
    }

    [[nodiscard]] bool FirstPosition(CGuidPosition& at)
    {
        return mClasses.First(at);
    }

    [[nodiscard]] bool NextPosition(CGuidPosition& at)
    {
        return mClasses.Next(at);
    }

private:
    using ModuleItems = std::map<std::wstring, ModuleItem>;

    struct EnumeratorTraits
    {
        using Owner = T_ObjectFactory;
        using Primary = IObjectFactory;
        using Position = CGuidPosition;
        static constexpr std::string_view ReportedClass =
            "Tavrik::Ossira::`anonymous-namespace'::T_ObjectFactory::T_Enumerator";
        static constexpr bool OffersGuids = true;
        static constexpr bool ReportsEnd = true;
    };
    using T_Enumerator = CGuidKeyEnumerator<EnumeratorTraits>;

    // Finds a class's file and the module's loader, null where there is none.
    [[nodiscard]] bool FindClass(const CLSID& clsid, std::wstring& fileName, Loader& library);

    [[nodiscard]] bool KnowsModule(const std::wstring& fileName);
    [[nodiscard]] Loader KeepLoader(const std::wstring& fileName, Loader opened);
    [[nodiscard]] Result CreateOwnClass(const CLSID& clsid, const IID& iid, void** ppv);
    [[nodiscard]] bool IsGlobalFactory();

    tSystem::CFastCriticalSection mLock; // guards what follows
    CGuidTable<ClassItem> mClasses;
    ModuleItems mDynLibs; // an item, once made, stays where it is
    std::uint32_t mClassStamp = 0;
};

bool T_ObjectFactory::FindClass(const CLSID& clsid, std::wstring& fileName, Loader& library)
{
    const tSystem::CLockGuard guard(mLock);
    const ClassItem* const item = mClasses.Find(clsid);
    if (item == nullptr)
        return false;
    fileName = item->FileName;
    if (fileName.empty())
        return true;
    const auto Itr = mDynLibs.find(fileName);
    OSSIRA_CHECK(Itr != mDynLibs.end(), E_UNEXPECTED, "Itr != mDynLibs.end()");
    library = Itr->second.Library;
    return true;
}

bool T_ObjectFactory::KnowsModule(const std::wstring& fileName)
{
    const tSystem::CLockGuard guard(mLock);
    return mDynLibs.contains(fileName);
}

// Puts a loader in place and answers the one to use: when another thread was faster, that is the
// other one, and the loader offered goes with its last owner, after the lock was left.
Loader T_ObjectFactory::KeepLoader(const std::wstring& fileName, Loader opened)
{
    const tSystem::CLockGuard guard(mLock);
    const auto Itr = mDynLibs.find(fileName);
    OSSIRA_CHECK(Itr != mDynLibs.end(), E_NOINTERFACE, "Unknown CLSID - unregistered class-id");
    if (Itr->second.Library == nullptr)
        Itr->second.Library = std::move(opened);
    return Itr->second.Library;
}

// `CreateClassObject` asks the global factory for classes that the runtime lacks. If that is this
// one, the two would call each other for ever.
Result T_ObjectFactory::CreateOwnClass(const CLSID& clsid, const IID& iid, void** ppv)
{
    CComServer* const server = ModuleServer();
    if (server != nullptr && server->IsForeignClass(clsid) != 0 && IsGlobalFactory())
        return server->GetClassObject(clsid, iid, ppv);
    return CreateClassObject(&clsid, &iid, ppv);
}

bool T_ObjectFactory::IsGlobalFactory()
{
    ISingleton* const singleton = ExistingSingleton();
    ObjectPtr<IUnknown> global;
    ObjectPtr<IUnknown> self;
    IObjectFactory* const factory = this;
    return singleton != nullptr &&
           Succeeded(singleton->GetClassObject(CLSID_GlobalObjectFactory, IID_IUnknown,
                                               global.PutVoid())) &&
           Succeeded(factory->QueryInterface(IID_IUnknown, self.PutVoid())) &&
           global.Get() == self.Get();
}

Result T_ObjectFactory::GetClassObject(const CLSID& clsid, const IID& iid, void** ppv)
try
{
    OSSIRA_CHECK_POINTER(ppv);
    OSSIRA_CHECK(!SameGuid(clsid, CLSID_GlobalSingleton), E_INVALIDARG,
                 "CLSID_GlobalSingleton - cannot create singleton from singleton");
    std::wstring fileName;
    Loader library;
    if (!FindClass(clsid, fileName, library))
    {
        OSSIRA_PRINT(CurrentLevelMask(), PRINT_ERROR, "Unknwon class-id %s - Cannot create class\n",
                     CGuidText(clsid).Text());
        return E_FAIL;
    }

    void* object = nullptr;
    if (fileName.empty())
    {
        OSSIRA_CHECK_CALL_TWICE(CreateOwnClass(clsid, iid, &object), "CreateClassObject()");
    }
    else
    {
        if (library == nullptr)
        {
            const auto opened = std::make_shared<CDynLib>();
            OSSIRA_CHECK_CALL_TWICE(opened->Open(fileName.c_str()), "DynLib.Open()");
            library = KeepLoader(fileName, opened);
        }
        OSSIRA_CHECK_CALL_TWICE(library->GetClassObject(clsid, iid, &object),
                                "DynLib.GetClassObject()");
        // A module may say that it succeeded and have nothing to show for it.
        OSSIRA_CHECK(object != nullptr, E_UNEXPECTED, "DynLib.GetClassObject()");
    }
    *ppv = object;
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_ObjectFactory::RegisterClass(const CLSID& clsid, const wchar_t* fileName, const char* info)
try
{
    const std::uint32_t mask = CurrentLevelMask();
    OSSIRA_CHECK(!SameGuid(clsid, CLSID_GlobalSingleton), E_INVALIDARG,
                 "CLSID_GlobalSingleton - cannot use singleton from singleton");
    const wchar_t* const file = fileName == nullptr ? L"" : fileName;
    const char* const text = info == nullptr ? "" : info;
    ClassItem item = {file, text};

    // The loader of a new file is opened before anything is entered, because the module's start-up
    // code runs then. A file that cannot be loaded is tried again when an object is wanted. Should
    // somebody else enter the file meanwhile, what was opened here is closed after the lock.
    ModuleItems opened;
    if (!item.FileName.empty() && !KnowsModule(item.FileName))
    {
        auto library = std::make_shared<CDynLib>();
        if (Succeeded(library->Open(file)))
            opened[item.FileName].Library = std::move(library);
        else
            opened[item.FileName];
    }

    bool isNew = false;
    {
        const tSystem::CLockGuard guard(mLock);
        isNew = mClasses.Find(clsid) == nullptr;
        const ClassItem* const entered = isNew ? &mClasses.Insert(clsid, std::move(item)) : nullptr;
        mDynLibs.merge(opened);
        if (isNew)
        {
            if (!entered->FileName.empty())
                ++mDynLibs.find(entered->FileName)->second.ClassCount;
            ++mClassStamp;
        }
    }

    if (!isNew)
    {
        OSSIRA_PRINT(mask, PRINT_WARN, "Class alredy registered: \"%s\" %s from \"%ls\"\n", text,
                     CGuidText(clsid).Text(), file);
        return S_FALSE;
    }
    if ((mask & PRINT_PROGRESS) != 0)
    {
        OSSIRA_PRINT(mask, PRINT_TRACE, "Register Class \"%s\" %s from \"%ls\"\n", text,
                     CGuidText(clsid).Text(), file);
    }
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_ObjectFactory::UnregisterClass(const CLSID& clsid)
try
{
    const std::uint32_t mask = CurrentLevelMask();
    std::optional<ClassItem> item;
    {
        const tSystem::CLockGuard guard(mLock);
        item = mClasses.Take(clsid);
    }
    if (!item)
        return S_FALSE;
    OSSIRA_PRINT(mask, PRINT_TRACE, "Unregister Class: %s %ls\n", item->InfoText.c_str(),
                 item->FileName.c_str());
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_ObjectFactory::GetClassValue(const CLSID& clsid, const IID& iid, void** ppv)
try
{
    OSSIRA_CHECK_POINTER(ppv);
    ClassItem item;
    {
        const tSystem::CLockGuard guard(mLock);
        const ClassItem* const found = mClasses.Find(clsid);
        OSSIRA_CHECK(found != nullptr, E_FAIL, "not exists");
        item = *found;
    }
    ObjectPtr<IValueSet> values;
    OSSIRA_CHECK_CALL_TWICE(CreateValueSet(values.Put()), "CreateValueSet(&ValueSet)");
    OSSIRA_CHECK_CALL_TWICE(
        SetValueUniString(values.Get(), ObjectFactoryItem_FileName, item.FileName),
        "SetValueUniString(ValueSet, ObjectFactoryItem_FileName, "
        "ClassItem.FileName)");
    OSSIRA_CHECK_CALL_TWICE(
        SetValueCharString(values.Get(), ObjectFactoryItem_InfoText, item.InfoText),
        "SetValueCharString(ValueSet, ObjectFactoryItem_InfoText, "
        "ClassItem.InfoText)");
    OSSIRA_CHECK_CALL_TWICE(values->QueryInterface(iid, ppv), "QueryInterface()");
    return S_OK;
}
OSSIRA_CATCH_RETURN

// A loader that nobody else holds is in no call, and no new call can begin while the lock is held.
// The modules are unloaded after the lock was left, because their clean-up code may call back.
Result T_ObjectFactory::FlushModules()
try
{
    std::vector<Loader> unloaded;
    const tSystem::CLockGuard guard(mLock);
    unloaded.reserve(mDynLibs.size());
    for (auto& [fileName, module] : mDynLibs)
    {
        if (module.Library != nullptr && module.KeepLoaded == 0 &&
            module.Library.use_count() == 1 && module.Library->CanUnloadNow() == S_OK)
            unloaded.push_back(std::move(module.Library));
    }
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_ObjectFactory::GetModuleValue(const wchar_t* fileName, const IID& iid, void** ppv)
try
{
    OSSIRA_CHECK_POINTER(ppv);
    OSSIRA_CHECK_POINTER(fileName);
    const std::wstring key = fileName;
    ModuleItem module;
    {
        const tSystem::CLockGuard guard(mLock);
        const auto found = mDynLibs.find(key);
        OSSIRA_CHECK(found != mDynLibs.end(), E_FAIL, "not exists");
        module = found->second;
    }
    ObjectPtr<IValueSet> values;
    OSSIRA_CHECK_CALL_TWICE(CreateValueSet(values.Put()), "CreateValueSet(&ValueSet)");
    OSSIRA_CHECK_CALL_TWICE(SetValueUniString(values.Get(), ObjectFactoryItem_FileName, key),
                            "SetValueUniString(ValueSet, ObjectFactoryItem_FileName, )");
    OSSIRA_CHECK_CALL_TWICE(
        SetValueSINT32(values.Get(), ObjectFactoryItem_ClassCount, module.ClassCount),
        "SetValueSINT32(ValueSet, ObjectFactoryItem_ClassCount, )");
    if (module.Library != nullptr)
    {
        const std::int32_t openCount = module.Library->GetOpenObjectCount();
        OSSIRA_CHECK_CALL_TWICE(
            SetValueSINT32(values.Get(), ObjectFactoryItem_OpenObjectCount, openCount),
            "SetValueSINT32(ValueSet, ObjectFactoryItem_OpenObjectCount, )");
    }
    OSSIRA_CHECK_CALL_TWICE(values->QueryInterface(iid, ppv), "QueryInterface()");
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_ObjectFactory::GetModules(const IID& iid, void** ppv)
try
{
    OSSIRA_CHECK_POINTER(ppv);
    ObjectPtr<IList> list;
    OSSIRA_CHECK_CALL_TWICE(CreateNodeList(list.Put()), "CreateNodeList(&List)");
    std::vector<const std::wstring*> fileNames; // good without the lock: items stay
    {
        const tSystem::CLockGuard guard(mLock);
        fileNames.reserve(mDynLibs.size());
        for (const auto& [fileName, module] : mDynLibs)
            fileNames.push_back(&fileName);
    }
    for (const std::wstring* const fileName : fileNames)
    {
        ObjectPtr<IValue> value;
        OSSIRA_CHECK_CALL_TWICE(CreateValue(value.Put()), "CreateValue(&Value)");
        OSSIRA_CHECK_CALL_TWICE(SetValueUniString(value.Get(), *fileName),
                                "SetValueUniString(Value, )");
        OSSIRA_CHECK_CALL_TWICE(list->Add(value.Get()), "List->Add(Value)");
    }
    OSSIRA_CHECK_CALL_TWICE(list->QueryInterface(iid, ppv), "QueryInterface()");
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_ObjectFactory::GetClasses(const IID& iid, void** ppv)
{
    return GetEnumerator(iid, ppv);
}

Result T_ObjectFactory::GetEnumerator(const IID& iid, void** ppv)
try
{
    OSSIRA_CHECK_POINTER(ppv);
    const auto enumerator = TryMakeObject<T_Enumerator>(this);
    OSSIRA_CHECK(enumerator, E_OUTOFMEMORY, "new T_Enumerator");
    return enumerator->QueryInterface(iid, ppv);
}
OSSIRA_CATCH_RETURN

} // namespace

OSSIRA_CLASS(T_ObjectFactory, "ObjectFactory")

} // namespace Tavrik::Ossira
