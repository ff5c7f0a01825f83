// The object factory: which module file implements which class, and the creation of objects by
// class identifier. Modules are loaded, asked and unloaded, and their classes created, with no word
// held, so their code may call back. Finding a class costs one look-up whatever the number of
// modules: a class knows its module's item, which stays where it is.
#include "FactoryModule.h"
#include "GuidEnumerable.h"
#include "Library.h"
#include "ObjectMemory.h"
#include "OssiraBullets.h"
#include "PublicUtil.h"

#include <map>
#include <string>
#include <vector>

namespace Tavrik::Ossira
{

namespace
{

struct ModuleItem : CFactoryModule
{
    using CFactoryModule::CFactoryModule;

    std::int32_t ClassCount OSSIRA_GUARDED_BY(mLock) =
        0; // of all classes that were ever registered from this file
    bool IsListed OSSIRA_GUARDED_BY(mLock) =
        false; // a class of it was offered; until then it is nobody's business
};

using ModuleItems = std::map<std::wstring, ModuleItem>;

struct ClassItem
{
    ModuleItems::value_type* File = nullptr; // null for a class of the runtime itself
    std::string InfoText;
};

[[nodiscard]] const wchar_t* FileNameOf(const ClassItem& item) noexcept
{
    return item.File == nullptr ? L"" : item.File->first.c_str();
}

struct FactoryTraits
{
    static constexpr CLSID ClassId = CLSID_ObjectFactory;
    static constexpr std::string_view ClassName = "ObjectFactory";
    using LockType = tSystem::CFastCriticalSection; // guards the tables, not the modules themselves
    static constexpr const std::string_view& EnumeratorClass = EnumeratorName;
    static constexpr const char* NewEnumeratorText = "new T_Enumerator";
    static constexpr bool OffersGuids = true;
    static constexpr bool ReportsEnd = true;
};

class T_ObjectFactory : public IObjectFactory,
                        public CGuidEnumerable<FactoryTraits, IEnumerable, CGuidTable<ClassItem>>,
                        public CObjectIdentity<T_ObjectFactory>,
                        public IFactoryModules,
                        public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = FactoryTraits::ClassId;
    static constexpr std::string_view ClassName = FactoryTraits::ClassName;

    OSSIRA_INTERFACES(IObjectFactory, IEnumerable, IObjectIdentity, IFactoryModules)

    Result GetClassObject(const CLSID& clsid, const IID& iid, void** ppv) override;
    Result RegisterClass(const CLSID& clsid, const wchar_t* fileName, const char* info) override;
    Result UnregisterClass(const CLSID& clsid) override;
    Result GetClassValue(const CLSID& clsid, const IID& iid, void** ppv) override;
    Result FlushModules() override;
    Result GetModuleValue(const wchar_t* fileName, const IID& iid, void** ppv) override;
    Result GetClasses(const IID& iid, void** ppv) override;
    Result GetModules(const IID& iid, void** ppv) override;
    CFactoryModule& Admit(const std::wstring& fileName) override;
    void Dismiss(CFactoryModule& module) override;

private:
    [[nodiscard]] ModuleItems::value_type& AdmitFile(const wchar_t* fileName);
    [[nodiscard]] bool EnterClass(const CLSID& clsid, ClassItem&& item,
                                  const ModuleItems::value_type*& owner);
    void LoadNew(ModuleItems::value_type& file);
    [[nodiscard]] bool IsListed(const ModuleItem& item);
    [[nodiscard]] bool FlushOnce();

    // Hands every module to `visit`, in the order of the file names, with no lock held.
    template <class Visit>
    void ForEachModule(Visit visit);
    [[nodiscard]] bool Advance(std::optional<ModuleItems::iterator>& at);

    [[nodiscard]] Result CreateOwnClass(const CLSID& clsid, const IID& iid, void** ppv);
    [[nodiscard]] bool IsGlobalFactory();

