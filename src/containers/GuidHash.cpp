// The numbers that the hash of every table depends on.
#include "GuidHash.h"

#include "Platform.h"

namespace Tavrik::Ossira
{

constinit CHashSeed::Numbers CHashSeed::gNumbers = {};

// Threads that meet here agree on those of the first. What is drawn is never 0.
void CHashSeed::DrawFirst() noexcept
{
    for (auto* const number : {&gNumbers.Drawn[1], &gNumbers.Drawn[0]})
    {
        std::uint64_t none = 0;
        number->compare_exchange_strong(none, tSystem::UnguessableNumber() | 1);
    }
}

} // namespace Tavrik::Ossira
