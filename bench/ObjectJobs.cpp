// References, interface requests and creation. Runtime and limit go through the same loop, compiled
// once, so that its own cost and its place in memory are the same for both.
#include "Job.h"
#include "Limits.h"
#include "OssiraClasses.h"
#include "OssiraObject.h"

namespace Tavrik::Ossira::tBench
{

namespace
{

[[gnu::noinline]] void TakeAndDrop(benchmark::State& state, IUnknown* object)
{
    const CRoundReport report(state);
    for (auto _ : state)
    {
        object->AddRef();
        object->Release();
    }
}

[[gnu::noinline]] void AskAndRelease(benchmark::State& state, IUnknown* object, const IID& iid)
{
    const CRoundReport report(state);
    for (auto _ : state)
    {
        void* answer;
        object->QueryInterface(iid, &answer);
        static_cast<IUnknown*>(answer)->Release();
    }
}

template <class Create>
void CreateAndRelease(benchmark::State& state, Create create)
{
    const CRoundReport report(state);
    for (auto _ : state)
    {
        void* object;
        create(&object);
        static_cast<IUnknown*>(object)->Release();
    }
}

[[nodiscard]] ObjectPtr<IUnknown> MakeRuntimeValue()
{
    ObjectPtr<IUnknown> value;
    Require(CreateClassObject(&CLSID_Value, &IID_IUnknown, value.PutVoid()), "CreateClassObject");
    return value;
}

// A counted object of the standard library with six bases to be asked for.
template <int Number>
struct Base
{
    virtual ~Base() = default;
    int Content = Number;
};

struct SharedObject : Base<1>, Base<2>, Base<3>, Base<4>, Base<5>, Base<6>
{
};

void CopyShared(benchmark::State& state)
{
    const auto object = std::make_shared<SharedObject>();
    const CRoundReport report(state);
    for (auto _ : state)
    {
        std::shared_ptr<SharedObject> copy(object);
        benchmark::DoNotOptimize(copy);
    }
}

void CastShared(benchmark::State& state)
{
    std::shared_ptr<Base<1>> object = std::make_shared<SharedObject>();
    benchmark::DoNotOptimize(object);
    const CRoundReport report(state);
    for (auto _ : state)
    {
        auto answer = std::dynamic_pointer_cast<Base<6>>(object);
        benchmark::DoNotOptimize(answer);
    }
}

void MakeShared(benchmark::State& state)
{
    const CRoundReport report(state);
    for (auto _ : state)
    {
        auto object = std::make_shared<SharedObject>();
        benchmark::DoNotOptimize(object);
    }
}

[[nodiscard]] std::vector<Contender> ReferenceContenders()
{
    const auto takeAndDrop = [](const ObjectPtr<IUnknown>& object)
    {
        return [object](benchmark::State& state)
        {
            TakeAndDrop(state, object.Get());
        };
    };
    return {{"runtime", takeAndDrop(MakeRuntimeValue())},
            {"atomic increment and decrement", takeAndDrop(MakeLimitObject())},
            {"std::shared_ptr", CopyShared}};
}

// The limit's table is searched from its front, so that its last entry is its dearest one.
[[nodiscard]] std::vector<Contender> InterfaceContenders(const IID& runtimeIid)
{
    const auto askAndRelease = [](const ObjectPtr<IUnknown>& object, const IID& iid)
    {
        return [object, iid](benchmark::State& state)
        {
            AskAndRelease(state, object.Get(), iid);
        };
    };
    return {{"runtime", askAndRelease(MakeRuntimeValue(), runtimeIid)},
            {"comparison over a constant table", askAndRelease(MakeLimitObject(), IID_IUnknown)},
            {"std::dynamic_pointer_cast", CastShared}};
}

[[nodiscard]] std::vector<Contender> CreationContenders()
{
    // What a value would take without the tables that are seldom used.
    constexpr std::size_t size = 96;
    const auto create = [](void** out)
    {
        CreateClassObject(&CLSID_Value, &IID_IValue, out);
    };
    const auto createLimit = [size](void** out)
    {
        CreateLimitObject(size, out);
    };
    return {{"runtime",
             [create](benchmark::State& state)
             {
                 CreateAndRelease(state, create);
             }},
            {"allocate, count and free " + std::to_string(size) + " bytes",
             [createLimit](benchmark::State& state)
             {
                 CreateAndRelease(state, createLimit);
             }},
            {"std::make_shared", MakeShared}};
}

} // namespace

std::vector<Job> ObjectJobs()
{
    return {{"reference taken and dropped", 1.1, ReferenceContenders},
            {"interface asked (unknown, last of six) and released", 1.3,
             []
             {
                 return InterfaceContenders(IID_IUnknown);
             }},
            {"interface asked (cloneable, fifth of six) and released", 1.3,
             []
             {
                 return InterfaceContenders(IID_ICloneable);
             }},
            {"value created and released", 2.0, CreationContenders}};
}

} // namespace Tavrik::Ossira::tBench
