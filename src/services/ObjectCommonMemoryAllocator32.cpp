// The allocator of blocks that modules exchange. The memory is that of the ordinary allocator; what
// this adds is alignment, which it gets by asking for a little more than is needed, and statistics.
#include "FastCriticalSection.h"
#include "OssiraClasses.h"
#include "OssiraFrame.h"
#include "OssiraMemory.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace Tavrik::Ossira
{

namespace
{

struct CBlock
{
    std::byte* RawAddress = nullptr;
    std::uint32_t RawSize = 0;
    std::byte* Address = nullptr;
    std::uint32_t Size = 0;
};

class T_CommonMemoryAllocator32 : public ICommonMemoryAllocator32,
                                  public CObjectName,
                                  public CObjectIdentity<T_CommonMemoryAllocator32>,
                                  public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = CLSID_CommonMemoryAllocator32;
    static constexpr std::string_view ClassName = "CommonMemoryAllocator32";

    OSSIRA_INTERFACES(ICommonMemoryAllocator32, IObjectName, IObjectIdentity)

    ~T_CommonMemoryAllocator32() override;

    Result GetStatistics(std::uint64_t* outBytes, std::int32_t* outCount, std::int32_t* outPeak,
                         std::uint32_t* outMin, std::uint32_t* outMax) override;
    Result FreeBlock(void* rawAddress, std::uint32_t rawSize) override;
    Result AllocMemoryBlock(std::uint32_t byteSize, std::uint32_t alignment, std::uint32_t flags,
                            void** ppPhyAddr, std::uint32_t* pPhySize, void** ppAddr,
                            std::uint32_t* pSize) override;
    Result AllocMemorySegment32(std::uint32_t byteSize, std::uint32_t alignment,
                                std::uint32_t flags, const IID& riid, void** ppv) override;

private:
    struct Statistics
    {
        std::uint64_t Bytes = 0;
        std::int32_t Count = 0;
        std::int32_t Peak = 0;
        std::uint32_t Min = 0; // 0 before the first block
        std::uint32_t Max = 0;
    };

    static void CheckRequest(std::uint32_t byteSize, std::uint32_t alignment);

    // On success the caller owns the block, which is counted.
    [[nodiscard]] Result AllocBlock(std::uint32_t byteSize, std::uint32_t alignment,
                                    std::uint32_t flags, CBlock& block) noexcept;

    tSystem::CFastCriticalSection mLock;
    Statistics mStatistics OSSIRA_GUARDED_BY(mLock);
};

void T_CommonMemoryAllocator32::CheckRequest(std::uint32_t byteSize, std::uint32_t alignment)
{
    constexpr std::uint32_t sizeLimit = 100000000;
    constexpr std::uint32_t maxAlignment = 1024;
    OSSIRA_CHECK(byteSize < sizeLimit, E_INVALIDARG, "byteSize >= 0 && byteSize < 100000000");
    OSSIRA_CHECK(alignment <= maxAlignment, E_INVALIDARG, "aligment >= 0 && aligment <= 1024");
}

T_CommonMemoryAllocator32::~T_CommonMemoryAllocator32()
{
    if (mStatistics.Count <= 0)
        return;
    const std::uint32_t mask = CurrentLevelMask();
    OSSIRA_PRINT(mask, PRINT_ERROR, "Memory Leak: Outstanding Size: %lld Count: %d\n",
                 static_cast<long long>(mStatistics.Bytes), mStatistics.Count);
}

Result T_CommonMemoryAllocator32::GetStatistics(std::uint64_t* outBytes, std::int32_t* outCount,
                                                std::int32_t* outPeak, std::uint32_t* outMin,
                                                std::uint32_t* outMax)
{
    Statistics statistics;
    {
        const tSystem::CLockGuard guard(mLock);
        statistics = mStatistics;
    }
    const auto copy = [](auto* out, auto value)
    {
        if (out != nullptr)
            *out = value;
    };
    copy(outBytes, statistics.Bytes);
    copy(outCount, statistics.Count);
    copy(outPeak, statistics.Peak);
    copy(outMin, statistics.Min);
    copy(outMax, statistics.Max);
    return S_OK;
}

Result T_CommonMemoryAllocator32::FreeBlock(void* rawAddress, std::uint32_t rawSize)
{
    if (rawAddress == nullptr)
        return S_OK;
    {
        const tSystem::CLockGuard guard(mLock);
        --mStatistics.Count;
        mStatistics.Bytes -= rawSize;
    }
    delete[] static_cast<std::byte*>(rawAddress);
    return S_OK;
}

Result T_CommonMemoryAllocator32::AllocBlock(std::uint32_t byteSize, std::uint32_t alignment,
                                             std::uint32_t flags, CBlock& block) noexcept
{
    const std::uint32_t mask = CurrentLevelMask();
    const std::uint32_t unit = std::bit_ceil(std::max(alignment, 1u));
    const std::uint32_t size = (byteSize + unit - 1) / unit * unit;
    if (size == 0)
    {
        OSSIRA_PRINT(mask, PRINT_WARN, "Alloc Mememory Block with Size = 0\n");
        return E_INVALIDARG;
    }
    const std::uint32_t rawSize = size + unit - 1;
    auto* const raw = new (std::nothrow) std::byte[rawSize];
    if (raw == nullptr)
    {
        OSSIRA_PRINT(mask, PRINT_ERROR, "Alloc Mememory Block failed: Size: %d\n",
                     static_cast<std::int32_t>(rawSize));
        return E_OUTOFMEMORY;
    }

    const std::size_t beyondUnit = reinterpret_cast<std::uintptr_t>(raw) % unit;
    std::byte* const address = beyondUnit == 0 ? raw : raw + (unit - beyondUnit);
    block = {raw, rawSize, address, size};
    if ((flags & MEMORY_ZEROED) != 0)
        std::memset(address, 0, size);

    const tSystem::CLockGuard guard(mLock);
    ++mStatistics.Count;
    mStatistics.Peak = std::max(mStatistics.Peak, mStatistics.Count);
    mStatistics.Bytes += rawSize;
    mStatistics.Min = mStatistics.Min == 0 ? rawSize : std::min(mStatistics.Min, rawSize);
    mStatistics.Max = std::max(mStatistics.Max, rawSize);
    return S_OK;
}

Result T_CommonMemoryAllocator32::AllocMemoryBlock(std::uint32_t byteSize, std::uint32_t alignment,
                                                   std::uint32_t flags, void** ppPhyAddr,
                                                   std::uint32_t* pPhySize, void** ppAddr,
                                                   std::uint32_t* pSize)
try
{
    OSSIRA_CHECK(
        ppPhyAddr != nullptr && pPhySize != nullptr && ppAddr != nullptr && pSize != nullptr,
        E_POINTER, "ppPhyAddr != NULL && pPhySize != NULL && ppAddr != NULL && pSize != NULL");
    CheckRequest(byteSize, alignment);
    CBlock block;
    if (const Result result = AllocBlock(byteSize, alignment, flags, block); Failed(result))
        return result; // its line is written
    *ppPhyAddr = block.RawAddress;
    *pPhySize = block.RawSize;
    *ppAddr = block.Address;
    *pSize = block.Size;
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_CommonMemoryAllocator32::AllocMemorySegment32(std::uint32_t byteSize,
                                                       std::uint32_t alignment, std::uint32_t flags,
                                                       const IID& riid, void** ppv)
try
{
    OSSIRA_CHECK_POINTER(ppv);
    CheckRequest(byteSize, alignment);
    OSSIRA_CHECK_REFERENCE(riid);
    OSSIRA_CHECK(SameGuid(riid, IID_IMemorySegment32), E_INVALIDARG,
                 "riid == IID_IMemorySegment32");
    ObjectPtr<IMemorySegment32> segment;
    OSSIRA_CHECK_CALL_TWICE(CreateObject(CLSID_CommonMemorySegment32, segment),
                            "CreateCommonMemorySegment32");
    CBlock block;
    OSSIRA_CHECK_CALL_TWICE(AllocBlock(byteSize, alignment, flags, block), "AllocBlock");
    OSSIRA_CHECK_CALL_TWICE( // a segment takes its first block whatever happens
        segment->Attach32(this, block.RawAddress, block.RawSize, block.Address, block.Size),
        "Segm->Attach32()");
    *ppv = segment.Detach();
    return S_OK;
}
OSSIRA_CATCH_RETURN

} // namespace

OSSIRA_CLASS(T_CommonMemoryAllocator32, "CommonMemoryAllocator32")

} // namespace Tavrik::Ossira
