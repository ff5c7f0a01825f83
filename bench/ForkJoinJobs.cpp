// Fork and join: a job is handed to a second thread and waited for. The limit is a pool of one
// worker that never sleeps and meets its caller over one cache line. Times are those of the clock,
// so run it on a machine that does nothing else.
//
// The runtime's pool has two workers, the fewest that work beside the caller: three threads for two
// processors. Hot: one run right after the other. Cold: 5 ms of rest before each, so that everybody
// sleeps.
#include "OssiraClasses.h"
#include "OssiraPointer.h"
#include "OssiraThreads.h"
#include "Work.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <pthread.h>
#include <sched.h>

namespace Tavrik::Ossira::tBench
{

using namespace tSystem::tThreads;

CWork::CWork(int count, int rounds) : mCount(count), mRounds(rounds), mExpected(Sum(0, count))
{
}

namespace
{

[[gnu::noinline]] std::uint32_t DoItem(std::uint32_t item, int rounds)
{
    for (int round = 0; round < rounds; ++round)
    {
        item ^= item << 13;
        item ^= item >> 17;
        item ^= item << 5;
    }
    return item;
}

} // namespace

std::uint32_t CWork::Sum(int first, int last) const noexcept
{
    std::uint32_t sum = 0;
    for (int item = first; item < last; ++item)
        sum += DoItem(static_cast<std::uint32_t>(item), mRounds);
    return sum;
}

void CSharedItems::Take() noexcept
{
    constexpr int least = 25;
    std::uint32_t sum = 0;
    bool taken = false;
    int first = mNext.load(std::memory_order_relaxed);
    while (first < mWork.Count())
    {
        const int left = mWork.Count() - first;
        const int portion = std::min(left, std::max(least, left * 2 / (3 * ThreadCount)));
        if (!mNext.compare_exchange_weak(first, first + portion, std::memory_order_relaxed))
            continue;
        sum += mWork.Sum(first, first + portion);
        taken = true;
        first = mNext.load(std::memory_order_relaxed);
    }
    if (taken)
        mSum.fetch_add(sum, std::memory_order_relaxed);
}

std::shared_ptr<const CWork> MakeWork(std::size_t nanoseconds)
{
    return std::make_shared<const CWork>(nanoseconds == 0 ? 0 : 1000, nanoseconds == 1 ? 1 : 12);
}

namespace
{

// What a thread of either pool does.
class CShares
{
public:
    explicit CShares(const CWork& work, bool meet = true)
        : mItems(work), mIdle(work.Count() == 0), mMeet(meet)
    {
    }

    void Restart() noexcept
    {
        mItems.Restart();
        mMeeting.Restart();
    }

    void Take() noexcept
    {
        if (!mIdle)
            mItems.Take();
        else if (mMeet)
            mMeeting.Enter();
    }

    [[nodiscard]] std::uint32_t Sum() const noexcept
    {
        return mItems.Sum();
    }

private:
    CSharedItems mItems;
    CMeeting mMeeting;
    bool mIdle;
    bool mMeet;
};

// Each of its workers runs its copy in each run. Where there are more threads than processors they
// let each other run.
template <std::size_t Workers>
class CSpinningPool
{
public:
    explicit CSpinningPool(const CWork& work) : mShares(work, false)
    {
        for (Line& line : mLines)
            line.Worker = std::thread([this, &line] { Work(line); });
    }

    CSpinningPool(const CSpinningPool&) = delete;
    CSpinningPool& operator=(const CSpinningPool&) = delete;

    ~CSpinningPool()
    {
        mEnd = true;
        ++mRun;
        for (Line& line : mLines)
        {
            line.Asked.store(mRun, std::memory_order_release);
            line.Worker.join();
        }
    }

    std::uint32_t Run()
    {
        mShares.Restart();
        ++mRun;
        for (Line& line : mLines)
            line.Asked.store(mRun, std::memory_order_release);
        mShares.Take();
        for (Line& line : mLines)
        {
            while (line.Done.load(std::memory_order_acquire) != mRun)
                LetOthersRun();
        }
        return mShares.Sum();
    }

private:
    struct alignas(64) Line
    {
        std::atomic<std::uint32_t> Asked = 0;
        std::atomic<std::uint32_t> Done = 0;
        std::thread Worker;
    };

    static void LetOthersRun() noexcept
    {
        if constexpr (Workers < std::size_t{ThreadCount})
            __builtin_ia32_pause();
        else
            std::this_thread::yield();
    }

    void Work(Line& line)
    {
        for (std::uint32_t done = 0;; line.Done.store(++done, std::memory_order_release))
        {
            while (line.Asked.load(std::memory_order_acquire) == done)
                LetOthersRun();
            if (mEnd)
                return;
            mShares.Take();
        }
    }

    CShares mShares;
    bool mEnd = false; // told by the last run
    std::uint32_t mRun = 0;
    std::array<Line, Workers> mLines;
};

class CRuntimePool
{
public:
    CRuntimePool(const CWork& work, bool symmetric)
        : mShares(work, symmetric), mSymmetric(symmetric), mJob(Share{&mShares})
    {
        Require(CreateObject(CLSID_CommonThreadPoolBox, mBox), "CreateObject");
        Require(mBox->Create(2), "Create");
        Require(mBox->GetThreadPool(&mPool), "GetThreadPool");
    }

    std::uint32_t Run()
    {
        mShares.Restart();
        mPool->Run(&mJob, nullptr, mSymmetric, "bench");
        return mShares.Sum();
    }

private:
    struct Share
    {
        CShares* Of;

        void operator()(CAbortFlag) const
        {
            Of->Take();
        }
    };

