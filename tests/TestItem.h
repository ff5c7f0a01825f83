// An object for others to hold, with what a test wants to happen when it is asked for an interface,
// when it is touched and when it dies.
#pragma once

#include "Ossira.h"

#include <atomic>
#include <cstring>
#include <functional>

namespace Tavrik::Ossira::tTest
{

// What a test's own object is that lies where the test says: it offers these interfaces, the first
// of which is who it is, and the count of its references does not decide how long it lives.
template <class Interface, class... Others>
class Uncounted : public Interface, public Others...
{
public:
    Uncounted() = default;
    Uncounted(const Uncounted&) = delete;
    Uncounted& operator=(const Uncounted&) = delete;

    Result QueryInterface(const IID& iid, void** out) override
    {
        OnQuery();
        const bool known = SameGuid(iid, IID_IUnknown) || SameGuid(iid, Interface::Iid);
        *out = known ? static_cast<Interface*>(this) : nullptr;
        ((*out = SameGuid(iid, Others::Iid) ? static_cast<Others*>(this) : *out), ...);
        return *out != nullptr ? (AddRef(), S_OK) : E_NOINTERFACE;
    }

    std::uint32_t AddRef() override
    {
        return ++References;
    }

    std::uint32_t Release() override
    {
        return --References;
    }

    std::function<void()> OnQuery = [] {
    };
    std::function<void()> OnCall = [] {
    };
    std::atomic<std::uint32_t> References = 0;

protected:
    ~Uncounted() = default;
};

class TestItem final : public Uncounted<ITouchModifiedChain>
{
public:
    [[nodiscard]] static ObjectPtr<TestItem> New(std::function<void()> onDestruction = [] {})
    {
        const ObjectPtr item(new TestItem);
        item->mOnDestruction = std::move(onDestruction);
        return item;
    }

    std::uint32_t Release() override
    {
        const std::uint32_t count = --References;
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

    std::function<void()> mOnDestruction;
};

// A value that is none of the runtime's: a number of four bytes.
class TestValue final : public Uncounted<IValue>
{
public:
    Result GetValue(const GUID&, void* data, std::int32_t) override
    {
        OnCall();
        if (Failures > 0)
            return --Failures % 2 == 0 ? E_FAIL : E_INVALIDARG;
        if (data != nullptr)
            std::memcpy(data, &Number, sizeof Number);
        return sizeof Number;
    }

    Result SetValue(const GUID&, const void* data, std::int32_t) override
    {
        OnCall();
        std::memcpy(&Number, data, sizeof Number);
        return S_OK;
    }

    Result GetType(GUID* type) override
    {
        OnCall();
        *type = DATATYPE_SINT32;
        return S_OK;
    }

    std::int32_t Number = 0;
    int Failures = 0; // so many calls for the datum fail, as while somebody writes
};

} // namespace Tavrik::Ossira::tTest
