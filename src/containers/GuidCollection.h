// The logic that dictionaries and value sets share: everything by key that does not look into the
// items. `Interface` is the collection's own, `Storage` what it holds (see ItemTable.h), and
// `Traits` names
//   ClassId, ClassName  of the class
//   LockType            its lock
//   AddText             what the refusal of `AddGUID` reports
//   EnumeratorClass     the name of its enumerator in reports, "::" and name
//   NewEnumeratorText   what is reported when that cannot be made
#pragma once

#include "GuidKeyEnumerator.h"
#include "ItemTable.h"
#include "LockPolicy.h"
#include "ReportedName.h"
#include "TryMakeObject.h"

namespace Tavrik::Ossira
{

template <class Traits, class Interface, class Storage>
class CGuidCollection : public Interface,
                        public CLockHolder<typename Traits::LockType>,
                        public CObjectName,
                        public CObjectIdentity<Traits>,
                        public COssiraUnknown
{
    struct EnumeratorTraits
    {
        using Owner = CGuidCollection;
        using Primary = Interface;
        using Position = CGuidPosition;
        static constexpr std::string_view ReportedClass =
            ReportedNested<Traits, Traits::EnumeratorClass>;
        static constexpr bool OffersGuids = true;
        static constexpr bool ReportsEnd = false;
    };

public:
    static constexpr CLSID ClassId = Traits::ClassId;
    static constexpr std::string_view OssiraReportedClass = ReportedClass<Traits>;

    Result GetEnumerator(const IID& riid, void** ppv) override
    try
    {
        OSSIRA_CHECK_POINTER(ppv);
        const auto enumerator = TryMakeObject<CGuidKeyEnumerator<EnumeratorTraits>>(this);
        OSSIRA_CHECK(enumerator, E_OUTOFMEMORY, Traits::NewEnumeratorText);
        return enumerator->QueryInterface(riid, ppv);
    }
    OSSIRA_CATCH_RETURN

    Result GetCount() override
    try
    {
        return mStorage.Count();
    }
    OSSIRA_CATCH_RETURN

    Result Clear() override
    try
    {
        typename Storage::Removed removed;
        const tSystem::CLockGuard guard(this->mLock);
        mStorage.TakeAll(removed);
        return S_OK;
    }
    OSSIRA_CATCH_RETURN

    Result IsReadOnly() override
    {
        return 0;
    }

    Result AddGUID(const GUID&) override
    try
    {
        OSSIRA_THROW(E_NOTIMPL, Traits::AddText);
    }
    OSSIRA_CATCH_RETURN

    Result RemoveGUID(const GUID& key) override
    try
    {
        ObjectPtr<Item> removed;
        const tSystem::CLockGuard guard(this->mLock);
        removed = mStorage.Take(key);
        return S_OK;
    }
    OSSIRA_CATCH_RETURN

    Result ContainsGUID(const GUID& key) override
    try
    {
        const tSystem::CLockGuard guard(this->mLock);
        return mStorage.Contains(key) ? S_OK : S_FALSE;
    }
    OSSIRA_CATCH_RETURN

    Result GetValueGUID(const GUID& key, const IID& riid, void** ppv) override
    try
    {
        OSSIRA_CHECK_POINTER(ppv);
        const tSystem::CLockGuard guard(this->mLock);
        return mStorage.Ask(key, riid, ppv);
    }
    OSSIRA_CATCH_RETURN

    // For the enumerators, which hold the lock.

    [[nodiscard]] std::uint32_t EnumerationStamp() const noexcept
    {
        return mStorage.Stamp();
    }

    [[nodiscard]] bool FirstPosition(CGuidPosition& at)
    {
        return mStorage.First(at);
    }

    [[nodiscard]] bool NextPosition(CGuidPosition& at)
    {
        return mStorage.Next(at);
    }

protected:
    using Item = typename Storage::Item;

    Storage mStorage;
};

} // namespace Tavrik::Ossira
