// What a job costs when there is much, beside the same job when there is little: the larger size
// stands in the place of the runtime, the smaller one in that of the limit, and the ratio says how
// the cost grows. Where the job is done for many items the time is per item, so that a linear job
// has the ratio 1.
#include "Job.h"
#include "Objects.h"
#include "OssiraCacheStack.h"
#include "OssiraClasses.h"
#include "OssiraCollections.h"
#include "OssiraValueSetGroup.h"

#include <algorithm>
#include <array>
#include <bit>
#include <ctime>

namespace Tavrik::Ossira::tBench
{

namespace
{

using Prepare = Body (*)(std::size_t);

[[nodiscard]] ObjectPtr<IUnknown> AnyItem()
{
    static const Objects item = MakeObjects(1);
    return item[0];
}

template <class Collection>
[[nodiscard]] ObjectPtr<Collection> Filled(const CLSID& clsid, const Keys& keys)
{
    ObjectPtr<Collection> collection;
    Require(CreateObject(clsid, collection), "CreateObject");
    for (const GUID& key : keys)
        Require(collection->SetValueGUID(key, AnyItem().Get()), "SetValueGUID");
    return collection;
}

[[nodiscard]] ObjectPtr<IDictionaryGUID> FilledDictionary(const Keys& keys)
{
    return Filled<IDictionaryGUID>(CLSID_DictionaryGUID, keys);
}

[[nodiscard]] auto Walk(auto& collection)
{
    ObjectPtr<IEnumeratorGUID> walk;
    Require(collection.GetEnumerator(IID_IEnumeratorGUID, walk.PutVoid()), "GetEnumerator");
    return walk;
}

void FirstStep(auto& collection)
{
    Require(Walk(collection)->MoveNext(), "MoveNext");
}

void EmptyByFirstKey(auto& collection, auto remove)
{
    GUID key;
    for (auto walk = Walk(collection); walk->MoveNext() == S_OK; walk = Walk(collection))
    {
        Require(walk->GetCurrentGUID(&key), "GetCurrentGUID");
        Require(remove(key), "remove");
    }
}

[[nodiscard]] Body EnumerateAfterInsertion(std::size_t size)
{
    return Repeat(
        [dictionary = FilledDictionary(MakeKeys(size)), key = MakeKeys(1)[0]]
        {
            dictionary->SetValueGUID(key, AnyItem().Get());
            FirstStep(*dictionary);
            dictionary->RemoveGUID(key);
        });
}

[[nodiscard]] Body EmptyDictionary(std::size_t size)
{
    return RepeatWithNew([keys = MakeKeys(size)] { return FilledDictionary(keys); },
                         [](const auto& dictionary) {
                             EmptyByFirstKey(*dictionary, [&](const GUID& key)
                                             { return dictionary->RemoveGUID(key); });
                         },
                         size);
}

[[nodiscard]] Body EmptyFactory(std::size_t size)
{
    const auto make = [keys = MakeKeys(size)]
    {
        ObjectPtr<IObjectFactory> factory;
        Require(CreateObject(CLSID_ObjectFactory, factory), "CreateObject");
        for (const GUID& key : keys)
            Require(factory->RegisterClass(key, nullptr, nullptr), "RegisterClass");
        return factory;
    };
    return RepeatWithNew(
        make,
        [](const auto& factory)
        {
            ObjectPtr<IEnumerable> classes;
            Require(factory.QueryTo(classes), "QueryTo");
            EmptyByFirstKey(*classes,
                            [&](const GUID& key) { return factory->UnregisterClass(key); });
        },
        size);
}

[[nodiscard]] ObjectPtr<IList> FilledList(std::size_t size)
{
    ObjectPtr<IList> list;
    Require(CreateObject(CLSID_NodeList, list), "CreateObject");
    for (std::size_t count = 0; count < size; ++count)
        Require(list->Add(AnyItem().Get()), "Add");
    return list;
}

[[nodiscard]] Body ReplaceInList(std::size_t size, std::size_t index)
{
    return Repeat(
        [list = FilledList(size), at = static_cast<std::int32_t>(index)]
        {
            list->RemoveAt(at);
            list->Insert(at, AnyItem().Get());
        });
}

[[nodiscard]] Body ReplaceFirst(std::size_t size)
{
    return ReplaceInList(size, 0);
}

[[nodiscard]] Body ReplaceInTheMiddle(std::size_t size)
{
    return ReplaceInList(size, size / 2);
}

[[nodiscard]] Body PopAndPush(std::size_t size)
{
    ObjectPtr<IClsidObjectCacheStack> stack;
    Require(CreateObject(CLSID_ClsidObjectCacheStack, stack), "CreateObject");
    Require(stack->Create(CLSID_Value, IID_IValue, 0, 0), "Create");
    for (const auto& object : MakeObjects(size))
        Require(stack->Push(object.Get()), "Push");
    return Repeat(
        [stack]
        {
            ObjectPtr<IUnknown> object;
            stack->Pop(IID_IValue, object.PutVoid());
            stack->Push(object.Get());
        });
}

// Two layers, the upper one with half of the keys.
[[nodiscard]] ObjectPtr<IValueSet> FilledView(std::size_t size)
{
    Keys keys = MakeKeys(size);
    ObjectPtr<IValueSetGroup> group;
    Require(CreateObject(CLSID_ValueSetGroup, group), "CreateObject");
    for (int layer = 0; layer < 2; ++layer, keys.resize(size / 2))
    {
        const auto values = Filled<IValueSet>(CLSID_ValueSet, keys);
        Require(group->InsertValueSet(-1, values.Get(), nullptr, 0), "InsertValueSet");
    }
    ObjectPtr<IValueSet> view;
    Require(group->GetValueSet(view.Put()), "GetValueSet");
    return view;
}

[[nodiscard]] Body CountView(std::size_t size)
{
    return Repeat([view = FilledView(size)] { view->GetCount(); });
}

[[nodiscard]] Body BeginViewWalk(std::size_t size)
{
    return Repeat([view = FilledView(size)] { FirstStep(*view); });
}

[[nodiscard]] Body StepOn(const auto& collection)
{
    const auto walk = Walk(*collection);
    Require(walk->MoveNext(), "MoveNext");
    return Repeat(
        [walk]
        {
            if (walk->MoveNext() != S_OK)
                walk->Reset();
        });
}

[[nodiscard]] Body TouchDependants(std::size_t size)
{
    ObjectPtr<IModifiedService> source;
    Require(CreateObject(CLSID_ModifiedService, source), "CreateObject");
    std::vector<ObjectPtr<ITouchModifiedChain>> dependants(size);
    for (auto& dependant : dependants)
    {
        Require(CreateObject(CLSID_ModifiedService, dependant), "CreateObject");
        Require(source->AddTouchModified(dependant.Get()), "AddTouchModified");
    }
    return Repeat([source, dependants] { source->TouchModified(); }, size);
}

// By the processor's time, as everything else: what other programs take in between does not count.
[[nodiscard]] double ThreadNanoseconds()
{
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

[[nodiscard]] Body LongestInsertion(std::size_t size)
{
    return [keys = MakeKeys(size)](benchmark::State& state)
    {
        const CRoundReport report(state);
        double longest = 0;
        for (auto _ : state)
        {
            const auto dictionary = FilledDictionary({});
            for (const GUID& key : keys)
            {
                const double before = ThreadNanoseconds();
                dictionary->SetValueGUID(key, AnyItem().Get());
                longest = std::max(longest, ThreadNanoseconds() - before);
            }
        }
        state.counters[CRoundReport::Own] = longest;
    };
}

[[nodiscard]] Body InsertKeys(const Keys& keys)
{
    return RepeatWithNew([] { return FilledDictionary({}); },
                         [keys](const auto& dictionary)
                         {
                             for (const GUID& key : keys)
                                 dictionary->SetValueGUID(key, AnyItem().Get());
                         },
                         keys.size());
}

// Which a multiplication of one half and a sum cannot tell apart.
[[nodiscard]] Keys MakeChosenKeys(std::size_t count)
{
    Keys keys(count);
    for (std::uint64_t at = 0; at < count; ++at)
    {
        const std::uint64_t product = at * 0x9E3779B97F4A7C15;
        keys[at] = std::bit_cast<GUID>(std::array<std::uint64_t, 2>{at, 0 - product});
    }
    return keys;
}

[[nodiscard]] Body ReleaseNestedLists(std::size_t depth)
{
    const auto make = [depth]
    {
        ObjectPtr<IList> outermost;
        for (std::size_t level = 0; level < depth; ++level)
        {
            const ObjectPtr<IList> list = FilledList(0);
            if (outermost)
                Require(list->Add(outermost.Get()), "Add");
            outermost = list;
        }
        return outermost;
    };
    return RepeatWithNew(
        make, [](auto& outermost) { outermost.Reset(); }, depth);
}

struct Growth
{
    const char* Title;
    double Reach;
    Prepare Make;
    std::size_t Small;
    std::size_t Large;
};

constexpr Growth Growths[] = {
    {"dictionary: insert, enumerate, step", 3, EnumerateAfterInsertion, 1000, 100000},
    {"dictionary: emptied by its first key", 3, EmptyDictionary, 10000, 100000},
    {"dictionary: the longest of its insertions", NoReach, LongestInsertion, 20000, 2000000},
    {"factory: emptied by its first class", 3, EmptyFactory, 1000, 100000},
    {"list: first item removed and inserted", 3, ReplaceFirst, 1000, 1000000},
    {"list: middle item removed and inserted", NoReach, ReplaceInTheMiddle, 1000, 1000000},
    {"cache stack: pop and push", 3, PopAndPush, 1, 1000},
    {"cache stack: pop and push", 3, PopAndPush, 1, 100000},
    {"merged view: count", NoReach, CountView, 1000, 100000},
    {"merged view: first step", 3, BeginViewWalk, 1000, 100000},
    {"merged view: further step", 3, StepOnInView, 1000, 100000},
    {"touch of a dependant", 3, TouchDependants, 1000, 100000},
    {"release of lists in lists", 3, ReleaseNestedLists, 1000, 200000},
};

[[nodiscard]] std::vector<Contender> ViewAndSet()
{
    constexpr std::size_t size = 100000;
    return {{"merged view", StepOnInView(size)},
            {"value set", StepOn(Filled<IValueSet>(CLSID_ValueSet, MakeKeys(size)))}};
}

[[nodiscard]] std::vector<Contender> ChosenAndRandom()
{
    constexpr std::size_t size = 50000;
    return {{"chosen keys", InsertKeys(MakeChosenKeys(size))},
            {"random keys", InsertKeys(MakeKeys(size))}};
}

} // namespace

Body StepOnInView(std::size_t size)
{
    return StepOn(FilledView(size));
}

Jobs GrowthJobs()
{
    Jobs jobs = {
        {"merged view: further step, against a value set's", 5, ViewAndSet, NoReach, Kind::Growth},
        {"dictionary: 50,000 chosen keys, against random", 1.5, ChosenAndRandom, NoReach,
         Kind::Growth}};
    for (const Growth& growth : Growths)
    {
        jobs.push_back({growth.Title + (", " + Text(growth.Large)), growth.Reach,
                        [&growth]
                        {
                            return std::vector<Contender>{
                                {Text(growth.Large), growth.Make(growth.Large)},
                                {Text(growth.Small), growth.Make(growth.Small)}};
                        },
                        NoReach, Kind::Growth});
    }
    return jobs;
}

} // namespace Tavrik::Ossira::tBench
