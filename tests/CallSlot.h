// Calls an operation as a compiler of another make, or another language, does: by its slot, with
// the object first; a reference is an address then, and may be null.
#pragma once

#include <cstddef>

namespace Tavrik::Ossira::tTest
{

template <class Answer, class... Arguments>
Answer CallSlot(void* object, std::size_t slot, Arguments... arguments)
{
    void* const operation = (*static_cast<void***>(object))[slot];
    return reinterpret_cast<Answer (*)(void*, Arguments...)>(operation)(object, arguments...);
}

} // namespace Tavrik::Ossira::tTest
