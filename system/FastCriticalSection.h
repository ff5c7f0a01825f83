// The spin lock of everything that is held for a few instructions: one 32-bit word, taken by
// compare-exchange from 0 to 1 and released by storing 0. Not re-entrant.
#pragma once

#include <atomic>
#include <cstdint>

namespace Tavrik::tSystem
{

class CFastCriticalSection
{
public:
    constexpr CFastCriticalSection() noexcept = default;
    CFastCriticalSection(const CFastCriticalSection&) = delete;
    CFastCriticalSection& operator=(const CFastCriticalSection&) = delete;

    void lock() noexcept
    {
        if (!try_lock()) [[unlikely]]
            LockContended();
    }

    [[nodiscard]] bool try_lock() noexcept
    {
        std::uint32_t expected = 0;
        return mWord.compare_exchange_strong(expected, 1, std::memory_order_acquire,
                                             std::memory_order_relaxed);
    }

    void unlock() noexcept
    {
        mWord.store(0, std::memory_order_release);
    }

private:
    void LockContended() noexcept;

    std::atomic<std::uint32_t> mWord = 0;
};

} // namespace Tavrik::tSystem
