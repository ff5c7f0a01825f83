// How collections end. A collection that lies in another one, and holds a third, would have its
// destructor called from within the other's, and so on down to the end of the stack. So collections
// whose last reference goes while one is being destroyed on the same thread wait in a queue, which
// the outermost release empties before it returns.
#pragma once

namespace Tavrik::Ossira
{

// A collection's class derives from it, and so tells `CComInstanceNoLock`.
class CDestroyedInTurn
{
public:
    CDestroyedInTurn(const CDestroyedInTurn&) = delete;
    CDestroyedInTurn& operator=(const CDestroyedInTurn&) = delete;

    // Destroys an object without references, now or as soon as the one is done that is being
    // destroyed now. The queue is made of the objects themselves and needs no memory.
    static void OssiraDestroy(CDestroyedInTurn* object) noexcept;

protected:
    CDestroyedInTurn() noexcept = default;
    virtual ~CDestroyedInTurn() = default;

private:
    CDestroyedInTurn* mNext = nullptr;
};

} // namespace Tavrik::Ossira
