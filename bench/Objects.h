// The objects that the collections hold, and the keys and indices by which they are asked.
#pragma once

#include "Limits.h"

#include <array>
#include <atomic>
#include <bit>

namespace Tavrik::Ossira::tBench
{

using Objects = std::vector<ObjectPtr<IUnknown>>;

using Keys = std::vector<GUID>;

// In an order without pattern, and the same ones each time.
[[nodiscard]] Keys MakeKeys(std::size_t count);
[[nodiscard]] Keys Shuffled(Keys keys);
[[nodiscard]] std::vector<std::int32_t> ShuffledIndices(std::size_t count);

struct GuidHash
{
    std::size_t operator()(const GUID& key) const noexcept
    {
        const auto halves = std::bit_cast<std::array<std::uint64_t, 2>>(key);
        return halves[0] ^ halves[1];
    }
};

struct GuidEqual
{
    bool operator()(const GUID& a, const GUID& b) const noexcept
    {
        return SameGuid(a, b);
    }
};

// Values of the runtime, and counted objects that hold nothing.
[[nodiscard]] Objects MakeObjects(std::size_t count);
[[nodiscard]] Objects MakeSmallObjects(std::size_t count);

// Greeters of the sample module.
[[nodiscard]] Objects MakeSampleObjects(std::size_t count);

// What peers without objects of their own create, count and hold: as small as an object of theirs
// would be that holds a number.
class CPeerObject
{
public:
    CPeerObject() = default;
    CPeerObject(const CPeerObject&) = delete;
    CPeerObject& operator=(const CPeerObject&) = delete;
    virtual ~CPeerObject() = default;

    void Take() noexcept
    {
        mCount.fetch_add(1, std::memory_order_relaxed);
    }

    void Drop() noexcept
    {
        if (mCount.fetch_sub(1, std::memory_order_acq_rel) == 1)
            delete this;
    }

private:
    std::atomic<std::uint32_t> mCount = 0;
    std::int32_t mNumber = 0;
};

// An intrusive pointer, whose operations the compiler sees.
class CPeerPointer
{
public:
    CPeerPointer() = default;

    explicit CPeerPointer(CPeerObject* object) noexcept : mObject(object)
    {
        mObject->Take();
    }

    CPeerPointer(const CPeerPointer& other) noexcept : mObject(other.mObject)
    {
        if (mObject != nullptr)
            mObject->Take();
    }

    CPeerPointer(CPeerPointer&& other) noexcept : mObject(std::exchange(other.mObject, nullptr))
    {
    }

    CPeerPointer& operator=(CPeerPointer other) noexcept
    {
        std::swap(mObject, other.mObject);
        return *this;
    }

    ~CPeerPointer()
    {
        if (mObject != nullptr)
            mObject->Drop();
    }

private:
    CPeerObject* mObject = nullptr;
};

} // namespace Tavrik::Ossira::tBench
