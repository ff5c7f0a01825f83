// A change counter with a chain of dependants. Rings are found without any walk over the graph: an
// object that is touched while it is being touched must have been reached from itself.
//
// A touch works on a copy of the chain and asks each entry whether it is still wanted, since
// dependants change the chain while they are touched. No lock is held then.
#include "DisposeStatus.h"
#include "FastCriticalSection.h"
#include "OssiraClasses.h"
#include "OssiraFrame.h"
#include "OssiraModified.h"

#include <algorithm>
#include <vector>

namespace Tavrik::Ossira
{

namespace
{

// One entry of the chain.
struct CDependant
{
    CDependant(ITouchModifiedChain* chain, const IUnknown* identity) noexcept
        : Chain(chain), Identity(identity)
    {
    }

    ObjectPtr<ITouchModifiedChain> Chain;
    const IUnknown* Identity; // of the same object; compared, never called
    std::atomic<bool> IsRemoved = false;
};

// Marks an object as being touched, unless it is already.
class CTouchGuard
{
public:
    explicit CTouchGuard(std::atomic<std::uint32_t>& depth) noexcept : mDepth(depth)
    {
        std::uint32_t untouched = 0;
        mIsOutermost = mDepth.compare_exchange_strong(untouched, 1);
    }

    CTouchGuard(const CTouchGuard&) = delete;
    CTouchGuard& operator=(const CTouchGuard&) = delete;

    ~CTouchGuard()
    {
        if (mIsOutermost)
            mDepth = 0;
    }

    [[nodiscard]] bool IsOutermost() const noexcept
    {
        return mIsOutermost;
    }

private:
    std::atomic<std::uint32_t>& mDepth;
    bool mIsOutermost;
};

class T_ModifiedService : public IModifiedService,
                          public ITouchModifiedChain,
                          public IDisposable,
                          public CObjectName,
                          public CObjectIdentity<T_ModifiedService>,
                          public COssiraUnknown,
                          private CDisposeStatus
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

    Result IsDisposed() override
    {
        return WasDisposed() ? S_OK : S_FALSE;
    }

private:
    using Dependants = std::vector<std::shared_ptr<CDependant>>;

    // Counts a change and answers the chain as it is.
    [[nodiscard]] Dependants CountChange();

    tSystem::CFastCriticalSection mLock; // guards the chain, and the counter with it
    Dependants mChain;
    std::atomic<std::uint32_t> mCounter = 0;
    std::atomic<std::uint32_t> mTouchDepth = 0;
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

T_ModifiedService::Dependants T_ModifiedService::CountChange()
{
    const tSystem::CLockGuard guard(mLock);
    Dependants chain = mChain;
    mCounter.fetch_add(1);
    return chain;
}

Result T_ModifiedService::TouchModified()
try
{
    OSSIRA_CHECK(!IsClosed(), E_DISPOSED, "TouchModified");
    const ObjectPtr<IModifiedService> self(this); // a dependant may give the last reference back
    Dependants chain; // dies when the touch is over: what dies with it may call back
    const CTouchGuard touch(mTouchDepth);
    OSSIRA_CHECK(touch.IsOutermost(), E_UNEXPECTED,
                 "Possible Touch-Ring by ITouchModifiedChain detected: "
                 "Touch(ObjA) -> Touch(ObjB) -> Touch(ObjA)");

    chain = CountChange();
    Result first = S_OK;
    for (const std::shared_ptr<CDependant>& dependant : chain)
    {
        if (dependant->IsRemoved)
            continue;
        const Result result = dependant->Chain->Touch();
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
    OSSIRA_CHECK(mTouchDepth == 0, E_UNEXPECTED,
                 "Inner Ring: Touch(ObjA) -> Touch(ObjB) -> ObjA.AddTouchModified()");

    ObjectPtr<IUnknown> identity;
    OSSIRA_CHECK_CALL_TWICE(pTouch->QueryInterface(IID_IUnknown, identity.PutVoid()), "Add");
    const auto dependant = std::make_shared<CDependant>(pTouch, identity.Get());
    const tSystem::CLockGuard guard(mLock);
    OSSIRA_CHECK(!IsClosed(), E_DISPOSED, "AddTouchModified"); // since the chain was emptied
    mChain.push_back(dependant);
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_ModifiedService::RemoveTouchModified(ITouchModifiedChain* pTouch)
try
{
    OSSIRA_CHECK_POINTER(pTouch);
    OSSIRA_CHECK(!IsClosed(), E_DISPOSED, "RemoveTouchModified");
    OSSIRA_CHECK(pTouch != this, E_UNEXPECTED, "'this' for pTouch is not allowed");

    ObjectPtr<IUnknown> identity;
    OSSIRA_CHECK_CALL_TWICE(pTouch->QueryInterface(IID_IUnknown, identity.PutVoid()), "Remove");
    std::shared_ptr<CDependant> removed; // dies after the lock was left
    const tSystem::CLockGuard guard(mLock);
    const auto at = std::ranges::find_if(mChain, [&](const std::shared_ptr<CDependant>& dependant)
                                         { return dependant->Identity == identity.Get(); });
    if (at == mChain.end())
        return S_OK;
    removed = *at;
    removed->IsRemoved = true;
    mChain.erase(at);
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_ModifiedService::Dispose()
try
{
    OSSIRA_CHECK(mTouchDepth == 0, E_UNEXPECTED,
                 "Possible Ring-Disposing: Touch(ObjA) -> Touch(ObjB) -> Dispose(ObjA)");
    if (!BeginDisposal())
        return S_OK;
    Dependants chain; // dies after the lock was left
    {
        const tSystem::CLockGuard guard(mLock);
        chain.swap(mChain);
        for (const std::shared_ptr<CDependant>& dependant : chain)
            dependant->IsRemoved = true;
    }
    EndDisposal();
    return S_OK;
}
OSSIRA_CATCH_RETURN

} // namespace

OSSIRA_CLASS(T_ModifiedService, "ModifiedService")

} // namespace Tavrik::Ossira
