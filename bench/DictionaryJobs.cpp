// Dictionary reads in an order without pattern. Every key has an object of its own, a value of the
// runtime, and all tables hold the same ones: what is compared is the tables, and neither how large
// the objects are nor where in memory they lie.
#include "Job.h"
#include "Limits.h"
#include "Objects.h"
#include "OssiraClasses.h"
#include "OssiraCollections.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <mutex>
#include <random>
#include <unordered_map>

namespace Tavrik::Ossira::tBench
{

namespace
{

[[nodiscard]] Keys Shuffled(Keys keys)
{
    std::shuffle(keys.begin(), keys.end(), std::mt19937_64(keys.size()));
    return keys;
}

// Reads key after key and gives each reference back.
template <class Read>
void ReadKeys(benchmark::State& state, const Keys& keys, Read read)
{
    const CRoundReport report(state);
    std::size_t at = 0;
    for (auto _ : state)
    {
        read(keys[at]);
        if (++at == keys.size())
            at = 0;
    }
}

void ReadAndRelease(benchmark::State& state, const Keys& keys, auto get)
{
    ReadKeys(state, keys,
             [&get](const GUID& key)
             {
                 void* item;
                 get(key, &item);
                 static_cast<IUnknown*>(item)->Release();
             });
}

[[nodiscard]] Contender RuntimeContender(const Keys& keys, const Objects& objects)
{
    ObjectPtr<IDictionaryGUID> dictionary;
    Require(CreateObject(CLSID_DictionaryGUID, dictionary), "CreateObject");
    for (std::size_t at = 0; at < keys.size(); ++at)
        Require(dictionary->SetValueGUID(keys[at], objects[at].Get()), "SetValueGUID");
    return {"runtime", [dictionary, order = Shuffled(keys)](benchmark::State& state)
            {
                ReadAndRelease(state, order,
                               [&dictionary](const GUID& key, void** out)
                               { dictionary->GetValueGUID(key, IID_IValue, out); });
            }};
}

[[nodiscard]] Contender LimitContender(const char* name, const Keys& keys, const Objects& objects,
                                       std::shared_ptr<LimitDictionary> dictionary)
{
    for (std::size_t at = 0; at < keys.size(); ++at)
        dictionary->Insert(keys[at], objects[at].Get());
    return {name, [dictionary, order = Shuffled(keys)](benchmark::State& state)
            {
                ReadAndRelease(state, order,
                               [&dictionary](const GUID& key, void** out)
                               { dictionary->Get(key, out); });
            }};
}

struct GuidHash
{
    std::size_t operator()(const GUID& key) const noexcept
    {
        const auto halves = std::bit_cast<std::array<std::uint64_t, 2>>(key);
        return halves[0] ^ halves[1];
    }
};

struct GuidEqual
{
    bool operator()(const GUID& a, const GUID& b) const noexcept
    {
        return SameGuid(a, b);
    }
};

// Objects as large as the runtime's, though not the same.
[[nodiscard]] Contender UnorderedMapContender(const Keys& keys)
{
    struct Guarded
    {
        std::mutex Mutex;
        std::unordered_map<GUID, StandardObject, GuidHash, GuidEqual> Map;
    };
    const auto guarded = std::make_shared<Guarded>();
    for (const GUID& key : keys)
        guarded->Map.emplace(key, MakeStandardObject());
    return {"std::unordered_map of shared_ptr under std::mutex",
            [guarded, order = Shuffled(keys)](benchmark::State& state)
            {
                ReadKeys(state, order,
                         [&guarded](const GUID& key)
                         {
                             std::unique_lock guard(guarded->Mutex);
                             auto item = guarded->Map.find(key)->second;
                             guard.unlock();
                             benchmark::DoNotOptimize(item);
                         });
            }};
}

[[nodiscard]] Job ReadJob(const std::string& count, std::size_t keyCount)
{
    return {
        "dictionary of " + count + " keys read", 1.5,
        [keyCount]
        {
            const Keys keys = MakeKeys(keyCount);
            const Objects objects = MakeObjects(keyCount);
            const Objects small = MakeSmallObjects(keyCount);
            const char* const flat = "flat table under a spin word";
            return std::vector{
                RuntimeContender(keys, objects),
                LimitContender(flat, keys, objects, MakeFlatDictionary(keyCount)),
                LimitContender("the same, holding objects of half the size", keys, small,
                               MakeFlatDictionary(keyCount)),
                LimitContender("std::map under a spin word", keys, objects, MakeTreeDictionary()),
                UnorderedMapContender(keys)};
        }};
}

} // namespace

std::vector<Job> DictionaryJobs()
{
    return {ReadJob("10", 10), ReadJob("1,000", 1000), ReadJob("100,000", 100000)};
}

} // namespace Tavrik::Ossira::tBench
