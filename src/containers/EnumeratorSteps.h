// What every enumerator of the system has in common: it keeps its collection alive, remembers the
// collection's stamp, and steps. It holds a position (an index, or a copy of a key) and no pointer
// into the collection, so nothing it does can touch an entry that is gone.
//
// `Traits` names
//   Owner          the collection's class
//   Primary        one of the owner's interfaces, for the reference on it
//   Position       where a walk stands
//   ReportedClass  the enumerator's full name in reports
// and the owner has, the three latter called with its lock held:
//   EnumerationLock()       what guards the collection: lock() and unlock()
//   EnumerationStamp()      a number that differs once the enumerator is out of date; of 64 bits,
//   so
//                           that it never comes round
//   FirstPosition(at)       to the first item, or false
//   NextPosition(at)        to the item behind `at`, or false; `at` is then as it was
#pragma once

#include "LockOrder.h"
#include "OssiraCollections.h"
#include "OssiraFrame.h"

namespace Tavrik::Ossira
{

template <class Traits, class... Interfaces>
class CEnumeratorSteps : public Interfaces..., public COssiraUnknown
{
public:
    static constexpr std::string_view OssiraReportedClass = Traits::ReportedClass;
    static constexpr CLSID ClassId = Traits::Owner::ClassId; // in the list of live objects

    Result Reset() override
    try
    {
        const tSystem::CLockGuard guard(Lock());
        OSSIRA_CHECK(IsUpToDate(), E_ACCESSDENIED, OutOfDateText);
        mState = BeforeFirst;
        return S_OK;
    }
    OSSIRA_CATCH_RETURN

    Result MoveNext() override
    try
    {
        const tSystem::CLockGuard guard(Lock());
        OSSIRA_CHECK(IsUpToDate(), E_ACCESSDENIED, OutOfDateText);
        if (mState < 0)
            return mState;
        const bool found =
            mState == BeforeFirst ? mOwner->FirstPosition(mAt) : mOwner->NextPosition(mAt);
        mState = found ? OnItem : E_FAIL;
        return found ? S_OK : S_FALSE;
    }
    OSSIRA_CATCH_RETURN

protected:
    using Owner = typename Traits::Owner;
    using Position = typename Traits::Position;

    static constexpr const char* OutOfDateText = "List was modified, the enumerator is invalid now";
    static constexpr const char* AtEndText = "Enumerator at End";

    explicit CEnumeratorSteps(Owner* owner) : mReference(owner), mOwner(owner)
    {
        const tSystem::CLockGuard guard(Lock());
        mStamp = mOwner->EnumerationStamp();
    }

    [[nodiscard]] auto& Lock() const noexcept
    {
        return mOwner->EnumerationLock();
    }

    [[nodiscard]] Owner& Collection() const noexcept
    {
        return *mOwner;
    }

    // The following with the lock held.

    [[nodiscard]] bool IsUpToDate() const noexcept
    {
        return mStamp == mOwner->EnumerationStamp();
    }

    // The position, if the walk is on an item that is still there; else null.
    [[nodiscard]] const Position* Here() const noexcept
    {
        return mState == OnItem && IsUpToDate() ? &mAt : nullptr;
    }

    // 1 before the first item, 0 on an item, `E_FAIL` past the end.
    [[nodiscard]] Result State() const noexcept
    {
        return mState;
    }

    // The current position; before the first step that is the first item's already. False when
    // there is none.
    [[nodiscard]] bool Locate(Position& at) const
    {
        if (mState == BeforeFirst)
            return mOwner->FirstPosition(at);
        at = mAt;
        return true;
    }

private:
    static constexpr Result BeforeFirst = 1;
    static constexpr Result OnItem = 0;

    ObjectPtr<typename Traits::Primary> mReference;
    Owner* mOwner;
    Position mAt{};
    std::uint64_t mStamp = 0;
    Result mState = BeforeFirst;
};

} // namespace Tavrik::Ossira
