// Dictionary reads in an order without pattern, by one thread and by two. Every key has an object
// of its own. The limit's objects are as small as objects can be; one more limit holds the same
// values as the runtime's dictionary, so that it shows what the table alone costs.
#include "Limits.h"
#include "OssiraClasses.h"
#include "OssiraCollections.h"
#include "Readers.h"

namespace Tavrik::Ossira::tBench
{

namespace
{

class CRuntimeTable
{
public:
    CRuntimeTable(const Keys& keys, const Objects& objects)
    {
        Require(CreateObject(CLSID_DictionaryGUID, mDictionary), "CreateObject");
        for (std::size_t at = 0; at < keys.size(); ++at)
            Require(mDictionary->SetValueGUID(keys[at], objects[at].Get()), "SetValueGUID");
    }

    void Read(const GUID& key)
    {
        void* item;
        mDictionary->GetValueGUID(key, IID_IValue, &item);
        static_cast<IUnknown*>(item)->Release();
    }

private:
    ObjectPtr<IDictionaryGUID> mDictionary;
};

class CLimitTable
{
public:
    CLimitTable(const Keys& keys, const Objects& objects,
                std::unique_ptr<LimitDictionary> dictionary)
        : mDictionary(std::move(dictionary))
    {
        for (std::size_t at = 0; at < keys.size(); ++at)
            mDictionary->Insert(keys[at], objects[at].Get());
    }

    void Read(const GUID& key)
    {
        void* item;
        mDictionary->Get(key, &item);
        static_cast<IUnknown*>(item)->Release();
    }

private:
    std::unique_ptr<LimitDictionary> mDictionary;
};

[[nodiscard]] auto MakeRuntimeTable(const Keys& keys)
{
    return std::make_shared<CRuntimeTable>(keys, MakeObjects(keys.size()));
}

[[nodiscard]] auto MakeLimitTable(const Keys& keys)
{
    return std::make_shared<CLimitTable>(keys, MakeSmallObjects(keys.size()),
                                         MakeFlatDictionary(keys.size()));
}

[[nodiscard]] std::vector<Contender> ReadContenders(std::size_t size)
{
    const Keys keys = MakeKeys(size);
    const Objects objects = MakeObjects(size);
    const auto order = std::make_shared<const Keys>(Shuffled(keys));
    std::vector<Contender> contenders = {
        {"runtime", ReadKeys(std::make_shared<CRuntimeTable>(keys, objects), order)},
        {"flat table of small objects under a spin word", ReadKeys(MakeLimitTable(keys), order)},
        {"the same, holding the runtime's values",
         ReadKeys(std::make_shared<CLimitTable>(keys, objects, MakeFlatDictionary(size)), order)},
        {"the contract by hand: keyed hash, asked for an interface",
         ReadKeys(std::make_shared<CLimitTable>(keys, objects, MakeDictionaryByHand(size)), order),
         Role::Contract}};
    AddPeers(contenders, Topic::DictionaryRead, size);
    return contenders;
}

[[nodiscard]] std::vector<Contender> ReaderContenders()
{
    const Keys keys = MakeKeys(1000);
    std::vector<Contender> contenders = ReaderPair("runtime", MakeRuntimeTable(keys), keys);
    for (Contender& contender :
         ReaderPair("flat table of small objects under a spin word", MakeLimitTable(keys), keys))
        contenders.push_back(std::move(contender));
    AddPeers(contenders, Topic::DictionaryReaders, keys.size());
    return contenders;
}

[[nodiscard]] Job ReadJob(std::size_t size, double reach)
{
    return {"dictionary of " + Text(size) + " keys read", reach,
            [size]
            {
                return ReadContenders(size);
            }};
}

} // namespace

Body ReadDictionary(std::size_t size)
{
    const Keys keys = MakeKeys(size);
    return ReadKeys(MakeRuntimeTable(keys), std::make_shared<const Keys>(Shuffled(keys)));
}

Jobs DictionaryJobs()
{
    return {ReadJob(10, 1.3), ReadJob(1000, 1.3), ReadJob(100000, 2),
            Job{"readers side by side, dictionary of 1,000 keys", 1.7, ReaderContenders, NoReach,
                Kind::Readers}};
}

} // namespace Tavrik::Ossira::tBench
