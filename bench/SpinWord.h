// The lock of the limits: one word, taken by compare-exchange, released by a store.
#pragma once

#include <atomic>
#include <cstdint>

namespace Tavrik::Ossira::tBench
{

class SpinWord
{
public:
    void lock() noexcept
    {
        std::uint32_t expected = 0;
        while (!mWord.compare_exchange_weak(expected, 1, std::memory_order_acquire,
                                            std::memory_order_relaxed))
            expected = 0;
    }

    void unlock() noexcept
    {
        mWord.store(0, std::memory_order_release);
    }

private:
    std::atomic<std::uint32_t> mWord = 0;
};

} // namespace Tavrik::Ossira::tBench
