// A memory block with a reference count. It keeps its allocator alive until the block was given
// back, whatever its users do with the allocator.
#include "FastCriticalSection.h"
#include "OssiraClasses.h"
#include "OssiraFrame.h"
#include "OssiraMemory.h"

namespace Tavrik::Ossira
{

namespace
{

class T_CommonMemorySegment32 : public IMemorySegment32,
                                public CObjectName,
                                public CObjectIdentity<T_CommonMemorySegment32>,
                                public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = CLSID_CommonMemorySegment32;
    static constexpr std::string_view ClassName = "CommonMemorySegment32";

    OSSIRA_INTERFACES(IMemorySegment32, IObjectName, IObjectIdentity)

    ~T_CommonMemorySegment32() override
    {
        if (mAllocator)
            mAllocator->FreeBlock(mRawAddress, mRawSize);
    }

    Result Attach32(ICommonMemoryAllocator32* pAllocator, void* rawAddress, std::uint32_t rawSize,
                    void* address, std::uint32_t size) override
    try
    {
        OSSIRA_CHECK_POINTER(pAllocator);
        ObjectPtr<ICommonMemoryAllocator32> allocator(pAllocator);
        OSSIRA_CHECK(TryAttach(allocator, rawAddress, rawSize, address, size), E_ACCESSDENIED,
                     "Allocator already attached");
        return S_OK;
    }
    OSSIRA_CATCH_RETURN

    Result GetAllocator32(ICommonMemoryAllocator32** ppAllocator) override
    try
    {
        OSSIRA_CHECK_POINTER(ppAllocator);
        const tSystem::CLockGuard guard(mLock);
        *ppAllocator = ObjectPtr(mAllocator).Detach();
        return mAllocator ? S_OK : S_FALSE;
    }
    OSSIRA_CATCH_RETURN

    void* GetAddress() override
    {
        const tSystem::CLockGuard guard(mLock);
        return mAddress;
    }

    std::uint32_t GetSize() override
    {
        const tSystem::CLockGuard guard(mLock);
        return mSize;
    }

private:
    // False, and `allocator` still the caller's, when there is one already.
    [[nodiscard]] bool TryAttach(ObjectPtr<ICommonMemoryAllocator32>& allocator, void* rawAddress,
                                 std::uint32_t rawSize, void* address, std::uint32_t size) noexcept
    {
        const tSystem::CLockGuard guard(mLock);
        if (mAllocator)
            return false;
        mAllocator = std::move(allocator);
        mRawAddress = rawAddress;
        mRawSize = rawSize;
        mAddress = address;
        mSize = size;
        return true;
    }

    tSystem::CFastCriticalSection mLock;
    ObjectPtr<ICommonMemoryAllocator32> mAllocator OSSIRA_GUARDED_BY(mLock);
    void* mRawAddress OSSIRA_GUARDED_BY(mLock) = nullptr;
    void* mAddress OSSIRA_GUARDED_BY(mLock) = nullptr;
    std::uint32_t mRawSize OSSIRA_GUARDED_BY(mLock) = 0;
    std::uint32_t mSize OSSIRA_GUARDED_BY(mLock) = 0;
};

} // namespace

OSSIRA_CLASS(T_CommonMemorySegment32, "CommonMemorySegment32")

} // namespace Tavrik::Ossira
