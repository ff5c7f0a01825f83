// The two views of a collection by GUID, of its keys and of its objects. They hold nothing but a
// reference on their collection: they show it as it is now, and refuse every change although they
// do not call themselves read-only.
#pragma once

#include "GuidCollection.h"
#include "ItemEnumerator.h"

namespace Tavrik::Ossira
{

// What both views say: `Interface` is the view's, `Traits` the collection's, `Name` the view's in
// reports.
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
        OSSIRA_CHECK_REFERENCE(riid);
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

// A collection that hands the views out; the parameters are those of `CGuidCollection`.
template <class Traits, class Interface, ItemsByGuid Table>
class CViewedCollection : public CGuidCollection<Traits, Interface, Table>
{
public:
    static constexpr std::string_view OssiraReportedClass = ReportedClass<Traits>;

    Result GetValues(void** ppv) override
    try
    {
        OSSIRA_CHECK_POINTER(ppv);
        auto view = TryMakeObject<CValueCollection<Traits, CViewedCollection>>(this);
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
        OSSIRA_UNDER_TO_READ(this->mLock)
    {
        return this->mTable.Find(at.Key);
    }
};

} // namespace Tavrik::Ossira
