// The GUID dictionaries and the two views that they hand out, of their keys and of their values.
// The views hold nothing but a reference on their dictionary: they show it as it is now, and refuse
// every change although they do not call themselves read-only. Every call that could change a
// dictionary ends its enumerators, also one that finds nothing to change.
#include "GuidCollection.h"
#include "ItemEnumerator.h"
#include "OssiraClasses.h"

namespace Tavrik::Ossira
{
namespace
{

// What both views say: `Interface` is the collection's, `Traits` the dictionary's, `Name` the
// view's in reports.
template <class Traits, class Interface, const std::string_view& Name>
class CDictionaryView : public Interface, public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = Traits::ClassId; // in the list of live objects
    static constexpr std::string_view OssiraReportedClass = ReportedNested<Traits, Name>;

    OSSIRA_INTERFACES(Interface)

    Result GetCount() override
    {
        return mDictionary->GetCount();
    }

    Result Clear() override
    try
    {
        OSSIRA_THROW(E_ACCESSDENIED, "Clear() - Readonly collection");
    }
    OSSIRA_CATCH_RETURN

    Result IsReadOnly() override
    {
        return 0;
    }

protected:
    static constexpr const char* AddText = "Add() - Readonly collection";
    static constexpr const char* RemoveText = "Remove() - Readonly collection";

    explicit CDictionaryView(IDictionaryGUID* dictionary) : mDictionary(dictionary)
    {
    }

    ObjectPtr<IDictionaryGUID> mDictionary;
};

template <class Traits>
class CKeyCollection : public CDictionaryView<Traits, ICollectionGUID, KeyCollectionName>
{
    using View = CDictionaryView<Traits, ICollectionGUID, KeyCollectionName>;

public:
    static constexpr std::string_view OssiraReportedClass = View::OssiraReportedClass;

    explicit CKeyCollection(IDictionaryGUID* dictionary) : View(dictionary)
    {
    }

    Result GetEnumerator(const IID& riid, void** ppv) override
    {
        return this->mDictionary->GetEnumerator(riid, ppv);
    }

    Result AddGUID(const GUID&) override
    try
    {
        OSSIRA_THROW(E_ACCESSDENIED, View::AddText);
    }
    OSSIRA_CATCH_RETURN

    Result RemoveGUID(const GUID&) override
    try
    {
        OSSIRA_THROW(E_ACCESSDENIED, View::RemoveText);
    }
    OSSIRA_CATCH_RETURN

    Result ContainsGUID(const GUID& key) override
    {
        return this->mDictionary->ContainsGUID(key);
    }
};

// `Dictionary` is the class whose values are shown.
template <class Traits, class Dictionary>
class CValueCollection : public CDictionaryView<Traits, ICollection, ValueCollectionName>
{
    using View = CDictionaryView<Traits, ICollection, ValueCollectionName>;

    struct EnumeratorTraits
    {
        using Owner = Dictionary;
        using Primary = IDictionaryGUID;
        using Position = CGuidPosition;
        static constexpr std::string_view ReportedClass =
            ReportedNested<Traits, ValueEnumeratorName>;
    };

public:
    static constexpr std::string_view OssiraReportedClass = View::OssiraReportedClass;

    explicit CValueCollection(Dictionary* dictionary) : View(dictionary), mOwner(dictionary)
    {
    }

    Result GetEnumerator(const IID& riid, void** ppv) override
    try
    {
        OSSIRA_CHECK_POINTER(ppv);
        const auto enumerator = TryMakeObject<CItemEnumerator<EnumeratorTraits>>(mOwner);
        OSSIRA_CHECK(enumerator, E_OUTOFMEMORY, "new T_ValueEnumerator");
        return enumerator->QueryInterface(riid, ppv);
    }
    OSSIRA_CATCH_RETURN

    Result Add(IUnknown*) override
    try
    {
        OSSIRA_THROW(E_ACCESSDENIED, View::AddText);
    }
    OSSIRA_CATCH_RETURN

    Result Remove(IUnknown*) override
    try
    {
        OSSIRA_THROW(E_ACCESSDENIED, View::RemoveText);
    }
    OSSIRA_CATCH_RETURN

