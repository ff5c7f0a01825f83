// A list of a million objects, all of them different values of the runtime, and the same in every
// list. The times are per item.
#include "Job.h"
#include "Limits.h"
#include "Objects.h"
#include "OssiraClasses.h"
#include "OssiraCollections.h"

#include <algorithm>
#include <numeric>
#include <random>

namespace Tavrik::Ossira::tBench
{

namespace
{

constexpr std::size_t ItemCount = 1'000'000;

using SharedObjects = std::shared_ptr<const Objects>;

constexpr const char* Limit = "vector of counted pointers";
constexpr const char* LimitOfSmall = "the same, holding objects of half the size";
constexpr const char* Unlocked = "the runtime's list without a lock";
constexpr const char* Standard = "std::vector of std::shared_ptr";

[[nodiscard]] SharedObjects MakeSharedObjects()
{
    return std::make_shared<const Objects>(MakeObjects(ItemCount));
}

[[nodiscard]] SharedObjects MakeSharedSmallObjects()
{
    return std::make_shared<const Objects>(MakeSmallObjects(ItemCount));
}

[[nodiscard]] std::vector<StandardObject> MakeStandardObjects()
{
    std::vector<StandardObject> objects(ItemCount);
    for (StandardObject& object : objects)
        object = MakeStandardObject();
    return objects;
}

[[nodiscard]] std::vector<std::int32_t> ShuffledIndices()
{
    std::vector<std::int32_t> indices(ItemCount);
    std::iota(indices.begin(), indices.end(), 0);
    std::shuffle(indices.begin(), indices.end(), std::mt19937_64(ItemCount));
    return indices;
}

[[nodiscard]] ObjectPtr<IList> MakeList(const CLSID& clsid)
{
    ObjectPtr<IList> list;
    Require(CreateObject(clsid, list), "CreateObject");
    return list;
}

[[nodiscard]] ObjectPtr<IList> MakeList(const CLSID& clsid, const Objects& objects)
{
    const ObjectPtr<IList> list = MakeList(clsid);
    for (const ObjectPtr<IUnknown>& object : objects)
        Require(list->Add(object.Get()), "Add");
    return list;
}

[[nodiscard]] std::shared_ptr<LimitList> FillLimitList(const Objects& objects)
{
    std::shared_ptr<LimitList> list = MakeLimitList();
    for (const ObjectPtr<IUnknown>& object : objects)
        list->Append(object.Get());
    return list;
}

// Making the list and giving its references back are not part of the time.
template <class Make, class Items, class Append>
void AppendAll(benchmark::State& state, Make make, const Items& items, Append append)
{
    const CRoundReport report(state, items.size());
    for (auto _ : state)
    {
        state.PauseTiming();
        {
            auto list = make();
            state.ResumeTiming();
            for (const auto& item : items)
                append(list, item);
            state.PauseTiming();
        }
        state.ResumeTiming();
    }
}

[[nodiscard]] Contender RuntimeAppend(const char* name, const CLSID& clsid,
                                      const SharedObjects& objects)
{
    return {name, [clsid, objects](benchmark::State& state)
            {
                AppendAll(
                    state, [&clsid] { return MakeList(clsid); }, *objects,
                    [](const ObjectPtr<IList>& list, const ObjectPtr<IUnknown>& item)
                    { list->Add(item.Get()); });
            }};
}

[[nodiscard]] Contender LimitAppend(const char* name, const SharedObjects& objects)
{
    return {name, [objects](benchmark::State& state)
            {
                AppendAll(
                    state, [] { return MakeLimitList(); }, *objects,
                    [](const std::unique_ptr<LimitList>& list, const ObjectPtr<IUnknown>& item)
                    { list->Append(item.Get()); });
            }};
}

void AppendStandard(benchmark::State& state, const std::vector<StandardObject>& objects)
{
    AppendAll(
        state, [] { return std::vector<StandardObject>(); }, objects,
        [](std::vector<StandardObject>& list, const StandardObject& item)
        { list.push_back(item); });
}

[[nodiscard]] std::vector<Contender> AppendContenders()
{
    const SharedObjects objects = MakeSharedObjects();
    return {RuntimeAppend("runtime", CLSID_NodeList, objects),
            LimitAppend(Limit, objects),
            LimitAppend(LimitOfSmall, MakeSharedSmallObjects()),
            RuntimeAppend(Unlocked, CLSID_UnsafeNodeList, objects),
            {Standard, [items = MakeStandardObjects()](benchmark::State& state)
             {
                 AppendStandard(state, items);
             }}};
}

void Walk(benchmark::State& state, IList* list)
{
    const CRoundReport report(state, ItemCount);
    for (auto _ : state)
    {
        ObjectPtr<IEnumerator> enumerator;
        list->GetEnumerator(IID_IEnumerator, enumerator.PutVoid());
        while (enumerator->MoveNext() == S_OK)
        {
            void* item;
            enumerator->GetCurrent(IID_IValue, &item);
            static_cast<IUnknown*>(item)->Release();
        }
    }
}

void WalkLimit(benchmark::State& state, LimitList& list)
{
    const CRoundReport report(state, ItemCount);
    for (auto _ : state)
    {
        list.Rewind();
        for (void* item; list.Next(&item) == S_OK;)
            static_cast<IUnknown*>(item)->Release();
    }
}

void WalkStandard(benchmark::State& state, const std::vector<StandardObject>& list)
{
    const CRoundReport report(state, ItemCount);
    for (auto _ : state)
    {
        for (StandardObject item : list) // a reference for each, as the others hand out
            benchmark::DoNotOptimize(item);
    }
}

[[nodiscard]] Contender RuntimeWalk(const char* name, const CLSID& clsid, const Objects& objects)
{
    return {name, [list = MakeList(clsid, objects)](benchmark::State& state)
            {
                Walk(state, list.Get());
            }};
}

[[nodiscard]] Contender LimitWalk(const char* name, const Objects& objects)
{
    return {name, [list = FillLimitList(objects)](benchmark::State& state)
            {
                WalkLimit(state, *list);
            }};
}

[[nodiscard]] std::vector<Contender> WalkContenders()
{
    const SharedObjects objects = MakeSharedObjects();
    return {RuntimeWalk("runtime", CLSID_NodeList, *objects),
            LimitWalk(Limit, *objects),
            LimitWalk(LimitOfSmall, *MakeSharedSmallObjects()),
            RuntimeWalk(Unlocked, CLSID_UnsafeNodeList, *objects),
            {Standard, [list = MakeStandardObjects()](benchmark::State& state)
             {
                 WalkStandard(state, list);
             }}};
}

template <class Get>
void IndexAll(benchmark::State& state, const std::vector<std::int32_t>& indices, Get get)
{
    const CRoundReport report(state, indices.size());
    for (auto _ : state)
    {
        for (const std::int32_t index : indices)
            get(index);
    }
}

[[nodiscard]] Contender RuntimeIndex(const char* name, const CLSID& clsid, const Objects& objects)
{
    return {name,
            [list = MakeList(clsid, objects), indices = ShuffledIndices()](benchmark::State& state)
            {
                IndexAll(state, indices,
                         [&list](std::int32_t index)
                         {
                             void* item;
                             list->GetItemAt(index, IID_IValue, &item);
                             static_cast<IUnknown*>(item)->Release();
                         });
            }};
}

[[nodiscard]] Contender LimitIndex(const char* name, const Objects& objects)
{
    return {name,
            [list = FillLimitList(objects), indices = ShuffledIndices()](benchmark::State& state)
            {
                IndexAll(state, indices,
                         [&list](std::int32_t index)
                         {
                             void* item;
                             list->Get(static_cast<std::size_t>(index), &item);
                             static_cast<IUnknown*>(item)->Release();
                         });
            }};
}

[[nodiscard]] Contender StandardIndex()
{
    return {Standard,
            [list = MakeStandardObjects(), indices = ShuffledIndices()](benchmark::State& state)
            {
                IndexAll(state, indices,
                         [&list](std::int32_t index)
                         {
                             StandardObject item(list[static_cast<std::size_t>(index)]);
                             benchmark::DoNotOptimize(item);
                         });
            }};
}

[[nodiscard]] std::vector<Contender> IndexContenders()
{
    const SharedObjects objects = MakeSharedObjects();
    return {RuntimeIndex("runtime", CLSID_NodeList, *objects), LimitIndex(Limit, *objects),
            LimitIndex(LimitOfSmall, *MakeSharedSmallObjects()),
            RuntimeIndex(Unlocked, CLSID_UnsafeNodeList, *objects), StandardIndex()};
}

} // namespace

std::vector<Job> ListJobs()
{
    return {{"list of a million: append", 2.0, AppendContenders},
            {"list of a million: walk by enumerator", 2.0, WalkContenders},
            {"list of a million: random index", 2.0, IndexContenders}};
}

} // namespace Tavrik::Ossira::tBench
