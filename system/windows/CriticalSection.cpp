// The system's critical section, which is re-entrant by itself.
#include "../Platform.h"

#include <windows.h>

#include <new>

namespace Tavrik::tSystem
{

namespace
{

CRITICAL_SECTION* Section(unsigned char* storage)
{
    return std::launder(reinterpret_cast<CRITICAL_SECTION*>(storage));
}

} // namespace

CCriticalSection::CCriticalSection(ELockRank rank) noexcept : mRank(rank)
{
    static_assert(sizeof(CRITICAL_SECTION) <= sizeof mStorage);
    static_assert(alignof(CRITICAL_SECTION) <= alignof(CCriticalSection));
    // Without what it keeps for debuggers a section holds no memory, so one that is never destroyed
    // leaves nothing behind when its library is unloaded.
    InitializeCriticalSectionEx(::new (mStorage) CRITICAL_SECTION, 0,
                                CRITICAL_SECTION_NO_DEBUG_INFO);
}

CCriticalSection::~CCriticalSection()
{
    DeleteCriticalSection(Section(mStorage));
}

void CCriticalSection::lock(const LockPlace& place) noexcept
{
    EnterLock(this, mRank, place);
    EnterCriticalSection(Section(mStorage));
}

bool CCriticalSection::try_lock(const LockPlace& place) noexcept
{
    const bool isOurs = TryEnterCriticalSection(Section(mStorage)) != 0;
    if (isOurs)
        EnterTriedLock(this, mRank, place);
    return isOurs;
}

void CCriticalSection::unlock() noexcept
{
    LeaveLock(this);
    LeaveCriticalSection(Section(mStorage));
}

} // namespace Tavrik::tSystem
