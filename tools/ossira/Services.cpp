// One function for each service, each to be read alone. What they say is read back from the
// services, never known beforehand.
#include "Services.h"

#include "Colour.h"
#include "OssiraBullets.h"
#include "OssiraCacheStack.h"
#include "OssiraDatatypes.h"
#include "OssiraMemory.h"
#include "OssiraModified.h"
#include "OssiraThreads.h"
#include "OssiraValueSetGroup.h"
#include "Survey.h"

#include <algorithm>
#include <array>
#include <sstream>

namespace Tavrik::tHost
{

using namespace Ossira;

namespace
{

constexpr GUID Setting_Speed = {
    0x7CCD792B, 0xA957, 0x463D, {0xB2, 0xBA, 0xC6, 0xC3, 0xC4, 0xEB, 0x32, 0xC3}};
constexpr GUID Scratch_IsUsed = {
    0x34C579DE, 0x294F, 0x4321, {0xAA, 0x80, 0x27, 0x02, 0xF5, 0x8A, 0xB1, 0xBB}};

template <class Interface>
ObjectPtr<Interface> Create(const CLSID& clsid, const char* name)
{
    ObjectPtr<Interface> object;
    Require(CreateObject(clsid, object), std::string("Creating ") + name);
    return object;
}

std::int32_t ReadSpeed(const ObjectPtr<IValueSet>& settings)
{
    std::int32_t speed = 0;
    Require(GetValueSINT32(settings.Get(), Setting_Speed, &speed), "Reading the speed");
    return speed;
}

// A user's settings over those that a program comes with. Whoever reads or writes a setting has one
// value set and knows nothing of layers; what is written passes by the layer that takes no writes.
std::string LayerSettings(ISingleton&)
{
    const auto factory = Create<IValueSet>(CLSID_ValueSet, "the factory's settings");
    const auto user = Create<IValueSet>(CLSID_ValueSet, "the user's settings");
    const auto group = Create<IValueSetGroup>(CLSID_ValueSetGroup, "a value set group");
    ObjectPtr<IValueSet> settings;
    Require(SetValueSINT32(factory.Get(), Setting_Speed, 60), "Storing the factory's speed");
    Require(group->InsertValueSet(0, factory.Get(), nullptr, LAYER_READONLY), "Adding a layer");
    Require(group->InsertValueSet(1, user.Get(), nullptr, 0), "Adding a layer");
    Require(group->GetValueSet(settings.Put()), "Asking for the merged settings");

    Require(SetValueSINT32(settings.Get(), Setting_Speed, 80), "Storing the user's speed");
    std::ostringstream text;
    text << "speed = " << ReadSpeed(settings) << ": \"user\" " << ReadSpeed(user)
         << " over \"factory\" " << ReadSpeed(factory);
    Require(group->SetValueSetAccessFlagsAt(1, LAYER_HIDDEN), "Hiding a layer");
    text << "; hiding \"user\" gives " << ReadSpeed(settings);
    return text.str();
}

// Values of a type that some module brings. The host has the type's identifier and the layout of
// its data, and asks the one service that knows all types.
std::string MixColours(ISingleton& singletons)
{
    using Samples::Colour;
    using Samples::DATATYPE_Colour;
    const auto types = GetSingleton<IDatatypesService>(singletons, CLSID_DatatypesService,
                                                       "the datatypes service");
    const Result known = types->Contains(DATATYPE_Colour);
    Require(known, "Asking for the datatype");
    if (known == S_FALSE)
        return "no module here brings colours";
    DatatypeCharacteristics type = {};
    Require(types->GetCharacteristics(DATATYPE_Colour, &type), "Asking what the datatype is");

    const Colour red = {1, 0, 0, 1};
    const Colour blue = {0, 0, 1, 1};
    Colour mixed = {};
    std::int32_t order = 0;
    Require(types->ValueLerp(DATATYPE_Colour, &red, sizeof(red), &blue, sizeof(blue), 0.25, &mixed,
                             sizeof(mixed)),
            "Mixing two colours");
    Require(types->ValueCompare(DATATYPE_Colour, &mixed, sizeof(mixed), &red, sizeof(red), &order),
            "Comparing two colours");
    const auto nameEnd = std::find(std::begin(type.Name), std::end(type.Name), '\0');
    std::ostringstream text;
    text << std::string(std::begin(type.Name), nameEnd) << ": a quarter from red to blue is ("
         << mixed.Red << ' ' << mixed.Green << ' ' << mixed.Blue << ' ' << mixed.Alpha << "), "
         << (order < 0 ? "less" : "not less") << " than red";
    return text.str();
}

void MakeDependent(IModifiedService& on, const ObjectPtr<IModifiedService>& dependant)
{
    ObjectPtr<ITouchModifiedChain> chain;
    Require(dependant.QueryTo(chain), "Asking for a dependant's chain");
    Require(on.AddTouchModified(chain.Get()), "Adding a dependant");
}

std::uint32_t ReadChanges(IModifiedService& service)
{
    std::uint32_t changes = 0;
    Require(service.GetModifiedCounter(&changes), "Reading a change counter");
    return changes;
}

// The screen compares its counter with the one at its last drawing, and asks nobody else.
std::string PassChangesOn(ISingleton&)
{
    const auto document = Create<IModifiedService>(CLSID_ModifiedService, "a modified service");
    const auto layout = Create<IModifiedService>(CLSID_ModifiedService, "a modified service");
    const auto screen = Create<IModifiedService>(CLSID_ModifiedService, "a modified service");
    MakeDependent(*document, layout);
    MakeDependent(*layout, screen);
    Require(document->TouchModified(), "Changing the document");
    Require(document->TouchModified(), "Changing the document");
    Require(layout->TouchModified(), "Changing the layout");
    std::ostringstream text;
    text << ReadChanges(*document) << " of the document; the layout that depends on it counts "
         << ReadChanges(*layout) << ", the screen behind both " << ReadChanges(*screen);
    return text.str();
}

bool IsPrime(std::int32_t number)
{
    for (std::int32_t divisor = 2; divisor * divisor <= number; ++divisor)
    {
        if (number % divisor == 0)
            return false;
    }
    return number > 1;
}

// Items take differing times, so every copy of the job takes the next one when it is done with its
// last. A box of one's own has as many threads as one likes, and ends them with its last reference;
// the pool that all modules share is in the singleton registry's box.
std::string CountPrimes(ISingleton&)
{
    constexpr std::int32_t threads = 3;
    const auto box = Create<ICommonThreadPoolBox>(CLSID_CommonThreadPoolBox, "a thread pool box");
    Require(box->Create(threads), "Creating the thread pool");
    tSystem::tThreads::IThreadPool* pool = nullptr;
    Require(box->GetThreadPool(&pool), "Asking for the thread pool");

    constexpr std::int32_t limit = 100'000;
    std::atomic<std::int32_t> next = 0;
    std::atomic<std::int32_t> primes = 0;
    tSystem::tThreads::CThreadJob job(
        [&](tSystem::tThreads::CAbortFlag abort)
        {
            for (std::int32_t item = 0; !abort.IsRaised() && (item = next++) < limit;)
                primes += IsPrime(item) ? 1 : 0;
        });
    constexpr std::uint8_t asymmetric = 0;
    Require(pool->Run(&job, nullptr, asymmetric, "count primes"), "Running a job");
    std::ostringstream text;
    text << primes << " primes below " << limit << ", counted on a pool of "
         << pool->GetThreadCount() << " threads";
    return text.str();
}

std::int32_t CountBlocks(ICommonMemoryAllocator32& allocator)
{
    std::int32_t blocks = 0;
    Require(allocator.GetStatistics(nullptr, &blocks, nullptr, nullptr, nullptr),
            "Reading the allocator's statistics");
    return blocks;
}

// Memory that may be handed from module to module: it belongs to its allocator, and goes back there
// whoever lets go of it last.
std::string ShareMemory(ISingleton& singletons)
{
    constexpr std::uint32_t wantedSize = 1000;
    constexpr std::uint32_t alignment = 64;
    const auto allocator = GetSingleton<ICommonMemoryAllocator32>(
        singletons, CLSID_CommonMemoryAllocator32, "the memory allocator");
    ObjectPtr<IMemorySegment32> segment;
    Require(allocator->AllocMemorySegment32(wantedSize, alignment, MEMORY_ZEROED,
                                            IMemorySegment32::Iid, segment.PutVoid()),
            "Allocating a memory segment");
    if (reinterpret_cast<std::uintptr_t>(segment->GetAddress()) % alignment != 0)
        throw CFailure("The memory segment is not aligned");
    std::ostringstream text;
    text << wantedSize << " bytes asked for, " << segment->GetSize() << " got, at a multiple of "
         << alignment << "; blocks out " << CountBlocks(*allocator);
    segment.Reset();
    text << ", then " << CountBlocks(*allocator);
    return text.str();
}

// As many objects are made as are in use at once, however many requests there are.
std::string ReuseObjects(ISingleton&)
{
    const auto cache =
        Create<IClsidObjectCacheStack>(CLSID_ClsidObjectCacheStack, "an object cache");
    Require(cache->Create(CLSID_ValueSet, IValueSet::Iid, 0, 0), "Setting the object cache up");
    std::array<ObjectPtr<IValueSet>, 4> inUse;
    std::size_t requests = 0;
    std::size_t made = 0;
    while (requests < 100)
    {
        for (ObjectPtr<IValueSet>& scratch : inUse)
        {
            Require(cache->Pop(IValueSet::Iid, scratch.PutVoid()), "Taking from the cache");
            made += scratch->ContainsGUID(Scratch_IsUsed) == S_FALSE ? 1u : 0u;
            Require(SetValueSINT32(scratch.Get(), Scratch_IsUsed, 1), "Using a value set");
            ++requests;
        }
        for (ObjectPtr<IValueSet>& scratch : inUse)
        {
            Require(cache->Push(scratch.Get()), "Putting back into the cache");
            scratch.Reset();
        }
    }
    std::ostringstream text;
    text << requests << " requests, " << inUse.size() << " at a time, served by " << made
         << " value sets";
    return text.str();
}

constexpr ServiceAtWork Services[] = {{"Layers", &LayerSettings},  {"Datatypes", &MixColours},
                                      {"Changes", &PassChangesOn}, {"Threads", &CountPrimes},
                                      {"Memory", &ShareMemory},    {"Cache", &ReuseObjects}};

} // namespace

std::span<const ServiceAtWork> ServicesAtWork()
{
    return Services;
}

} // namespace Tavrik::tHost
