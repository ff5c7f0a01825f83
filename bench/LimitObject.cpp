// The limits of references, interface requests and creation.
#include "LimitCount.h"
#include "Limits.h"
#include "Objects.h"
#include "OssiraClasses.h"
#include "OssiraObject.h"
#include "SpinWord.h"

#include <array>
#include <mutex>
#include <new>

namespace Tavrik::Ossira::tBench
{

namespace
{

class LimitObject final : public LimitCount<LimitObject, IUnknown>
{
public:
    Result QueryInterface(const IID& iid, void** out) override
    {
        const auto asked = std::bit_cast<Halves>(iid);
        for (const Halves& known : Table)
        {
            if (known[0] == asked[0] && known[1] == asked[1])
            {
                *out = this;
                LimitCount::AddRef();
                return S_OK;
            }
        }
        *out = nullptr;
        return E_NOINTERFACE;
    }

private:
    using Halves = std::array<std::uint64_t, 2>;

    static constexpr std::array Table = {
        std::bit_cast<Halves>(IID_IValue),          std::bit_cast<Halves>(IID_IObjectName),
        std::bit_cast<Halves>(IID_IObjectIdentity), std::bit_cast<Halves>(IID_IComparable),
        std::bit_cast<Halves>(IID_ICloneable),      std::bit_cast<Halves>(IID_IUnknown)};
};

constinit std::atomic<std::uint32_t> gOpenCount = 0;

class LimitCreated final : public LimitCount<LimitCreated, IUnknown>
{
public:
    LimitCreated() noexcept
    {
        gOpenCount.fetch_add(1, std::memory_order_relaxed);
    }

    ~LimitCreated()
    {
        gOpenCount.fetch_sub(1, std::memory_order_release);
    }

    static void* operator new(std::size_t, std::size_t size)
    {
        return ::operator new(size);
    }

    static void operator delete(void* object)
    {
        ::operator delete(object);
    }

    static void operator delete(void* object, std::size_t)
    {
        ::operator delete(object);
    }
};

// Memory of objects that are gone, kept for the next ones. Any thread may take, give back or empty
// it, and births and deaths are counted in the same step.
class CKeptMemory
{
public:
    [[nodiscard]] void* Take(std::size_t size)
    {
        const std::lock_guard guard(mLock);
        ++mAlive;
        return mFirst != nullptr ? std::exchange(mFirst, *static_cast<void**>(mFirst))
                                 : ::operator new(size);
    }

    void Give(void* memory) noexcept
    {
        const std::lock_guard guard(mLock);
        --mAlive;
        *static_cast<void**>(memory) = std::exchange(mFirst, memory);
    }

private:
    SpinWord mLock;
    std::size_t mAlive = 0;
    void* mFirst = nullptr;
};

constinit CKeptMemory gKept;

// The further interfaces of an object.
template <int>
class FurtherInterface
{
public:
    virtual Result Operation()
    {
        return S_OK;
    }

protected:
    ~FurtherInterface() = default;
};

// As many tables of operations and fields as a value has.
class CMadeByHand final : public LimitCount<CMadeByHand, IUnknown>,
                          public FurtherInterface<0>,
                          public FurtherInterface<1>,
                          public FurtherInterface<2>,
                          public FurtherInterface<3>
{
public:
    static Result Make(const IID& iid, void** out)
    try
    {
        auto* const object = new CMadeByHand;
        const Result result = object->QueryInterface(iid, out);
        object->Release();
        return result;
    }
    catch (const std::bad_alloc&)
    {
        return E_OUTOFMEMORY;
    }

    static void* operator new(std::size_t size)
    {
        return gKept.Take(size);
    }

    static void operator delete(void* object)
    {
        gKept.Give(object);
    }

private:
    void* mName = nullptr;
    SpinWord mLock;
    std::int32_t mSize = 0;
    GUID mType = GUID_Null;
    void* mData = nullptr;
    unsigned char mInline[16];
};

// Classes by identifier, in a flat table, with the values' among others.
class CClassesByHand
{
public:
    using Maker = Result (*)(const IID& iid, void** out);

    CClassesByHand()
    {
        for (const CLSID& clsid : MakeKeys(27))
            Slot(clsid) = {clsid, nullptr};
        Slot(CLSID_Value) = {CLSID_Value, &CMadeByHand::Make};
    }

    [[nodiscard]] Maker Find(const CLSID& clsid) noexcept
    {
        return Slot(clsid).Make;
    }

private:
    struct Entry
    {
        CLSID ClassId = GUID_Null;
        Maker Make = nullptr;
    };

    // Where an identifier is, or goes.
    [[nodiscard]] Entry& Slot(const CLSID& clsid) noexcept
    {
        std::size_t at = GuidHash()(clsid) % mEntries.size();
        while (!SameGuid(mEntries[at].ClassId, clsid) && !SameGuid(mEntries[at].ClassId, GUID_Null))
            at = (at + 1) % mEntries.size();
        return mEntries[at];
    }

    std::array<Entry, 64> mEntries;
};

} // namespace

Result CreateByHand(const CLSID* clsid, const IID* iid, void** out)
{
    static CClassesByHand classes;
    if (clsid == nullptr || iid == nullptr || out == nullptr)
        return E_POINTER;
    const auto make = classes.Find(*clsid);
    return make != nullptr ? make(*iid, out) : E_NOT_FOUND;
}

ObjectPtr<IUnknown> MakeLimitObject()
{
    return ObjectPtr<IUnknown>::Adopt(new LimitObject);
}

Result CreateLimitObject(std::size_t size, void** out)
{
    *out = static_cast<IUnknown*>(new (size) LimitCreated);
    return S_OK;
}

} // namespace Tavrik::Ossira::tBench
