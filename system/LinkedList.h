// A list whose items bear its links: an item enters and leaves it at once, and no memory is needed.
// Who has the list guards it; it neither keeps nor destroys its items.
#pragma once

namespace Tavrik::tSystem
{

template <class Item>
class CLinkedList
{
public:
    // What an item derives from. It is in one list at most.
    class CLinks
    {
        friend CLinkedList;
        Item* mNext = nullptr;
        Item* mFormer = nullptr;
    };

    // Null in an empty list, and behind the last item.
    [[nodiscard]] Item* First() const noexcept
    {
        return mFirst;
    }

    [[nodiscard]] static Item* Next(const CLinks& item) noexcept
    {
        return item.mNext;
    }

    // In front of all others.
    void Enter(Item& item) noexcept
    {
        CLinks& links = Links(item);
        links.mNext = mFirst;
        links.mFormer = nullptr;
        if (mFirst != nullptr)
            Links(*mFirst).mFormer = &item;
        mFirst = &item;
    }

    void Leave(const CLinks& item) noexcept
    {
        (item.mFormer != nullptr ? Links(*item.mFormer).mNext : mFirst) = item.mNext;
        if (item.mNext != nullptr)
            Links(*item.mNext).mFormer = item.mFormer;
    }

private:
    [[nodiscard]] static CLinks& Links(Item& item) noexcept
    {
        return item;
    }

    Item* mFirst = nullptr;
};

} // namespace Tavrik::tSystem
