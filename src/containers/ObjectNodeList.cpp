// The node lists: objects in the order in which they were put, in a sequence of owned references,
// so that an index costs the same everywhere. An item is stored as its unknown interface, which is
// what it is recognised by. `SetItemAt` leaves the stamp alone, so that a running enumerator goes
// on and meets the new item.
#include "DeathQueue.h"
#include "ItemEnumerator.h"
#include "ItemSequence.h"
#include "LockPolicy.h"
#include "OssiraClasses.h"
#include "RefusedValue.h"
#include "TryMakeObject.h"

#include <limits>

namespace Tavrik::Ossira
{
namespace
{

template <class Traits>
class CNodeList : public IList,
                  public CRefusedValue<Traits>,
                  public CLockHolder<typename Traits::LockType>,
                  public CObjectName,
                  public CObjectIdentity<Traits>,
                  public CDestroyedInTurn,
                  public COssiraUnknown
{
    struct EnumeratorTraits
    {
        using Owner = CNodeList;
        using Primary = IList;
        using Position = CItemSequence::Place;
        static constexpr std::string_view ReportedClass = ReportedNested<Traits, EnumeratorName>;
    };

public:
    static constexpr CLSID ClassId = Traits::ClassId;
    static constexpr std::string_view OssiraReportedClass = ReportedClass<Traits>;

    template <tDetail::EQuery Query>
    Result AnswerQuery(const IID& iid, void** out)
    {
        if constexpr (CNodeList::IsLockable)
            return this->template AnswerListed<Query, IList, IValue, IObjectLock, IObjectName,
                                               IObjectIdentity>(this, iid, out);
        else
            return this->template AnswerListed<Query, IList, IValue, IObjectName, IObjectIdentity>(
                this, iid, out);
    }

    OSSIRA_ANSWERS_BY_LIST

    Result GetEnumerator(const IID& riid, void** ppv) override
    try
    {
        OSSIRA_CHECK_POINTER(ppv);
        OSSIRA_CHECK_REFERENCE(riid);
        const auto enumerator = TryMakeObject<CItemEnumerator<EnumeratorTraits>>(this);
        OSSIRA_CHECK(enumerator, E_OUTOFMEMORY, "new T_Enumerator");
        return enumerator->QueryInterface(riid, ppv);
    }
    OSSIRA_CATCH_RETURN

    Result GetCount() override
    {
        return mCount.load(std::memory_order_relaxed);
    }

    Result Clear() override
    try
    {
        CItemSequence removed;
        const tSystem::CLockGuard guard(this->mLock);
        mItems.Swap(removed);
        MarkChanged();
        return S_OK;
    }
    OSSIRA_CATCH_RETURN

    Result IsReadOnly() override
    {
        return 0;
    }

    Result Add(IUnknown* item) override
    try
    {
        Intake taken(item);
        OSSIRA_CHECK(!Failed(taken.Code), taken.Code, taken.Text);
        const tSystem::CLockGuard guard(this->mLock);
        OSSIRA_CHECK(mItems.Size() < MaximumSize, E_OUTOFMEMORY, TooLongText);
        mItems.Append(taken.Identity);
        MarkChanged();
        return S_OK;
    }
    OSSIRA_CATCH_RETURN

    Result Remove(IUnknown* item) override
    try
    {
        Intake taken(item);
        OSSIRA_CHECK(!Failed(taken.Code), taken.Code, taken.Text);
        OSSIRA_CHECK(taken.Identity, E_POINTER, "item");
        ObjectPtr<IUnknown> removed;
        const tSystem::CLockGuard guard(this->mLock);
        const auto found = mItems.Find(taken.Identity.Get());
        OSSIRA_CHECK(found, E_INVALIDARG, "item not member of this list");
        removed = mItems.Take(*found);
        MarkChanged();
        return S_OK;
    }
    OSSIRA_CATCH_RETURN

    Result Contains(IUnknown* item) override
    try
    {
        Intake taken(item);
        OSSIRA_CHECK(!Failed(taken.Code), taken.Code, taken.Text);
        const tSystem::CLockGuard guard(this->mLock);
        return mItems.Find(taken.Identity.Get()) ? S_OK : S_FALSE;
    }
    OSSIRA_CATCH_RETURN

    Result CopyTo(std::int32_t index, std::int32_t count, const IID& riid, void** pppv[]) override
    try
    {
        OSSIRA_CHECK_POINTER(pppv);
        OSSIRA_CHECK_REFERENCE(riid);
        {
            const tSystem::CLockGuard guard(this->mLock);
            const auto size = static_cast<std::int32_t>(mItems.Size());
            OSSIRA_CHECK(index >= 0 && count >= 0 && index <= size && count <= size - index,
                         E_INVALIDARG, "Invalid Index or Count param");
            for (std::int32_t i = 0; i < count; ++i)
            {
                OSSIRA_CHECK_POINTER(pppv[i]);
                *pppv[i] = nullptr;
            }
            for (std::int32_t i = 0; i < count; ++i)
                *pppv[i] = ObjectPtr(mItems.At(static_cast<std::size_t>(index + i))).Detach();
        }
        for (Unasked rest = {pppv, pppv + count}; rest.At != rest.End;)
        {
            void** const target = *rest.At;
            const ObjectPtr<IUnknown> item = rest.TakeNext();
            OSSIRA_CHECK(item, E_NOINTERFACE, "QueryInterface(riid, pppv[i])");
            OSSIRA_CHECK_CALL_TWICE(item->QueryInterface(riid, target),
                                    "QueryInterface(riid, pppv[i])");
        }
        return S_OK;
    }
    OSSIRA_CATCH_RETURN

    Result IndexOf(IUnknown* item) override
    try
    {
        Intake taken(item);
        OSSIRA_CHECK(!Failed(taken.Code), taken.Code, taken.Text);
        const tSystem::CLockGuard guard(this->mLock);
        const auto found = mItems.Find(taken.Identity.Get());
        return found ? static_cast<Result>(*found) : E_NOT_FOUND;
    }
    OSSIRA_CATCH_RETURN

    Result Insert(std::int32_t index, IUnknown* item) override
    try
    {
        Intake taken(item);
        OSSIRA_CHECK(!Failed(taken.Code), taken.Code, taken.Text);
        const tSystem::CLockGuard guard(this->mLock);
        OSSIRA_CHECK(IsInside(index) || IsSize(index), E_INVALIDARG, IndexText);
        OSSIRA_CHECK(mItems.Size() < MaximumSize, E_OUTOFMEMORY, TooLongText);
        mItems.Insert(static_cast<std::size_t>(index), std::move(taken.Identity));
        MarkChanged();
        return S_OK;
    }
    OSSIRA_CATCH_RETURN

    Result RemoveAt(std::int32_t index) override
    try
    {
        ObjectPtr<IUnknown> removed;
        const tSystem::CLockGuard guard(this->mLock);
        OSSIRA_CHECK(IsInside(index), E_INVALIDARG, IndexText);
        removed = mItems.Take(static_cast<std::size_t>(index));
        MarkChanged();
        return S_OK;
    }
    OSSIRA_CATCH_RETURN

    Result GetItemAt(std::int32_t index, const IID& riid, void** ppv) override
    try
    {
        OSSIRA_CHECK_POINTER(ppv);
        OSSIRA_CHECK_REFERENCE(riid);
        bool isInside = false;
        const CFinding find = {*this, index, isInside};
        Result asked = AskItem(this->mLock, find, riid, ppv);
        if (Failed(asked)) [[unlikely]]
        {
            if (isInside)
                asked = AskItem(this->mLock, find, riid, ppv);
            OSSIRA_CHECK(isInside, E_INVALIDARG, IndexText);
            OSSIRA_CHECK(!Failed(asked), asked, "Item->QueryInterface(riid, ppv)");
        }
        return S_OK;
    }
    OSSIRA_CATCH_RETURN

    Result SetItemAt(std::int32_t index, IUnknown* item) override
    try
    {
        Intake taken(item);
        OSSIRA_CHECK(!Failed(taken.Code), taken.Code, taken.Text);
        const tSystem::CLockGuard guard(this->mLock);
        OSSIRA_CHECK(IsInside(index), E_INVALIDARG, IndexText);
        mItems.Replace(static_cast<std::size_t>(index), taken.Identity);
        return S_OK;
    }
    OSSIRA_CATCH_RETURN

    // For the enumerator.

    [[nodiscard]] std::uint64_t EnumerationStamp() const noexcept OSSIRA_UNDER_TO_READ(this->mLock)
    {
        return mStamp;
    }

    [[nodiscard]] bool FirstPosition(CItemSequence::Place& at) const noexcept
        OSSIRA_UNDER_TO_READ(this->mLock)
    {
        return mItems.First(at);
    }

    [[nodiscard]] bool NextPosition(CItemSequence::Place& at) const noexcept
        OSSIRA_UNDER_TO_READ(this->mLock)
    {
        return mItems.Next(at);
    }

    [[nodiscard]] IUnknown* ItemAt(const CItemSequence::Place& at) const noexcept
        OSSIRA_UNDER_TO_READ(this->mLock)
    {
        return *at.Slot;
    }

private:
    // An item as it comes in: as its unknown interface, or what is wrong with it.
    struct Intake
    {
        explicit Intake(IUnknown* item)
        {
            if (item == nullptr) [[unlikely]]
                return;
            Text = "_item->QueryInterface(IID_IUnknown, (void**)&Item)";
            Code = item->QueryInterface(IID_IUnknown, Identity.PutVoid());
            if (Failed(Code)) [[unlikely]] // callers see the extra attempt
                Code = item->QueryInterface(IID_IUnknown, Identity.PutVoid());
        }

        ObjectPtr<IUnknown> Identity;
        Result Code = E_POINTER;
        const char* Text = "_item";
    };

    // Copied items wait in the caller's targets until they are asked, so that a copy needs no
    // memory. What is not asked in the end is given back.
    struct Unasked
    {
        Unasked(void*** at, void*** end) noexcept : At(at), End(end)
        {
        }
        Unasked(const Unasked&) = delete;
        Unasked& operator=(const Unasked&) = delete;
        ~Unasked()
        {
            while (At != End)
                TakeNext().Reset();
        }

        [[nodiscard]] ObjectPtr<IUnknown> TakeNext() noexcept
        {
            void* const item = std::exchange(**At++, nullptr);
            return ObjectPtr<IUnknown>::Adopt(static_cast<IUnknown*>(item));
        }

        void*** At;
        void*** End;
    };

    static constexpr const char* IndexText = "Invalid Index param";
    static constexpr const char* TooLongText = "list<T> too long";
    static constexpr std::size_t MaximumSize = std::numeric_limits<std::int32_t>::max();

    struct CFinding
    {
        [[gnu::always_inline]] IUnknown* operator()() const noexcept
            OSSIRA_UNDER_TO_READ(List.mLock)
        {
            IsInside = List.IsInside(Index);
            return IsInside ? List.mItems.At(static_cast<std::size_t>(Index)) : nullptr;
        }

        const CNodeList& List;
        std::int32_t Index;
        bool& IsInside; // told, because it may be otherwise behind the lock
    };

    [[nodiscard]] bool IsInside(std::int32_t index) const noexcept OSSIRA_UNDER_TO_READ(this->mLock)
    {
        return index >= 0 && static_cast<std::size_t>(index) < mItems.Size();
    }

    [[nodiscard]] bool IsSize(std::int32_t index) const noexcept OSSIRA_UNDER_TO_READ(this->mLock)
    {
        return index >= 0 && static_cast<std::size_t>(index) == mItems.Size();
    }

    void MarkChanged() noexcept OSSIRA_UNDER(this->mLock)
    {
        ++mStamp;
        mCount.store(static_cast<std::int32_t>(mItems.Size()), std::memory_order_relaxed);
    }

    CItemSequence mItems OSSIRA_GUARDED_BY(this->mLock);
    std::atomic<std::int32_t> mCount = 0; // read without the lock
    std::uint64_t mStamp OSSIRA_GUARDED_BY(this->mLock) = 0;
};

struct NodeListText
{
    static constexpr const char* RefusalText = "Call of NodeList::IValue-Methode not supported";
};

struct NodeListTraits : NodeListText
{
    using LockType = CSpinLock;
    static constexpr CLSID ClassId = CLSID_NodeList;
    static constexpr std::string_view ClassName = "NodeList";
};

struct LockableNodeListTraits : NodeListText
{
    using LockType = CCallerLock;
    static constexpr CLSID ClassId = CLSID_LockableNodeList;
    static constexpr std::string_view ClassName = "LockableNodeList";
};

struct UnsafeNodeListTraits : NodeListText
{
    using LockType = CNoLock;
    static constexpr CLSID ClassId = CLSID_UnsafeNodeList;
    static constexpr std::string_view ClassName = "UnsafeNodeList";
};

static_assert(ReportedNested<UnsafeNodeListTraits, EnumeratorName> ==
              "Tavrik::Ossira::`anonymous-namespace'::T_UnsafeNodeList::T_Enumerator");

} // namespace

OSSIRA_CLASS(CNodeList<NodeListTraits>, "NodeList")
OSSIRA_CLASS(CNodeList<LockableNodeListTraits>, "LockableNodeList")
OSSIRA_CLASS(CNodeList<UnsafeNodeListTraits>, "UnsafeNodeList")

} // namespace Tavrik::Ossira
