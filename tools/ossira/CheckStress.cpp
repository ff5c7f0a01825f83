// The two steps of a class that repeat everything many times: in several threads, and with memory
// failing at one place after the other.
#include "AllocationWatch.h"
#include "CheckObject.h"
#include "CheckSteps.h"
#include "Print.h"

#include <algorithm>
#include <array>
#include <chrono>

namespace Tavrik::tHost
{

using namespace Ossira;

namespace
{

constexpr std::int64_t SweepLimit = 3000; // allocations of one operation that are made to fail

// Long enough for threads to meet, short enough for whoever waits.
template <class Work>
void ForAWhile(Work work)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(200);
    do
    {
        for (int round = 0; round < 100; ++round)
            work();
    } while (std::chrono::steady_clock::now() < end);
}

// A mixture of two of them is none of them.
constexpr std::array<std::string_view, 3> Names = {
    "aaaaaaaaaaaaaaaaaaaa", "bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb",
    "cccccccccccccccccccccccccccccccccccccccccccccccccccccccccccccccccccccccccccccccccccccccccccc"};

std::string NameAndRead(IObjectName& object, std::size_t number)
{
    std::array<char, 200> name = {};
    (void)object.SetObjectName(Names.at(number).data());
    const Result size = object.GetObjectName(name.data(), static_cast<std::int32_t>(name.size()));
    return {name.data(), static_cast<std::size_t>(std::clamp<Result>(size, 0, 200))};
}

void CheckNames(IObjectName& object)
{
    std::size_t number = 0;
    ForAWhile(
        [&]
        {
            const std::string name = NameAndRead(object, number++ % Names.size());
            Demand(std::find(Names.begin(), Names.end(), name) != Names.end(),
                   "the object's name is \"" + name + "\", which nobody gave it");
        });
}

// One allocation after the other fails until `work` needs no more.
template <class Work>
void Sweep(const CCheckScene& scene, const std::string& what, Work work)
{
    for (const bool andLater : {false, true})
    {
        if (andLater && tSystem::ExceptionsNeedMemory)
            continue;
        bool hasFailed = true;
        for (std::int64_t which = 0; hasFailed && which < SweepLimit; ++which)
        {
            scene.Doing(what + " with memory failing at allocation " + std::to_string(which) +
                        (andLater ? " and all later ones" : ""));
            hasFailed = work(which, andLater);
        }
    }
}

} // namespace

void CheckThreads(const CCheckScene& scene)
{
    const CCheckedModule module(scene.Path());
    (void)tSystem::WatchAllocations(scene.Path().c_str());
    const CBalance balance(module);
    const std::vector<const Deed*> deeds = DeedsOf(*module.Create(scene.Class()));
    scene.Doing("creating objects in 4 threads");
    InThreads(
        [&]
        {
            for (int round = 0; round < 2000; ++round)
                (void)module.Create(scene.Class());
        });
    balance.DemandNone("after 4 threads created objects and gave them back");
    ObjectPtr<IUnknown> object = module.Create(scene.Class());
    scene.Doing("taking and giving back references on one object in 4 threads");
    InThreads(
        [&]
        {
            for (int round = 0; round < 50000; ++round)
            {
                object->AddRef();
                object->Release();
            }
        });
    balance.DemandAlive("after 4 threads took and gave back references");
    for (const Deed* const deed : deeds)
    {
        scene.Doing(std::string(deed->Name) + " of one object in 4 threads");
        InThreads([&] { ForAWhile([&] { deed->Do(*object); }); });
    }
    ObjectPtr<IObjectName> named;
    if (Succeeded(Ask(*object, IID_IObjectName, named.PutVoid())) && named &&
        NameAndRead(*named, 0) == Names.at(0))
    {
        scene.Doing("naming one object in 4 threads");
        InThreads([&] { CheckNames(*named); });
    }
    named.Reset();
    object.Reset();
    balance.DemandNone("after 4 threads used one object");
}

void CheckMemory(const CCheckScene& scene)
{
    const CCheckedModule module(scene.Path());
    if (!tSystem::WatchAllocations(scene.Path().c_str()))
        throw CNotChecked("the module's allocations cannot be made to fail here");
    const CBalance balance(module);
    // Twice, since what is made only once is made in the first round.
    std::int64_t blocks = 0;
    std::int64_t failures = 0;
    for (int round = 0; round < 2; ++round)
    {
        blocks = tSystem::LiveAllocations();
        failures = 0;
        Sweep(scene, "creation",
              [&](std::int64_t which, bool andLater)
              {
                  void* out = nullptr;
                  Result created = S_OK;
                  bool isThrown = false;
                  tSystem::FailAllocations(which, andLater);
                  try
                  {
                      created = module.Create(scene.Class(), IID_IUnknown, &out);
                  }
                  catch (...)
                  {
                      isThrown = true;
                  }
                  const bool hasFailed = tSystem::EndFailing();
                  const ObjectPtr<IUnknown> object =
                      ObjectPtr<IUnknown>::Adopt(static_cast<IUnknown*>(out));
                  Demand(!isThrown, "an exception leaves creation when memory runs out");
                  Demand(Succeeded(created) == static_cast<bool>(object),
                         "when memory runs out, creation answers " + CodeText(created) +
                             (object ? " and an object" : " and no object"));
                  failures += hasFailed ? 1 : 0;
                  return hasFailed;
              });
        balance.DemandNone("after creations that ran out of memory");
    }
    const std::int64_t left = tSystem::LiveAllocations() - blocks;
    Demand(failures < 2 || left < failures / 2, std::to_string(failures) +
                                                    " creations that ran out of memory leave " +
                                                    std::to_string(left) + " blocks behind");
    for (const Deed* const deed : DeedsOf(*module.Create(scene.Class())))
    {
        Sweep(scene, deed->Name,
              [&](std::int64_t which, bool andLater)
              {
                  const ObjectPtr<IUnknown> object = module.Create(scene.Class());
                  bool isThrown = false;
                  tSystem::FailAllocations(which, andLater);
                  try
                  {
                      deed->Do(*object);
                  }
                  catch (...)
                  {
                      isThrown = true;
                  }
                  const bool hasFailed = tSystem::EndFailing();
                  Demand(!isThrown, std::string("an exception leaves ") + deed->Name +
                                        " when memory runs out");
                  return hasFailed;
              });
    }
    balance.DemandNone("after operations that ran out of memory");
}

} // namespace Tavrik::tHost
