// A thread variable of the initial model: it is part of each thread's own block, so that reaching
// it is no call and no allocation.
#include "../Platform.h"

namespace Tavrik::tSystem
{

namespace
{

[[gnu::tls_model("initial-exec")]] constinit thread_local void* tPointer = nullptr;

} // namespace

void* ThreadPointer() noexcept
{
    return tPointer;
}

const void* ThisThread() noexcept
{
    return &tPointer;
}

bool SetThreadPointer(void* pointer) noexcept
{
    tPointer = pointer;
    return true;
}

} // namespace Tavrik::tSystem