    Result Contains(IUnknown*) override
    try
    {
        OSSIRA_THROW(E_NOTIMPL, "Contains");
    }
    OSSIRA_CATCH_RETURN

    Result CopyTo(std::int32_t, std::int32_t, const IID&, void**[]) override
    try
    {
        OSSIRA_THROW(E_NOTIMPL, "CopyTo");
    }
    OSSIRA_CATCH_RETURN

private:
    Dictionary* mOwner;
};

template <class Traits>
class CDictionaryGUID : public CGuidCollection<Traits, IDictionaryGUID, CItemTable<IUnknown>>
{
public:
    static constexpr std::string_view OssiraReportedClass = ReportedClass<Traits>;

    Result InternalQueryInterface(const IID& iid, void** out) override
    {
        if constexpr (CDictionaryGUID::IsLockable)
            return this->template AnswerInterfaces<IDictionaryGUID, IObjectLock, IObjectName,
                                                   IObjectIdentity>(this, iid, out);
        else
            return this->template AnswerInterfaces<IDictionaryGUID, IObjectName, IObjectIdentity>(
                this, iid, out);
    }

    Result SetValueGUID(const GUID& key, IUnknown* value) override
    try
    {
        OSSIRA_CHECK_POINTER(value);
        ObjectPtr<IUnknown> item(value);
        const std::lock_guard guard(this->mLock);
        this->mStorage.Put(key, item);
        return S_OK;
    }
    OSSIRA_CATCH_RETURN

    Result GetValues(void** ppv) override
    try
    {
        OSSIRA_CHECK_POINTER(ppv);
        auto view = TryMakeObject<CValueCollection<Traits, CDictionaryGUID>>(this);
        OSSIRA_CHECK(view, E_OUTOFMEMORY, "new T_ValueCollection");
        *ppv = static_cast<ICollection*>(view.Detach());
        return S_OK;
    }
    OSSIRA_CATCH_RETURN

    Result GetKeys(void** ppv) override
    try
    {
        OSSIRA_CHECK_POINTER(ppv);
        auto view = TryMakeObject<CKeyCollection<Traits>>(this);
        OSSIRA_CHECK(view, E_OUTOFMEMORY, "new T_KeyCollection");
        *ppv = static_cast<ICollectionGUID*>(view.Detach());
        return S_OK;
    }
    OSSIRA_CATCH_RETURN

    [[nodiscard]] IUnknown* ItemAt(const CGuidPosition& at) const noexcept
    {
        return this->mStorage.Find(at.Key);
    }
};

struct DictionaryText
{
    static constexpr const char* AddText = "AddGUID not supported by IDictionaryGUID";
    static constexpr const std::string_view& EnumeratorClass = KeyEnumeratorName;
    static constexpr const char* NewEnumeratorText = "new T_KeyEnumerator";
};

struct DictionaryTraits : DictionaryText
{
    using LockType = CSpinLock;
    static constexpr CLSID ClassId = CLSID_DictionaryGUID;
    static constexpr std::string_view ClassName = "DictionaryGUID";
};

struct LockableDictionaryTraits : DictionaryText
{
    using LockType = CCallerLock;
    static constexpr CLSID ClassId = CLSID_LockableDictionaryGUID;
    static constexpr std::string_view ClassName = "LockableDictionaryGUID";
};

struct UnsafeDictionaryTraits : DictionaryText
{
    using LockType = CNoLock;
    static constexpr CLSID ClassId = CLSID_UnsafeDictionaryGUID;
    static constexpr std::string_view ClassName = "UnsafeDictionaryGUID";
};

} // namespace

OSSIRA_CLASS(CDictionaryGUID<DictionaryTraits>, "DictionaryGUID")
OSSIRA_CLASS(CDictionaryGUID<LockableDictionaryTraits>, "LockableDictionaryGUID")
OSSIRA_CLASS(CDictionaryGUID<UnsafeDictionaryTraits>, "UnsafeDictionaryGUID")

} // namespace Tavrik::Ossira
