// The base of everything that is kept by GUID and hands out enumerators over its keys: dictionaries
// and value sets, the layers of a group, the object factory, the singleton registry. It has the
// lock, the table, and the stamp by which an enumerator sees that it is out of date.
//
// `Interface` is the class's primary interface, with `GetEnumerator` among its operations; `Table`
// a `CGuidTable`, or what walks like one; and `Traits` names
//   ClassId, ClassName  of the class
//   LockType            its lock
//   EnumeratorClass     the name of its enumerator in reports, "::" and name
//   NewEnumeratorText   what is reported when that cannot be made
//   OffersGuids         whether the enumerator answers `IEnumeratorGUID` too
//   ReportsEnd          whether asking behind the last key is a mistake to report
#pragma once

#include "GuidKeyEnumerator.h"
#include "LockPolicy.h"
#include "ReportedName.h"
#include "TryMakeObject.h"

#include <atomic>

namespace Tavrik::Ossira
{

// What the traits of a collection say of its enumerator.
struct QuietGuids
{
    static constexpr bool OffersGuids = true;
    static constexpr bool ReportsEnd = false;
};

// The stamp of a collection: moved, it ends the enumerators. It is read and moved under the lock,
// as a plain number, but for the one operation that needs nothing else of the lock.
class CStamp
{
public:
    [[nodiscard]] std::uint64_t Number() const noexcept
    {
        return mNumber.load(std::memory_order_relaxed);
    }

    CStamp& operator++() noexcept
    {
        mNumber.store(Number() + 1, std::memory_order_relaxed);
        return *this;
    }

    // Without the lock. Should this step be lost in one that is made under the lock at the same
    // time, no enumerator was made in between that could know the number before.
    void MoveUnlocked() noexcept
    {
        mNumber.fetch_add(1, std::memory_order_release);
    }

private:
    std::atomic<std::uint64_t> mNumber = 0;
};

template <class Table>
concept WalkedByGuid = requires(Table& table, CGuidPosition& at)
{
    {
        table.First(at)
        } -> std::same_as<bool>;
    {
        table.Next(at)
        } -> std::same_as<bool>;
};

template <class Traits, class Interface, WalkedByGuid Table>
class CGuidEnumerable : public Interface, public CLockHolder<typename Traits::LockType>
{
    struct EnumeratorTraits
    {
        using Owner = CGuidEnumerable;
        using Primary = Interface;
        using Position = CGuidPosition;
        static constexpr std::string_view ReportedClass =
            ReportedNested<Traits, Traits::EnumeratorClass>;
        static constexpr bool OffersGuids = Traits::OffersGuids;
        static constexpr bool ReportsEnd = Traits::ReportsEnd;
    };

public:
    static constexpr CLSID ClassId = Traits::ClassId;
    static constexpr std::string_view OssiraReportedClass = ReportedClass<Traits>;

    Result GetEnumerator(const IID& riid, void** ppv) override
    try
    {
        OSSIRA_CHECK_POINTER(ppv);
        OSSIRA_CHECK_REFERENCE(riid);
        const auto enumerator = TryMakeObject<CGuidKeyEnumerator<EnumeratorTraits>>(this);
        OSSIRA_CHECK(enumerator, E_OUTOFMEMORY, Traits::NewEnumeratorText);
        return enumerator->QueryInterface(riid, ppv);
    }
    OSSIRA_CATCH_RETURN

    // For the enumerators.

    [[nodiscard]] std::uint64_t EnumerationStamp() const noexcept OSSIRA_UNDER_TO_READ(this->mLock)
    {
        return mStamp.Number();
    }

    [[nodiscard]] bool FirstPosition(CGuidPosition& at) OSSIRA_UNDER_TO_READ(this->mLock)
    {
        return mTable.First(at);
    }

    [[nodiscard]] bool NextPosition(CGuidPosition& at) OSSIRA_UNDER_TO_READ(this->mLock)
    {
        return mTable.Next(at);
    }

protected:
    ~CGuidEnumerable() = default;

    // For a change that needs nothing else of the lock.
    void EndEnumeratorsUnlocked() noexcept OSSIRA_UNCHECKED_GUARDS
    {
        mStamp.MoveUnlocked();
    }

    Table mTable OSSIRA_GUARDED_BY(this->mLock);
    CStamp mStamp OSSIRA_GUARDED_BY(this->mLock); // move it, and enumerators end
};

} // namespace Tavrik::Ossira
