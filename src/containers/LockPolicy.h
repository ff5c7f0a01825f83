// The three ways in which a collection is guarded. A collection's class takes one of these lock
// types as a parameter; nothing else distinguishes the plain, the lockable and the unsafe variant.
//
// The spin word is for the plain ones; tables that many threads read take the one that grows under
// readers. Nothing of an item runs while it is held but `AddRef`, and
// the `QueryInterface` of the runtime's own objects; see ItemQuestion.h.
#pragma once

#include "FastCriticalSection.h"
#include "OssiraObject.h"
#include "Platform.h"
#include "ReadersLock.h"

#include <type_traits>

namespace Tavrik::Ossira
{

using CSpinLock = tSystem::CFastCriticalSection;
using CTableLock = tSystem::CReadersLock;

// Re-entrant, and offered to callers through `IObjectLock`.
using CCallerLock = tSystem::CCriticalSection;

class OSSIRA_LOCK CNoLock
{
public:
    void lock() noexcept OSSIRA_TAKES()
    {
    }

    void unlock() noexcept OSSIRA_GIVES()
    {
    }
};

// The base through which a collection has its lock.
template <class LockType>
class CLockHolder
{
public:
    static constexpr bool IsLockable = false;

    [[nodiscard]] LockType& EnumerationLock() const noexcept OSSIRA_ANSWERS_LOCK(mLock)
    {
        return mLock;
    }

protected:
    ~CLockHolder() = default;

    mutable LockType mLock;
};

template <>
class CLockHolder<CCallerLock> : public IObjectLock
{
public:
    static constexpr bool IsLockable = true;

    [[nodiscard]] CCallerLock& EnumerationLock() const noexcept OSSIRA_ANSWERS_LOCK(mLock)
    {
        return mLock;
    }

    Result Lock(std::uint32_t) OSSIRA_TAKES(mLock) override
    {
        mLock.lock();
        return S_OK;
    }

    Result Unlock() OSSIRA_GIVES(mLock) override
    {
        mLock.unlock();
        return S_OK;
    }

protected:
    ~CLockHolder() = default;

    mutable CCallerLock mLock;
};

} // namespace Tavrik::Ossira
