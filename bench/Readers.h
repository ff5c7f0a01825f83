// How a dictionary is read by one thread and by two. A `Table` has `Read`, which takes a reference
// on the object of a key and gives it back.
#pragma once

#include "Objects.h"
#include "Peers.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

namespace Tavrik::Ossira::tBench
{

using SharedKeys = std::shared_ptr<const Keys>;

// Key after key, around and around.
class CKeyWheel
{
public:
    explicit CKeyWheel(SharedKeys keys) : mKeys(std::move(keys))
    {
    }

    [[nodiscard]] const GUID& Next() noexcept
    {
        const GUID& key = (*mKeys)[mAt];
        if (++mAt == mKeys->size())
            mAt = 0;
        return key;
    }

private:
    SharedKeys mKeys;
    std::size_t mAt = 0;
};

template <class Table>
[[nodiscard]] Body ReadKeys(std::shared_ptr<Table> table, SharedKeys keys)
{
    return [table, keys](benchmark::State& state)
    {
        CKeyWheel wheel(keys);
        const CRoundReport report(state);
        for (auto _ : state)
            table->Read(wheel.Next());
    };
}

// Reads all the time, on a thread of its own and on a cache line of its own.
template <class Table>
class alignas(64) CPartner
{
public:
    CPartner(std::shared_ptr<Table> table, SharedKeys keys)
        : mThread(
              [this, table, keys]
              {
                  CKeyWheel wheel(keys);
                  while (!mEnd.load(std::memory_order_relaxed))
                  {
                      table->Read(wheel.Next());
                      mReads.store(mReads.load(std::memory_order_relaxed) + 1,
                                   std::memory_order_relaxed);
                  }
              })
    {
        while (Reads() == 0)
            std::this_thread::yield();
    }

    CPartner(const CPartner&) = delete;
    CPartner& operator=(const CPartner&) = delete;

    ~CPartner()
    {
        mEnd = true;
        mThread.join();
    }

    [[nodiscard]] std::uint64_t Reads() const noexcept
    {
        return mReads.load(std::memory_order_relaxed);
    }

private:
    std::atomic<std::uint64_t> mReads = 0;
    std::atomic<bool> mEnd = false;
    std::thread mThread;
};

// The time by the clock in which the two of them together read one key.
template <class Table>
[[nodiscard]] Body ReadKeysBesideAnother(std::shared_ptr<Table> table, SharedKeys keys,
                                         SharedKeys others)
{
    return [table, keys, others](benchmark::State& state)
    {
        using Clock = std::chrono::steady_clock;
        CKeyWheel wheel(keys);
        const CPartner<Table> partner(table, others);
        const CRoundReport report(state);
        const std::uint64_t before = partner.Reads();
        const Clock::time_point start = Clock::now();
        for (auto _ : state)
            table->Read(wheel.Next());
        const double time = std::chrono::duration<double, std::nano>(Clock::now() - start).count();
        const auto reads =
            static_cast<std::uint64_t>(state.iterations()) + partner.Reads() - before;
        state.counters[CRoundReport::Own] = time / static_cast<double>(reads);
    };
}

// The two threads read different keys of one dictionary, half of them each.
template <class Table>
[[nodiscard]] std::vector<Contender>
ReaderPair(const std::string& name, const std::shared_ptr<Table>& table, const Keys& keys)
{
    const Keys order = Shuffled(keys);
    const auto half = order.begin() + static_cast<std::ptrdiff_t>(order.size() / 2);
    const auto mine = std::make_shared<const Keys>(order.begin(), half);
    const auto others = std::make_shared<const Keys>(half, order.end());
    return {{name, ReadKeys(table, mine), Role::Comparison, true},
            {name + ", two threads", ReadKeysBesideAnother(table, mine, others), Role::Comparison,
             true}};
}

// A `Table` is made from keys, with an object for each.
template <class Table>
[[nodiscard]] std::vector<Peer> DictionaryPeers()
{
    const auto make = [](const Keys& keys)
    {
        return std::make_shared<Table>(keys);
    };
    return {{Topic::DictionaryRead,
             [make](std::size_t size)
             {
                 const Keys keys = MakeKeys(size);
                 const auto order = std::make_shared<const Keys>(Shuffled(keys));
                 return std::vector<Contender>{{Table::Name, ReadKeys(make(keys), order)}};
             }},
            {Topic::DictionaryReaders, [make](std::size_t size)
             {
                 const Keys keys = MakeKeys(size);
                 return ReaderPair(Table::Name, make(keys), keys);
             }}};
}

} // namespace Tavrik::Ossira::tBench
