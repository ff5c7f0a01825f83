// An inner node keeps beside each child a key that none below it precedes. Only the first one's
// says nothing, since lesser keys may have come in there. Splitting on the way down and filling up
// on the way back leave a tree with the same keys at every step, so a failed allocation needs no
// undoing.
#include "OrderedKeys.h"

#include <algorithm>
#include <array>
#include <memory>
#include <utility>

namespace Tavrik::Ossira
{

struct COrderedKeys::Node
{
    // How many keys precede `key`, or equal it.
    [[nodiscard]] std::size_t CountUpTo(const COrderedKey& key, std::size_t from) const noexcept
    {
        const auto end = Keys.begin() + static_cast<std::ptrdiff_t>(Count);
        const auto found =
            std::upper_bound(Keys.begin() + static_cast<std::ptrdiff_t>(from), end, key);
        return static_cast<std::size_t>(found - Keys.begin());
    }

    std::size_t Count = 0;
    std::array<COrderedKey, NodeSize> Keys;
};

struct COrderedKeys::Leaf : Node
{
    Leaf* Next = nullptr;
};

struct COrderedKeys::Inner : Node
{
    [[nodiscard]] std::size_t ChildFor(const COrderedKey& key) const noexcept
    {
        return CountUpTo(key, 1) - 1;
    }

