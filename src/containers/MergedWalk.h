// One walk over the keys that the layers of a value set group show together, as the owner of an
// enumerator (see EnumeratorSteps.h). It has read some keys ahead; they are good as long as the
// layers can tell that their keys are the same, and otherwise are looked up before they are shown.
// The enumerator's lock is one of the walk's own, and re-entrant, because layers are called while
// it is held.
#pragma once

#include "MergedKeys.h"
#include "OssiraClasses.h"
#include "ReentrantWord.h"

#include <atomic>

namespace Tavrik::Ossira
{

class CMergedWalk
{
public:
    static constexpr CLSID ClassId = CLSID_ValueSetGroup; // in the list of live objects

    // `layers` and `lock` are the group's.
    CMergedWalk(IValueSetGroup* group, const CLayerTable& layers, CSpinLock& lock) noexcept
        : mGroup(group), mLayers(layers), mGroupLock(lock)
    {
    }

    CMergedWalk(const CMergedWalk&) = delete;
    CMergedWalk& operator=(const CMergedWalk&) = delete;

    void AddRef() noexcept
    {
        mCount.fetch_add(1, std::memory_order_relaxed);
    }

    void Release() noexcept
    {
        if (mCount.fetch_sub(1, std::memory_order_acq_rel) == 1)
            delete this;
    }

    [[nodiscard]] tSystem::CReentrantWord& EnumerationLock() noexcept OSSIRA_ANSWERS_LOCK(mLock)
    {
        return mLock;
    }

    // Read without the group's lock.
    [[nodiscard]] std::uint64_t EnumerationStamp() const noexcept OSSIRA_UNCHECKED_GUARDS
    {
        return mLayers.ContentStamp();
    }

    [[nodiscard]] bool FirstPosition(CGuidPosition& at) OSSIRA_UNDER(mLock)
    {
        ReadAbove(nullptr);
        return Show(at);
    }

    // Passes over what can no longer be found.
    [[nodiscard]] bool NextPosition(CGuidPosition& at) OSSIRA_UNDER(mLock)
    {
        const EReadAhead state = LookAtReadAhead();
        if (state == EReadAhead::MayBeGone)
            SkipWhatIsGone();
        const bool isOver = mNext == mRead.Keys.size();
        if (state == EReadAhead::IsOld || (isOver && !mRead.AreAll))
            ReadAbove(&at.Key);
        return Show(at);
    }

private:
    enum class EReadAhead
    {
        IsTrue,
        MayBeGone, // key by key
        IsOld      // layers were hidden or shown, or keys came or went
    };

    ~CMergedWalk() = default;

    [[nodiscard]] EReadAhead LookAtReadAhead() const noexcept OSSIRA_UNDER(mLock)
    {
        const tSystem::CLockGuard guard(mGroupLock);
        if (mSeen.IsStillTrueOf(mLayers))
            return EReadAhead::IsTrue;
        const bool isSame = !mSeen.CanTellKeys() && mSeen.IsVersionOf(mLayers);
        return isSame ? EReadAhead::MayBeGone : EReadAhead::IsOld;
    }

    [[nodiscard]] TakenLayers Take() const OSSIRA_UNCHECKED_GUARDS // locked in there
    {
        return {mLayers, mGroupLock};
    }

    void SkipWhatIsGone() OSSIRA_UNDER(mLock)
    {
        const TakenLayers layers = Take();
        while (mNext < mRead.Keys.size() && FindHolder(layers.All(), mRead.Keys[mNext]) == nullptr)
            ++mNext;
    }

    void ReadAbove(const GUID* above) OSSIRA_UNDER(mLock)
    {
        const TakenLayers layers = Take();
        MergedKeys read(layers.All(), above);
        mRead = std::move(read);
        mSeen = CKeysSeen(layers);
        mNext = 0;
    }

    [[nodiscard]] bool Show(CGuidPosition& at) noexcept OSSIRA_UNDER(mLock)
    {
        if (mNext == mRead.Keys.size())
            return false;
        at.Key = mRead.Keys[mNext++];
        return true;
    }

    std::atomic<std::int32_t> mCount = 0;
    ObjectPtr<IValueSetGroup> mGroup;
    const CLayerTable& mLayers OSSIRA_GUARDED_BY(mGroupLock);
    CSpinLock& mGroupLock;
    tSystem::CReentrantWord mLock;
    MergedKeys mRead OSSIRA_GUARDED_BY(mLock);
    std::size_t mNext OSSIRA_GUARDED_BY(mLock) = 0; // in what was read
    CKeysSeen mSeen OSSIRA_GUARDED_BY(mLock);
};

} // namespace Tavrik::Ossira
