// References, interface requests and creation. Runtime and limit go through the same loop, compiled
// once, so that its own cost and its place in memory are the same for both.
#include "Limits.h"
#include "OssiraClasses.h"
#include "OssiraObject.h"
#include "Peers.h"
#include "SpinWord.h"
#include "Work.h"

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

[[nodiscard]] Body CreateAndRelease(auto create)
{
    return Repeat(
        [create]
        {
            void* object;
            create(&object);
            static_cast<IUnknown*>(object)->Release();
        });
}

[[nodiscard]] ObjectPtr<IUnknown> MakeRuntimeValue()
{
    ObjectPtr<IUnknown> value;
    Require(CreateClassObject(&CLSID_Value, &IID_IUnknown, value.PutVoid()), "CreateClassObject");
    return value;
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
    std::vector<Contender> contenders = {
        {"runtime", takeAndDrop(MakeRuntimeValue())},
        {"atomic increment and decrement by virtual calls", takeAndDrop(MakeLimitObject())}};
    AddPeers(contenders, Topic::Reference);
    return contenders;
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
    std::vector<Contender> contenders = {
        {"runtime", askAndRelease(MakeRuntimeValue(), runtimeIid)},
        {"comparison over a constant table", askAndRelease(MakeLimitObject(), IID_IUnknown)}};
    AddPeers(contenders, Topic::Interface);
    return contenders;
}

[[nodiscard]] std::vector<Contender> CreationContenders()
{
    // What a value would take without the tables that are seldom used.
    constexpr std::size_t size = 96;
    const auto create = [](void** out)
    {
        CreateClassObject(&CLSID_Value, &IID_IValue, out);
    };
    const auto createByHand = [](void** out)
    {
        CreateByHand(&CLSID_Value, &IID_IUnknown, out);
    };
    const auto createLimit = [size](void** out)
    {
        CreateLimitObject(size, out);
    };
    std::vector<Contender> contenders = {
        {"runtime", CreateAndRelease(create)},
        {LimitOfCreation, AllocateAndFree},
        {"allocate, count and free " + std::to_string(size) + " bytes",
         CreateAndRelease(createLimit)},
        {"the contract by hand: found, kept, counted, asked", CreateAndRelease(createByHand),
         Role::Contract}};
    AddPeers(contenders, Topic::Creation);
    return contenders;
}

} // namespace

void AllocateAndFree(benchmark::State& state)
{
    const CRoundReport report(state);
    for (auto _ : state)
    {
        void* memory = ::operator new(96);
        benchmark::DoNotOptimize(memory);
        ::operator delete(memory);
    }
}

Jobs ObjectJobs()
{
    return {{"reference taken and dropped", 1.05, ReferenceContenders},
            {"interface asked (unknown, last of six) and released", 1.1,
             []
             {
                 return InterfaceContenders(IID_IUnknown);
             }},
            {"interface asked (cloneable, fifth of six) and released", 1.1,
             []
             {
                 return InterfaceContenders(IID_ICloneable);
             }},
            {"value created and released", 1.3, CreationContenders, 1.0}};
}

// What all other times are made of: no job of the runtime that is safe for threads does without.
Jobs MachineJobs()
{
    const auto locked = [word = std::make_shared<std::atomic<std::uint32_t>>()]
    {
        word->fetch_add(1, std::memory_order_relaxed);
    };
    const auto spinPair = [word = std::make_shared<SpinWord>()]
    {
        word->lock();
        benchmark::ClobberMemory();
        word->unlock();
    };
    return {{"this processor's", NoReach,
             [=]
             {
                 return std::vector<Contender>{{"locked instruction", Repeat(locked)},
                                               {"spin word taken and given back", Repeat(spinPair)},
                                               ThreadSwitch()};
             },
             NoReach, Kind::Times}};
}

} // namespace Tavrik::Ossira::tBench
