// The logic that dictionaries, value sets and groups share: everything by key that does not look
// into the items. `Interface` is the collection's own, `Table` what it holds, and `Traits` names,
// besides what GuidEnumerable.h asks for, `AddText`: what the refusal of `AddGUID` reports.
#pragma once

#include "DeathQueue.h"
#include "GuidEnumerable.h"
#include "ItemQuestion.h"
#include "ItemTable.h"

namespace Tavrik::Ossira
{

// Counted references by GUID. All but `Count` is called with the collection's lock held; what is
// removed is handed out, so that it dies after the lock was left. A `Key` is made of a GUID before
// the lock is taken.
template <class Table>
concept ItemsByGuid = WalkedByGuid<Table> &&
    requires(Table& table, const typename Table::Key& key, typename Table::Removed& removed)
{
    {
        std::as_const(table).Count()
        } -> std::same_as<std::int32_t>;
    {
        std::as_const(table).Find(key)
        } -> std::same_as<typename Table::Item*>;
    {
        table.Take(key)
        } -> std::same_as<ObjectPtr<typename Table::Item>>;
    table.TakeAll(removed);
};

template <class Traits, class Interface, ItemsByGuid Table>
class CGuidCollection : public CGuidEnumerable<Traits, Interface, Table>,
                        public CObjectName,
                        public CObjectIdentity<Traits>,
                        public CDestroyedInTurn,
                        public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = Traits::ClassId;
    static constexpr std::string_view OssiraReportedClass = ReportedClass<Traits>;

    // Read without the lock.
    Result GetCount() OSSIRA_UNCHECKED_GUARDS override
    {
        return this->mTable.Count();
    }

    Result Clear() override
    {
        typename Table::Removed removed;
        const tSystem::CLockGuard guard(this->mLock);
        ++this->mStamp;
        this->mTable.TakeAll(removed);
        return S_OK;
    }

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
        OSSIRA_CHECK_REFERENCE(key);
        const typename Table::Key sought(key);
        ObjectPtr<typename Table::Item> removed;
        const tSystem::CLockGuard guard(this->mLock);
        ++this->mStamp;
        removed = this->mTable.Take(sought);
        return S_OK;
    }
    OSSIRA_CATCH_RETURN

    Result ContainsGUID(const GUID& key) override
    try
    {
        OSSIRA_CHECK_REFERENCE(key);
        const typename Table::Key sought(key);
        const tSystem::CReadGuard guard(this->mLock);
        return this->mTable.Find(sought) != nullptr ? S_OK : S_FALSE;
    }
    OSSIRA_CATCH_RETURN

    Result GetValueGUID(const GUID& key, const IID& riid, void** ppv) override
    try
    {
        OSSIRA_CHECK_POINTER(ppv);
        OSSIRA_CHECK_REFERENCE(key);
        OSSIRA_CHECK_REFERENCE(riid);
        return AskItem(this->mLock, CFinding{this->mTable, typename Table::Key(key)}, riid, ppv);
    }
    OSSIRA_CATCH_RETURN

private:
    struct CFinding
    {
        [[gnu::always_inline]] IUnknown* operator()() const noexcept
        {
            return Items.Find(Key);
        }

        const Table& Items;
        const typename Table::Key Key;
    };
};

} // namespace Tavrik::Ossira
