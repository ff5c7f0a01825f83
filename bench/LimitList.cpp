// The limit of lists.
#include "Limits.h"
#include "SpinWord.h"

#include <mutex>

namespace Tavrik::Ossira::tBench
{

namespace
{

class VectorList final : public LimitList
{
public:
    void Append(IUnknown* item) override
    {
        mItems.emplace_back(item);
    }

    Result Get(std::size_t index, void** out) override
    {
        if (index >= mItems.size())
            return E_INVALIDARG;
        *out = ObjectPtr(mItems[index]).Detach();
        return S_OK;
    }

    void Rewind() override
    {
        mAt = 0;
    }

    Result Next(void** out) override
    {
        if (mAt == mItems.size())
            return S_FALSE;
        *out = ObjectPtr(mItems[mAt++]).Detach();
        return S_OK;
    }

private:
    std::vector<ObjectPtr<IUnknown>> mItems;
    std::size_t mAt = 0;
};

class GuardedList final : public LimitList
{
public:
    void Append(IUnknown* item) override
    {
        ObjectPtr<IUnknown> identity;
        item->QueryInterface(IID_IUnknown, identity.PutVoid());
        const std::lock_guard guard(mLock);
        mItems.push_back(std::move(identity));
    }

    Result Get(std::size_t index, void** out) override
    {
        const std::lock_guard guard(mLock);
        return index < mItems.size() ? mItems[index]->QueryInterface(IID_IValue, out)
                                     : E_INVALIDARG;
    }

    void Rewind() override
    {
        const std::lock_guard guard(mLock);
        mNext = 0;
    }

    Result Next(void** out) override
    {
        const Result stepped = Step();
        return stepped == S_OK ? Current(out) : stepped;
    }

private:
    // Not inline, as operations of an interface are not.

    [[gnu::noinline]] Result Current(void** out)
    {
        const std::lock_guard guard(mLock);
        return mItems[mNext - 1]->QueryInterface(IID_IValue, out);
    }

    [[gnu::noinline]] Result Step()
    {
        const std::lock_guard guard(mLock);
        if (mNext == mItems.size())
            return S_FALSE;
        ++mNext;
        return S_OK;
    }

    SpinWord mLock;
    std::vector<ObjectPtr<IUnknown>> mItems;
    std::size_t mNext = 0;
};

} // namespace

std::unique_ptr<LimitList> MakeLimitList()
{
    return std::make_unique<VectorList>();
}

std::unique_ptr<LimitList> MakeListByHand()
{
    return std::make_unique<GuardedList>();
}

} // namespace Tavrik::Ossira::tBench
