// The limit of lists.
#include "Limits.h"

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

} // namespace

std::unique_ptr<LimitList> MakeLimitList()
{
    return std::make_unique<VectorList>();
}

} // namespace Tavrik::Ossira::tBench
