// The CLSID registry: three levels of GUID dictionaries, category, group and class, where the
// lowest serves as a set. What a registration needs is built from the bottom up and entered last,
// so a failure in the middle leaves no empty dictionary behind. Dictionaries are made, and lines
// printed, while the section is left.
#include "ClsidRegistry.h"
#include "OssiraBullets.h"
#include "OssiraFrame.h"
#include "OssiraServices.h"
#include "Platform.h"

#include <atomic>

namespace Tavrik::Ossira
{

namespace
{

using Dictionary = ObjectPtr<IDictionaryGUID>;

class T_ClsidRegistry : public IClsidRegistry,
                        public CObjectIdentity<T_ClsidRegistry>,
                        public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = CLSID_ClsidRegistry;
    static constexpr std::string_view ClassName = "ClsidRegistry";

    OSSIRA_INTERFACES(IClsidRegistry, IObjectIdentity)

    T_ClsidRegistry();

    Result RegisterClass(const GUID& category, const CLSID& clsid) override;
    Result RegisterGroupClass(const GUID& category, const GUID& group, const CLSID& clsid) override;
    Result UnregisterClass(const GUID& category, const CLSID& clsid) override;
    Result UnregisterGroupClass(const GUID& category, const GUID& group,
                                const CLSID& clsid) override;
    Result ContainsCategory(const GUID& category) override;
    Result ContainsGroup(const GUID& category, const GUID& group) override;
    Result ContainsClass(const GUID& category, const CLSID& clsid) override;
    Result ContainsGroupClass(const GUID& category, const GUID& group, const CLSID& clsid) override;
    Result GetClasses(const GUID& category, const IID& iid, void** ppv) override;
    Result GetGroupClasses(const GUID& category, const GUID& group, const IID& iid,
                           void** ppv) override;
    Result GetCategories(const IID& iid, void** ppv) OSSIRA_UNCHECKED_GUARDS override;

private:
    // What a registration met, for the lines.
    struct Filing
    {
        bool IsNewCategory;
        bool IsNewGroup;
        bool IsKnown; // if it has all dictionaries
    };

    // How far the removal of a class came: `S_FALSE` with what was missing, else what went with it.
    struct Removal
    {
        const char* Missing;
        bool GroupWent;
        bool CategoryWent;
    };

    Result InternalRegisterClass(const GUID& category, const GUID& group, const CLSID& clsid);

    // `TryFile` answers false when it lacks a dictionary: the
    // spare one that is null then.
    [[nodiscard]] bool TryFile(const GUID& category, const GUID& group, const CLSID& clsid,
                               Dictionary& spareGroups, Dictionary& spareValues, Filing& filing)
        OSSIRA_UNDER(mLock);
    [[nodiscard]] Removal Remove(const GUID& category, const GUID& group, const CLSID& clsid)
        OSSIRA_UNDER(mLock);
    [[nodiscard]] Dictionary FindClasses(const GUID& category, const GUID& group) const
        OSSIRA_UNDER(mLock);

