// A reference count as small as one can be: born at 1, counted atomically, and at 0 the object is
// destroyed as what it is, without asking its table of virtual operations for a destructor.
#pragma once

#include "OssiraBase.h"

#include <atomic>

namespace Tavrik::Ossira::tBench
{

template <class Object, class Interface>
class LimitCount : public Interface
{
public:
    LimitCount() = default;
    LimitCount(const LimitCount&) = delete;
    LimitCount& operator=(const LimitCount&) = delete;

    Result QueryInterface(const IID& iid, void** out) override
    {
        if (!SameGuid(iid, Interface::Iid) && !SameGuid(iid, IID_IUnknown))
        {
            *out = nullptr;
            return E_NOINTERFACE;
        }
        *out = this;
        LimitCount::AddRef();
        return S_OK;
    }

    std::uint32_t AddRef() override
    {
        return mCount.fetch_add(1, std::memory_order_relaxed) + 1;
    }

    std::uint32_t Release() override
    {
        const std::uint32_t count = mCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (count == 0)
            delete static_cast<Object*>(this);
        return count;
    }

protected:
    ~LimitCount() = default;

private:
    std::atomic<std::uint32_t> mCount = 1;
};

} // namespace Tavrik::Ossira::tBench
