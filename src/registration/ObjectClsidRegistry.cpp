// The CLSID registry: three levels of GUID dictionaries, category, group and class, where the
// lowest serves as a set. What a registration needs is built from the bottom up and entered last,
// so a failure in the middle leaves no empty dictionary behind.
#include "FastCriticalSection.h"
#include "OssiraBullets.h"
#include "OssiraFrame.h"
#include "OssiraServices.h"

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
    Result GetCategories(const IID& iid, void** ppv) override;

private:
    // The following with the lock held.
    Result InternalRegisterClass(const GUID& category, const GUID& group, const CLSID& clsid);
    Result InternalUnregisterClass(const GUID& category, const GUID& group, const CLSID& clsid);
    [[nodiscard]] Dictionary FindClasses(const GUID& category, const GUID& group) const;

    // Held for the whole of every operation. What runs under it are the dictionaries, which call
    // nobody, and the diagnostics observer.
    tSystem::CFastCriticalSection mLock;
    Dictionary mCategories;
    ObjectPtr<IValue> mDummyObject; // what every class identifier stands for
};

[[nodiscard]] bool Contains(const Dictionary& dictionary, const GUID& key)
{
    Result contains = S_OK;
    OSSIRA_CHECK_CALL_TWICE(contains = dictionary->ContainsGUID(key), "ContainsGUID");
    return contains == S_OK;
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

Result T_ClsidRegistry::InternalRegisterClass(const GUID& category, const GUID& group,
                                              const CLSID& clsid)
{
    const std::uint32_t mask = CurrentLevelMask();
    OSSIRA_PRINT(mask, PRINT_TRACE, "Register Category:%s  Group:%s  Class:%s\n",
                 CGuidText(category).Text(), CGuidText(group).Text(), CGuidText(clsid).Text());

    Dictionary groups = FindChild(mCategories, category);
    const bool isNewCategory = !groups;
    if (isNewCategory)
        groups = MakeDictionary();

    Dictionary Values = FindChild(groups, group);
    const bool isNewGroup = !Values;
    if (isNewGroup)
        Values = MakeDictionary();

    if (Contains(Values, clsid))
    {
        OSSIRA_PRINT(mask, PRINT_WARN, "    Class:%s - already exists\n", CGuidText(clsid).Text());
        return S_FALSE;
    }
    OSSIRA_CHECK_CALL_TWICE(Values->SetValueGUID(clsid, mDummyObject.Get()),
                            "Values->SetValueGUID(clsid, mDummyObject)");
    if (isNewGroup)
    {
        OSSIRA_CHECK_CALL_TWICE(groups->SetValueGUID(group, Values.Get()),
                                "mCategories->SetValueGUID(category, Values)");
    }
    if (isNewCategory)
    {
        OSSIRA_CHECK_CALL_TWICE(mCategories->SetValueGUID(category, groups.Get()), "SetValueGUID");
        OSSIRA_PRINT(mask, PRINT_TRACE, "    New Category created: %s\n",
                     CGuidText(category).Text());
    }
    if (isNewGroup)
        OSSIRA_PRINT(mask, PRINT_TRACE, "    New Class created: %s\n", CGuidText(clsid).Text());
    return S_OK;
}

Result T_ClsidRegistry::InternalUnregisterClass(const GUID& category, const GUID& group,
                                                const CLSID& clsid)
{
    const std::uint32_t mask = CurrentLevelMask();
    OSSIRA_PRINT(mask, PRINT_TRACE, "Unregister Category:%s  Group:%s  Class:%s\n",
                 CGuidText(category).Text(), CGuidText(group).Text(), CGuidText(clsid).Text());

    const Dictionary groups = FindChild(mCategories, category);
    if (!groups)
    {
        OSSIRA_PRINT(mask, PRINT_WARN, "    Unknown category\n");
        return S_FALSE;
    }
    const Dictionary Values = FindChild(groups, group);
    if (!Values)
    {
        OSSIRA_PRINT(mask, PRINT_WARN, "    Category has no such group\n");
        return S_FALSE;
    }
    if (!Contains(Values, clsid))
    {
        OSSIRA_PRINT(mask, PRINT_WARN, "    Class not member of the group\n");
        return S_FALSE;
    }

    OSSIRA_CHECK_CALL_TWICE(Values->RemoveGUID(clsid), "Values->RemoveGUID(clsid)");
    if (Values->GetCount() == 0)
    {
        OSSIRA_PRINT(mask, PRINT_TRACE, "    Remove classes-object from group\n");
        OSSIRA_CHECK_CALL_TWICE(groups->RemoveGUID(group), "RemoveGUID");
    }
    if (groups->GetCount() == 0)
    {
        OSSIRA_PRINT(mask, PRINT_TRACE, "    Remove groups-object from category\n");
        OSSIRA_CHECK_CALL_TWICE(mCategories->RemoveGUID(category), "RemoveGUID");
    }
    return S_OK;
}

Result T_ClsidRegistry::RegisterClass(const GUID& category, const CLSID& clsid)
{
    return RegisterGroupClass(category, GUID_Null, clsid);
}

Result T_ClsidRegistry::RegisterGroupClass(const GUID& category, const GUID& group,
                                           const CLSID& clsid)
try
{
    const tSystem::CLockGuard guard(mLock);
    return InternalRegisterClass(category, group, clsid);
}
OSSIRA_CATCH_RETURN

Result T_ClsidRegistry::UnregisterClass(const GUID& category, const CLSID& clsid)
{
    return UnregisterGroupClass(category, GUID_Null, clsid);
}

Result T_ClsidRegistry::UnregisterGroupClass(const GUID& category, const GUID& group,
                                             const CLSID& clsid)
try
{
    const tSystem::CLockGuard guard(mLock);
    return InternalUnregisterClass(category, group, clsid);
}
OSSIRA_CATCH_RETURN

Result T_ClsidRegistry::ContainsCategory(const GUID& category)
{
    const tSystem::CLockGuard guard(mLock);
    return mCategories->ContainsGUID(category);
}

Result T_ClsidRegistry::ContainsGroup(const GUID& category, const GUID& group)
try
{
    const tSystem::CLockGuard guard(mLock);
    const Dictionary groups = FindChild(mCategories, category);
    return groups && Contains(groups, group) ? S_OK : S_FALSE;
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
    const tSystem::CLockGuard guard(mLock);
    const Dictionary Values = FindClasses(category, group);
    if (!Values)
        return E_NOT_FOUND;
    OSSIRA_CHECK_CALL_TWICE(Values->GetEnumerator(riid, ppv), "GetEnumerator(riid, ppv)");
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_ClsidRegistry::GetCategories(const IID& iid, void** ppv)
{
    const tSystem::CLockGuard guard(mLock);
    return mCategories->GetEnumerator(iid, ppv);
}

} // namespace

OSSIRA_CLASS(T_ClsidRegistry, "ClsidRegistry")

} // namespace Tavrik::Ossira
