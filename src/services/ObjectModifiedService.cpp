// A change counter with a chain of dependants. Rings are found without any walk over the graph: an
// object that is touched while it is being touched must have been reached from itself.
//
// Since there is one touch at a time, the chain needs no copy for it: the touch keeps its place in
// the chain, which a removal moves on when it takes away just that entry. Dependants are touched
// with no lock held.
#include "DisposeStatus.h"
#include "FastCriticalSection.h"
#include "OssiraClasses.h"
#include "OssiraFrame.h"
#include "Platform.h"
#include "ThreadMark.h"

#include <list>
#include <map>

namespace Tavrik::Ossira
{

namespace
{

class T_ModifiedService : public IModifiedService,
                          public ITouchModifiedChain,
                          public CDisposeStatus,
                          public CObjectName,
                          public CObjectIdentity<T_ModifiedService>,
                          public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = CLSID_ModifiedService;
    static constexpr std::string_view ClassName = "ModifiedService";

    OSSIRA_INTERFACES(IModifiedService, ITouchModifiedChain, IDisposable, IObjectName,
                      IObjectIdentity)

    Result GetModifiedCounter(std::uint32_t* pCounter) override;
    Result TouchModified() override;
    Result AddTouchModified(ITouchModifiedChain* pTouch) override;
    Result RemoveTouchModified(ITouchModifiedChain* pTouch) override;

    Result Touch() override
    {
        return TouchModified();
    }

    Result Dispose() override;

private:
    // Identities are compared, never called.
    using Identity = const IUnknown*;

    struct CDependant
    {
        ObjectPtr<ITouchModifiedChain> Chain;
        Identity Same;
    };

    // The chain in its order, and each dependant's entries in it, in the same order. Both are nodes
    // that are made and destroyed without the lock, so that nothing is ever copied or grown under
    // it.
    struct CChain
    {
        std::list<CDependant> Order;
        std::multimap<Identity, std::list<CDependant>::iterator> Places;
    };

    // Marks the object as being touched while it lives.
    class CTouch;

    [[nodiscard]] CChain TakeFirst(Identity identity) noexcept OSSIRA_UNDER(mLock);
    void AwaitCall(Identity identity) noexcept;

    tSystem::CFastCriticalSection mLock;
    CChain mChain OSSIRA_GUARDED_BY(mLock);
    std::atomic<std::uint32_t> mCounter = 0;

    // The touch, if there is one.
    std::atomic<bool> mIsTouched = false;
    std::uintptr_t mToucher OSSIRA_GUARDED_BY(mLock) = 0;
    std::list<CDependant>::iterator mNext OSSIRA_GUARDED_BY(mLock);
    Identity mCalled OSSIRA_GUARDED_BY(mLock) = nullptr; // the dependant that is just being touched
    std::atomic<std::uint32_t> mCall = 0;                // changes with mCalled
    std::uint32_t mWaiting OSSIRA_GUARDED_BY(mLock) = 0; // the threads that wait for that
};

class T_ModifiedService::CTouch
{
public:
    // Counts a change, unless the object is being touched already.
    explicit CTouch(T_ModifiedService& service) noexcept : mService(service), mIsOutermost(Begin())
    {
    }

    CTouch(const CTouch&) = delete;
    CTouch& operator=(const CTouch&) = delete;

    ~CTouch()
    {
        if (mIsOutermost)
            GoOn(true);
    }

    [[nodiscard]] bool IsOutermost() const noexcept
    {
        return mIsOutermost;
    }

    // The dependant whose turn it is, or null. The one before was let go of.
    [[nodiscard]] ObjectPtr<ITouchModifiedChain> Next() noexcept
    {
        return GoOn(false);
    }

private:
    [[nodiscard]] bool Begin() noexcept
    {
        const tSystem::CLockGuard guard(mService.mLock);
        if (mService.mIsTouched)
            return false;
        mService.mIsTouched = true;
        mService.mToucher = tSystem::ThreadMark();
        mService.mNext = mService.mChain.Order.begin();
        mService.mCounter.fetch_add(1);
        return true;
    }

    ObjectPtr<ITouchModifiedChain> GoOn(bool ends) noexcept
    {
        ObjectPtr<ITouchModifiedChain> next;
        std::uint32_t waiting = 0;
        {
            const tSystem::CLockGuard guard(mService.mLock);
            mService.mCalled = nullptr;
            mService.mCall.fetch_add(1);
            waiting = std::exchange(mService.mWaiting, 0);
            if (ends)
                mService.mIsTouched = false;
            else if (mService.mNext != mService.mChain.Order.end())
            {
                next = mService.mNext->Chain;
                mService.mCalled = mService.mNext->Same;
                ++mService.mNext;
            }
        }
        for (; waiting > 0; --waiting)
            tSystem::WakeOnWord(mService.mCall);
        return next;
    }

