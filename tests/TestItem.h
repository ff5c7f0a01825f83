// An object for others to hold, with what a test wants to happen when it is touched and when it
// dies.
#pragma once

#include "Ossira.h"

#include <functional>

namespace Tavrik::Ossira::tTest
{

class TestItem final : public ITouchModifiedChain
{
public:
    [[nodiscard]] static ObjectPtr<TestItem> New(std::function<void()> onDestruction = [] {})
    {
        const ObjectPtr item(new TestItem);
        item->mOnDestruction = std::move(onDestruction);
        return item;
    }

    Result QueryInterface(const IID& iid, void** out) override
    {
        const bool known = SameGuid(iid, IID_IUnknown) || SameGuid(iid, IID_ITouchModifiedChain);
        *out = known ? this : nullptr;
        return known ? static_cast<Result>(AddRef(), S_OK) : E_NOINTERFACE;
    }

    std::uint32_t AddRef() override
    {
        return ++mCount;
    }

    std::uint32_t Release() override
    {
        const std::uint32_t count = --mCount;
        if (count == 0)
            delete this;
        return count;
    }

    Result Touch() override
    {
        return OnTouch();
    }

    std::function<Result()> OnTouch;

private:
    ~TestItem()
    {
        mOnDestruction();
    }

    std::atomic<std::uint32_t> mCount = 0;
    std::function<void()> mOnDestruction;
};

} // namespace Tavrik::Ossira::tTest
