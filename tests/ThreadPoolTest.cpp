// The thread pool, its box and the threads it is made of.
#include "threads/ThreadPool.h"
#include "FailingMemory.h"
#include "OssiraCheck.h"
#include "ServiceTools.h"

#include <algorithm>
#include <regex>
#include <thread>

namespace Tavrik::Ossira
{

using namespace tTest;
using namespace tSystem::tThreads;

namespace
{

using PoolPtr = std::unique_ptr<CThreadPool>;

template <class Work>
Result RunJob(IThreadPool& pool, bool symmetric, Work work, std::uint8_t* abortFlag = nullptr)
{
    CThreadJob job(work);
    return pool.Run(&job, abortFlag, symmetric, "job");
}

// A job of ten items, each of which must be done once.
void DoItems(IThreadPool& pool, bool symmetric)
{
    std::uint8_t done[10] = {};
    std::atomic<std::size_t> next = 0;
    const auto work = [&](CAbortFlag)
    {
        for (std::size_t item; (item = next.fetch_add(1)) < std::size(done);)
            ++done[item];
    };
    ASSERT_EQ(RunJob(pool, symmetric, work), S_OK);
    ASSERT_EQ(std::ranges::count(done, 1), 10);
}

void Raise(CAbortFlag abort)
{
    abort.Raise();
}

// --- Runs ----------------------------------------------------------------------------------------

TEST(ConcurrentThreadPool, EveryItemIsDoneOnceWhileWorkersFallAsleep)
{
    for (const std::int32_t count : {1, 2, 8, 64})
    {
        const PoolPtr pool(CreateThreadPool(count));
        for (int round = 0; round < 400; ++round)
        {
            ASSERT_NO_FATAL_FAILURE(DoItems(*pool, round % 2 == 0));
            std::this_thread::sleep_for(std::chrono::microseconds(round % 120));
        }
    }
}

TEST(ConcurrentThreadPool, EveryWorkerAndTheCallerRunACopyAndAnyOfThemMayAbort)
{
    struct
    {
        void (*Act)(CAbortFlag);
        std::string Code; // of what it throws
    } const cases[] = {{[](CAbortFlag) {}, ""},
                       {Raise, ""},
                       {[](CAbortFlag) { OSSIRA_THROW(E_ACCESSDENIED, ""); }, "0x80070005"},
                       {[](CAbortFlag) { throw static_cast<IException*>(nullptr); }, "0x8007000E"},
                       {[](CAbortFlag) { throw std::bad_alloc(); }, "0x8007000E"},
                       {[](CAbortFlag) { throw 42; }, "0x8000FFFF"}};
    for (const std::int32_t workers : {0, 8})
    {
        const PoolPtr pool(CreateThreadPool(std::max(workers, 1)));
        for (std::size_t number = 0; number < 2 * std::size(cases); ++number)
        {
            const auto& [act, code] = cases[number / 2];
            const DiagnosticsCapture capture;
            std::atomic<int> missing = workers + 1;
            std::atomic<int> copies[9] = {}; // of the caller and of each worker
            std::uint8_t flag = 1;           // left over from a former run
            const auto work = [&, act = act](CAbortFlag abort)
            {
                EXPECT_FALSE(abort.IsRaised());
                ++copies[pool->CurrentWorker() + 1];
                Meet(missing);
                act(abort);
            };
            EXPECT_EQ(RunJob(*pool, number % 2 == 0, work, &flag), number < 2 ? S_OK : -1);
            EXPECT_EQ(flag, number >= 2);
            for (std::int32_t worker = -1; worker < workers; ++worker)
            {
                EXPECT_EQ(copies[worker + 1], 1);
                EXPECT_EQ(capture.CountLinesWith("\aCThreadPool::CMessage::Run Thread:(" +
                                                 std::to_string(worker) +
                                                 ") - Exception for job: Code: " + code),
                          code.empty() ? 0u : 1u);
            }
        }
    }
}

TEST(ConcurrentThreadPool, ARaisedFlagKeepsCopiesFromStarting)
{
    const PoolPtr pool(CreateThreadPool(2));
    std::atomic<int> starting = 3, leaving = 3, calls = 0;
    const auto raise = [&](CAbortFlag abort)
    {
        ++calls;
        abort.Raise();
        Meet(leaving);
    };
    const auto outer = [&](CAbortFlag)
    {
        Meet(starting);
        if (pool->CurrentWorker() >= 0)
            Meet(leaving);
        else // while both workers are kept
            EXPECT_EQ(RunJob(*pool, false, raise), -1);
    };
    EXPECT_EQ(RunJob(*pool, false, outer), S_OK);
    EXPECT_EQ(calls, 1);
}

TEST(ConcurrentThreadPool, AWorkerThatWaitsHelpsTheOneThatItWaitsFor)
{
    const PoolPtr pool(CreateThreadPool(2));
    for (const bool symmetric : {false, true})
    {
        std::atomic<int> beginning = 2, helping = 2;
        std::atomic<bool> isOver = false;
        const auto wait = [&](CAbortFlag)
        {
            Meet(beginning);
            if (pool->CurrentWorker() == 0)
                return;
            EXPECT_EQ(RunJob(*pool, true, [&](CAbortFlag) { Meet(helping); }), S_OK);
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            isOver = true;
        };
        const auto outer = [&](CAbortFlag)
        {
            EXPECT_TRUE(pool->CurrentWorker() != 0 ||
                        (RunJob(*pool, symmetric, wait) == S_OK && isOver));
        };
        EXPECT_EQ(RunJob(*pool, false, outer), S_OK);
    }
}

TEST(ThreadPool, StatisticsAreOneLineForEachRun)
{
    const auto box = Make<ICommonThreadPoolBox>(CLSID_CommonThreadPoolBox);
    const PoolPtr one(CreateThreadPool(1)), two(CreateThreadPool(2));
    const DiagnosticsCapture capture;
    EXPECT_EQ(box->SetStatistics(1), S_OK);
    DoItems(*one, true);
    for (const bool symmetric : {true, false})
    {
        std::atomic<int> missing = 3;
        const auto keepCallerWaiting = [&](CAbortFlag abort)
        {
            Meet(missing);
            if (!symmetric)
                abort.Raise();
            std::this_thread::sleep_for(std::chrono::milliseconds(9 + 9 * two->CurrentWorker()));
        };
        RunJob(*two, symmetric, keepCallerWaiting);
    }
    EXPECT_EQ(box->SetStatistics(0), S_OK);
    DoItems(*two, true);
    const std::regex variable("[0-9]+ (?=calls)|[1-9][0-9]* (?=[WU])");
    EXPECT_EQ(std::regex_replace(capture.Text(), variable, ""),
              "CThreadPool single thread job job finished: calls/s\n"
              "CThreadPool 2 threads sym job job finished: calls/s; Wait-Spins\n"
              "CThreadPool 2 threads asym job job aborted: calls/s; Unlock-Spins\n");

    // There is no work left before all workers were told of it.
    const PoolPtr many(CreateThreadPool(64));
    bool isTold = false;
    EXPECT_EQ(box->SetStatistics(1), S_OK);
    for (int round = 0; round < 1000 && !isTold; ++round)
    {
        const DiagnosticsCapture lines;
        RunJob(*many, true, [](CAbortFlag) {});
        isTold = std::regex_search(lines.Text(),
                                   std::regex("RunSymmetric early break: 64 / [1-9][0-9]?\n"));
    }
    EXPECT_EQ(box->SetStatistics(0), S_OK);
    EXPECT_TRUE(isTold);
}

// --- Pools ---------------------------------------------------------------------------------------

TEST(ThreadPool, TheNumberOfWorkersIsBounded)
{
    const auto processors = static_cast<std::int32_t>(std::thread::hardware_concurrency());
    for (const std::int32_t asked : {-1, 0, INT32_MIN, 1, 64, 65, 1000000})
    {
        const DiagnosticsCapture capture;
        const PoolPtr pool(CreateThreadPool(asked));
        const std::int32_t wanted = asked < 1 ? std::max(processors - 1, 1) : asked;
        EXPECT_EQ(pool->GetThreadCount(), std::min(wanted, 64));
        EXPECT_EQ(capture.CountLinesWith("\aCThreadPool Warn too many threads needed: " +
                                         std::to_string(asked) + " but 64 now using"),
                  asked > 64 ? 1u : 0u);
    }
}

TEST(ConcurrentThreadPoolBox, MayGoWithAJobOfItsOwnPoolThousandsOfTimesAndLeavesNothing)
{
    const std::thread::id caller = std::this_thread::get_id();
    MemoryInUse before;
    for (int round = 0; round < 2100; ++round)
    {
        if (round == 100)
            before = MeasureMemory();
        const bool onWorker = round % 2 == 0;
        auto box = Make<ICommonThreadPoolBox>(CLSID_CommonThreadPoolBox);
        IThreadPool* pool = nullptr;
        EXPECT_TRUE(box->Create(2 + round % 3) == S_OK && box->GetThreadPool(&pool) == S_OK);
        std::atomic<int> ended = 0;
        const auto work = [&](CAbortFlag)
        {
            const bool isCaller = std::this_thread::get_id() == caller;
            if (onWorker != isCaller && ++ended == 1)
                box.Reset();
            while (!onWorker && !isCaller && ended == 0) // else the caller finds nothing left to do
                std::this_thread::yield();
        };
        EXPECT_EQ(RunJob(*pool, !onWorker && round % 4 == 1, work), S_OK);
        EXPECT_GE(ended, 1);
        EXPECT_EQ(CThreadPool::LiveCount() + WinThread::LiveCount(), 0);
    }
    EXPECT_LE(MeasureMemory().Heap, before.Heap + 10000);
    EXPECT_LE(MeasureMemory().Process, before.Process + 4000000);
}

TEST(ThreadPool, InACopyOfTheProcessRunsAreTheCallersAlone)
{
    PoolPtr pool(CreateThreadPool(3)), other(CreateThreadPool(2));
    DoItems(*pool, false);
    const auto inCopy = [&]
    {
        std::atomic<int> copies = 0;
        RunJob(*pool, true, [&](CAbortFlag) { ++copies; });
        RunJob(*pool, false, [&](CAbortFlag) { ++copies; });
        const int workers = pool->GetThreadCount();
        pool.reset();
        CThreadPool::EndAllWorkers(); // as unloading does
        other.reset(CreateThreadPool(2));
        std::atomic<int> missing = 3;
        RunJob(*other, false, [&](CAbortFlag) { Meet(missing); }); // by workers of the copy's own
        other.reset();
        return copies * 10 + workers + CThreadPool::LiveCount() + WinThread::LiveCount();
    };
    const std::optional<int> code = ExitCodeInCopy(inCopy);
    if (!code)
        GTEST_SKIP() << "not on this platform";
    EXPECT_EQ(*code, 23);
    DoItems(*pool, false);
    CThreadPool::EndAllWorkers();
    EXPECT_EQ(WinThread::LiveCount(), 0);
    DoItems(*pool, false);
}

TEST(ThreadPoolBox, KeepsItsPoolFromBeingDestroyedByItsSlots)
{
    IThreadPool *const older = CreateThreadPool(1), *const newer = CreateThreadPool(1);
    EXPECT_EQ(older->Release() + newer->Release(), S_OK); // out of the midst of the list
    CThreadPool::EndAllWorkers();
    EXPECT_EQ(CThreadPool::LiveCount(), 0);
    const auto box = Make<ICommonThreadPoolBox>(CLSID_CommonThreadPoolBox);
    EXPECT_EQ(box->Create(3), S_OK);
    IThreadPool* pool = nullptr;
    EXPECT_EQ(box->GetThreadPool(&pool), S_OK);
    FAILS(pool->Release(), E_UNEXPECTED, "IThreadPool::Release forbidden");
    FAILS(pool->DeletingDestructor(1) == pool, 1, "IThreadPool::Release forbidden");
    EXPECT_EQ(pool->GetThreadCount(), 3);
    DoItems(*pool, false);
}

// --- Threads -------------------------------------------------------------------------------------

TEST(ConcurrentThread, EndsByItselfAndIsHeldWhereThePlatformCan)
{
    const std::unique_ptr<WinThread> thread(WinThread::Create());
    CThreadJob nothing([](CAbortFlag) {});
    EXPECT_EQ(thread->GetState(), ThreadNotStarted);
    EXPECT_TRUE(thread->GetThreadId() + thread->Stop() == 0 && WinThread::LiveCount() == 1);
    EXPECT_TRUE(thread->WaitFor(0)) << "there is nothing to wait for";
    EXPECT_EQ(thread->Start(&nothing, nullptr), 1);
    for (int look = 0; thread->GetState() != ThreadFinished && look < 10000; ++look)
        std::this_thread::sleep_for(std::chrono::milliseconds(1)); // nobody waits for it
    EXPECT_EQ(thread->Stop(), 1);

    std::atomic<std::uint32_t> count = 0, ownId = 0;
    std::uint8_t flag = 0;
    CThreadJob counting(
        [&](CAbortFlag abort)
        {
            ownId = tSystem::tThreads::CurrentThreadId();
            while (!abort.IsRaised())
                ++count;
            OSSIRA_THROW(E_FAIL, "thrown by a thread");
        });
    const auto advances = [&]
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        const std::uint32_t before = count;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        return count != before;
    };
    EXPECT_EQ(thread->Start(&counting, &flag), 1);
    EXPECT_EQ(thread->Start(&counting, &flag), 0) << "it runs already";
    const std::uint32_t id = thread->GetThreadId(); // perhaps before it runs
    while (count == 0)
        std::this_thread::yield();
    EXPECT_EQ(id, ownId);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(thread->WaitFor(20));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(19));
    EXPECT_EQ(thread->Resume(), 1);
    EXPECT_EQ(thread->GetState(), ThreadRunning);
    const bool canBeHeld = !tSystem::FileNamesAreBytes; // Windows
    EXPECT_EQ(thread->Suspend(), canBeHeld);
    EXPECT_EQ(thread->GetState(), canBeHeld ? ThreadSuspended : ThreadRunning);
    EXPECT_EQ(advances(), !canBeHeld);
    EXPECT_EQ(thread->Resume(), 1);
    EXPECT_EQ(thread->GetState(), ThreadRunning);
    EXPECT_TRUE(advances());
    EXPECT_EQ(thread->Stop(), 0);
    EXPECT_EQ(thread->Resume(), 1);
    EXPECT_EQ(thread->GetState(), ThreadStopRequested) << "it was not held";
    EXPECT_FALSE(thread->WaitFor(0));
    const DiagnosticsCapture capture;
    std::jthread other([&] { CAbortFlag(&flag).Raise(); });
    EXPECT_TRUE(thread->WaitFor(60000));
    EXPECT_EQ(thread->GetState(), ThreadFinished);
    EXPECT_EQ(capture.CountLinesWith("0x80004005 thrown by a thread: "), 1u);
}

// Whoever frees the memory himself asks for the destruction alone.
TEST(ThreadPool, TheFirstSlotDestroysAndFreesAsItIsAsked)
{
    const auto counted = std::make_shared<int>();
    CThreadJob job([counted](CAbortFlag) {});
    using Job = decltype(job);
    alignas(Job) unsigned char memory[sizeof(Job)];
    for (const bool frees : {false, true})
    {
        auto* const copy = frees ? new Job(job) : new (memory) Job(job);
        IThread* const thread = WinThread::Create();
        IThreadPool* const pool = CreateThreadPool(2);
        EXPECT_EQ(copy->DeletingDestructor(frees), copy);
        EXPECT_EQ(thread->DeletingDestructor(frees), thread);
        EXPECT_EQ(pool->DeletingDestructor(frees), pool);
        EXPECT_EQ(counted.use_count(), 2);
        EXPECT_EQ(CThreadPool::LiveCount() + WinThread::LiveCount(), 0);
        if (!frees)
        {
            ::operator delete(thread);
            ::operator delete(pool, std::align_val_t(alignof(CThreadPool)));
        }
    }
}

} // namespace

} // namespace Tavrik::Ossira
