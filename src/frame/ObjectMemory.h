// The memory of this module's objects, and how many of them there are.
//
// Small objects lie in blocks. A block that is given back is kept by the thread's own stripe for
// the next object of its size; a stripe that has many hands some over to the slabs that blocks are
// cut from, and a slab of which every block is back is given back to the system. So a thread that
// creates and releases touches nothing that others touch, and what is kept is bounded.
#pragma once

#include "Sanitized.h"

#include <cstdint>

namespace Tavrik::Ossira
{

// The number of objects of the module that are alive, those that are being constructed and
// destroyed included. While others come and go it may be too high by what happened during the call,
// and is never too low: 0 was true at a moment of the call.
[[nodiscard]] std::uint32_t OpenObjectCount() noexcept;

// Gives back to the system what no object lies in, but for the blocks that other threads have at
// hand for their very next objects: one of each size at the most, which a thread gives back when it
// next releases an object. Any thread may call, and create and release meanwhile.
void GiveBackObjectMemory() noexcept;

// Whether released memory is kept at all. Otherwise each object has memory of its own, which is
// given back at once, so that whoever watches the heap sees every object come and go. For the one
// and the other nobody may create or release meanwhile.
inline constexpr bool KeepsByDefault = !tSystem::IsSanitized && OSSIRA_TRACK_OBJECTS == 0;
void KeepObjectMemory(bool isKept) noexcept;

// Between detaching and attaching nothing is kept, and all is given back: static objects still die
// behind the one, and nobody comes to give back what they leave. Nobody else may create or release
// meanwhile, as in everything that is about to be unloaded.
void AttachObjectMemory(bool isAttached) noexcept;

} // namespace Tavrik::Ossira
