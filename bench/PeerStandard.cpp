// What the standard library offers: its pointers, and the idioms that one writes with it.
#include "Lists.h"
#include "Readers.h"

#include <any>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <unordered_map>
#include <variant>

namespace Tavrik::Ossira::tBench
{

namespace
{

// An object with six bases to be asked for.
template <int Number>
struct Base
{
    virtual ~Base() = default;
    int Content = Number;
};

struct SixBases : Base<1>, Base<2>, Base<3>, Base<4>, Base<5>, Base<6>
{
};

struct CopyShared
{
    static constexpr const char* Name = "std::shared_ptr";
    std::shared_ptr<SixBases> Object = std::make_shared<SixBases>();

    void operator()()
    {
        std::shared_ptr<SixBases> copy(Object);
        benchmark::DoNotOptimize(copy);
    }
};

struct CopyIntrusive
{
    static constexpr const char* Name = "intrusive pointer";
    CPeerPointer Object = CPeerPointer(new CPeerObject);

    void operator()()
    {
        CPeerPointer copy(Object);
        benchmark::DoNotOptimize(copy);
    }
};

struct CastShared
{
    static constexpr const char* Name = "std::dynamic_pointer_cast";
    std::shared_ptr<Base<1>> Object = std::make_shared<SixBases>();

    void operator()()
    {
        benchmark::DoNotOptimize(Object);
        auto answer = std::dynamic_pointer_cast<Base<6>>(Object);
        benchmark::DoNotOptimize(answer);
    }
};

struct MakeShared
{
    static constexpr const char* Name = "std::make_shared";

    void operator()()
    {
        auto object = std::make_shared<SixBases>();
        benchmark::DoNotOptimize(object);
    }
};

struct MakeByFactory
{
    static constexpr const char* Name = "std::unordered_map of factories under a std::mutex";
    using Factory = std::unique_ptr<Base<1>> (*)();

    std::mutex Mutex;
    std::unordered_map<GUID, Factory, GuidHash, GuidEqual> Factories;
    Keys Classes = MakeKeys(30); // about as many as the runtime has

    MakeByFactory()
    {
        for (const GUID& key : Classes)
            Factories.emplace(
                key, []() -> std::unique_ptr<Base<1>> { return std::make_unique<SixBases>(); });
    }

    void operator()()
    {
        benchmark::DoNotOptimize(Classes);
        Factory factory;
        {
            const std::lock_guard guard(Mutex);
            factory = Factories.find(Classes[20])->second;
        }
        auto object = factory();
        benchmark::DoNotOptimize(object);
    }
};

template <std::size_t Size>
struct SetAny
{
    static constexpr const char* Name = "std::any under a std::mutex";
    using Data = std::array<unsigned char, Size>;

    std::mutex Mutex;
    std::any Value;
    Data In = {};

    void operator()()
    {
        benchmark::DoNotOptimize(In);
        {
            const std::lock_guard guard(Mutex);
            Value = In;
        }
        const std::lock_guard guard(Mutex);
        auto out = std::any_cast<Data>(Value);
        benchmark::DoNotOptimize(out);
    }
};

template <std::size_t Size>
struct SetVariant
{
    static constexpr const char* Name = "std::variant, without a lock";
    using Data = std::array<unsigned char, Size>;

    std::variant<std::monostate, double, Data> Value;
    Data In = {};

    void operator()()
    {
        benchmark::DoNotOptimize(In);
        Value = In;
        benchmark::DoNotOptimize(Value);
        auto out = std::get<Data>(Value);
        benchmark::DoNotOptimize(out);
    }
};

template <class Map, class Mutex, class ReadLock>
class CGuardedMap
{
public:
    explicit CGuardedMap(const Keys& keys)
    {
        for (const GUID& key : keys)
            mMap.emplace(key, CPeerPointer(new CPeerObject));
    }

    void Read(const GUID& key)
    {
        ReadLock guard(mMutex);
        CPeerPointer item = mMap.find(key)->second;
        guard.unlock();
        benchmark::DoNotOptimize(item);
    }

private:
    Mutex mMutex;
    Map mMap;
};

struct ByHalves
{
    bool operator()(const GUID& a, const GUID& b) const noexcept
    {
        using Halves = std::array<std::uint64_t, 2>;
        return std::bit_cast<Halves>(a) < std::bit_cast<Halves>(b);
    }
};

using UnorderedMap = std::unordered_map<GUID, CPeerPointer, GuidHash, GuidEqual>;
using OrderedMap = std::map<GUID, CPeerPointer, ByHalves>;

struct MapUnderMutex : CGuardedMap<UnorderedMap, std::mutex, std::unique_lock<std::mutex>>
{
    static constexpr const char* Name = "std::unordered_map under a std::mutex";
    using CGuardedMap::CGuardedMap;
};

struct MapUnderSharedMutex
    : CGuardedMap<UnorderedMap, std::shared_mutex, std::shared_lock<std::shared_mutex>>
{
    static constexpr const char* Name = "std::unordered_map under a std::shared_mutex";
    using CGuardedMap::CGuardedMap;
};

struct TreeUnderMutex : CGuardedMap<OrderedMap, std::mutex, std::unique_lock<std::mutex>>
{
    static constexpr const char* Name = "std::map under a std::mutex";
    using CGuardedMap::CGuardedMap;
};

struct IntrusiveVector : ListTrait<CPeerPointer>
{
    static constexpr const char* Name = "std::vector of intrusive pointers, without a lock";

    [[nodiscard]] static Pointer Make()
    {
        return Pointer(new CPeerObject);
    }
};

struct SharedVector : ListTrait<std::shared_ptr<CPeerObject>>
{
    static constexpr const char* Name = "std::vector of std::shared_ptr, without a lock";

    [[nodiscard]] static Pointer Make()
    {
        return std::make_shared<CPeerObject>();
    }
};

const CPeerLibrary gStandard(
    "standard library",
    Joined({RoundPeer<CopyShared>(Topic::Reference), RoundPeer<CopyIntrusive>(Topic::Reference),
            RoundPeer<CastShared>(Topic::Interface), RoundPeer<MakeShared>(Topic::Creation),
            RoundPeer<MakeByFactory>(Topic::Creation), RoundPeer<SetAny<4>>(Topic::SmallValue),
            RoundPeer<SetVariant<4>>(Topic::SmallValue), RoundPeer<SetAny<100>>(Topic::LargeValue),
            RoundPeer<SetVariant<100>>(Topic::LargeValue)},
           DictionaryPeers<MapUnderMutex>(), DictionaryPeers<MapUnderSharedMutex>(),
           DictionaryPeers<TreeUnderMutex>(), ListPeers<IntrusiveVector>(),
           ListPeers<SharedVector>()));

} // namespace

} // namespace Tavrik::Ossira::tBench
