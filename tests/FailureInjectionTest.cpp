// Memory runs out at every point of every operation of every class: the first allocation fails,
// then the second, and so on until the operation succeeds; once with only that one failing, once
// with all after it. Each time the answer must be `E_OUTOFMEMORY`, what a caller can see must be as
// before, and nothing may leak.
#include "ComServer.h"
#include "EveryOperation.h"
#include "FailingMemory.h"
#include "Library.h"

#include <cstring>
#include <span>

namespace Tavrik::Ossira::tTest
{

namespace
{

// Calls of an interface, of those objects that have it: one for each word of letters.
struct Use
{
    IID Iid;
    std::size_t Slot;
    const char* Words;
};

// Refused where an object has nothing of its own to set.
const Use Furnishing[] = {{IID_IList, 7, "v"},
                          {IID_IDictionaryGUID, 11, "gy"},
                          {IID_IObjectName, 3, "b"},
                          {IID_IValue, 4, "xb4"},
                          {IID_ISingleton, 4, "gv"},
                          {IID_IObjectFactory, 4, "gsb n0b"},
                          {IID_IClsidRegistry, 3, "gg"},
                          {IID_IClsidRegistry, 4, "ggg"},
                          {IID_IModifiedService, 5, "c"},
                          {IID_IClsidObjectCacheStack, 7, "ni01"},
                          {IID_IClsidObjectCacheStack, 6, "v"}};

const Use Questions[] = {{IID_IObjectName, 4, "b9"},
                         {IID_ICollection, 4, "0"},
                         {IID_ICollection, 9, "v"},
                         {IID_IValue, 3, "xb4 gb4"},
                         {IID_IValue, 5, "b"},
                         {IID_IClsidRegistry, 7, "g h"},
                         {IID_IClsidRegistry, 8, "gg gh hg hh"},
                         {IID_IClsidRegistry, 9, "gg gh hg hh"},
                         {IID_IClsidRegistry, 10, "ggg ggh ghg ghh hgg hgh hhg hhh"},
                         {IID_IModifiedService, 3, "b"},
                         {IID_IDisposable, 4, "0"},
                         {IID_IStack, 3, "0"},
                         {IID_ICommonMemoryAllocator32, 3, "b 0b"},
                         {IID_IDatatypesService, 4, "g x"}};

// What they answer.
std::string Ask(IUnknown& object, std::span<const Use> uses, Arguments& with)
{
    std::string told;
    for (const auto& [iid, slot, words] : uses)
    {
        ObjectPtr<IUnknown> asked;
        std::istringstream stream(words);
        if (object.QueryInterface(iid, asked.PutVoid()) != S_OK)
            continue;
        for (std::string letters; stream >> letters;)
        {
            told += std::to_string(Call(asked.Get(), slot, with.Of(letters)));
            told += std::string(with.Data, 16) + ",";
        }
    }
    return told;
}

// A new object with something under the key of the arguments, or what it hands out.
ObjectPtr<IUnknown> Furnished(const CLSID& clsid, const IID& iid, Part part, Arguments& with)
{
    const auto object = Make<IUnknown>(clsid);
    EXPECT_EQ(with.Layer->SetValueGUID(with.Key, with.Value.Get()), S_OK);
    std::strcpy(with.Data, "the former name, which is longer than strings are inside");
    (void)Ask(*object, Furnishing, with);
    return PartOf(*object, iid, part);
}

// What callers can see of any object.
std::string StateOf(IUnknown& object, Arguments& with)
{
    std::ranges::fill(with.Data, '\0');
    std::string state = Ask(object, Questions, with);
    ObjectPtr<IEnumerable> items;
    ObjectPtr<IEnumerator> walk;
    if (object.QueryInterface(IID_IEnumerable, items.PutVoid()) == S_OK)
        walk = Walk<IEnumerator>(*items);
    while (walk && walk->MoveNext() == S_OK)
    {
        ObjectPtr<IValue> item;
        GUID key = {};
        (void)walk->GetCurrent(IID_IValue, item.PutVoid());
        (void)GetValueGUID(item.Get(), &key);
        state += Text(key);
    }
    for (IUnknown* const each : std::initializer_list<IUnknown*>{
             with.Value.Get(), with.Set.Get(), with.Dependant.Get(), with.Allocator.Get()})
        state += std::to_string(ReferencesOn(*each)) + ",";
    return state;
}

// The answer and the states around a call, of which that allocation fails.
struct Outcome
{
    Result Answer;
    bool HasFailed;
    std::string Before, After;
};

Outcome Attempt(const CLSID& clsid, const IID& iid, Part part, const Row& row, std::int64_t which,
                bool andLater)
{
    const ObserverMaskScope everything(0xFF);
    Arguments with;
    const auto object = Furnished(clsid, iid, part, with);
    Outcome outcome = {S_OK, false, StateOf(*object, with), ""};
    const auto arguments = with.Of(row.Letters);
    {
        FailingMemory memory(which, andLater);
        outcome.Answer = Call(object.Get(), row.Slot, arguments);
        outcome.HasFailed = memory.Stop();
    }
    with.Release(row.Letters);
    outcome.After = StateOf(*object, with);
    return outcome;
}

// Each answers as it does with memory, or a failure, with everything as it was.
int Sweep(const OperationRows& operations)
{
    int points = 0;
    for (const CLSID& clsid : operations.Classes)
        for (const Row& row : operations.Rows)
            for (const bool andLater : {false, true})
            {
                const auto attempt = [&](std::int64_t which)
                {
                    return Attempt(clsid, operations.Iid, operations.Of, row, which, andLater);
                };
                attempt(1'000'000); // makes what is made only once
                const Outcome usual = attempt(1'000'000);
                bool hasFailed = true;
                for (std::int64_t which = 0; hasFailed && !testing::Test::HasFailure(); ++which)
                {
                    SCOPED_TRACE(testing::Message()
                                 << ModuleServer()->FindClass(clsid)->Text << ", part "
                                 << static_cast<int>(operations.Of) << ", slot " << row.Slot
                                 << ", with " << row.Letters << ": allocation " << which
                                 << (andLater ? "" : " alone"));
                    const std::uint32_t objects = GetObjectOpenCount();
                    const std::int64_t allocations = LiveAllocations();
                    {
                        const Outcome outcome = attempt(which);
                        hasFailed = outcome.HasFailed;
                        points += hasFailed ? 1 : 0;
                        const bool isRefused = hasFailed && outcome.Answer == E_OUTOFMEMORY;
                        EXPECT_TRUE(isRefused || outcome.Answer == usual.Answer)
                            << std::hex << outcome.Answer;
                        EXPECT_EQ(outcome.After, isRefused ? outcome.Before : usual.After);
                    }
                    EXPECT_EQ(GetObjectOpenCount(), objects);
                    EXPECT_EQ(LiveAllocations(), allocations) << "memory leaked";
                    EXPECT_EQ(GetExceptionOpenCount(), 0);
                }
            }
    return points;
}

TEST(FailureInjection, EveryOperationOfEveryClassFailsAsAWholeOrNotAtAll)
{
    const DiagnosticsCapture capture;
    int points = 0;
    (void)GlobalFactory();
    for (const OperationRows& operations : EveryOperation)
        points += Sweep(operations);
    std::printf("%d points\n", points);
    EXPECT_GT(points, 400);
}

// A list grows in several steps, of which a later one may fail.
TEST(FailureInjection, AListThatCouldNotGrowIsWalkedOn)
{
    for (const CLSID& clsid : {CLSID_NodeList, CLSID_LockableNodeList, CLSID_UnsafeNodeList})
    {
        const auto list = Make<IList>(clsid);
        const auto value = Make<IValue>(CLSID_Value);
        while (list->GetCount() < 4096) // what one of its blocks holds
            EXPECT_EQ(list->Add(value.Get()), S_OK);
        ObjectPtr<IEnumerator> walk;
        EXPECT_EQ(list->GetEnumerator(IID_IEnumerator, walk.PutVoid()), S_OK);
        std::int32_t pieces = 0; // of memory
        for (; (FailingMemory(pieces), list->Add(value.Get())) != S_OK; ++pieces)
        {
            const auto replacing = Make<IValue>(CLSID_Value);
            EXPECT_EQ(list->SetItemAt(pieces, replacing.Get()), S_OK);
            ObjectPtr<IValue> item;
            EXPECT_EQ(walk->MoveNext() + walk->GetCurrent(IID_IValue, item.PutVoid()), S_OK);
            EXPECT_EQ(item.Get(), replacing.Get());
        }
        EXPECT_GE(pieces, 3);
        EXPECT_EQ(walk->MoveNext(), E_ACCESSDENIED);
    }
}

TEST(FailureInjection, ALibraryIsAttachedAndHasItsSingletonOrIsNot)
{
    DetachLibrary(false);
    bool hasFailed = true;
    for (std::int64_t which = 0; hasFailed && !HasFailure(); ++which)
    {
        const DiagnosticsCapture capture;
        void *made = &made, *unknown = &made;
        ObjectPtr<IObserverPrint> observer;
        FailingMemory memory(which);
        const bool isAttached = AttachLibrary();
        const Result result =
            isAttached ? CreateClassObject(&CLSID_GlobalSingleton, &IID_ISingleton, &made)
                       : E_OUTOFMEMORY;
        if (result == S_OK) // a class that the global factory is asked for, which may fail as well
            (void)CreateClassObject(&GUID_Null, &IID_IUnknown, &unknown);
        hasFailed = memory.Stop();
        EXPECT_TRUE(result != S_OK || unknown == nullptr) << which;
        auto singletons =
            ObjectPtr<ISingleton>::Adopt(static_cast<ISingleton*>(isAttached ? made : nullptr));
        EXPECT_TRUE(which > 0 || capture.CountLinesWith("CreateComServer failed - fatal") == 1u);
        EXPECT_EQ(GetGlobalObserver(observer.Put()), isAttached ? S_OK : E_ACCESSDENIED);
        EXPECT_TRUE(isAttached == (ModuleServer() != nullptr) && !observer != isAttached);
        observer.Reset();
        // The list of live objects, where it is kept, can do without its memory.
        EXPECT_TRUE(result == S_OK || (hasFailed && result == E_OUTOFMEMORY)) << which;
        EXPECT_TRUE(result != S_OK || CurrentLevelMask() == PRINT_ERROR) << which;
        EXPECT_EQ(ExistingSingleton(), singletons.Get());
        singletons.Reset();
        DetachLibrary(false);
    }
    EXPECT_TRUE(AttachLibrary());
}

} // namespace

} // namespace Tavrik::Ossira::tTest
