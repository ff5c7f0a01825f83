// The limit of values. Data of any size lies in the object or behind one pointer, as a value's
// does.
#include "LimitCount.h"
#include "Limits.h"
#include "SpinWord.h"

#include <cstring>
#include <mutex>

namespace Tavrik::Ossira::tBench
{

namespace
{

// As everybody would who knows that most data are numbers.
void Copy(void* to, const void* from, std::int32_t size) noexcept
{
    if (size == 4)
        std::memcpy(to, from, 4);
    else if (size == 8)
        std::memcpy(to, from, 8);
    else
        std::memcpy(to, from, static_cast<std::size_t>(size));
}

class LimitValue final : public LimitCount<LimitValue, IValue>
{
public:
    Result GetValue(const GUID& type, void* data, std::int32_t size) override
    {
        const std::lock_guard guard(mLock);
        if (!SameGuid(type, mType) || size != mSize)
            return E_INVALIDARG;
        Copy(data, mData, size);
        return size;
    }

    Result SetValue(const GUID& type, const void* data, std::int32_t size) override
    {
        const std::lock_guard guard(mLock);
        if (size != mSize)
        {
            mHeap.reset(size > 16 ? new unsigned char[static_cast<std::size_t>(size)] : nullptr);
            mData = size > 16 ? mHeap.get() : mInline;
            mSize = size;
        }
        mType = type;
        Copy(mData, data, size);
        return S_OK;
    }

    Result GetType(GUID* type) override
    {
        const std::lock_guard guard(mLock);
        *type = mType;
        return S_OK;
    }

private:
    SpinWord mLock;
    std::int32_t mSize = 0;
    GUID mType = GUID_Null;
    unsigned char* mData = mInline;
    std::unique_ptr<unsigned char[]> mHeap;
    unsigned char mInline[16];
};

} // namespace

ObjectPtr<IValue> MakeLimitValue()
{
    return ObjectPtr<IValue>::Adopt(new LimitValue);
}

} // namespace Tavrik::Ossira::tBench