    T_ModifiedService& mService;
    const bool mIsOutermost;
};

Result T_ModifiedService::GetModifiedCounter(std::uint32_t* pCounter)
try
{
    OSSIRA_CHECK_POINTER(pCounter);
    OSSIRA_CHECK(!IsClosed(), E_DISPOSED, "GetModifiedCounter");
    *pCounter = mCounter;
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_ModifiedService::TouchModified()
try
{
    OSSIRA_CHECK(!IsClosed(), E_DISPOSED, "TouchModified");
    const ObjectPtr<IModifiedService> self(this); // a dependant may give the last reference back
    CTouch touch(*this);
    OSSIRA_CHECK(touch.IsOutermost(), E_UNEXPECTED,
                 "Possible Touch-Ring by ITouchModifiedChain detected: "
                 "Touch(ObjA) -> Touch(ObjB) -> Touch(ObjA)");

    tSystem::CheckForeignCall();
    Result first = S_OK;
    while (const ObjectPtr<ITouchModifiedChain> dependant = touch.Next())
    {
        const Result result = dependant->Touch();
        if (Failed(result) && !Failed(first))
            first = result;
    }
    return first;
}
OSSIRA_CATCH_RETURN

Result T_ModifiedService::AddTouchModified(ITouchModifiedChain* pTouch)
try
{
    OSSIRA_CHECK_POINTER(pTouch);
    OSSIRA_CHECK(!IsClosed(), E_DISPOSED, "AddTouchModified");
    OSSIRA_CHECK(pTouch != this, E_UNEXPECTED, "'this' for pTouch is not allowed");
    tSystem::CheckForeignCall();
    ObjectPtr<IUnknown> identity;
    OSSIRA_CHECK_CALL_TWICE(pTouch->QueryInterface(IID_IUnknown, identity.PutVoid()), "Add");
    CChain added;
    added.Order.push_back({ObjectPtr<ITouchModifiedChain>(pTouch), identity.Get()});
    added.Places.emplace(identity.Get(), added.Order.begin());
    {
        const tSystem::CLockGuard guard(mLock);
        if (!IsClosed() && !mIsTouched)
        {
            mChain.Order.splice(mChain.Order.end(), added.Order);
            mChain.Places.insert(added.Places.extract(added.Places.begin()));
        }
    }
    if (added.Order.empty())
        return S_OK;
    OSSIRA_CHECK(!IsClosed(), E_DISPOSED, "AddTouchModified"); // since the chain was emptied
    OSSIRA_THROW(E_UNEXPECTED, "Inner Ring: Touch(ObjA) -> Touch(ObjB) -> ObjA.AddTouchModified()");
}
OSSIRA_CATCH_RETURN

// The first entry of a dependant, if there is one, out of the chain.
T_ModifiedService::CChain T_ModifiedService::TakeFirst(Identity identity) noexcept
{
    CChain taken;
    const auto place = mChain.Places.lower_bound(identity);
    if (place == mChain.Places.end() || place->first != identity)
        return taken;
    const auto at = place->second;
    if (mIsTouched && mNext == at)
        ++mNext;
    taken.Order.splice(taken.Order.begin(), mChain.Order, at);
    taken.Places.insert(mChain.Places.extract(place));
    return taken;
}

// Returns when no other thread's touch is calling the dependant.
void T_ModifiedService::AwaitCall(Identity identity) noexcept
{
    std::uint32_t call = 0;
    {
        const tSystem::CLockGuard guard(mLock);
        if (mCalled != identity || mToucher == tSystem::ThreadMark())
            return;
        call = mCall;
        ++mWaiting;
    }
    while (mCall == call)
        tSystem::SleepOnWord(mCall, call, tSystem::Forever);
}

Result T_ModifiedService::RemoveTouchModified(ITouchModifiedChain* pTouch)
try
{
    OSSIRA_CHECK_POINTER(pTouch);
    OSSIRA_CHECK(!IsClosed(), E_DISPOSED, "RemoveTouchModified");
    OSSIRA_CHECK(pTouch != this, E_UNEXPECTED, "'this' for pTouch is not allowed");

    tSystem::CheckForeignCall();
    ObjectPtr<IUnknown> identity;
    OSSIRA_CHECK_CALL_TWICE(pTouch->QueryInterface(IID_IUnknown, identity.PutVoid()), "Remove");
    CChain removed; // dies after the lock was left
    {
        const tSystem::CLockGuard guard(mLock);
        removed = TakeFirst(identity.Get());
    }
    AwaitCall(identity.Get()); // also for one that another thread has just removed
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_ModifiedService::Dispose()
try
{
    CChain chain; // dies after the lock was left
    bool isTouched = false;
    {
        const tSystem::CLockGuard guard(mLock);
        isTouched = mIsTouched;
        if (!isTouched && BeginDisposal())
        {
            std::swap(chain, mChain);
            EndDisposal();
        }
    }
    OSSIRA_CHECK(!isTouched, E_UNEXPECTED,
                 "Possible Ring-Disposing: Touch(ObjA) -> Touch(ObjB) -> Dispose(ObjA)");
    return S_OK;
}
OSSIRA_CATCH_RETURN

} // namespace

OSSIRA_CLASS(T_ModifiedService, "ModifiedService")

} // namespace Tavrik::Ossira
