// What the runtime's own observer offers the frame of every module beyond `IObserverPrint`, so that
// a module reads the levels in force as the runtime does: with no call, no lock and no reference.
// It is no part of the contract: a frame that does not find it asks the observer each time.
#pragma once

#include "OssiraDiagnostics.h"

#include <atomic>

namespace Tavrik::Ossira
{

// The mask of the observer in place, if that one tells it; else `Untold`.
using ToldMask = std::atomic<std::uint64_t>;
inline constexpr std::uint64_t Untold = std::uint64_t{1} << 32;

inline constexpr IID IID_IToldMask = {
    0xE3B6A0C7, 0x52D9, 0x4B1E, {0xA7, 0x0D, 0x18, 0xF4, 0x6C, 0x93, 0x2E, 0x85}};

struct IToldMask : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_IToldMask;

    // It lives as long as the runtime is loaded, whichever observer is in place.
    [[nodiscard]] virtual const ToldMask* Told() noexcept = 0;

protected:
    ~IToldMask() = default;
};

} // namespace Tavrik::Ossira
