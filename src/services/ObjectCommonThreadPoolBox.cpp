// The box that owns a thread pool and hands it out. Its users get the pool behind a wrapper that
// refuses to be released, so that none of them destroys what all share.
#include "OssiraClasses.h"
#include "OssiraFrame.h"
#include "OssiraThreads.h"
#include "Platform.h"
#include "threads/ThreadPool.h"

namespace Tavrik::Ossira
{

namespace
{

using tSystem::tThreads::CThreadPool;
using tSystem::tThreads::IThreadFunction;
using tSystem::tThreads::IThreadPool;

// What the box hands out. It is a part of the box.
class CSharedThreadPool final : public IThreadPool
{
public:
    void* DeletingDestructor(std::uint32_t) override
    {
        (void)Release();
        return this;
    }

    Result Release() override
    try
    {
        OSSIRA_THROW(E_UNEXPECTED, "IThreadPool::Release forbidden");
    }
    OSSIRA_CATCH_RETURN

    Result Run(IThreadFunction* function, std::uint8_t* abortFlag, std::uint8_t symmetric,
               const char* name) override
    {
        return mPool->Run(function, abortFlag, symmetric, name);
    }

    std::int32_t GetThreadCount() override
    {
        return mPool->GetThreadCount();
    }

    // Makes the pool: `S_OK`, `E_OUTOFMEMORY`, or `E_FAIL` when there are no threads to be had.
    [[nodiscard]] Result Create(std::int32_t count) noexcept
    {
        Result failure = S_OK;
        mPool.reset(tSystem::tThreads::CreateThreadPool(count, &failure));
        return failure;
    }

private:
    struct ReleasePool
    {
        void operator()(CThreadPool* pool) const
        {
            pool->Release();
        }
    };

    std::unique_ptr<CThreadPool, ReleasePool> mPool;
};

class T_CommonThreadPoolBox : public ICommonThreadPoolBox,
                              public CObjectName,
                              public CObjectIdentity<T_CommonThreadPoolBox>,
                              public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = CLSID_CommonThreadPoolBox;
    static constexpr std::string_view ClassName = "CommonThreadPoolBox";

    OSSIRA_INTERFACES(ICommonThreadPoolBox, IObjectName, IObjectIdentity)

    Result Create(std::int32_t count) override
    try
    {
        const tSystem::CLockGuard guard(mLock);
        OSSIRA_CHECK(!mIsCreated, E_ACCESSDENIED, "Already created");
        CreatePool(count);
        return S_OK;
    }
    OSSIRA_CATCH_RETURN

    Result GetThreadPool(IThreadPool** ppThreadPool) override
    try
    {
        OSSIRA_CHECK_POINTER(ppThreadPool);
        const tSystem::CLockGuard guard(mLock);
        constexpr std::int32_t asManyAsFit = -1;
        if (!mIsCreated)
            CreatePool(asManyAsFit);
        *ppThreadPool = &mPool;
        return S_OK;
    }
    OSSIRA_CATCH_RETURN

    Result SetStatistics(std::uint8_t on) override
    {
        CThreadPool::SwitchStatistics(on != 0);
        return S_OK;
    }

private:
    void CreatePool(std::int32_t count) OSSIRA_UNDER(mLock)
    {
        OSSIRA_CHECK_CALL(mPool.Create(count), "Create Threads failed");
        mIsCreated = true;
    }

    tSystem::CCriticalSection mLock; // held while the pool is made
    bool mIsCreated OSSIRA_GUARDED_BY(mLock) = false;
    CSharedThreadPool mPool;
};

} // namespace

OSSIRA_CLASS(T_CommonThreadPoolBox, "CommonThreadPoolBox")

} // namespace Tavrik::Ossira