    mutable tSystem::CCriticalSection mLock;
    Dictionary mCategories OSSIRA_GUARDED_BY(mLock); // and what is in it, as a whole
    ObjectPtr<IValue> mDummyObject;                  // what every class identifier stands for
};

constinit std::atomic<std::uint32_t> gShortages = 0;

[[nodiscard]] bool Contains(const Dictionary& dictionary, const GUID& key)
{
    return dictionary->ContainsGUID(key) == S_OK;
}

// The dictionary under a key, or null.
[[nodiscard]] Dictionary FindChild(const Dictionary& parent, const GUID& key)
{
    Dictionary child;
    if (Contains(parent, key))
    {
        OSSIRA_CHECK_CALL_TWICE(parent->GetValueGUID(key, IID_IDictionaryGUID, child.PutVoid()),
                                "GetValueGUID");
    }
    return child;
}

[[nodiscard]] Dictionary MakeDictionary()
{
    Dictionary dictionary;
    OSSIRA_CHECK_CALL_TWICE(CreateObject(CLSID_DictionaryGUID, dictionary), "CreateDictionaryGUID");
    return dictionary;
}

T_ClsidRegistry::T_ClsidRegistry() : mCategories(MakeDictionary())
{
    OSSIRA_CHECK_CALL_TWICE(CreateValue(mDummyObject.Put()), "CreateValue");
}

Dictionary T_ClsidRegistry::FindClasses(const GUID& category, const GUID& group) const
{
    const Dictionary groups = FindChild(mCategories, category);
    return groups ? FindChild(groups, group) : Dictionary();
}

bool T_ClsidRegistry::TryFile(const GUID& category, const GUID& group, const CLSID& clsid,
                              Dictionary& spareGroups, Dictionary& spareValues, Filing& filing)
{
    Dictionary groups = FindChild(mCategories, category);
    filing.IsNewCategory = !groups;
    if (filing.IsNewCategory)
        groups = spareGroups;
    Dictionary Values = groups ? FindChild(groups, group) : Dictionary();
    filing.IsNewGroup = !Values;
    if (filing.IsNewGroup)
        Values = spareValues;
    if (!groups || !Values)
        return false;

    filing.IsKnown = Contains(Values, clsid);
    if (filing.IsKnown)
        return true;
    OSSIRA_CHECK_CALL_TWICE(Values->SetValueGUID(clsid, mDummyObject.Get()),
                            "Values->SetValueGUID(clsid, mDummyObject)");
    if (filing.IsNewGroup)
    {
        OSSIRA_CHECK_CALL_TWICE(groups->SetValueGUID(group, Values.Get()),
                                "mCategories->SetValueGUID(category, Values)");
    }
    if (filing.IsNewCategory)
        OSSIRA_CHECK_CALL_TWICE(mCategories->SetValueGUID(category, groups.Get()), "SetValueGUID");
    return true;
}

Result T_ClsidRegistry::InternalRegisterClass(const GUID& category, const GUID& group,
                                              const CLSID& clsid)
{
    const std::uint32_t mask = CurrentLevelMask();
    OSSIRA_PRINT(mask, PRINT_TRACE, "Register Category:%s  Group:%s  Class:%s\n",
                 CGuidText(category).Text(), CGuidText(group).Text(), CGuidText(clsid).Text());

    Dictionary spareGroups;
    Dictionary spareValues;
    Filing filing = {};
    const auto tryFile = [&]
    {
        const tSystem::CLockGuard guard(mLock);
        return TryFile(category, group, clsid, spareGroups, spareValues, filing);
    };
    while (!tryFile())
    {
        if (filing.IsNewCategory)
            spareGroups = MakeDictionary();
        if (filing.IsNewGroup)
            spareValues = MakeDictionary();
    }

    if (filing.IsKnown)
    {
        OSSIRA_PRINT(mask, PRINT_WARN, "    Class:%s - already exists\n", CGuidText(clsid).Text());
        return S_FALSE;
    }
    if (filing.IsNewCategory)
    {
        OSSIRA_PRINT(mask, PRINT_TRACE, "    New Category created: %s\n",
                     CGuidText(category).Text());
    }
    if (filing.IsNewGroup)
        OSSIRA_PRINT(mask, PRINT_TRACE, "    New Class created: %s\n", CGuidText(clsid).Text());
    return S_OK;
}

T_ClsidRegistry::Removal T_ClsidRegistry::Remove(const GUID& category, const GUID& group,
                                                 const CLSID& clsid)
{
    Removal removal = {};
    const Dictionary groups = FindChild(mCategories, category);
    const Dictionary Values = groups ? FindChild(groups, group) : Dictionary();
    if (!groups)
        removal.Missing = "    Unknown category\n";
    else if (!Values)
        removal.Missing = "    Category has no such group\n";
    else if (!Contains(Values, clsid))
        removal.Missing = "    Class not member of the group\n";
    if (removal.Missing != nullptr)
        return removal;

    OSSIRA_CHECK_CALL_TWICE(Values->RemoveGUID(clsid), "Values->RemoveGUID(clsid)");
    removal.GroupWent = Values->GetCount() == 0;
    if (removal.GroupWent)
        OSSIRA_CHECK_CALL_TWICE(groups->RemoveGUID(group), "RemoveGUID");
    removal.CategoryWent = groups->GetCount() == 0;
    if (removal.CategoryWent)
        OSSIRA_CHECK_CALL_TWICE(mCategories->RemoveGUID(category), "RemoveGUID");
    return removal;
}

Result T_ClsidRegistry::RegisterClass(const GUID& category, const CLSID& clsid)
{
    return RegisterGroupClass(category, GUID_Null, clsid);
}

Result T_ClsidRegistry::RegisterGroupClass(const GUID& category, const GUID& group,
                                           const CLSID& clsid)
try
{
    OSSIRA_CHECK_REFERENCE(category);
    OSSIRA_CHECK_REFERENCE(group);
    OSSIRA_CHECK_REFERENCE(clsid);
    return InternalRegisterClass(category, group, clsid);
}
catch (...)
{
    OSSIRA_LOCATION(here);
    const Result result = ReportCaught(here);
    if (result == E_OUTOFMEMORY)
        ++gShortages;
    return result;
}

Result T_ClsidRegistry::UnregisterClass(const GUID& category, const CLSID& clsid)
{
    return UnregisterGroupClass(category, GUID_Null, clsid);
}

Result T_ClsidRegistry::UnregisterGroupClass(const GUID& category, const GUID& group,
                                             const CLSID& clsid)
try
{
    OSSIRA_CHECK_REFERENCE(category);
    OSSIRA_CHECK_REFERENCE(group);
    OSSIRA_CHECK_REFERENCE(clsid);
    const std::uint32_t mask = CurrentLevelMask();
    OSSIRA_PRINT(mask, PRINT_TRACE, "Unregister Category:%s  Group:%s  Class:%s\n",
                 CGuidText(category).Text(), CGuidText(group).Text(), CGuidText(clsid).Text());
    Removal removal = {};
    {
        const tSystem::CLockGuard guard(mLock);
        removal = Remove(category, group, clsid);
    }
    if (removal.Missing != nullptr)
    {
        OSSIRA_PRINT(mask, PRINT_WARN, "%s", removal.Missing);
        return S_FALSE;
    }
    if (removal.GroupWent)
        OSSIRA_PRINT(mask, PRINT_TRACE, "    Remove classes-object from group\n");
    if (removal.CategoryWent)
        OSSIRA_PRINT(mask, PRINT_TRACE, "    Remove groups-object from category\n");
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_ClsidRegistry::ContainsCategory(const GUID& category)
try
{
    OSSIRA_CHECK_REFERENCE(category);
    const tSystem::CLockGuard guard(mLock);
    return mCategories->ContainsGUID(category);
}
OSSIRA_CATCH_RETURN

Result T_ClsidRegistry::ContainsGroup(const GUID& category, const GUID& group)
try
{
    OSSIRA_CHECK_REFERENCE(category);
    OSSIRA_CHECK_REFERENCE(group);
    const tSystem::CLockGuard guard(mLock);
    return FindClasses(category, group) ? S_OK : S_FALSE;
}
OSSIRA_CATCH_RETURN

Result T_ClsidRegistry::ContainsClass(const GUID& category, const CLSID& clsid)
{
    return ContainsGroupClass(category, GUID_Null, clsid);
}

Result T_ClsidRegistry::ContainsGroupClass(const GUID& category, const GUID& group,
                                           const CLSID& clsid)
try
{
    OSSIRA_CHECK_REFERENCE(category);
    OSSIRA_CHECK_REFERENCE(group);
    OSSIRA_CHECK_REFERENCE(clsid);
    const tSystem::CLockGuard guard(mLock);
    const Dictionary Values = FindClasses(category, group);
    return Values && Contains(Values, clsid) ? S_OK : S_FALSE;
}
OSSIRA_CATCH_RETURN

Result T_ClsidRegistry::GetClasses(const GUID& category, const IID& iid, void** ppv)
{
    return GetGroupClasses(category, GUID_Null, iid, ppv);
}

Result T_ClsidRegistry::GetGroupClasses(const GUID& category, const GUID& group, const IID& riid,
                                        void** ppv)
try
{
    OSSIRA_CHECK_POINTER(ppv);
    *ppv = nullptr;
    OSSIRA_CHECK_REFERENCE(category);
    OSSIRA_CHECK_REFERENCE(group);
    OSSIRA_CHECK_REFERENCE(riid);
    Dictionary Values;
    {
        const tSystem::CLockGuard guard(mLock);
        Values = FindClasses(category, group);
    }
    if (!Values)
        return E_NOT_FOUND;
    OSSIRA_CHECK_CALL_TWICE(Values->GetEnumerator(riid, ppv), "GetEnumerator(riid, ppv)");
    return S_OK;
}
OSSIRA_CATCH_RETURN

// The dictionary of categories has a lock of its own, and stays the same.
Result T_ClsidRegistry::GetCategories(const IID& iid, void** ppv)
{
    return mCategories->GetEnumerator(iid, ppv);
}

} // namespace

std::uint32_t ClsidRegistryShortages() noexcept
{
    return gShortages;
}

OSSIRA_CLASS(T_ClsidRegistry, "ClsidRegistry")

} // namespace Tavrik::Ossira
