// Parallel work: a pool of worker threads that runs one job on all of them at once, in the manner
// of fork and join. The pool that a process shares is the one of the box, asked of the singleton
// registry:
//
//     ObjectPtr<ICommonThreadPoolBox> box;
//     singletons->GetClassObject(CLSID_CommonThreadPoolBox, ICommonThreadPoolBox::Iid, ...);
//     IThreadPool* pool = nullptr;
//     box->GetThreadPool(&pool);
//
//     std::atomic<int> next = 0;
//     CThreadJob job([&](CAbortFlag abort)
//     {
//         for (int item; !abort.IsRaised() && (item = next++) < count;)
//             Work(item);
//     });
//     std::uint8_t abortFlag = 0;
//     pool->Run(&job, &abortFlag, 1, "work");
//
// The interfaces of threads are none of `IUnknown`: what they stand for has one owner. Their slot 0
// stands where a compiler would put a deleting destructor, spelled out because compilers differ in
// how many entries a virtual destructor takes: bit 0 of `flags` frees the memory as well, the
// answer is the object's address.
#pragma once

#include "OssiraBase.h"

#include <atomic>
#include <utility>

namespace Tavrik::tSystem::tThreads
{

using Result = Ossira::Result;

// What a thread runs, or what a pool runs on many of them.
struct IThreadFunction
{
    virtual void* DeletingDestructor(std::uint32_t flags) = 0;

    // The code. As the job of a pool it is called on several threads at once, and `parameter` is
    // the address of the run's abort flag; see `CAbortFlag`. Unlike every other operation it may
    // throw.
    virtual void Run(void* parameter) = 0;

    // Asks a running function to end; for functions of a single thread. A pool tells its jobs by
    // the abort flag.
    virtual void RequestStop() = 0;

protected:
    ~IThreadFunction() = default;
};

// The states of a thread.
inline constexpr std::int32_t ThreadNotStarted = -1;
inline constexpr std::int32_t ThreadRunning = 1;
inline constexpr std::int32_t ThreadStopRequested = 2;
inline constexpr std::int32_t ThreadFinished = 3;
inline constexpr std::int32_t ThreadSuspended = 4;

// One thread of the platform. Answers of one byte are 1 for yes and 0 for no. One thread at a time
// may control it; `GetState` and `GetThreadId` may also be called on the thread itself.
struct IThread
{
    virtual void* DeletingDestructor(std::uint32_t flags) = 0;

    // Destroys the object and frees its memory; the thread should have finished. If it has not
    // within 200 ms it runs on by itself.
    virtual void Release() = 0;

    // Runs the function, which is borrowed until it returns, on a new thread. Refused while the
    // former run has not finished.
    virtual std::uint8_t Start(IThreadFunction* function, void* parameter) = 0;

    // Asks the function to end, once, and does not wait for it. Answers whether it has finished.
    virtual std::uint8_t Stop() = 0;

    virtual std::int32_t GetState() = 0;

    // Holds the running thread where it is; answers whether it is held. A platform that cannot do
    // that soundly from outside always answers 0, and the thread runs on: Linux is one.
    virtual std::uint8_t Suspend() = 0;

    // Lets a held thread go on. Answers 1.
    virtual std::uint8_t Resume() = 0;

    // Returns when the function has returned, at once when none was started.
    virtual void Wait() = 0;

    // The platform's identifier of the thread that was started last; 0 when none was.
    virtual std::uint32_t GetThreadId() = 0;

protected:
    ~IThread() = default;
};

// A pool of 1 to 64 worker threads for one job at a time: several threads that want the same pool
// should take turns.
struct IThreadPool
{
    virtual void* DeletingDestructor(std::uint32_t flags) = 0;

    // Gives the pool up: `S_OK`. Ends the workers, waits for them and frees the pool, at once or,
    // while runs are under way, at the end of the last one, on the thread that asked for that; so a
    // job may give up the pool that it runs on. The pool of a box refuses this, `E_UNEXPECTED`, and
    // slot 0, which does the same when it is to free the memory.
    virtual Result Release() = 0;

