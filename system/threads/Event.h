// An auto-reset event: set, it lets one waiting thread through and is reset by that. It asks the
// platform for a sleep or a wake-up only when a thread really has to sleep: setting an event that
// nobody waits for costs one exchange.
//
// It must outlive every call of `Set`, also the last instructions of one that has let its waiter
// through.
#pragma once

#include "PlatformThreads.h"

namespace Tavrik::tSystem::tThreads
{

class CEvent
{
public:
    // Makes the event, or resets one that was made already. False when the platform has none left.
    // No other operation comes before this one.
    [[nodiscard]] bool Create() noexcept;

    void Set() noexcept;
    void Reset() noexcept;
    void Wait() noexcept;

    // False when the time was over first.
    bool WaitFor(std::uint32_t milliseconds) noexcept;

private:
    // The word is `Awaited` while threads may be asleep.
    static constexpr std::uint32_t NotSet = 0;
    static constexpr std::uint32_t IsSet = 1;
    static constexpr std::uint32_t Awaited = 2;

    std::atomic<std::uint32_t> mWord = NotSet;
    CParkingPlace mPlace;
};

} // namespace Tavrik::tSystem::tThreads
