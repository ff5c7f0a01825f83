// How a thread ends in the middle of a call where it can: `pthread_exit` and `pthread_cancel`
// unwind its stack as an exception does, and the process is stopped when that does not go on to the
// end. Whoever catches everything lets it through first:
//
//     catch (const tSystem::ForcedUnwind&)
//     {
//         throw;
//     }
//     catch (...)
//
// No function on such a way may be noexcept. Where threads end otherwise, nothing is ever caught
// so.
#pragma once

#include <cxxabi.h>

namespace Tavrik::tSystem
{

using ForcedUnwind = abi::__forced_unwind;

} // namespace Tavrik::tSystem