    ModuleItems mModules OSSIRA_GUARDED_BY(mLock); // an item, once made, stays where it is
};

ModuleItems::value_type& T_ObjectFactory::AdmitFile(const wchar_t* fileName)
{
    ModuleItems made;
    const std::wstring key = fileName;
    made.try_emplace(key, key, mLock);
    const tSystem::CLockGuard guard(mLock);
    mModules.merge(made);
    return *mModules.find(key);
}

bool T_ObjectFactory::IsListed(const ModuleItem& item)
{
    const tSystem::CLockGuard guard(mLock);
    item.IsGuardedBy(mLock);
    return item.IsListed;
}

CFactoryModule& T_ObjectFactory::Admit(const std::wstring& fileName)
{
    return AdmitFile(fileName.c_str()).second;
}

void T_ObjectFactory::Dismiss(CFactoryModule& module)
{
    if (!IsListed(static_cast<const ModuleItem&>(module)))
        module.UnloadIfIdle();
}

template <class Visit>
void T_ObjectFactory::ForEachModule(Visit visit)
{
    std::optional<ModuleItems::iterator> at;
    while (Advance(at))
        visit(**at);
}

// To the next module, or to the first; false at the end.
bool T_ObjectFactory::Advance(std::optional<ModuleItems::iterator>& at)
{
    const tSystem::CLockGuard guard(mLock);
    at = at ? std::next(*at) : mModules.begin();
    return *at != mModules.end();
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
    factory->QueryInterface(IID_IUnknown, self.PutVoid());
    if (singleton != nullptr)
        singleton->GetClassObject(CLSID_GlobalObjectFactory, IID_IUnknown, global.PutVoid());
    return global.Get() == self.Get();
}

Result T_ObjectFactory::GetClassObject(const CLSID& clsid, const IID& iid, void** ppv)
try
{
    OSSIRA_CHECK_POINTER(ppv);
    *ppv = nullptr;
    OSSIRA_CHECK_REFERENCE(clsid);
    OSSIRA_CHECK_REFERENCE(iid);
    OSSIRA_CHECK(!SameGuid(clsid, CLSID_GlobalSingleton), E_INVALIDARG,
                 "CLSID_GlobalSingleton - cannot create singleton from singleton");
    const CHashedGuid sought(clsid);
    const ModuleItems::value_type* file = nullptr;
    CFactoryModule::CUse module;
    bool isKnown = false;
    {
        const tSystem::CLockGuard guard(mLock);
        if (const ClassItem* const item = mTable.Find(sought))
        {
            isKnown = true;
            file = item->File;
            if (file != nullptr)
            {
                item->File->second.IsGuardedBy(mLock);
                module.Begin(item->File->second);
            }
        }
    }
    if (!isKnown) [[unlikely]]
    {
        OSSIRA_PRINT(CurrentLevelMask(), PRINT_ERROR, "Unknwon class-id %s - Cannot create class\n",
                     CGuidText(clsid).Text());
        return E_FAIL;
    }

    void* object = nullptr;
    if (file == nullptr)
    {
        OSSIRA_CHECK_CALL_TWICE(CreateOwnClass(clsid, iid, &object), "CreateClassObject()");
    }
    else
    {
        OSSIRA_CHECK_CALL_TWICE(module.Load(), "DynLib.Open()");
        OSSIRA_CHECK_CALL_TWICE(module.Loader()->GetClassObject(clsid, iid, &object),
                                "DynLib.GetClassObject()");
        // A module may say that it succeeded and have nothing to show for it.
        OSSIRA_CHECK(object != nullptr, E_UNEXPECTED, "DynLib.GetClassObject()");
    }
    *ppv = object;
    return S_OK;
}
OSSIRA_CATCH_RETURN

// Whether the class is new, and whose it is now. Its file is listed either way.
bool T_ObjectFactory::EnterClass(const CLSID& clsid, ClassItem&& item,
                                 const ModuleItems::value_type*& owner)
{
    ModuleItems::value_type* const file = item.File;
    const tSystem::CLockGuard guard(mLock);
    const ClassItem* const former = mTable.Find(clsid);
    const bool isNew = former == nullptr;
    owner = isNew ? file : former->File;
    if (isNew)
    {
        mTable.Insert(clsid, std::move(item));
        ++mStamp;
    }
    if (file != nullptr)
    {
        file->second.IsGuardedBy(mLock);
        file->second.IsListed = true;
        file->second.ClassCount += isNew ? 1 : 0;
    }
    return isNew;
}

Result T_ObjectFactory::RegisterClass(const CLSID& clsid, const wchar_t* fileName, const char* info)
try
{
    const std::uint32_t mask = CurrentLevelMask();
    OSSIRA_CHECK_REFERENCE(clsid);
    OSSIRA_CHECK(!SameGuid(clsid, CLSID_GlobalSingleton), E_INVALIDARG,
                 "CLSID_GlobalSingleton - cannot use singleton from singleton");
    const wchar_t* const file = fileName == nullptr ? L"" : fileName;
    const char* const text = info == nullptr ? "" : info;

    // A module that proves not to be wanted, because the class could not be entered, goes again.
    const auto dismiss = [this](ModuleItems::value_type* admitted)
    {
        Dismiss(admitted->second);
    };
    std::unique_ptr<ModuleItems::value_type, decltype(dismiss)> admitted(nullptr, dismiss);
    if (*file != L'\0')
    {
        admitted.reset(&AdmitFile(file));
        LoadNew(*admitted);
    }

    const ModuleItems::value_type* owner = nullptr;
    if (!EnterClass(clsid, {admitted.get(), text}, owner))
    {
        OSSIRA_PRINT(mask, PRINT_WARN, "Class alredy registered: \"%s\" %s from \"%ls\"\n", text,
                     CGuidText(clsid).Text(), file);
        if (owner != admitted.get())
        {
            OSSIRA_PRINT(mask, PRINT_WARN,
                         "Class %s is in two modules: it is taken from \"%ls\", and not from "
                         "\"%ls\"\n",
                         CGuidText(clsid).Text(),
                         owner == nullptr ? L"TavrikOssira.dll" : owner->first.c_str(),
                         *file == L'\0' ? L"TavrikOssira.dll" : file);
        }
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

// The first class of a file loads it. A file that cannot be loaded is tried again when an object is
// wanted; want of memory is nothing that the file can help.
void T_ObjectFactory::LoadNew(ModuleItems::value_type& file)
{
    if (IsListed(file.second))
        return;
    CFactoryModule::CUse module(file.second);
    const Result loaded = module.Load();
    OSSIRA_CHECK(loaded != E_OUTOFMEMORY, loaded, "DynLib.Open()");
}

Result T_ObjectFactory::UnregisterClass(const CLSID& clsid)
try
{
    const std::uint32_t mask = CurrentLevelMask();
    OSSIRA_CHECK_REFERENCE(clsid);
    std::optional<ClassItem> item;
    {
        const tSystem::CLockGuard guard(mLock);
        item = mTable.Take(clsid);
    }
    if (!item)
        return S_FALSE;
    OSSIRA_PRINT(mask, PRINT_TRACE, "Unregister Class: %s %ls\n", item->InfoText.c_str(),
                 FileNameOf(*item));
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_ObjectFactory::GetClassValue(const CLSID& clsid, const IID& iid, void** ppv)
try
{
    OSSIRA_CHECK_POINTER(ppv);
    *ppv = nullptr;
    OSSIRA_CHECK_REFERENCE(clsid);
    OSSIRA_CHECK_REFERENCE(iid);
    std::optional<ClassItem> item;
    {
        const tSystem::CLockGuard guard(mLock);
        if (const ClassItem* const found = mTable.Find(clsid))
            item = *found;
    }
    OSSIRA_CHECK(item, E_FAIL, "not exists");
    ObjectPtr<IValueSet> values;
    OSSIRA_CHECK_CALL_TWICE(CreateValueSet(values.Put()), "CreateValueSet(&ValueSet)");
    OSSIRA_CHECK_CALL_TWICE(
        SetValueUniString(values.Get(), ObjectFactoryItem_FileName, FileNameOf(*item)),
        "SetValueUniString(ValueSet, ObjectFactoryItem_FileName, "
        "ClassItem.FileName)");
    OSSIRA_CHECK_CALL_TWICE(
        SetValueCharString(values.Get(), ObjectFactoryItem_InfoText, item->InfoText),
        "SetValueCharString(ValueSet, ObjectFactoryItem_InfoText, "
        "ClassItem.InfoText)");
    OSSIRA_CHECK_CALL_TWICE(values->QueryInterface(iid, ppv), "QueryInterface()");
    return S_OK;
}
OSSIRA_CATCH_RETURN

// A module that goes may give back the last object of one that was asked before it. A round without
// success ends it; so does, should a module come back whenever it goes, a round for each of them.
Result T_ObjectFactory::FlushModules()
try
{
    bool goesOn = true;
    ForEachModule([&](const ModuleItems::value_type&) { goesOn = goesOn && FlushOnce(); });
    GiveBackObjectMemory(); // the runtime's own, as each module has done that was asked
    return S_OK;
}
OSSIRA_CATCH_RETURN

bool T_ObjectFactory::FlushOnce()
{
    bool anyWent = false;
    ForEachModule([&](ModuleItems::value_type& file)
                  { anyWent = file.second.UnloadIfIdle() || anyWent; });
    return anyWent;
}

Result T_ObjectFactory::GetModuleValue(const wchar_t* fileName, const IID& iid, void** ppv)
try
{
    OSSIRA_CHECK_POINTER(ppv);
    *ppv = nullptr;
    OSSIRA_CHECK_POINTER(fileName);
    OSSIRA_CHECK_REFERENCE(iid);
    const std::wstring key = fileName;
    ModuleItem* item = nullptr;
    std::int32_t classCount = 0;
    {
        const tSystem::CLockGuard guard(mLock);
        if (const auto found = mModules.find(key); found != mModules.end())
        {
            ModuleItem& known = found->second;
            known.IsGuardedBy(mLock);
            item = known.IsListed ? &known : nullptr;
            classCount = known.ClassCount;
        }
    }
    OSSIRA_CHECK(item != nullptr, E_FAIL, "not exists");
    ObjectPtr<IValueSet> values;
    OSSIRA_CHECK_CALL_TWICE(CreateValueSet(values.Put()), "CreateValueSet(&ValueSet)");
    OSSIRA_CHECK_CALL_TWICE(SetValueUniString(values.Get(), ObjectFactoryItem_FileName, key),
                            "SetValueUniString(ValueSet, ObjectFactoryItem_FileName, )");
    OSSIRA_CHECK_CALL_TWICE(SetValueSINT32(values.Get(), ObjectFactoryItem_ClassCount, classCount),
                            "SetValueSINT32(ValueSet, ObjectFactoryItem_ClassCount, )");
    if (const CFactoryModule::CUse module(*item); module.Loader() != nullptr)
    {
        const std::int32_t openCount = module.Loader()->GetOpenObjectCount();
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
    *ppv = nullptr;
    OSSIRA_CHECK_REFERENCE(iid);
    ObjectPtr<IList> list;
    OSSIRA_CHECK_CALL_TWICE(CreateNodeList(list.Put()), "CreateNodeList(&List)");
    ForEachModule(
        [&](ModuleItems::value_type& file)
        {
            if (!IsListed(file.second))
                return;
            ObjectPtr<IValue> value;
            OSSIRA_CHECK_CALL_TWICE(CreateValue(value.Put()), "CreateValue(&Value)");
            OSSIRA_CHECK_CALL_TWICE(SetValueUniString(value.Get(), file.first),
                                    "SetValueUniString(Value, )");
            OSSIRA_CHECK_CALL_TWICE(list->Add(value.Get()), "List->Add(Value)");
        });
    OSSIRA_CHECK_CALL_TWICE(list->QueryInterface(iid, ppv), "QueryInterface()");
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_ObjectFactory::GetClasses(const IID& iid, void** ppv)
{
    return GetEnumerator(iid, ppv);
}

} // namespace

OSSIRA_CLASS(T_ObjectFactory, "ObjectFactory")

} // namespace Tavrik::Ossira
