// The library's own storage of thread variables has a reserve for this.
#include "FirstThrow.h"

namespace Tavrik::tSystem
{

bool KeepThrowReserve() noexcept
{
    return true;
}

void DropThrowReserve() noexcept
{
}

void PrepareThrow() noexcept
{
}

} // namespace Tavrik::tSystem
