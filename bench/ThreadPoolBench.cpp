// Fork and join: a job is handed to all threads and waited for. The runtime's pool stands beside
// OpenMP's team, which is what one would use instead.
//
// Threads are those that work, the calling one included, so a pool of two workers stands beside a
// team of three; beside a team of two stands the smallest pool that has workers. Hot: one run right
// after the other. Cold: 5 ms of rest before each run, which is not counted, so that everybody
// sleeps. Times are those of the clock; run it on a machine that does nothing else.
#include "OssiraClasses.h"
#include "OssiraPointer.h"
#include "OssiraThreads.h"

#include <benchmark/benchmark.h>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>

using namespace Tavrik::Ossira;
using namespace Tavrik::tSystem::tThreads;

namespace
{

using Clock = std::chrono::steady_clock;

// An item takes about 20 ns. The steps do not fold into one.
[[gnu::noinline]] std::uint32_t DoItem(std::uint32_t item)
{
    for (int round = 0; round < 12; ++round)
    {
        item ^= item << 13;
        item ^= item >> 17;
        item ^= item << 5;
    }
    return item;
}

// What a contender runs: items from 0 to `count`, and their sum to be checked.
struct Work
{
    explicit Work(int count) : Count(count)
    {
        for (int item = 0; item < count; ++item)
            Expected += DoItem(static_cast<std::uint32_t>(item));
    }

    int Count;
    std::uint32_t Expected = 0;
};

class Pool
{
public:
    Pool(int workers, bool symmetric, const Work& work)
        : mWork(work), mSymmetric(symmetric), mJob(Share{this})
    {
        if (Failed(CreateObject(CLSID_CommonThreadPoolBox, mBox)) ||
            Failed(mBox->Create(workers)) || Failed(mBox->GetThreadPool(&mPool)))
            throw std::runtime_error("no pool");
    }

    std::uint32_t Run()
    {
        mNext = 0;
        mSum = 0;
        mPool->Run(&mJob, nullptr, mSymmetric, "bench");
        return mSum;
    }

private:
    struct Share
    {
        Pool* Owner;

        void operator()(CAbortFlag) const
        {
            Owner->TakeItems();
        }
    };

    void TakeItems()
    {
        constexpr int portion = 32;
        std::uint32_t sum = 0;
        for (int first; (first = mNext.fetch_add(portion)) < mWork.Count;)
        {
            for (int item = first; item < std::min(first + portion, mWork.Count); ++item)
                sum += DoItem(static_cast<std::uint32_t>(item));
        }
        if (sum != 0)
            mSum += sum;
    }

    const Work& mWork;
    std::uint8_t mSymmetric;
    CThreadJob<Share> mJob;
    ObjectPtr<ICommonThreadPoolBox> mBox;
    IThreadPool* mPool = nullptr;
    alignas(64) std::atomic<int> mNext = 0;
    alignas(64) std::atomic<std::uint32_t> mSum = 0;
};

class Team
{
public:
    Team(int threads, const Work& work) : mThreads(threads), mWork(work)
    {
    }

    std::uint32_t Run()
    {
        std::uint32_t sum = 0;
#pragma omp parallel for num_threads(mThreads) reduction(+ : sum) schedule(static)
        for (int item = 0; item < mWork.Count; ++item)
            sum += DoItem(static_cast<std::uint32_t>(item));
        return sum;
    }

private:
    int mThreads;
    const Work& mWork;
};

class OneThread
{
public:
    explicit OneThread(const Work& work) : mWork(work)
    {
    }

    std::uint32_t Run()
    {
        std::uint32_t sum = 0;
        for (int item = 0; item < mWork.Count; ++item)
            sum += DoItem(static_cast<std::uint32_t>(item));
        return sum;
    }

private:
    const Work& mWork;
};

template <class Contender>
void Measure(benchmark::State& state, Contender contender, const Work& work, bool hot)
{
    for (auto _ : state)
    {
        if (!hot)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        const Clock::time_point start = Clock::now();
        const std::uint32_t sum = contender().Run();
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
        if (sum != work.Expected)
            state.SkipWithError("items were left out or done twice");
    }
}

template <class Contender, class... Arguments>
void Register(const std::string& name, const Work& work, bool hot, Arguments... arguments)
{
    const auto body = [=, &work](benchmark::State& state)
    {
        Contender contender(arguments..., work);
        Measure(
            state, [&]() -> Contender& { return contender; }, work, hot);
    };
    auto* const job = benchmark::RegisterBenchmark(name.c_str(), body);
    job->UseManualTime()->Unit(benchmark::kMicrosecond);
    if (!hot)
        job->Iterations(100); // by the time that counts it would rest for minutes
}

} // namespace

int main(int argc, char** argv)
{
    static const Work nothing(0);
    static const Work small(1000);
    static const Work large(20000);
    static const std::pair<const char*, const Work*> works[] = {
        {"nothing", &nothing}, {"1000-items", &small}, {"20000-items", &large}};
    for (const auto& [name, work] : works)
    {
        for (const bool hot : {true, false})
        {
            const std::string job = std::string(name) + (hot ? "/hot/" : "/cold/");
            Register<OneThread>(job + "one-thread", *work, hot);
            Register<Pool>(job + "pool-of-2-symmetric", *work, hot, 2, true);
            Register<Team>(job + "team-of-2", *work, hot, 2);
            Register<Team>(job + "team-of-3", *work, hot, 3);
            Register<Pool>(job + "pool-of-2-asymmetric", *work, hot, 2, false);
            Register<Pool>(job + "pool-of-7-symmetric", *work, hot, 7, true);
            Register<Team>(job + "team-of-8", *work, hot, 8);
        }
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