    // Runs a job on the workers and on the calling thread, and returns when every copy of it has
    // ended. The job divides the work itself, by taking items from a shared counter for example; a
    // copy that finds no work left is the normal case. A pool of one thread runs the job on the
    // calling thread only.
    //
    // A symmetric run (`symmetric` not 0) is for short jobs: the calling thread keeps its processor
    // while it waits, no further copies are handed out once one has ended, and copies that no
    // worker has begun when the calling thread has done its share are taken back. An asymmetric run
    // hands a copy to every worker, and the calling thread sleeps until they have ended, unless
    // that is within about 100 microseconds.
    //
    // Answers 0, or -1 when the abort flag was raised. `abortFlag` is lowered first; raised by
    // anybody it keeps further copies from starting. It may be null, then the run has a flag of its
    // own. What a job throws raises the flag and is reported; it must not end its thread. A null
    // function answers `E_POINTER`. `name` is for diagnostics lines and may be null.
    //
    // A job may itself call `Run`, of its own pool or of another one, whose jobs may come back to
    // the first. A worker that waits for such a run takes back the copies that nobody has begun,
    // and meanwhile runs those that other runs hand to it, up to eight within each other: hold no
    // lock across `Run` that another job needs.
    //
    // Costs nothing that grows but with the number of workers, and no memory.
    virtual Result Run(IThreadFunction* function, std::uint8_t* abortFlag, std::uint8_t symmetric,
                       const char* name) = 0;

    // The number of workers.
    virtual std::int32_t GetThreadCount() = 0;

protected:
    ~IThreadPool() = default;
};

// --- For those who write jobs --------------------------------------------------------------------

// A run's abort flag, from the parameter of the job's `Run`: a byte that every copy may raise.
class CAbortFlag
{
public:
    explicit CAbortFlag(void* parameter) noexcept : mFlag(static_cast<std::uint8_t*>(parameter))
    {
    }

    [[nodiscard]] bool IsRaised() const noexcept
    {
        return std::atomic_ref(*mFlag).load(std::memory_order_acquire) != 0;
    }

    void Raise() const noexcept
    {
        std::atomic_ref(*mFlag).store(1, std::memory_order_release);
    }

    void Lower() const noexcept
    {
        std::atomic_ref(*mFlag).store(0, std::memory_order_release);
    }

private:
    std::uint8_t* mFlag;
};

// The body of a slot 0.
template <class Object>
void* DestroyAsFlagged(Object* object, std::uint32_t flags) noexcept
{
    constexpr std::uint32_t freeMemory = 1;
    void* const address = object;
    if ((flags & freeMemory) != 0)
        delete object;
    else
        object->~Object();
    return address; // NOLINT(clang-analyzer-cplusplus.NewDelete): to compare with
}

// A job made from whatever can be called with a `CAbortFlag`.
template <class Work>
class CThreadJob final : public IThreadFunction
{
public:
    explicit CThreadJob(Work work) : mWork(std::move(work))
    {
    }

    void* DeletingDestructor(std::uint32_t flags) override
    {
        return DestroyAsFlagged(this, flags);
    }

    void Run(void* parameter) override
    {
        mWork(CAbortFlag(parameter));
    }

    void RequestStop() override
    {
    }

private:
    Work mWork;
};

} // namespace Tavrik::tSystem::tThreads

namespace Tavrik::Ossira
{

inline constexpr IID IID_ICommonThreadPoolBox = {
    0x6CA272F4, 0x3720, 0x4C44, {0x9F, 0xE5, 0xB9, 0xAD, 0x24, 0x79, 0x17, 0x0C}};

// Owns a thread pool and hands it out; the box in the singleton registry owns the process's. Any
// thread may call.
//
// The pool lives as long as the box and the runs that are under way. The last reference on the box
// may be given back anywhere, also by a job; the pool then ends as `IThreadPool::Release` says. A
// module that runs jobs must see to it that they have all returned before it is unloaded. Where the
// runtime is unloaded while a pool lives, its workers are ended and waited for; no job may be
// running then.
//
// In a process that was made by `fork` the pools of the parent have no workers: runs are the
// calling thread's alone, and a pool is given up, and the runtime unloaded, without any wait. A job
// must not return into its pool in a process that it forked itself. As everywhere, locks that other
// threads of the parent held at that moment are never left: unless the forking thread was the only
// one that used the runtime, the child calls nothing of it but what needs no lock, or `exec`.
struct ICommonThreadPoolBox : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_ICommonThreadPoolBox;

    // Makes the pool: `count` workers, 64 at most, or one less than the machine has processors when
    // `count` is less than 1. A pool that is there already answers `E_ACCESSDENIED`, exhausted
    // memory `E_OUTOFMEMORY`, threads that cannot be had `E_FAIL`.
    virtual Result Create(std::int32_t count) = 0;

    // Hands out the pool, borrowed, and makes it first where there is none. Null answers
    // `E_POINTER`, exhausted memory `E_OUTOFMEMORY`, threads that cannot be had `E_FAIL`.
    virtual Result GetThreadPool(tSystem::tThreads::IThreadPool** out) = 0;

    // Switches the statistics of every pool of the process on (not 0) or off, as they are at first:
    // one line for each run, on the platform's debug output. Answers `S_OK`.
    virtual Result SetStatistics(std::uint8_t on) = 0;

protected:
    ~ICommonThreadPoolBox() = default;
};

} // namespace Tavrik::Ossira
