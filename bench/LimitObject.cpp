// The limits of references, interface requests and creation.
#include "LimitCount.h"
#include "Limits.h"
#include "OssiraObject.h"

#include <array>
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

} // namespace

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
