// The limit of dictionaries, a flat table at most half full whose slots hold key and item side by
// side.
#include "Limits.h"
#include "SpinWord.h"

#include <array>
#include <bit>
#include <mutex>
#include <random>

namespace Tavrik::Ossira::tBench
{

namespace
{

using Halves = std::array<std::uint64_t, 2>;

struct PlainHash
{
    std::size_t operator()(const Halves& key) const noexcept
    {
        return ((key[0] ^ key[1]) * 0x9E3779B97F4A7C15u) >> 32;
    }
};

// Nobody who does not know the seed can choose keys that meet.
struct KeyedHash
{
    std::size_t operator()(const Halves& key) const noexcept
    {
        __extension__ using Product = unsigned __int128;
        const Product product = Product{key[0] ^ Seed[0]} * (key[1] ^ Seed[1]);
        return static_cast<std::size_t>(product ^ (product >> 64)) * 0x9E3779B97F4A7C15u >> 32;
    }

    Halves Seed = {std::random_device()(), std::random_device()()};
};

template <class HashType>
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

    [[nodiscard]] std::size_t Hash(const GUID& key) const noexcept
    {
        return mHash(std::bit_cast<Halves>(key));
    }

    HashType mHash;
    std::vector<Slot> mSlots;
    std::size_t mMask;
};

template <class HashType, bool AsksItems>
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
        if constexpr (AsksItems)
            return item->QueryInterface(IID_IValue, out);
        item->AddRef();
        *out = item;
        return S_OK;
    }

private:
    SpinWord mLock;
    FlatTable<HashType> mTable;
};

} // namespace

std::unique_ptr<LimitDictionary> MakeFlatDictionary(std::size_t capacity)
{
    return std::make_unique<GuardedTable<PlainHash, false>>(capacity);
}

std::unique_ptr<LimitDictionary> MakeDictionaryByHand(std::size_t capacity)
{
    return std::make_unique<GuardedTable<KeyedHash, true>>(capacity);
}

} // namespace Tavrik::Ossira::tBench
