// The event's word carries its state; the platform's parking place only puts threads to sleep and
// may wake them for no reason, so every wake-up looks at the word again.
//
// All accesses are sequentially consistent, since callers rely on it: who resets an event and then
// finds nothing to do, and who leaves something to do and then sets it, cannot miss each other.
#include "Event.h"

namespace Tavrik::tSystem::tThreads
{

bool CEvent::Create() noexcept
{
    if (!mPlace.Create())
        return false;
    Reset();
    return true;
}

void CEvent::Set() noexcept
{
    if (mWord.exchange(IsSet) == Awaited)
        mPlace.Wake(mWord);
}

void CEvent::Reset() noexcept
{
    if (mWord.exchange(NotSet) != NotSet)
        mPlace.Clear();
}

void CEvent::Wait() noexcept
{
    WaitFor(Forever);
}

bool CEvent::WaitFor(std::uint32_t milliseconds) noexcept
{
    std::uint32_t expected = IsSet;
    if (mWord.compare_exchange_strong(expected, NotSet))
        return true;

    const std::int64_t start = milliseconds == Forever ? 0 : PerformanceCounter();
    std::uint32_t left = milliseconds;
    // From here on the word stays `Awaited`, also when this thread goes: others may be asleep, and
    // one wake-up too many harms nobody.
    while (mWord.exchange(Awaited) != IsSet)
    {
        mPlace.Park(mWord, Awaited, left);
        if (milliseconds == Forever)
            continue;
        const std::int64_t elapsed = (PerformanceCounter() - start) * 1000 / PerformanceFrequency();
        if (elapsed >= milliseconds)
        {
            expected = IsSet;
            return mWord.compare_exchange_strong(expected, NotSet);
        }
        left = milliseconds - static_cast<std::uint32_t>(elapsed);
    }
    return true;
}

} // namespace Tavrik::tSystem::tThreads
