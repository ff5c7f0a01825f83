// The numbers that the hash of every table depends on.
#include "GuidHash.h"

#include "Platform.h"

namespace Tavrik::Ossira
{

constinit std::array<std::atomic<std::uint64_t>, 2> CHashSeed::gNumbers = {};

// Threads that meet here agree on those of the first. What is drawn is never 0.
void CHashSeed::DrawFirst() noexcept
{
    for (std::size_t at = gNumbers.size(); at > 0; --at)
    {
        std::uint64_t none = 0;
        gNumbers[at - 1].compare_exchange_strong(none, tSystem::UnguessableNumber() | 1);
    }
}

} // namespace Tavrik::Ossira
