// A recursive mutex. It owns nothing outside its storage, so its destructor leaves it as it is: the
// process-wide lock may be taken once more by a module that is torn down after it.
#include "../Platform.h"

#include <new>
#include <pthread.h>

namespace Tavrik::tSystem
{

namespace
{

pthread_mutex_t* Mutex(unsigned char* storage)
{
    return std::launder(reinterpret_cast<pthread_mutex_t*>(storage));
}

} // namespace

CCriticalSection::CCriticalSection(ELockRank rank) noexcept : mRank(rank)
{
    static_assert(sizeof(pthread_mutex_t) <= sizeof mStorage);
    static_assert(alignof(pthread_mutex_t) <= alignof(CCriticalSection));
    ::new (mStorage) pthread_mutex_t(PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP);
}

CCriticalSection::~CCriticalSection() = default;

void CCriticalSection::lock(const LockPlace& place) noexcept
{
    EnterLock(this, mRank, place);
    pthread_mutex_lock(Mutex(mStorage));
}

bool CCriticalSection::try_lock(const LockPlace& place) noexcept
{
    const bool isOurs = pthread_mutex_trylock(Mutex(mStorage)) == 0;
    if (isOurs)
        EnterTriedLock(this, mRank, place);
    return isOurs;
}

void CCriticalSection::unlock() noexcept
{
    LeaveLock(this);
    pthread_mutex_unlock(Mutex(mStorage));
}

} // namespace Tavrik::tSystem
