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

// --- Threads -------------------------------------------------------------------------------------

struct ReleaseThread
{
    void operator()(IThread* thread) const
    {
        thread->Release();
    }
};
using ThreadPtr = std::unique_ptr<WinThread, ReleaseThread>;

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

} // namespace

} // namespace Tavrik::Ossira
