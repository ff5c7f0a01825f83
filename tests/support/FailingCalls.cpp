// What arms a call is the same everywhere.
#include "FailingCalls.h"

namespace Tavrik::Ossira::tTest
{

namespace
{

constinit std::atomic<const void*> gCall = nullptr;
constinit std::uintptr_t gThread = 0;
constinit std::int64_t gCallsLeft = 0; // calls that still succeed
constinit int gError = 0;
constinit bool gFailsLater = false;
constinit bool gHasCallFailed = false;

} // namespace

FailingCall::FailingCall(const FailableCall& call, int error, std::int64_t which, bool andLater)
{
    static const bool isReady = (ReplaceImports(), true);
    static_cast<void>(isReady);
    constexpr std::int64_t never = std::numeric_limits<std::int64_t>::max();
    tSystem::FailAllocations(call.Real == nullptr ? which : never, andLater);
    gThread = tSystem::ThreadMark();
    gCallsLeft = which;
    gError = error;
    gFailsLater = andLater;
    gHasCallFailed = false;
    gCall = call.Real;
}

bool FailingCall::Stop()
{
    gCall = nullptr;
    return tSystem::EndFailing() || gHasCallFailed;
}

int FailingCall::ErrorOf(const void* call)
{
    if (gCall != call || gThread != tSystem::ThreadMark() || gCallsLeft-- > 0)
        return 0;
    gCallsLeft = gFailsLater ? 0 : std::numeric_limits<std::int64_t>::max();
    gHasCallFailed = true;
    return gError;
}

} // namespace Tavrik::Ossira::tTest
