// What every enumerator of the system has in common: it keeps its collection alive, remembers the
// collection's stamp, and steps. Its position, a copy of a key or a place that is looked at only
// while the stamp is the same, is none from which it could touch an entry that is gone.
//
// `Traits` names
//   Owner          the collection's class
//   Primary        one of the owner's interfaces, for the reference on it
//   Position       where a walk stands
//   ReportedClass  the enumerator's full name in reports
// and the owner has, the three latter called with its lock held (and saying so):
//   EnumerationLock()       what guards the collection: lock() and unlock()
//   EnumerationStamp()      a number that differs once the enumerator is out of date; of 64 bits,
//                           so that it never comes round
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

    explicit CEnumeratorSteps(Owner* owner) : mOwner(owner), mReference(owner)
    {
        mStamp = TakeStamp();
    }

    [[nodiscard]] auto& Lock() const noexcept OSSIRA_ANSWERS_LOCK(mOwner->EnumerationLock())
    {
        return mOwner->EnumerationLock();
    }

    [[nodiscard]] bool IsUpToDate() const noexcept OSSIRA_UNDER_TO_READ(Lock())
    {
        return mStamp == mOwner->EnumerationStamp();
    }

    // The position, if the walk is on an item that is still there; else null.
    [[nodiscard]] const Position* Here() const noexcept OSSIRA_UNDER_TO_READ(Lock())
    {
        return mState == OnItem && IsUpToDate() ? &mAt : nullptr;
    }

    // 1 before the first item, 0 on an item, `E_FAIL` past the end.
    [[nodiscard]] Result State() const noexcept OSSIRA_UNDER_TO_READ(Lock())
    {
        return mState;
    }

    // The current position; before the first step that is the first item's already. False when
    // there is none.
    [[nodiscard]] bool Locate(Position& at) const OSSIRA_UNDER(Lock())
    {
        if (mState == BeforeFirst)
            return mOwner->FirstPosition(at);
        at = mAt;
        return true;
    }

    Owner* const mOwner;

private:
    static constexpr Result BeforeFirst = 1;
    static constexpr Result OnItem = 0;

    [[nodiscard]] std::uint64_t TakeStamp() const
    {
        const tSystem::CLockGuard guard(Lock());
        return mOwner->EnumerationStamp();
    }

    ObjectPtr<typename Traits::Primary> mReference;
    Position mAt OSSIRA_GUARDED_BY(Lock()){};
    std::uint64_t mStamp = 0;
    Result mState OSSIRA_GUARDED_BY(Lock()) = BeforeFirst;
};

} // namespace Tavrik::Ossira
