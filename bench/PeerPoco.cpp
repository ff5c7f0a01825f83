// Poco: counted objects, factories of classes by name, and a loader of modules' classes.
#include "Lists.h"
#include "Readers.h"
#include "modules/PocoModule.h"

#include <Poco/AutoPtr.h>
#include <Poco/ClassLoader.h>
#include <Poco/Dynamic/Var.h>
#include <Poco/DynamicFactory.h>
#include <Poco/HashMap.h>
#include <Poco/Mutex.h>
#include <Poco/RefCountedObject.h>
#include <filesystem>

namespace Tavrik::Ossira::tBench
{

namespace
{

struct CCounted : Poco::RefCountedObject
{
    int Number = 0;
};

using CPocoPointer = Poco::AutoPtr<CCounted>;

struct CopyPointer
{
    static constexpr const char* Name = "AutoPtr";
    CPocoPointer Object = new CCounted;

    void operator()()
    {
        CPocoPointer copy(Object);
        benchmark::DoNotOptimize(copy);
    }
};

// An object with six bases to be asked for.
template <int Number>
struct Base : virtual Poco::RefCountedObject
{
    int Content = Number;
};

struct SixBases : Base<1>, Base<2>, Base<3>, Base<4>, Base<5>, Base<6>
{
};

struct CastPointer
{
    static constexpr const char* Name = "AutoPtr::cast";
    Poco::AutoPtr<Base<1>> Object = new SixBases;

    void operator()()
    {
        benchmark::DoNotOptimize(Object);
        auto answer = Object.cast<Base<6>>();
        benchmark::DoNotOptimize(answer);
    }
};

struct MakeByName
{
    static constexpr const char* Name = "DynamicFactory";
    Poco::DynamicFactory<Poco::RefCountedObject> Factory;
    std::string Class = "counted";

    MakeByName()
    {
        Factory.registerClass<CCounted>(Class);
    }

    void operator()()
    {
        Factory.createInstance(Class)->release();
    }
};

// The module stays loaded, so that its classes keep their tables.
struct MakeByLoader
{
    static constexpr const char* Name = "ClassLoader";
    using Loader = Poco::ClassLoader<PocoModuleBase>;

    Loader& Classes = LoadOnce();
    std::string Class = "Tavrik::Ossira::tBench::PocoGreeter";

    void operator()()
    {
        delete Classes.create(Class);
    }

    [[nodiscard]] static Loader& LoadOnce()
    {
        static Loader loader;
        const auto program = std::filesystem::read_symlink("/proc/self/exe");
        if (loader.begin() == loader.end())
            loader.loadLibrary((program.parent_path() / "bench-modules/PocoModule.so").string());
        return loader;
    }
};

template <class Data>
struct SetVar
{
    static constexpr const char* Name = "Dynamic::Var, without a lock";
    Poco::Dynamic::Var Value;
    Data In = {};

    void operator()()
    {
        benchmark::DoNotOptimize(In);
        Value = In;
        Data out = Value.extract<Data>();
        benchmark::DoNotOptimize(out);
    }
};

struct SetString : SetVar<std::string>
{
    static constexpr const char* Name = "Dynamic::Var with a string, without a lock";

    SetString()
    {
        In.assign(100, 'x');
    }
};

class CHashMap
{
public:
    static constexpr const char* Name = "HashMap under a FastMutex";

    explicit CHashMap(const Keys& keys)
    {
        for (const GUID& key : keys)
            mMap[Key{key}] = CPocoPointer(new CCounted);
    }

    void Read(const GUID& key)
    {
        Poco::ScopedLockWithUnlock<Poco::FastMutex> guard(mMutex);
        CPocoPointer item = mMap.find(Key{key})->second;
        guard.unlock();
        benchmark::DoNotOptimize(item);
    }

private:
    struct Key : GUID
    {
        [[nodiscard]] bool operator==(const Key& other) const noexcept
        {
            return SameGuid(*this, other);
        }
    };

    struct Hash
    {
        [[nodiscard]] std::size_t operator()(const Key& key) const noexcept
        {
            return GuidHash()(key);
        }
    };

    Poco::FastMutex mMutex;
    Poco::HashMap<Key, CPocoPointer, Hash> mMap;
};

struct VectorOfPointers : ListTrait<CPocoPointer>
{
    static constexpr const char* Name = "std::vector of AutoPtr, without a lock";

    [[nodiscard]] static Pointer Make()
    {
        return new CCounted;
    }
};

const CPeerLibrary gPoco(
    "Poco",
    Joined({RoundPeer<CopyPointer>(Topic::Reference), RoundPeer<CastPointer>(Topic::Interface),
            RoundPeer<MakeByName>(Topic::Creation), RoundPeer<MakeByLoader>(Topic::ModuleClass),
            RoundPeer<SetVar<std::int32_t>>(Topic::SmallValue),
            RoundPeer<SetString>(Topic::LargeValue)},
           DictionaryPeers<CHashMap>(), ListPeers<VectorOfPointers>()));

} // namespace

} // namespace Tavrik::Ossira::tBench
