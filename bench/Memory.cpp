// Bytes by what the C library's allocator says that it has handed out: whole chunks, each with its
// header and what rounding adds. The mean of 100,000, so that what the allocator keeps for later
// does not count, and what a table holds in reserve at that size does.
#include "Memory.h"

#include "Job.h"
#include "Objects.h"
#include "OssiraClasses.h"
#include "OssiraCollections.h"

#include <malloc.h>

namespace Tavrik::Ossira::tBench
{

namespace
{

constexpr std::size_t Count = 100'000;

[[nodiscard]] std::size_t BytesInUse()
{
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

// Of each of so many things; what holds the objects in the bench is left out.
[[nodiscard]] double BytesEach(auto make, std::size_t besides = 0)
{
    const std::size_t before = BytesInUse();
    const auto made = make();
    return static_cast<double>(BytesInUse() - before) / Count - static_cast<double>(besides);
}

[[nodiscard]] Objects MakeValues(std::size_t size)
{
    Objects values = MakeObjects(Count);
    const std::vector<unsigned char> data(size);
    for (const ObjectPtr<IUnknown>& object : values)
    {
        ObjectPtr<IValue> value;
        Require(object.QueryTo(value), "QueryTo");
        Require(value->SetValue(DATATYPE_SINT32, data.data(), static_cast<std::int32_t>(size)),
                "SetValue");
    }
    return values;
}

template <class Collection>
[[nodiscard]] double BytesEachIn(const CLSID& clsid, auto add)
{
    const ObjectPtr<IUnknown> item = MakeObjects(1)[0];
    const Keys keys = MakeKeys(Count);
    return BytesEach(
        [&]
        {
            ObjectPtr<Collection> collection;
            Require(CreateObject(clsid, collection), "CreateObject");
            for (const GUID& key : keys)
                Require(add(*collection, key, item.Get()), "add");
            return collection;
        });
}

} // namespace

std::vector<HeapUse> MeasureHeap()
{
    constexpr std::size_t pointer = sizeof(ObjectPtr<IUnknown>);
    static_cast<void>(MakeSampleObjects(1)); // loads the module
    return {{"value of 4 bytes", BytesEach([] { return MakeValues(4); }, pointer)},
            {"value of 100 bytes", BytesEach([] { return MakeValues(100); }, pointer)},
            {"list item, beside its object",
             BytesEachIn<IList>(CLSID_NodeList, [](IList& list, const GUID&, IUnknown* item)
                                { return list.Add(item); })},
            {"dictionary entry, beside its object",
             BytesEachIn<IDictionaryGUID>(CLSID_DictionaryGUID, [](IDictionaryGUID& dictionary,
                                                                   const GUID& key, IUnknown* item)
                                          { return dictionary.SetValueGUID(key, item); })},
            {"object of a sample class, the greeter",
             BytesEach([] { return MakeSampleObjects(Count); }, pointer)}};
}

} // namespace Tavrik::Ossira::tBench
