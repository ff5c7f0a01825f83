// A list of a million different objects. The limit's are as small as objects can be; one more limit
// holds the same values as the runtime's list.
#include "Limits.h"
#include "Lists.h"
#include "OssiraClasses.h"
#include "OssiraCollections.h"

namespace Tavrik::Ossira::tBench
{

namespace
{

constexpr std::size_t ItemCount = 1'000'000;

using SharedObjects = std::shared_ptr<const Objects>;

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

using LimitMaker = std::unique_ptr<LimitList> (*)();

[[nodiscard]] std::shared_ptr<LimitList> Filled(LimitMaker make, const Objects& objects)
{
    std::shared_ptr<LimitList> list = make();
    for (const ObjectPtr<IUnknown>& object : objects)
        list->Append(object.Get());
    return list;
}

[[nodiscard]] Body Append(const CLSID& clsid, const SharedObjects& objects)
{
    return AppendAll([clsid] { return MakeList(clsid); }, objects,
                     [](const ObjectPtr<IList>& list, const ObjectPtr<IUnknown>& item)
                     { list->Add(item.Get()); });
}

[[nodiscard]] Body AppendLimit(LimitMaker make, const SharedObjects& objects)
{
    return AppendAll(make, objects,
                     [](const std::unique_ptr<LimitList>& list, const ObjectPtr<IUnknown>& item)
                     { list->Append(item.Get()); });
}

[[nodiscard]] Body Walk(const CLSID& clsid, const SharedObjects& objects)
{
    return Repeat(
        [list = MakeList(clsid, *objects)]
        {
            ObjectPtr<IEnumerator> enumerator;
            list->GetEnumerator(IID_IEnumerator, enumerator.PutVoid());
            while (enumerator->MoveNext() == S_OK)
            {
                void* item;
                enumerator->GetCurrent(IID_IValue, &item);
                static_cast<IUnknown*>(item)->Release();
            }
        },
        objects->size());
}

[[nodiscard]] Body WalkLimit(LimitMaker make, const SharedObjects& objects)
{
    return Repeat(
        [list = Filled(make, *objects)]
        {
            list->Rewind();
            for (void* item; list->Next(&item) == S_OK;)
                static_cast<IUnknown*>(item)->Release();
        },
        objects->size());
}

[[nodiscard]] Body Index(const CLSID& clsid, const SharedObjects& objects)
{
    return IndexAll(objects->size(),
                    [list = MakeList(clsid, *objects)](std::int32_t index)
                    {
                        void* item;
                        list->GetItemAt(index, IID_IValue, &item);
                        static_cast<IUnknown*>(item)->Release();
                    });
}

[[nodiscard]] Body IndexLimit(LimitMaker make, const SharedObjects& objects)
{
    return IndexAll(objects->size(),
                    [list = Filled(make, *objects)](std::int32_t index)
                    {
                        void* item;
                        list->Get(static_cast<std::size_t>(index), &item);
                        static_cast<IUnknown*>(item)->Release();
                    });
}

struct ListJob
{
    const char* Title;
    Body (*Runtime)(const CLSID& clsid, const SharedObjects& objects);
    Body (*Limit)(LimitMaker make, const SharedObjects& objects);
    Topic PeersOf;
};

constexpr ListJob ListJobTable[] = {
    {"append", Append, AppendLimit, Topic::ListAppend},
    {"walk by enumerator", Walk, WalkLimit, Topic::ListWalk},
    {"random index", Index, IndexLimit, Topic::ListIndex},
};

[[nodiscard]] std::vector<Contender> Contenders(const ListJob& job)
{
    const auto objects = std::make_shared<const Objects>(MakeObjects(ItemCount));
    const auto small = std::make_shared<const Objects>(MakeSmallObjects(ItemCount));
    std::vector<Contender> contenders = {
        {"runtime", job.Runtime(CLSID_NodeList, objects)},
        {"vector of small counted objects", job.Limit(&MakeLimitList, small)},
        {"the same, holding the runtime's values", job.Limit(&MakeLimitList, objects)},
        {"the contract by hand: locked, asked for interfaces", job.Limit(&MakeListByHand, objects),
         Role::Contract},
        {"the runtime's list without a lock", job.Runtime(CLSID_UnsafeNodeList, objects)}};
    AddPeers(contenders, job.PeersOf, ItemCount);
    return contenders;
}

} // namespace

Body IndexList(std::size_t size)
{
    return Index(CLSID_NodeList, std::make_shared<const Objects>(MakeObjects(size)));
}

Jobs ListJobs()
{
    Jobs jobs;
    for (const ListJob& job : ListJobTable)
    {
        jobs.push_back({std::string("list of a million: ") + job.Title, 1.5,
                        [&job]
                        {
                            return Contenders(job);
                        }});
    }
    return jobs;
}

} // namespace Tavrik::Ossira::tBench
