// Where tables look for a GUID. It depends on two numbers that the process draws before its first
// table, so that nobody can choose keys that meet in one place. They are no table's own, so a
// reader works its key's place out before it takes the table's lock, where that costs next to
// nothing: behind a locked instruction everything waits, in front of it hardly anything does.
#pragma once

#include "OssiraBase.h"

#include <array>
#include <atomic>
#include <bit>

namespace Tavrik::Ossira
{

class CHashSeed
{
public:
    using Halves = std::array<std::uint64_t, 2>;

    // Called by every table before its first key.
    static void Draw() noexcept
    {
        if (gNumbers.Drawn[0].load(std::memory_order_acquire) == 0) [[unlikely]]
            DrawFirst();
    }

    [[gnu::always_inline]] [[nodiscard]] static Halves Get() noexcept
    {
        return {gNumbers.Drawn[0].load(std::memory_order_relaxed),
                gNumbers.Drawn[1].load(std::memory_order_relaxed)};
    }

private:
    static void DrawFirst() noexcept;

    // In a cache line that is not written to: every reader of every table looks here.
    struct alignas(64) Numbers
    {
        std::atomic<std::uint64_t> Drawn[2]; // the first is 0 until both are drawn
    };

    static constinit Numbers gNumbers;
};

// A key with its hash, as long as a call.
struct CHashedGuid
{
    // The product of the halves, each changed by a drawn number, with its upper half folded in:
    // which keys meet cannot be worked out beforehand. The second multiplication spreads keys that
    // were made by counting in a few of their bits, for which the first one leaves patterns.
    [[gnu::always_inline]] CHashedGuid(const GUID& key) noexcept : Key(key)
    {
        __extension__ using Product = unsigned __int128;
        const auto halves = std::bit_cast<CHashSeed::Halves>(key);
        const CHashSeed::Halves seed = CHashSeed::Get();
        const Product product = Product{halves[0] ^ seed[0]} * (halves[1] ^ seed[1]);
        const std::uint64_t folded =
            (static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64)) *
            0x9E3779B97F4A7C15;
        Hash = folded ^ (folded >> 32);
    }

    const GUID& Key;
    std::uint64_t Hash;
};

} // namespace Tavrik::Ossira
