// What threads share when a job is forked and joined: items that take a given time each.
#pragma once

#include "Peers.h"

#include <atomic>
#include <memory>
#include <thread>

namespace Tavrik::Ossira::tBench
{

inline constexpr int ThreadCount = 2; // what the jobs are laid out for

// Items of about 1 or 20 ns; they fold neither into one nor into vectors.
class CWork
{
public:
    CWork(int count, int rounds);

    [[nodiscard]] std::uint32_t Sum(int first, int last) const noexcept;

    [[nodiscard]] int Count() const noexcept
    {
        return mCount;
    }

    [[nodiscard]] std::uint32_t Expected() const noexcept
    {
        return mExpected;
    }

private:
    int mCount;
    int mRounds;
    std::uint32_t mExpected;
};

// Threads take their items from here. Portions get smaller towards the end, so that few are taken
// and yet all threads end together.
class CSharedItems
{
public:
    explicit CSharedItems(const CWork& work) noexcept : mWork(work)
    {
    }

    void Restart() noexcept
    {
        mNext.store(0, std::memory_order_relaxed);
        mSum.store(0, std::memory_order_relaxed);
    }

    void Take() noexcept;

    [[nodiscard]] std::uint32_t Sum() const noexcept
    {
        return mSum.load(std::memory_order_relaxed);
    }

private:
    const CWork& mWork;
    alignas(64) std::atomic<int> mNext = 0;
    std::atomic<std::uint32_t> mSum = 0;
};

// Where two threads wait for each other, so that a second one is sure to take part.
class CMeeting
{
public:
    void Restart() noexcept
    {
        mEntered.store(0, std::memory_order_relaxed);
    }

    void Enter() noexcept
    {
        mEntered.fetch_add(1, std::memory_order_acq_rel);
        while (mEntered.load(std::memory_order_acquire) < ThreadCount)
            __builtin_ia32_pause();
    }

private:
    alignas(64) std::atomic<int> mEntered = 0;
};

// 0: nothing to do, but a second thread has to enter; 1 and 20: 1,000 items of so many nanoseconds.
[[nodiscard]] std::shared_ptr<const CWork> MakeWork(std::size_t nanoseconds);

// A `Team` is made from work and answers the sum of its items from `Run`. Its threads live as long
// as it does, so that they disturb nobody else's time.
template <class Team>
[[nodiscard]] Body ForkAndJoin(std::size_t nanoseconds, auto... arguments)
{
    return [work = MakeWork(nanoseconds), arguments...](benchmark::State& state)
    {
        if (std::thread::hardware_concurrency() < ThreadCount)
            return state.SkipWithError("one processor is too few");
        Team team(*work, arguments...);
        const CRoundReport report(state);
        for (auto _ : state)
        {
            if (team.Run() != work->Expected())
                state.SkipWithError("items were left out or done twice");
        }
    };
}

// What it costs to hand a processor to another thread.
[[nodiscard]] Contender ThreadSwitch();

template <class Team>
[[nodiscard]] Peer ForkJoinPeer()
{
    return {Topic::ForkAndJoin, [](std::size_t nanoseconds)
            {
                return std::vector<Contender>{
                    {Team::Name, ForkAndJoin<Team>(nanoseconds), Role::Peer, true}};
            }};
}

} // namespace Tavrik::Ossira::tBench
