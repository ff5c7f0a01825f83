// The queue of each thread: its pointer leads to the first object, a variable of the outermost
// release, and is null while nothing is being destroyed.
#include "DeathQueue.h"

#include "Platform.h"

#include <utility>

namespace Tavrik::Ossira
{

void CDestroyedInTurn::OssiraDestroy(CDestroyedInTurn* object) noexcept
{
    if (void* const pointer = tSystem::ThreadPointer(); pointer != nullptr)
    {
        auto*& first = *static_cast<CDestroyedInTurn**>(pointer);
        object->mNext = std::exchange(first, object);
        return;
    }
    CDestroyedInTurn* first = nullptr;
    const bool hasQueue = tSystem::SetThreadPointer(&first);
    do
    {
        delete object;
        object = first;
        if (object != nullptr)
            first = object->mNext;
    } while (object != nullptr);
    if (hasQueue)
        (void)tSystem::SetThreadPointer(nullptr);
}

} // namespace Tavrik::Ossira