    CShares mShares;
    std::uint8_t mSymmetric;
    CThreadJob<Share> mJob;
    ObjectPtr<ICommonThreadPoolBox> mBox;
    IThreadPool* mPool = nullptr;
};

class CAlone
{
public:
    explicit CAlone(const CWork& work) : mWork(work)
    {
    }

    std::uint32_t Run()
    {
        return mWork.Sum(0, mWork.Count());
    }

private:
    const CWork& mWork;
};

[[nodiscard]] Contender Timed(std::string name, Body body)
{
    return {std::move(name), std::move(body), Role::Comparison, true};
}

[[nodiscard]] Contender Symmetric(const char* name, std::size_t nanoseconds)
{
    return Timed(name, ForkAndJoin<CRuntimePool>(nanoseconds, true));
}

[[nodiscard]] Contender Asymmetric(const char* name, std::size_t nanoseconds)
{
    return Timed(name, ForkAndJoin<CRuntimePool>(nanoseconds, false));
}

[[nodiscard]] Contender Limit(std::size_t nanoseconds)
{
    return Timed("pool of one worker that always spins",
                 ForkAndJoin<CSpinningPool<1>>(nanoseconds));
}

// What an asymmetric run promises: as many threads as the runtime's pool has, and a copy for each.
[[nodiscard]] Contender LimitOfAllCopies(std::size_t nanoseconds)
{
    Contender pool = Timed("the contract by hand: two workers that give way, a copy for each",
                           ForkAndJoin<CSpinningPool<2>>(nanoseconds));
    pool.Role = Role::Contract;
    return pool;
}

[[nodiscard]] std::vector<Contender> Contenders(Contender runtime, std::size_t nanoseconds,
                                                bool isAsymmetric = false)
{
    std::vector<Contender> contenders = {std::move(runtime), Limit(nanoseconds)};
    if (isAsymmetric)
        contenders.push_back(LimitOfAllCopies(nanoseconds));
    if (nanoseconds != 0)
        contenders.push_back(Timed("one thread alone", ForkAndJoin<CAlone>(nanoseconds)));
    AddPeers(contenders, Topic::ForkAndJoin, nanoseconds);
    return contenders;
}

// The rest is not counted.
[[nodiscard]] Contender Cold(const char* name, bool symmetric, std::size_t nanoseconds)
{
    return Timed(name,
                 [work = MakeWork(nanoseconds), symmetric](benchmark::State& state)
                 {
                     using Clock = std::chrono::steady_clock;
                     CRuntimePool pool(*work, symmetric);
                     const CRoundReport report(state);
                     Clock::duration sum = {};
                     for (auto _ : state)
                     {
                         std::this_thread::sleep_for(std::chrono::milliseconds(5));
                         const Clock::time_point start = Clock::now();
                         pool.Run();
                         sum += Clock::now() - start;
                     }
                     state.counters[CRoundReport::Own] =
                         std::chrono::duration<double, std::nano>(sum).count() /
                         static_cast<double>(state.iterations());
                 });
}

[[nodiscard]] Job ItemsJob(const std::string& kind, Contender (*runtime)(const char*, std::size_t),
                           std::size_t nanoseconds, double reach)
{
    return {"1,000 items of " + std::to_string(nanoseconds) + " ns, " + kind, reach,
            [=]
            {
                return Contenders(runtime("runtime", nanoseconds), nanoseconds,
                                  runtime == Asymmetric);
            }};
}

// Keeps the calling thread on one processor.
class COnOneProcessor
{
public:
    COnOneProcessor()
    {
        pthread_getaffinity_np(pthread_self(), sizeof(mFormer), &mFormer);
        Enter(sched_getcpu());
    }

    COnOneProcessor(const COnOneProcessor&) = delete;
    COnOneProcessor& operator=(const COnOneProcessor&) = delete;

    ~COnOneProcessor()
    {
        pthread_setaffinity_np(pthread_self(), sizeof(mFormer), &mFormer);
    }

private:
    static void Enter(int processor)
    {
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(static_cast<std::size_t>(processor), &one);
        pthread_setaffinity_np(pthread_self(), sizeof(one), &one);
    }

    cpu_set_t mFormer;
};

} // namespace

// Two threads on one processor, of which each gives way at once: there and back.
Contender ThreadSwitch()
{
    return Timed("switch between two threads of one processor",
                 [](benchmark::State& state)
                 {
                     const COnOneProcessor here; // which the other thread inherits
                     std::atomic<bool> end = false;
                     std::thread other(
                         [&end]
                         {
                             while (!end.load(std::memory_order_relaxed))
                                 std::this_thread::yield();
                         });
                     {
                         const CRoundReport report(state, 2);
                         for (auto _ : state)
                             std::this_thread::yield();
                     }
                     end = true;
                     other.join();
                 });
}

Jobs ForkJoinJobs()
{
    return {{"empty job, symmetric, a second thread made to enter", 1.5,
             []
             {
                 return Contenders(Symmetric("runtime", 0), 0);
             }},
            {"empty job, asymmetric", 2.0,
             []
             {
                 return std::vector{Asymmetric("runtime", 0), Symmetric("runtime, symmetric", 0),
                                    LimitOfAllCopies(0), Limit(0)};
             }},
            ItemsJob("symmetric", Symmetric, 1, 1.15),
            ItemsJob("symmetric", Symmetric, 20, 1.05),
            ItemsJob("asymmetric", Asymmetric, 1, 1.3),
            ItemsJob("asymmetric", Asymmetric, 20, 1.1),
            {"1,000 items of 20 ns after 5 ms of rest", NoReach,
             []
             {
                 return std::vector{Cold("runtime, symmetric", true, 20),
                                    Timed("one thread alone", ForkAndJoin<CAlone>(20)),
                                    Cold("runtime, asymmetric", false, 20)};
             }}};
}

} // namespace Tavrik::Ossira::tBench