    std::array<Node*, NodeSize> Children;
};

namespace
{

// Opens a gap of `width` at `at`, or closes it.
void Open(auto& items, std::size_t count, std::size_t at, std::size_t width) noexcept
{
    std::move_backward(items.data() + at, items.data() + count, items.data() + count + width);
}

void Close(auto& items, std::size_t count, std::size_t at, std::size_t width) noexcept
{
    std::move(items.data() + at + width, items.data() + count, items.data() + at);
}

// Moves items over the border of two neighbours until `newCount` are on the left.
void MoveBorder(auto& left, std::size_t leftCount, auto& right, std::size_t rightCount,
                std::size_t newCount) noexcept
{
    if (newCount > leftCount)
    {
        const std::size_t width = newCount - leftCount;
        std::copy_n(right.data(), width, left.data() + leftCount);
        Close(right, rightCount, 0, width);
    }
    else
    {
        const std::size_t width = leftCount - newCount;
        Open(right, rightCount, 0, width);
        std::copy_n(left.data() + newCount, width, right.data());
    }
}

} // namespace

COrderedKeys::~COrderedKeys()
{
    if (mRoot != nullptr)
        Delete(mRoot, mHeight);
}

void COrderedKeys::Insert(const GUID& guid)
{
    const COrderedKey key(guid);
    if (mRoot == nullptr)
        mRoot = mFirst = new Leaf;
    ++mVersion;
    if (mRoot->Count == NodeSize)
    {
        auto root = std::make_unique<Inner>();
        root->Children[0] = mRoot;
        root->Count = 1;
        Split(*root, 0, mHeight);
        mRoot = root.release();
        ++mHeight;
    }
    Node* node = mRoot;
    for (std::size_t height = mHeight; height > 0; --height)
    {
        Inner& inner = static_cast<Inner&>(*node);
        std::size_t at = inner.ChildFor(key);
        if (inner.Children[at]->Count == NodeSize)
        {
            Split(inner, at, height - 1);
            at = inner.ChildFor(key);
        }
        node = inner.Children[at];
    }
    const std::size_t at = node->CountUpTo(key, 0);
    Open(node->Keys, node->Count, at, 1);
    node->Keys[at] = key;
    ++node->Count;
}

void COrderedKeys::Remove(const GUID& guid) noexcept
{
    ++mVersion;
    RemoveBelow(*mRoot, mHeight, COrderedKey(guid));
    if (mRoot->Count == 1 && mHeight > 0)
    {
        const auto root = static_cast<Inner*>(mRoot);
        mRoot = root->Children[0];
        --mHeight;
        delete root;
    }
    else if (mRoot->Count == 0)
    {
        delete std::exchange(mFirst, nullptr);
        mRoot = nullptr;
    }
}

void COrderedKeys::Swap(COrderedKeys& other) noexcept
{
    std::swap(mRoot, other.mRoot);
    std::swap(mFirst, other.mFirst);
    std::swap(mHeight, other.mHeight);
    ++mVersion;
    ++other.mVersion;
}

bool COrderedKeys::First(CGuidPosition& at) const noexcept
{
    return Settle(mFirst, 0, at);
}

bool COrderedKeys::Next(CGuidPosition& at) const noexcept
{
    if (at.Version == mVersion)
        return Settle(static_cast<const Leaf*>(at.Node), at.Hint + 1, at);
    if (mRoot == nullptr)
        return false;
    const COrderedKey key(at.Key);
    const Node* node = mRoot;
    for (std::size_t height = mHeight; height > 0; --height)
    {
        const Inner& inner = static_cast<const Inner&>(*node);
        node = inner.Children[inner.ChildFor(key)];
    }
    return Settle(static_cast<const Leaf*>(node), node->CountUpTo(key, 0), at);
}

// To the key at `index` of a leaf, or where there is none to the first one behind the leaf.
bool COrderedKeys::Settle(const Leaf* leaf, std::size_t index, CGuidPosition& at) const noexcept
{
    if (leaf != nullptr && index == leaf->Count)
    {
        leaf = leaf->Next;
        index = 0;
    }
    if (leaf == nullptr)
        return false;
    at = {leaf->Keys[index].Key(), index, leaf, mVersion};
    return true;
}

void COrderedKeys::Delete(Node* node, std::size_t height) noexcept
{
    if (height == 0)
    {
        delete static_cast<Leaf*>(node);
        return;
    }
    const auto inner = static_cast<Inner*>(node);
    for (std::size_t at = 0; at < inner->Count; ++at)
        Delete(inner->Children[at], height - 1);
    delete inner;
}

void COrderedKeys::RemoveBelow(Node& node, std::size_t height, const COrderedKey& key) noexcept
{
    if (height == 0)
    {
        Close(node.Keys, node.Count, node.CountUpTo(key, 0) - 1, 1);
        --node.Count;
        return;
    }
    Inner& inner = static_cast<Inner&>(node);
    const std::size_t at = inner.ChildFor(key);
    RemoveBelow(*inner.Children[at], height - 1, key);
    if (inner.Children[at]->Count < LeastCount)
        Rebalance(inner, at + 1 < inner.Count ? at : at - 1, height - 1);
}

// Fills up the child at `at`, or the one behind it, from the other one, or makes one of the two.
void COrderedKeys::Rebalance(Inner& parent, std::size_t at, std::size_t height) noexcept
{
    Node& left = *parent.Children[at];
    Node& right = *parent.Children[at + 1];
    const std::size_t both = left.Count + right.Count;
    if (both > NodeSize - LeastCount)
    {
        Spread(left, right, both / 2, height);
        parent.Keys[at + 1] = right.Keys[0];
        return;
    }
    Spread(left, right, both, height);
    if (height == 0)
        static_cast<Leaf&>(left).Next = static_cast<Leaf&>(right).Next;
    Delete(&right, height);
    Close(parent.Keys, parent.Count, at + 1, 1);
    Close(parent.Children, parent.Count, at + 1, 1);
    --parent.Count;
}

// Halves the full child at `at` of a parent with room for one more.
void COrderedKeys::Split(Inner& parent, std::size_t at, std::size_t height)
{
    Node& left = *parent.Children[at];
    Node* right = nullptr;
    if (height == 0)
    {
        const auto leaf = new Leaf;
        leaf->Next = std::exchange(static_cast<Leaf&>(left).Next, leaf);
        right = leaf;
    }
    else
    {
        right = new Inner;
    }
    Spread(left, *right, NodeSize / 2, height);
    Open(parent.Keys, parent.Count, at + 1, 1);
    Open(parent.Children, parent.Count, at + 1, 1);
    parent.Keys[at + 1] = right->Keys[0];
    parent.Children[at + 1] = right;
    ++parent.Count;
}

void COrderedKeys::Spread(Node& left, Node& right, std::size_t leftCount,
                          std::size_t height) noexcept
{
    MoveBorder(left.Keys, left.Count, right.Keys, right.Count, leftCount);
    if (height > 0)
    {
        MoveBorder(static_cast<Inner&>(left).Children, left.Count,
                   static_cast<Inner&>(right).Children, right.Count, leftCount);
    }
    right.Count = left.Count + right.Count - leftCount;
    left.Count = leftCount;
}

} // namespace Tavrik::Ossira
