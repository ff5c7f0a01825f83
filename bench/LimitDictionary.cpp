// The limit of dictionaries, a flat table at most half full whose slots hold key and item side by
// side.
#include "Limits.h"
#include "SpinWord.h"

#include <array>
#include <bit>
#include <mutex>

namespace Tavrik::Ossira::tBench
{

namespace
{

class FlatTable
{
public:
    explicit FlatTable(std::size_t capacity)
        : mSlots(std::bit_ceil(2 * capacity)), mMask(mSlots.size() - 1)
    {
    }

    void Insert(const GUID& key, IUnknown* item)
    {
        std::size_t at = Hash(key) & mMask;
        while (mSlots[at].Item)
            at = (at + 1) & mMask;
        mSlots[at] = {key, ObjectPtr(item)};
    }

    [[nodiscard]] IUnknown* Find(const GUID& key) const noexcept
    {
        for (std::size_t at = Hash(key) & mMask; mSlots[at].Item; at = (at + 1) & mMask)
        {
            if (SameGuid(mSlots[at].Key, key))
                return mSlots[at].Item.Get();
        }
        return nullptr;
    }

private:
    struct Slot
    {
        GUID Key = GUID_Null;
        ObjectPtr<IUnknown> Item;
    };

    [[nodiscard]] static std::size_t Hash(const GUID& key) noexcept
    {
        const auto halves = std::bit_cast<std::array<std::uint64_t, 2>>(key);
        return ((halves[0] ^ halves[1]) * 0x9E3779B97F4A7C15u) >> 32;
    }

    std::vector<Slot> mSlots;
    std::size_t mMask;
};

class GuardedTable final : public LimitDictionary
{
public:
    explicit GuardedTable(std::size_t capacity) : mTable(capacity)
    {
    }

    void Insert(const GUID& key, IUnknown* item) override
    {
        const std::lock_guard guard(mLock);
        mTable.Insert(key, item);
    }

    Result Get(const GUID& key, void** out) override
    {
        const std::lock_guard guard(mLock);
        IUnknown* const item = mTable.Find(key);
        if (item == nullptr)
            return E_NOT_FOUND;
        item->AddRef();
        *out = item;
        return S_OK;
    }

private:
    SpinWord mLock;
    FlatTable mTable;
};

} // namespace

std::unique_ptr<LimitDictionary> MakeFlatDictionary(std::size_t capacity)
{
    return std::make_unique<GuardedTable>(capacity);
}

} // namespace Tavrik::Ossira::tBench
