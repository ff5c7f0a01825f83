// The thread pool, its box and the threads it is made of.
#include "threads/ThreadPool.h"
#include "FailingMemory.h"
#include "OssiraCheck.h"
#include "OssiraThreads.h"
#include "ServiceTools.h"

#include <algorithm>
#include <barrier>
#include <chrono>
#include <latch>
#include <mutex>
#include <new>
#include <regex>
#include <set>
#include <stdexcept>
#include <thread>

namespace Tavrik::Ossira
{

using namespace tTest;
using namespace tSystem::tThreads;

namespace
{

constexpr std::int32_t WorkerCount = 8;
constexpr Result Aborted = -1;
constexpr std::uint8_t BothKinds[] = {0, 1}; // asymmetric and symmetric

struct ReleasePool
{
    void operator()(CThreadPool* pool) const
    {
        EXPECT_EQ(pool->Release(), S_OK);
    }
};
using PoolPtr = std::unique_ptr<CThreadPool, ReleasePool>;

PoolPtr MakePool(std::int32_t count = WorkerCount)
{
    PoolPtr pool(CreateThreadPool(count));
    EXPECT_NE(pool, nullptr);
    return pool;
}

template <class Work>
Result RunJob(IThreadPool& pool, Work work, std::uint8_t symmetric = 0, const char* name = "test",
              std::uint8_t* abortFlag = nullptr)
{
    CThreadJob job(work);
    return pool.Run(&job, abortFlag, symmetric, name);
}

// --- Runs ----------------------------------------------------------------------------------------

TEST(ConcurrentThreadPool, CopiesRunSideBySideOnEveryWorkerAndOnTheCaller)
{
    const PoolPtr pool = MakePool();
    for (const std::uint8_t symmetric : BothKinds)
    {
        std::barrier meeting(WorkerCount + 1); // which none passes before all are there
        std::mutex lock;
        std::set<std::thread::id> threads;
        EXPECT_EQ(RunJob(
                      *pool,
                      [&](CAbortFlag)
                      {
                          meeting.arrive_and_wait();
                          const std::lock_guard guard(lock);
                          threads.insert(std::this_thread::get_id());
                      },
                      symmetric),
                  S_OK);
        EXPECT_EQ(threads.size(), std::size_t{WorkerCount} + 1);
        EXPECT_TRUE(threads.contains(std::this_thread::get_id()));
    }
}

TEST(ConcurrentThreadPool, RunsInSuccessionDoEveryItemOnceWhetherWorkersSleepOrNot)
{
    const PoolPtr pool = MakePool();
    for (int round = 0; round < 1000; ++round)
    {
        constexpr int itemCount = 100;
        std::uint8_t done[itemCount] = {};
        std::atomic<int> next = 0;
        ASSERT_EQ(RunJob(
                      *pool,
                      [&](CAbortFlag)
                      {
                          for (int item; (item = next.fetch_add(1)) < itemCount;)
                              ++done[item];
                      },
                      round % 2 == 0),
                  S_OK);
        ASSERT_EQ(std::ranges::count(done, 1), itemCount) << round;
        if (round % 100 == 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

TEST(ConcurrentThreadPool, AJobAfterWhichTheCallerGoesAtOnceIsNotTouchedAgain)
{
    const PoolPtr pool = MakePool();
    for (int round = 0; round < 1000; ++round)
    {
        // The run's record, the job and the flag lie here and are overwritten as soon as it ends.
        const auto call = [&](std::uint8_t symmetric)
        {
            return RunJob(
                *pool, [](CAbortFlag abort) { EXPECT_FALSE(abort.IsRaised()); }, symmetric);
        };
        ASSERT_EQ(call(round % 2 == 0), S_OK);
        volatile std::uint8_t stack[4000];
        for (volatile std::uint8_t& byte : stack)
            byte = 0xFF;
    }
}

TEST(ConcurrentThreadPool, ARaisedFlagEndsTheRunWithMinusOne)
{
    const PoolPtr pools[] = {MakePool(1), MakePool()};
    for (const PoolPtr& pool : pools)
    {
        for (const std::uint8_t symmetric : BothKinds)
        {
            std::uint8_t flag = 1; // left over from a former run
            EXPECT_EQ(RunJob(
                          *pool, [](CAbortFlag abort) { EXPECT_FALSE(abort.IsRaised()); },
                          symmetric, "lowered", &flag),
                      S_OK);
            EXPECT_EQ(flag, 0);
            for (std::uint8_t* const given : {&flag, static_cast<std::uint8_t*>(nullptr)})
            {
                EXPECT_EQ(
                    RunJob(
                        *pool, [](CAbortFlag abort) { abort.Raise(); }, symmetric, nullptr, given),
                    Aborted);
            }
            EXPECT_EQ(flag, 1);
        }
    }
}

TEST(ConcurrentThreadPool, ARaisedFlagKeepsCopiesFromStarting)
{
    const PoolPtr pool = MakePool(2);
    for (int round = 0; round < 50; ++round)
    {
        // One run keeps both workers while the copies of the other one are queued behind it.
        std::latch bothAreKept(2);
        std::atomic<bool> letGo = false;
        std::jthread keeper(
            [&]
            {
                EXPECT_EQ(RunJob(*pool,
                                 [&](CAbortFlag)
                                 {
                                     if (pool->CurrentWorker() < 0)
                                         return;
                                     bothAreKept.count_down();
                                     letGo.wait(false);
                                 }),
                          S_OK);
            });
        bothAreKept.wait();
        std::atomic<int> calls = 0;
        EXPECT_EQ(RunJob(*pool,
                         [&](CAbortFlag abort)
                         {
                             ++calls;
                             abort.Raise();
                             letGo = true;
                             letGo.notify_all();
                         }),
                  Aborted);
        EXPECT_EQ(calls, 1) << "only the caller's";
    }
}

TEST(ConcurrentThreadPool, WhatAJobThrowsIsToldAndAbortsTheRun)
{
    enum class Thrown
    {
        Exception,
        NullException,
        Memory,
        Standard,
        Number
    };
    struct
    {
        Thrown What;
        const char* Code;
    } const cases[] = {{Thrown::Exception, "0x80070005"},
                       {Thrown::NullException, "0x8007000E"},
                       {Thrown::Memory, "0x8007000E"},
                       {Thrown::Standard, "0x8000FFFF"},
                       {Thrown::Number, "0x8000FFFF"}};
    const auto throwIt = [](Thrown what)
    {
        switch (what)
        {
        case Thrown::Exception:
            OSSIRA_THROW(E_ACCESSDENIED, "thrown");
        case Thrown::NullException:
            throw static_cast<IException*>(nullptr);
        case Thrown::Memory:
            throw std::bad_alloc();
        case Thrown::Standard:
            throw std::runtime_error("thrown");
        case Thrown::Number:
            throw 42;
        }
    };
    for (const std::int32_t count : {1, 2})
    {
        const PoolPtr pool = MakePool(count);
        for (const auto& [what, code] : cases)
        {
            const DiagnosticsCapture capture;
            std::atomic<std::int32_t> worker = -1;
            std::barrier meeting(count == 1 ? 1 : count + 1);
            EXPECT_EQ(RunJob(
                          *pool,
                          [&](CAbortFlag)
                          {
                              meeting.arrive_and_wait();
                              const std::int32_t self = pool->CurrentWorker();
                              if (self != count - 2) // the caller of one, the first of two workers
                                  return;
                              worker = self;
                              throwIt(what);
                          },
                          0, "thrower"),
                      Aborted);
            EXPECT_EQ(worker, count - 2);
            EXPECT_EQ(capture.Text(), "\aCThreadPool::CMessage::Run Thread:(" +
                                          std::to_string(worker) +
                                          ") - Exception for thrower: Code: " + code + "\n");
        }
        EXPECT_EQ(RunJob(*pool, [](CAbortFlag) {}), S_OK) << "the pool works on";
    }
}

TEST(ConcurrentThreadPool, AllCopiesMayThrowAtOnce)
{
    const DiagnosticsCapture capture;
    const PoolPtr pool = MakePool();
    for (const std::uint8_t symmetric : BothKinds)
    {
        std::barrier meeting(WorkerCount + 1);
        EXPECT_EQ(RunJob(
                      *pool,
                      [&](CAbortFlag)
                      {
                          meeting.arrive_and_wait();
                          OSSIRA_THROW(E_FAIL, "all");
                      },
                      symmetric),
                  Aborted);
    }
    EXPECT_EQ(capture.CountLinesWith("Exception for test: Code: 0x80004005"),
              2 * (std::size_t{WorkerCount} + 1));
}

TEST(ConcurrentThreadPool, SeveralThreadsMayRunJobsOfOnePool)
{
    const PoolPtr pool = MakePool(3);
    std::vector<std::jthread> callers;
    for (int caller = 0; caller < 8; ++caller)
    {
        callers.emplace_back(
            [&]
            {
                for (int round = 0; round < 200; ++round)
                {
                    std::atomic<int> next = 0;
                    std::atomic<int> sum = 0;
                    EXPECT_EQ(RunJob(
                                  *pool,
                                  [&](CAbortFlag)
                                  {
                                      for (int item; (item = next.fetch_add(1)) < 10;)
                                          sum += item;
                                  },
                                  round % 2 == 0),
                              S_OK);
                    EXPECT_EQ(sum, 45);
                }
            });
    }
}

TEST(ConcurrentThreadPool, AJobMayRunAJobOfItsOwn)
{
    const PoolPtr pool = MakePool(3);
    for (const std::uint8_t outer : BothKinds)
    {
        for (const std::uint8_t inner : BothKinds)
        {
            std::barrier meeting(4);
            std::atomic<int> sum = 0;
            EXPECT_EQ(RunJob(
                          *pool,
                          [&](CAbortFlag)
                          {
                              meeting.arrive_and_wait();
                              std::atomic<int> left = 5;
                              EXPECT_EQ(RunJob(
                                            *pool,
                                            [&](CAbortFlag)
                                            {
                                                while (left.fetch_sub(1) > 0)
                                                    ++sum;
                                            },
                                            inner),
                                        S_OK);
                          },
                          outer),
                      S_OK);
            EXPECT_EQ(sum, 20);
        }
    }
}

TEST(ThreadPool, APoolOfOneRunsTheJobOnceOnTheCallingThread)
{
    const PoolPtr pool = MakePool(1);
    for (const std::uint8_t symmetric : BothKinds)
    {
        std::vector<std::thread::id> threads;
        EXPECT_EQ(RunJob(
                      *pool, [&](CAbortFlag) { threads.push_back(std::this_thread::get_id()); },
                      symmetric),
                  S_OK);
        EXPECT_EQ(threads, std::vector{std::this_thread::get_id()});
    }
    FAILS(pool->Run(nullptr, nullptr, 0, "nothing"), E_POINTER, "function");
}

// --- Pools ---------------------------------------------------------------------------------------

TEST(ThreadPool, TheNumberOfWorkersIsBounded)
{
    const auto processors = static_cast<std::int32_t>(std::thread::hardware_concurrency());
    const std::int32_t fitting = std::clamp(processors - 1, 1, 64);
    struct
    {
        std::int32_t Asked;
        std::int32_t Got;
        std::string Line;
    } const cases[] = {
        {-1, fitting, ""},
        {0, fitting, ""},
        {std::numeric_limits<std::int32_t>::min(), fitting, ""},
        {1, 1, ""},
        {64, 64, ""},
        {65, 64, "\aCThreadPool Warn too many threads needed: 65 but 64 now using\n"},
        {1000000, 64, "\aCThreadPool Warn too many threads needed: 1000000 but 64 now using\n"}};
    const std::int32_t pools = CThreadPool::LiveCount();
    const std::int32_t threads = WinThread::LiveCount();
    for (const auto& [asked, got, line] : cases)
    {
        const DiagnosticsCapture capture;
        const PoolPtr pool = MakePool(asked);
        EXPECT_EQ(pool->GetThreadCount(), got);
        EXPECT_EQ(CThreadPool::LiveCount(), pools + 1);
        EXPECT_EQ(WinThread::LiveCount(), threads + got);
        EXPECT_EQ(capture.Text(), line);
    }
    EXPECT_EQ(CThreadPool::LiveCount(), pools);
    EXPECT_EQ(WinThread::LiveCount(), threads);
}

TEST(ThreadPool, WithoutMemoryForAllItsThreadsThereIsNone)
{
    std::vector<std::string> lines;
    for (int which = 0;; ++which)
    {
        const DiagnosticsCapture capture;
        FailingMemory memory(which, Shortage::Once);
        PoolPtr pool(CreateThreadPool(3));
        if (!memory.Stop())
            break;
        EXPECT_EQ(pool, nullptr);
        EXPECT_EQ(WinThread::LiveCount(), 0) << "those that were started have ended";
        EXPECT_EQ(CThreadPool::LiveCount(), 0);
        lines.push_back(capture.Text());
    }
    const std::string noObject = "\aCThreadPool Error #13\n";
    const std::string noThread = "\aCThreadPool Error #14\n";
    EXPECT_EQ(lines, (std::vector{noObject, noObject, noObject, noThread, noThread, noThread}));

    const auto box = Make<ICommonThreadPoolBox>(CLSID_CommonThreadPoolBox);
    const auto create = [&]
    {
        const FailingMemory memory(1, Shortage::Once);
        return box->Create(2);
    };
    FAILS(create(), E_FAIL, "Create Threads failed");
    EXPECT_EQ(box->Create(2), S_OK);
}

TEST(ConcurrentThreadPool, ThousandsOfPoolsLeaveNothingBehind)
{
    const int rounds = CommandLineNumber("pools", 500);
    const auto makeAndUse = [](int round)
    {
        const PoolPtr pool = MakePool(1 + round % WorkerCount);
        std::atomic<int> next = 0;
        std::atomic<int> sum = 0;
        const auto work = [&](CAbortFlag)
        {
            for (int item; (item = next.fetch_add(1)) < 10;)
                sum += item;
        };
        if (round % 3 != 0) // every third one is destroyed unused
        {
            ASSERT_EQ(RunJob(*pool, work, round % 2 == 0), S_OK);
            ASSERT_EQ(sum, 45);
        }
    };
    for (int round = 0; round < WorkerCount * 6; ++round)
        makeAndUse(round);
    const MemoryInUse before = MeasureMemory();
    for (int round = 0; round < rounds; ++round)
        makeAndUse(round);
    const MemoryInUse after = MeasureMemory();
    EXPECT_EQ(WinThread::LiveCount(), 0);
    EXPECT_LE(after.Heap, before.Heap + 10000);
    EXPECT_LE(after.Process, before.Process + 4000000);
}

TEST(ThreadPool, StatisticsAreOneLineForEachRun)
{
    const auto box = Make<ICommonThreadPoolBox>(CLSID_CommonThreadPoolBox);
    const PoolPtr one = MakePool(1);
    const PoolPtr two = MakePool(2);
    const auto nothing = [](CAbortFlag) {
    };
    const auto abort = [](CAbortFlag flag)
    {
        flag.Raise();
    };
    const DiagnosticsCapture capture;
    RunJob(*two, nothing);
    EXPECT_EQ(box->SetStatistics(1), S_OK);
    RunJob(*one, nothing);
    RunJob(*one, abort);
    RunJob(*two, nothing, 1);
    RunJob(*two, abort);
    EXPECT_EQ(box->SetStatistics(0), S_OK);
    RunJob(*two, nothing);
    const char* const lines[] = {
        "CThreadPool single thread job test finished: \\d+ calls/s",
        "CThreadPool single thread job test aborted: \\d+ calls/s",
        "CThreadPool 2 threads sym job test finished: \\d+ calls/s; \\d+ Wait-Spins",
        "CThreadPool 2 threads asym job test aborted: \\d+ calls/s; \\d+ Unlock-Spins"};
    std::vector<std::string> written = capture.Lines();
    std::erase(written, "CThreadPool::RunSymmetric early break: 2 / 1"); // as it happens
    ASSERT_EQ(written.size(), std::size(lines)) << capture.Text();
    for (std::size_t at = 0; at < written.size(); ++at)
        EXPECT_TRUE(std::regex_match(written[at], std::regex(lines[at]))) << written[at];
}

// --- The box -------------------------------------------------------------------------------------

TEST(ThreadPoolBox, KeepsItsPoolFromBeingDestroyed)
{
    const auto box = Make<ICommonThreadPoolBox>(CLSID_CommonThreadPoolBox);
    EXPECT_EQ(box->Create(3), S_OK);
    IThreadPool* pool = nullptr;
    EXPECT_EQ(box->GetThreadPool(&pool), S_OK);
    FAILS(pool->Release(), E_UNEXPECTED, "IThreadPool::Release forbidden");
    {
        const DiagnosticsCapture capture;
        EXPECT_EQ(pool->DeletingDestructor(1), pool);
        EXPECT_EQ(capture.CountLinesWith("IThreadPool::Release forbidden"), 1u);
    }
    FAILS(box->Create(3), E_ACCESSDENIED, "Already created");
    FAILS(box->GetThreadPool(nullptr), E_POINTER, "ppThreadPool");
    EXPECT_EQ(pool->GetThreadCount(), 3);
    std::atomic<int> copies = 0;
    EXPECT_EQ(RunJob(*pool, [&](CAbortFlag) { ++copies; }), S_OK);
    EXPECT_GE(copies, 1);
}

TEST(ConcurrentThreadPool, RacingRequestsForTheProcessesPoolGetOne)
{
    const std::int32_t pools = CThreadPool::LiveCount();
    for (int round = 0; round < 20; ++round)
    {
        const auto box = Singleton<ICommonThreadPoolBox>(CLSID_CommonThreadPoolBox);
        std::array<IThreadPool*, WorkerCount> got = {};
        {
            std::barrier start(WorkerCount);
            std::vector<std::jthread> threads;
            for (IThreadPool*& mine : got)
            {
                threads.emplace_back(
                    [&]
                    {
                        start.arrive_and_wait();
                        EXPECT_EQ(box->GetThreadPool(&mine), S_OK);
                    });
            }
        }
        EXPECT_EQ(CThreadPool::LiveCount(), pools + 1);
        EXPECT_EQ(std::ranges::count(got, got[0]), WorkerCount);
        EXPECT_EQ(SingletonRegistry()->UnregisterObject(CLSID_CommonThreadPoolBox), S_OK);
    }
    EXPECT_EQ(CThreadPool::LiveCount(), pools) << "the pool goes with its box";
}

// --- Threads -------------------------------------------------------------------------------------

struct ReleaseThread
{
    void operator()(IThread* thread) const
    {
        thread->Release();
    }
};
using ThreadPtr = std::unique_ptr<WinThread, ReleaseThread>;

// Counts until it is asked to stop.
class Counter final : public IThreadFunction
{
public:
    void* DeletingDestructor(std::uint32_t flags) override
    {
        return DestroyAsFlagged(this, flags);
    }

    void Run(void* parameter) override
    {
        Parameter = parameter;
        ThreadId = CurrentThreadId();
        while (Stops == 0)
        {
            ++Count;
            std::this_thread::yield();
        }
        HasEnded = true;
    }

    void RequestStop() override
    {
        ++Stops;
    }

    void AwaitProgress() const
    {
        const int before = Count;
        while (Count == before)
            std::this_thread::yield();
    }

    std::atomic<void*> Parameter = nullptr;
    std::atomic<std::uint32_t> ThreadId = 0;
    std::atomic<int> Count = 0;
    std::atomic<int> Stops = 0;
    std::atomic<bool> HasEnded = false;
};

TEST(ConcurrentThread, GoesThroughItsStatesAndCanBeStartedAgain)
{
    const ThreadPtr thread(WinThread::Create());
    EXPECT_EQ(thread->Stop(), 0);
    EXPECT_EQ(thread->GetState(), ThreadNotStarted);
    thread->Wait(); // for nothing
    EXPECT_EQ(thread->Start(nullptr, nullptr), 0);
    for (int round = 0; round < 20; ++round)
    {
        Counter counter;
        ASSERT_EQ(thread->Start(&counter, &round), 1);
        EXPECT_EQ(thread->Start(&counter, &round), 0) << "it runs already";
        EXPECT_EQ(thread->GetState(), ThreadRunning);
        counter.AwaitProgress();
        EXPECT_EQ(thread->GetThreadId(), counter.ThreadId);
        EXPECT_EQ(counter.Parameter, &round);
        thread->Stop();
        thread->Stop(); // asks no second time
        std::vector<std::jthread> waiting;
        for (int waiter = 0; waiter < WorkerCount; ++waiter)
            waiting.emplace_back([&] { thread->Wait(); });
        waiting.clear();
        EXPECT_EQ(counter.Stops, 1);
        EXPECT_EQ(thread->GetState(), ThreadFinished);
        EXPECT_EQ(thread->Stop(), 1);
    }
}

TEST(ConcurrentThread, StandsStillWhileItIsHeldIfThePlatformCanHoldIt)
{
    Counter counter;
    const ThreadPtr thread(WinThread::Create());
    EXPECT_EQ(thread->Suspend(), 0) << "there is nothing to hold";
    ASSERT_EQ(thread->Start(&counter, nullptr), 1);
    counter.AwaitProgress();
    const bool isHeld = thread->Suspend() != 0;
    EXPECT_EQ(thread->GetState(), isHeld ? ThreadSuspended : ThreadRunning);
    if (isHeld)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(10)); // it may still be on its way
        const int count = counter.Count;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_EQ(counter.Count, count);
    }
    EXPECT_EQ(thread->Resume(), 1);
    EXPECT_EQ(thread->GetState(), ThreadRunning);
    counter.AwaitProgress();
    thread->Suspend();
    thread->Stop(); // reaches a held thread as well
    thread->Wait();
    EXPECT_EQ(counter.Stops, 1);
}

TEST(ConcurrentThread, AFunctionThatOutlivesItsThreadObjectRunsToItsEnd)
{
    Counter counter;
    ThreadPtr thread(WinThread::Create());
    ASSERT_EQ(thread->Start(&counter, nullptr), 1);
    counter.AwaitProgress();
    thread.reset();
    EXPECT_EQ(WinThread::LiveCount(), 0);
    counter.AwaitProgress();
    counter.RequestStop();
    while (!counter.HasEnded)
        std::this_thread::yield();
}

TEST(ConcurrentThread, WhatAFunctionThrowsIsReported)
{
    const DiagnosticsCapture capture;
    CThreadJob job([](CAbortFlag) { OSSIRA_THROW(E_PENDING, "from a thread"); });
    const ThreadPtr thread(WinThread::Create());
    ASSERT_EQ(thread->Start(&job, nullptr), 1);
    thread->Wait();
    EXPECT_EQ(capture.CountLinesWith("0x8000000a from a thread"), 1u) << capture.Text();
}

// --- The binary contract -------------------------------------------------------------------------

// The interfaces as a compiler of another make sees them.
struct RawFunction
{
    const struct Slots
    {
        void* (*Delete)(RawFunction*, std::uint32_t);
        void (*Run)(RawFunction*, void*);
        void (*RequestStop)(RawFunction*);
    } * Table;
};

struct RawPool
{
    const struct Slots
    {
        void* (*Delete)(RawPool*, std::uint32_t);
        Result (*Release)(RawPool*);
        Result (*Run)(RawPool*, RawFunction*, std::uint8_t*, std::uint8_t, const char*);
        std::int32_t (*GetThreadCount)(RawPool*);
    } * Table;
};

struct RawThread
{
    const struct Slots
    {
        void* (*Delete)(RawThread*, std::uint32_t);
        void (*Release)(RawThread*);
        std::uint8_t (*Start)(RawThread*, RawFunction*, void*);
        std::uint8_t (*Stop)(RawThread*);
        std::int32_t (*GetState)(RawThread*);
        std::uint8_t (*Suspend)(RawThread*);
        std::uint8_t (*Resume)(RawThread*);
        void (*Wait)(RawThread*);
        std::uint32_t (*GetThreadId)(RawThread*);
    } * Table;
};

template <class Raw, class Interface>
Raw* AsRaw(Interface* object)
{
    return std::bit_cast<Raw*>(object);
}

TEST(ThreadInterfaces, HaveOneSlotForEachOperation)
{
    Counter counter;
    auto* const function = AsRaw<RawFunction>(static_cast<IThreadFunction*>(&counter));
    function->Table->RequestStop(function);
    EXPECT_EQ(counter.Stops, 1);
    function->Table->Run(function, &counter);
    EXPECT_EQ(counter.Parameter, &counter);

    auto* pool = AsRaw<RawPool>(static_cast<IThreadPool*>(CreateThreadPool(1)));
    std::uint8_t flag = 1;
    EXPECT_EQ(pool->Table->Run(pool, function, &flag, 1, "raw"), S_OK);
    EXPECT_EQ(counter.Parameter, &flag);
    EXPECT_EQ(pool->Table->GetThreadCount(pool), 1);
    EXPECT_EQ(pool->Table->Release(pool), S_OK);
    pool = AsRaw<RawPool>(static_cast<IThreadPool*>(CreateThreadPool(2)));
    EXPECT_EQ(pool->Table->Delete(pool, 1), pool);
    EXPECT_EQ(CThreadPool::LiveCount(), 0);

    auto* thread = AsRaw<RawThread>(static_cast<IThread*>(WinThread::Create()));
    EXPECT_EQ(thread->Table->GetState(thread), ThreadNotStarted);
    EXPECT_EQ(thread->Table->GetThreadId(thread), 0u);
    EXPECT_EQ(thread->Table->Start(thread, function, nullptr), 1);
    EXPECT_EQ(thread->Table->Resume(thread), 1);
    thread->Table->Wait(thread);
    EXPECT_EQ(thread->Table->GetState(thread), ThreadFinished);
    EXPECT_EQ(thread->Table->GetThreadId(thread), counter.ThreadId);
    EXPECT_EQ(thread->Table->Suspend(thread), 0);
    EXPECT_EQ(thread->Table->Stop(thread), 1);
    thread->Table->Release(thread);
    thread = AsRaw<RawThread>(static_cast<IThread*>(WinThread::Create()));
    EXPECT_EQ(thread->Table->Delete(thread, 1), thread);
    EXPECT_EQ(WinThread::LiveCount(), 0);
}

} // namespace

} // namespace Tavrik::Ossira
