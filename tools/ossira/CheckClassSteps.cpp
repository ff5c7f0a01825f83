// What every class must stand.
#include "AllocationWatch.h"
#include "CheckObject.h"
#include "CheckSteps.h"
#include "InterfaceTable.h"
#include "Print.h"

#include <algorithm>
#include <cstring>
#include <thread>

namespace Tavrik::tHost
{

using namespace Ossira;

namespace
{

void CheckCreation(const CCheckScene& scene)
{
    const CCheckedModule module(scene.Path());
    const bool isWatching = tSystem::WatchAllocations(scene.Path().c_str());
    const CBalance balance(module);
    const std::uint32_t runtimes = GetObjectOpenCount();
    const auto createSome = [&](int count)
    {
        for (int index = 0; index < count; ++index)
        {
            const ObjectPtr<IUnknown> object =
                Guarded("creation", [&] { return module.Create(scene.Class()); });
            balance.DemandAlive("as soon as it is created");
            Demand(module.Calls().CanUnloadNow() == S_FALSE,
                   "DllCanUnloadNow does not answer S_FALSE while an object is alive");
        }
        balance.DemandNone("after the last reference was given back");
    };
    scene.Doing("creating an object and giving it back");
    constexpr int many = 50;
    createSome(many); // makes what is made only once
    Demand(GetObjectOpenCount() < runtimes + many,
           "every object leaves an object of the runtime alive that it had made");
    const std::int64_t blocks = tSystem::LiveAllocations();
    createSome(many);
    const std::int64_t left = tSystem::LiveAllocations() - blocks;
    Demand(!isWatching || left < many, std::to_string(many) + " objects leave " +
                                           std::to_string(left) +
                                           " blocks of memory behind when they are gone");
}

void CheckIdentity(const CCheckScene& scene)
{
    const CCheckedModule module(scene.Path());
    const ObjectPtr<IUnknown> object = module.Create(scene.Class());
    void* identity = nullptr;
    const auto look = [&](const std::string& name, IUnknown& face)
    {
        scene.Doing(std::string("asking for IUnknown through ") + name);
        ObjectPtr<IUnknown> self;
        Demand(Succeeded(Ask(face, IID_IUnknown, self.PutVoid())) && self,
               std::string("IUnknown is refused through ") + name);
        identity = identity == nullptr ? self.Get() : identity;
        Demand(self.Get() == identity, std::string("asked for IUnknown through ") + name +
                                           ", it answers another pointer than before");
    };
    ThroughEach(*object, look);
}

void CheckCounting(const CCheckScene& scene)
{
    const CCheckedModule module(scene.Path());
    const std::vector<const KnownInterface*> interfaces =
        InterfacesOf(*module.Create(scene.Class()));
    const CBalance balance(module);
    ObjectPtr<IUnknown> object;
    for (const KnownInterface* known : interfaces)
    {
        const std::string asked = std::string(known->Name) + " was asked for and given back";
        scene.Doing(std::string("asking for ") + known->Name + " and giving it back");
        object = module.Create(scene.Class());
        for (int time = 0; time < 3; ++time)
        {
            (void)Has(*object, known->Id);
            balance.DemandAlive("after " + asked);
        }
        object.Reset();
        balance.DemandNone("after " + asked);
        Demand(Succeeded(module.Create(scene.Class(), known->Id, object.PutVoid())) && object,
               std::string("an object has ") + known->Name + ", but cannot be created as one");
        object.Reset();
        balance.DemandNone(std::string("after an object was created as ") + known->Name +
                           " and given back");
    }
    object = module.Create(scene.Class());
    const auto takeAndGiveBack = [&](const std::string& name, IUnknown& face)
    {
        scene.Doing("taking and giving back references through " + name);
        face.AddRef();
        face.AddRef();
        face.Release();
        face.Release();
        balance.DemandAlive("after balanced calls through " + name);
    };
    ThroughEach(*object, takeAndGiveBack);
    object.Reset();
    balance.DemandNone("after the last reference was given back");
}

void CheckQueries(const CCheckScene& scene)
{
    const CCheckedModule module(scene.Path());
    const ObjectPtr<IUnknown> object = module.Create(scene.Class());
    const std::vector<const KnownInterface*> interfaces = InterfacesOf(*object);
    const auto answers = [&](const IID& iid)
    {
        return std::any_of(interfaces.begin(), interfaces.end(),
                           [&](const KnownInterface* each) { return SameGuid(each->Id, iid); });
    };
    for (const KnownInterface* known : interfaces)
    {
        Demand(SameGuid(known->Base, IID_IUnknown) || answers(known->Base),
               std::string("it has ") + known->Name + ", and not the interface that this extends");
    }
    const auto look = [&](const std::string& name, IUnknown& face)
    {
        scene.Doing("asking for every interface through " + name);
        for (const KnownInterface& known : KnownInterfaces)
        {
            const bool has = Has(face, known.Id);
            Demand(has == answers(known.Id),
                   std::string(known.Name) + (has ? " is answered" : " is refused") + " through " +
                       name + ", and not so through IUnknown");
        }
    };
    ThroughEach(*object, look);
}

void CheckUnknown(const CCheckScene& scene)
{
    const CCheckedModule module(scene.Path());
    const CBalance balance(module);
    ObjectPtr<IUnknown> object = module.Create(scene.Class());
    const auto look = [&](const std::string& name, IUnknown& face)
    {
        scene.Doing("asking for an interface that nobody has, through " + name);
        void* out = &out;
        const Result asked = Ask(face, IID_OfNobody, &out);
        Demand(asked == E_NOINTERFACE, "an interface that nobody has is answered by " +
                                           CodeText(asked) + " through " + name);
        Demand(out == nullptr,
               "an interface is refused through " + name + ", and *out is not null");
    };
    ThroughEach(*object, look);
    object.Reset();
    void* out = &out;
    scene.Doing("creating an object as an interface that nobody has");
    const Result created =
        Guarded("creation", [&] { return module.Create(scene.Class(), IID_OfNobody, &out); });
    Demand(Failed(created) && out == nullptr, "creation as an interface that nobody has answers " +
                                                  CodeText(created) +
                                                  (out == nullptr ? "" : ", and *out is not null"));
    balance.DemandNone("after creations that failed");
}

// A reference that stands at address 0, as callers of other languages can pass it.
[[nodiscard]] const IID& NullIid()
{
    static const IID* volatile address = nullptr;
    return *address;
}

// The calling conventions of both platforms pass these wherever the arguments are pointers, numbers
// of whatever size, or absent.
Result CallWithNulls(IUnknown& object, std::size_t slot)
{
    using Operation = Result (*)(void*, void*, void*, void*, void*, void*, void*, void*, void*);
    Operation operation = nullptr;
    const char* operations = nullptr;
    std::memcpy(&operations, reinterpret_cast<const char*>(&object), sizeof operations);
    std::memcpy(&operation, operations + slot * sizeof operation, sizeof operation);
    return operation(&object, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                     nullptr);
}

void CheckNulls(const CCheckScene& scene)
{
    const CCheckedModule module(scene.Path());
    const CBalance balance(module);
    ObjectPtr<IUnknown> object = module.Create(scene.Class());
    const auto look = [&](const std::string& name, IUnknown& face)
    {
        scene.Doing("QueryInterface without a place for the answer, through " + name);
        Demand(Failed(Ask(face, IID_IUnknown, nullptr)),
               "QueryInterface without a place for the answer succeeds");
        scene.Doing("QueryInterface without an identifier, through " + name);
        void* out = &out;
        Demand(Failed(Ask(face, NullIid(), &out)), "QueryInterface without an identifier succeeds");
        Demand(out == nullptr, "QueryInterface without an identifier is refused, and "
                               "*out is not null");
    };
    ThroughEach(*object, look);
    for (const KnownOperation& operation : KnownOperations)
    {
        // There null is an argument like others.
        if (SameGuid(operation.Owner, IID_IBootstrap) ||
            SameGuid(operation.Owner, IID_IMasterBootstrap))
            continue;
        ObjectPtr<IUnknown> face;
        if (Failed(Ask(*object, operation.Owner, face.PutVoid())) || !face)
            continue;
        scene.Doing(std::string(operation.Name) + " with null for every argument");
        Guarded(operation.Name, [&] { return CallWithNulls(*face, operation.Slot); });
    }
    scene.Doing("using the object from another thread after the calls with null, which may have "
                "left a lock taken");
    const std::vector<const Deed*> deeds = DeedsOf(*object);
    std::string failure;
    std::thread(
        [&]
        {
            try
            {
                DoAll(deeds, *object);
            }
            catch (const CFailure& thrown)
            {
                failure = thrown.what();
            }
        })
        .join();
    Demand(failure.empty(), failure);
    object.Reset();
    balance.DemandNone("after calls with null");
}

void CheckAggregation(const CCheckScene& /*scene*/)
{
    throw CNotChecked("a module's exports take no outer object");
}

// What a class's start-up left with the process goes with the singletons.
void ClearSingletons()
{
    ObjectPtr<ISingleton> singletons;
    Require(CreateObject(CLSID_GlobalSingleton, singletons), "Asking for the singleton registry");
    Require(singletons->ClearObjects(), "Clearing the singletons");
}

void CheckStartUpTwice(const CCheckScene& scene)
{
    const CCheckedModule module(scene.Path());
    const CBalance balance(module);
    ObjectPtr<IBootstrap> one;
    ObjectPtr<IBootstrap> other;
    if (!Has(*module.Create(scene.Class()), IID_IBootstrap))
        throw CNotChecked("the class has no IBootstrap");
    Require(module.Create(scene.Class(), IID_IBootstrap, one.PutVoid()), "Creating an object");
    Require(module.Create(scene.Class(), IID_IBootstrap, other.PutVoid()), "Creating another");
    const auto call =
        [&](const char* what, Result (IBootstrap::*operation)(IUnknown*), IBootstrap& object)
    {
        scene.Doing(what);
        Guarded(what, [&] { return (object.*operation)(nullptr); });
    };
    call("Cleanup before any Startup", &IBootstrap::Cleanup, *other);
    call("Startup", &IBootstrap::Startup, *one);
    call("Startup for the second time", &IBootstrap::Startup, *one);
    call("Startup on another object", &IBootstrap::Startup, *other);
    call("Cleanup on another object", &IBootstrap::Cleanup, *other);
    call("Cleanup for the second time", &IBootstrap::Cleanup, *one);
    one.Reset();
    other.Reset();
    scene.Doing("clearing the singletons after start-up");
    ClearSingletons();
    balance.DemandNone("after clean-up, when the singletons are cleared");
}

void CheckUnloading(const CCheckScene& scene)
{
    const auto live = [&]
    {
        {
            scene.Doing("loading the module");
            const CCheckedModule module(scene.Path());
            {
                const ObjectPtr<IUnknown> object = module.Create(scene.Class());
                DoAll(DeedsOf(*object), *object);
            }
            const Result agrees = module.Calls().CanUnloadNow();
            Demand(agrees == S_OK,
                   "DllCanUnloadNow answers " + CodeText(agrees) +
                       " when every reference was given back: the module is never unloaded (" +
                       std::to_string(module.OpenObjects()) + " of its objects are counted)");
            scene.Doing("unloading the module");
        }
        Demand(!tSystem::IsLoaded(scene.Path().c_str()), "the file stays loaded when it is closed");
    };
    live(); // after which the runtime has what it has only once
    constexpr int many = 20;
    const std::uint32_t objects = GetObjectOpenCount();
    const std::int64_t blocks = tSystem::LiveAllocations();
    for (int time = 0; time < many; ++time)
        live();
    const std::uint32_t objectsLeft = GetObjectOpenCount() - objects;
    const std::int64_t blocksLeft = tSystem::LiveAllocations() - blocks;
    const std::string times = " when it was loaded and unloaded " + std::to_string(many) + " times";
    Demand(objectsLeft == 0, "the module leaves " + std::to_string(objectsLeft) +
                                 " objects of the runtime alive" + times);
    Demand(blocksLeft < many,
           "the module leaves " + std::to_string(blocksLeft) + " blocks of memory behind" + times);
}

constexpr CheckStep StepsOfClass[] = {
    {"creation", &CheckCreation,
     "what is left over keeps the module from being unloaded, and grows for as long as a host runs",
     "the constructor and destructor: what is taken and not given back, or given back twice"},
    {"identity", &CheckIdentity, "two references to one object are told to be one by this pointer",
     "QueryInterface: IUnknown has to be answered by the same base through every interface"},
    {"counting", &CheckCounting,
     "an object that goes too early crashes its host, one that stays too long leaks",
     "QueryInterface, which adds exactly one reference, AddRef and Release"},
    {"queries", &CheckQueries, "what an object offers must not depend on where one asks it",
     "QueryInterface, and the OSSIRA_INTERFACES of every base"},
    {"unknown interface", &CheckUnknown,
     "callers try what an object offers, and rely on the code and on null",
     "QueryInterface: E_NOINTERFACE, and null in *out"},
    {"null arguments", &CheckNulls,
     "callers of other languages pass null, and an exception must not leave an operation",
     "the operation's first lines (OSSIRA_CHECK_POINTER, OSSIRA_CHECK_REFERENCE) and its last "
     "(OSSIRA_CATCH_RETURN); locks in guards"},
    {"aggregation", &CheckAggregation, "", ""},
    {"threads", &CheckThreads, "hosts create and use objects from any thread",
     "static variables that constructors change, reference counts that are not atomic, members "
     "that are written without a lock"},
    {"failing memory", &CheckMemory,
     "memory runs out in somebody else's process, which has to survive it",
     "what is allocated: owned by an object with a destructor, and OSSIRA_CATCH_RETURN at the end "
     "of the operation"},
    {"start-up twice", &CheckStartUpTwice,
     "clean-up may come without start-up, and on another object of the class",
     "Startup and Cleanup: what they enter in the singletons has to be gone after clean-up"},
    {"unloading", &CheckUnloading,
     "hosts unload modules and load them again, and a module that stays holds its file",
     "static variables that keep objects, threads that are not ended, what static constructors "
     "make and destructors do not give back"},
};

} // namespace

std::span<const CheckStep> ClassSteps()
{
    return StepsOfClass;
}

void PrepareSteps()
{
    ObjectPtr<ISingleton> singletons; // from now on the runtime has what it has only once
    Require(CreateObject(CLSID_GlobalSingleton, singletons), "Asking for the singleton registry");
    ObjectPtr<IObserverPrint> observer;
    Require(GetGlobalObserver(observer.Put()), "Asking for the diagnostics observer");
    Require(observer->SetLevelMask(0, ~0U), "Setting the diagnostics levels"); // failures are meant
    (void)tSystem::WatchAllocations(L"TavrikOssira.dll");
}

} // namespace Tavrik::tHost
