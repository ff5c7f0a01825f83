// Memory blocks that modules exchange: aligned, of at most 99,999,999 bytes, counted by the
// allocator that they come from.
#pragma once

#include "OssiraBase.h"

namespace Tavrik::Ossira
{

inline constexpr IID IID_ICommonMemoryAllocator32 = {
    0x536B07AE, 0x589F, 0x4C5B, {0xA3, 0x52, 0x08, 0x5E, 0x4B, 0xF4, 0x75, 0x0B}};
inline constexpr IID IID_IMemorySegment32 = {
    0x43511E5D, 0xDCC3, 0x4F06, {0x87, 0x5C, 0xA7, 0xFE, 0x95, 0x77, 0x24, 0xA3}};

// For `flags` of the allocator: the block is filled with zeros.
inline constexpr std::uint32_t MEMORY_ZEROED = 0x01;

// Hands out memory, as bare blocks or as segments. Any thread may call; allocators are independent
// of each other. What is outstanding when an allocator is destroyed is reported as a leak.
//
// A block has four values: the raw address and size are what was allocated and what is given back,
// the address and usable size what to work with. The address is a multiple of the smallest power of
// two not below the alignment asked for, the usable size the size asked for rounded up to a
// multiple of it.
struct ICommonMemoryAllocator32 : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_ICommonMemoryAllocator32;

    // Copies the raw bytes and the number of blocks that are outstanding, the highest number there
    // has been, and the raw sizes of the smallest and largest block so far (0 before the first).
    // Every pointer may be null. `S_OK`.
    virtual Result GetStatistics(std::uint64_t* outBytes, std::int32_t* outCount,
                                 std::int32_t* outPeak, std::uint32_t* outMin,
                                 std::uint32_t* outMax) = 0;

    // Gives a bare block back; its raw values must be those that were handed out, and no block is
    // given back twice: neither is checked. Null does nothing. `S_OK`.
    virtual Result FreeBlock(void* rawAddress, std::uint32_t rawSize) = 0;

    // Allocates a block. A size of 0 or above 99,999,999 and an alignment above 1,024 answer
    // `E_INVALIDARG`, null pointers `E_POINTER`, exhausted memory `E_OUTOFMEMORY`.
    virtual Result AllocMemoryBlock(std::uint32_t byteSize, std::uint32_t alignment,
                                    std::uint32_t flags, void** outRawAddress,
                                    std::uint32_t* outRawSize, void** outAddress,
                                    std::uint32_t* outSize) = 0;

    // The same as a new segment; on success *ppv owns a reference. `riid` is `IMemorySegment32`'s,
    // or else `E_INVALIDARG`; null in its place answers `E_POINTER`. A block that cannot be had is
    // tried for a second time.
    virtual Result AllocMemorySegment32(std::uint32_t byteSize, std::uint32_t alignment,
                                        std::uint32_t flags, const IID& riid, void** ppv) = 0;

protected:
    ~ICommonMemoryAllocator32() = default;
};

// A block that is given back to its allocator with the last reference. Any thread may call.
struct IMemorySegment32 : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_IMemorySegment32;

    // Makes a block the segment's own, once, and takes a reference on the allocator that the block
    // came from; an allocator does this with the segments that it hands out. A segment that has a
    // block answers `E_ACCESSDENIED`, a null allocator `E_POINTER`; then the block stays the
    // caller's.
    virtual Result Attach32(ICommonMemoryAllocator32* allocator, void* rawAddress,
                            std::uint32_t rawSize, void* address, std::uint32_t size) = 0;

    // Hands out the allocator with a reference: `S_OK`. A segment without a block answers `S_FALSE`
    // and null; a null pointer `E_POINTER`.
    virtual Result GetAllocator32(ICommonMemoryAllocator32** ppAllocator) = 0;

    // The block's address and usable size; null and 0 without a block.
    virtual void* GetAddress() = 0;
    virtual std::uint32_t GetSize() = 0;

protected:
    ~IMemorySegment32() = default;
};

} // namespace Tavrik::Ossira
