// The keys of a table in the order of their 16 bytes: a B+-tree whose nodes hold up to 32 of them,
// so that every operation touches a few small blocks however many keys there are. Insertion,
// removal and a search cost O(log n); the least key, and a step from a position that was settled
// since the last change, cost the same everywhere. Nodes are at least a quarter full but for the
// root, and are given back when they run empty, so memory follows the content.
#pragma once

#include "OssiraBase.h"

#include <array>
#include <bit>
#include <compare>
#include <cstddef>
#include <cstdint>

namespace Tavrik::Ossira
{

// Where a walk over the keys of one table stands: a copy of the key, and where it lay in the table
// of that version.
struct CGuidPosition
{
    GUID Key = GUID_Null;
    std::size_t Hint = 0;
    const void* Node = nullptr;
    std::uint64_t Version = 0; // of no table
};

// A GUID as two big-endian numbers, which compare as its bytes do.
class COrderedKey
{
public:
    using Halves = std::array<std::uint64_t, 2>;
    static_assert(std::endian::native == std::endian::little);

    COrderedKey() noexcept = default;

    explicit COrderedKey(const GUID& key) noexcept
    {
        const auto halves = std::bit_cast<Halves>(key);
        mHigh = BytesReversed(halves[0]);
        mLow = BytesReversed(halves[1]);
    }

    [[nodiscard]] GUID Key() const noexcept
    {
        return std::bit_cast<GUID>(Halves{BytesReversed(mHigh), BytesReversed(mLow)});
    }

    // NOLINTNEXTLINE(modernize-use-nullptr): takes the zero of the comparison for a pointer
    auto operator<=>(const COrderedKey&) const noexcept = default;

private:
    [[nodiscard]] static std::uint64_t BytesReversed(std::uint64_t x) noexcept
    {
        x = ((x & 0x00FF00FF00FF00FF) << 8) | ((x >> 8) & 0x00FF00FF00FF00FF);
        x = ((x & 0x0000FFFF0000FFFF) << 16) | ((x >> 16) & 0x0000FFFF0000FFFF);
        return (x << 32) | (x >> 32);
    }

    std::uint64_t mHigh = 0;
    std::uint64_t mLow = 0;
};

class COrderedKeys
{
public:
    COrderedKeys() noexcept = default;
    COrderedKeys(const COrderedKeys&) = delete;
    COrderedKeys& operator=(const COrderedKeys&) = delete;
    ~COrderedKeys();

    // Enters a key that is not there. Throws `std::bad_alloc`; the keys are then as they were.
    void Insert(const GUID& guid);

    // Removes a key that is there.
    void Remove(const GUID& guid) noexcept;

    // Positions stay with the object, where they are looked up anew.
    void Swap(COrderedKeys& other) noexcept;

    // To the least key, and to the least one that is greater than the one in `at`. False, and `at`
    // as it was, when there is none.
    [[nodiscard]] bool First(CGuidPosition& at) const noexcept;
    [[nodiscard]] bool Next(CGuidPosition& at) const noexcept;

private:
    static constexpr std::size_t NodeSize = 32;
    static constexpr std::size_t LeastCount = NodeSize / 4;

    struct Node;
    struct Leaf;
    struct Inner;

    static void Delete(Node* node, std::size_t height) noexcept;
    static void Rebalance(Inner& parent, std::size_t at, std::size_t height) noexcept;
    static void RemoveBelow(Node& node, std::size_t height, const COrderedKey& key) noexcept;
    static void Split(Inner& parent, std::size_t at, std::size_t height);
    static void Spread(Node& left, Node& right, std::size_t leftCount, std::size_t height) noexcept;

    [[nodiscard]] bool Settle(const Leaf* leaf, std::size_t index,
                              CGuidPosition& at) const noexcept;

    Node* mRoot = nullptr;      // owned, with all below it
    Leaf* mFirst = nullptr;     // the leftmost; the same one while there are keys
    std::size_t mHeight = 0;    // of the root above the leaves
    std::uint64_t mVersion = 1; // of this object, moved by whatever may move a key
};

} // namespace Tavrik::Ossira
