// What the runtime asks of the place of the observer beside the exports.
#pragma once

#include "ToldMask.h"

namespace Tavrik::Ossira
{

// An observer that calls this after every change of its mask, and once after it was put in place,
// has its mask read without a lock and without a call.
void TellLevelMask(const IObserverPrint& observer, const std::atomic<std::uint32_t>& mask) noexcept;

// Where it is read.
[[nodiscard]] const ToldMask* GlobalToldMask() noexcept;

// Whether that observer is in place. Waits for no lock: false while somebody swaps it.
[[nodiscard]] bool IsGlobalObserver(const IObserverPrint* observer) noexcept;

} // namespace Tavrik::Ossira
