// The slow path of the spin lock. It spins without writing, so that the holder keeps the cache
// line, and gives up the processor after a while: on a machine with few processors the holder may
// be the very thread that waits to run.
#include "FastCriticalSection.h"

#include <thread>

namespace Tavrik::tSystem
{

void CFastCriticalSection::LockContended() noexcept
{
    constexpr int spinsBeforeYield = 200;
    for (int spins = 0;; ++spins)
    {
        std::uint32_t expected = 0;
        if (mWord.load(std::memory_order_relaxed) == 0 &&
            mWord.compare_exchange_weak(expected, 1, std::memory_order_acquire,
                                        std::memory_order_relaxed))
            return;
        if (spins >= spinsBeforeYield)
            std::this_thread::yield();
    }
}

} // namespace Tavrik::tSystem
