// What is done with lists of any kind: appended to, walked, and asked for items in an order without
// pattern. The times are per item.
#pragma once

#include "Objects.h"
#include "Peers.h"

#include <memory>

namespace Tavrik::Ossira::tBench
{

// Making the list and giving its references back are not part of the time.
[[nodiscard]] Body AppendAll(auto make, auto items, auto append)
{
    return RepeatWithNew(
        make,
        [items, append](auto& list)
        {
            for (const auto& item : *items)
                append(list, item);
        },
        items->size());
}

[[nodiscard]] Body IndexAll(std::size_t size, auto get)
{
    return Repeat(
        [indices = ShuffledIndices(size), get]
        {
            for (const std::int32_t index : indices)
                get(index);
        },
        size);
}

template <class PointerType, class ListType = std::vector<PointerType>,
          class IndexType = std::size_t>
struct ListTrait
{
    using Pointer = PointerType;
    using List = ListType;
    using Index = IndexType;
};

// A `Trait` has a name, a `Pointer` that counts references, `Make` for an object of its own, and a
// `List` like a vector of such pointers.
template <class Trait>
struct ListPeer
{
    using Pointer = typename Trait::Pointer;
    using List = typename Trait::List;

    [[nodiscard]] static auto MakeItems(std::size_t size)
    {
        const auto items = std::make_shared<std::vector<Pointer>>(size);
        for (Pointer& item : *items)
            item = Trait::Make();
        return items;
    }

    [[nodiscard]] static std::shared_ptr<List> MakeList(std::size_t size)
    {
        const auto list = std::make_shared<List>();
        for (std::size_t count = 0; count < size; ++count)
            list->push_back(Trait::Make());
        return list;
    }

    [[nodiscard]] static Body Append(std::size_t size)
    {
        return AppendAll([] { return std::make_unique<List>(); }, MakeItems(size),
                         [](const auto& list, const Pointer& item) { list->push_back(item); });
    }

    [[nodiscard]] static Body Walk(std::size_t size)
    {
        return Repeat(
            [list = std::shared_ptr<const List>(MakeList(size))]
            {
                for (Pointer item : *list) // a reference for each, as the runtime hands out
                    benchmark::DoNotOptimize(item);
            },
            size);
    }

    [[nodiscard]] static Body Index(std::size_t size)
    {
        return IndexAll(size,
                        [list = std::shared_ptr<const List>(MakeList(size))](std::int32_t index)
                        {
                            Pointer item((*list)[static_cast<typename Trait::Index>(index)]);
                            benchmark::DoNotOptimize(item);
                        });
    }

    [[nodiscard]] static Peer Of(Topic topic, Body (*body)(std::size_t))
    {
        return {topic, [body](std::size_t size)
                {
                    return std::vector<Contender>{{Trait::Name, body(size)}};
                }};
    }
};

template <class Trait>
[[nodiscard]] std::vector<Peer> ListPeers()
{
    using Of = ListPeer<Trait>;
    return {Of::Of(Topic::ListAppend, Of::Append), Of::Of(Topic::ListWalk, Of::Walk),
            Of::Of(Topic::ListIndex, Of::Index)};
}

} // namespace Tavrik::Ossira::tBench
