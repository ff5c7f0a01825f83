// The slow paths of the spin lock. It spins without writing, so that the holder keeps the cache
// line.
#include "FastCriticalSection.h"

#include "Platform.h"

#include <algorithm>

namespace Tavrik::tSystem
{

void CSpinWord::WaitAndTake() noexcept
{
    constexpr int spins = 50; // about as long as a thread needs to fall asleep and be woken
    for (int spin = 0; spin < spins; ++spin)
    {
        if (!IsTaken() && TryTake())
            return;
        Pause();
    }
    // Whoever gets the word here leaves the mark of a waiter on it: others may still be asleep.
    constexpr std::uint32_t longestSleep = 64;
    std::uint32_t milliseconds = 1; // until a wake-up that was missed is made good
    while (mWord.exchange(Awaited, std::memory_order_acquire) != Free)
    {
        SleepOnWord(mWord, Awaited, milliseconds);
        milliseconds = std::min(milliseconds * 2, longestSleep);
    }
}

void CSpinWord::WakeWaiter() noexcept
{
    WakeOnWord(mWord);
}

} // namespace Tavrik::tSystem
