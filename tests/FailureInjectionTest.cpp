// Memory runs out at every point of every operation of every class: the first allocation fails,
// then the second, and so on until the operation succeeds; once with only that one failing, once
// with all after it. Each time the answer must be `E_OUTOFMEMORY`, what a caller can see must be as
// before, and nothing may leak.
#include "ComServer.h"
#include "DiagnosticsCapture.h"
#include "EveryOperation.h"
#include "FailingMemory.h"
#include "Library.h"
#include "OssiraCacheStack.h"
#include "OssiraMemory.h"
#include "OssiraValueSetGroup.h"
#include "TestModules.h"
#include "TestTools.h"

namespace Tavrik::Ossira::tTest
{

namespace
{

const std::string LongText(300, 't');

// Which part of an object is called: itself, or what it hands out.
enum class Part
{
    Whole,
    Walk,
    Keys,
    Values,
    View
};

const std::tuple<Part, OperationRows> Parts[] = {
    {Part::Walk,
     {{CLSID_NodeList, CLSID_DictionaryGUID, CLSID_ValueSet, CLSID_ValueSetGroup,
       CLSID_ObjectFactory, CLSID_DebugSingleton},
      IID_IEnumerator,
      {{3, ""}, {4, ""}, {5, "io"}}}},
    {Part::Keys,
     {{CLSID_DictionaryGUID, CLSID_ValueSetGroup},
      IID_ICollectionGUID,
      {{3, "io"}, {4, ""}, {5, ""}, {7, "g"}, {8, "g"}, {9, "g"}}}},
    {Part::Values,
     {{CLSID_DictionaryGUID, CLSID_ValueSetGroup},
      IID_ICollection,
      {{3, "io"}, {4, ""}, {5, ""}, {7, "v"}, {8, "v"}, {9, "v"}}}},
    {Part::View,
     {{CLSID_ValueSetGroup},
      IID_IValueSet,
      {{3, "io"},
       {4, ""},
       {5, ""},
       {7, "h"},
       {8, "g"},
       {9, "g"},
       {10, "gio"},
       {11, "gl"},
       {11, "hl"},
       {14, "ggb4"},
       {15, "ggb4"},
       {15, "hgb4"},
       {16, "go"}}}},
};

template <class Interface, class Work>
void Fill(IUnknown& object, Work work)
{
    ObjectPtr<Interface> other;
    EXPECT_GE(ObjectPtr(&object).QueryTo(other) == S_OK ? work(*other) : S_OK, S_OK);
}

template <class Interface, class Tell>
std::string Told(IUnknown& object, Tell tell)
{
    ObjectPtr<Interface> other;
    return ObjectPtr(&object).QueryTo(other) == S_OK ? tell(*other) + ";" : "";
}

// A new object with something under the key of the arguments, or what it hands out.
ObjectPtr<IUnknown> Furnished(const CLSID& clsid, const IID& iid, Part part, Arguments& with)
{
    const auto object = Make<IUnknown>(clsid);
    const GUID& key = with.Key;
    const auto layer = Make<IValueSet>(CLSID_ValueSet);
    EXPECT_EQ(layer->SetValueGUID(key, with.Value.Get()), S_OK);
    Fill<IList>(*object, [&](IList& list) { return list.Add(with.Value.Get()); });
    Fill<IDictionaryGUID>(*object,
                          [&](IDictionaryGUID& map) { return map.SetValueGUID(key, layer.Get()); });
    Fill<IObjectName>(*object,
                      [&](IObjectName& name) { return name.SetObjectName("the former name"); });
    Fill<ICloneable>(*object,
                     [&](ICloneable&) {
                         return SameGuid(clsid, CLSID_Value)
                                    ? SetValueSINT32(As<IValue>(*object).Get(), 7)
                                    : 0;
                     });
    Fill<ISingleton>(*object,
                     [&](ISingleton& all) { return all.RegisterObject(key, with.Value.Get()); });
    Fill<IObjectFactory>(*object,
                         [&](IObjectFactory& factory)
                         {
                             return factory.RegisterClass(key, L"text", LongText.c_str()) +
                                    factory.RegisterClass(CLSID_NodeList, L"", "list");
                         });
    Fill<IClsidRegistry>(
        *object, [&](IClsidRegistry& registry)
        { return registry.RegisterClass(key, key) + registry.RegisterGroupClass(key, key, key); });
    Fill<IModifiedService>(*object, [&](IModifiedService& service)
                           { return service.AddTouchModified(with.Dependant.Get()); });
    Fill<IClsidObjectCacheStack>(
        *object, [&](IClsidObjectCacheStack& stack)
        { return stack.Create(CLSID_Value, IID_IValue, 0, 1) + stack.Push(with.Value.Get()); });
    ObjectPtr<IUnknown> made;
    Result answer = S_OK;
    if (part == Part::Whole)
        answer = object->QueryInterface(iid, made.PutVoid());
    else if (part == Part::Walk)
        answer = As<IEnumerable>(*object)->GetEnumerator(iid, made.PutVoid());
    else if (part == Part::View)
        answer =
            As<IValueSetGroup>(*object)->GetValueSet(reinterpret_cast<IValueSet**>(made.Put()));
    else
        answer = part == Part::Keys ? As<IDictionaryGUID>(*object)->GetKeys(made.PutVoid())
                                    : As<IDictionaryGUID>(*object)->GetValues(made.PutVoid());
    EXPECT_EQ(answer, S_OK);
    return made;
}

// What callers can see of any object.
std::string StateOf(IUnknown& object, const Arguments& with)
{
    std::string state;
    const auto text = [](auto... answers)
    {
        return ((std::to_string(answers) + ",") + ...);
    };
    char buffer[64] = {};
    std::uint32_t number = 0;
    std::int32_t count = 0;
    std::uint64_t bytes = 0;
    state += Told<IObjectName>(object, [&](IObjectName& name)
                               { return (name.GetObjectName(buffer, 64), std::string(buffer)); });
    state += Told<ICollection>(object, [&](ICollection& list)
                               { return text(list.GetCount(), list.Contains(with.Value.Get())); });
    state += Told<IValue>(object,
                          [&](IValue& value)
                          {
                              GUID type = {};
                              (void)value.GetType(&type);
                              return Text(type) + text(value.GetValue(type, nullptr, 0));
                          });
    state +=
        Told<IEnumerable>(object,
                          [&](IEnumerable& items)
                          {
                              ObjectPtr<IEnumerator> walk;
                              std::string met;
                              EXPECT_EQ(items.GetEnumerator(IID_IEnumerator, walk.PutVoid()), S_OK);
                              while (walk->MoveNext() == S_OK)
                              {
                                  ObjectPtr<IValue> item;
                                  GUID key = {};
                                  (void)walk->GetCurrent(IID_IValue, item.PutVoid());
                                  (void)GetValueGUID(item.Get(), &key);
                                  met += Text(key);
                              }
                              return met;
                          });
    state += Told<IClsidRegistry>(
        object,
        [&](IClsidRegistry& registry)
        {
            std::string met;
            for (const GUID& category : {with.Key, with.OtherKey})
                for (const GUID& group : {GUID_Null, with.Key, with.OtherKey})
                    for (const GUID& clsid : {with.Key, with.OtherKey})
                        met += text(registry.ContainsCategory(category),
                                    registry.ContainsGroup(category, group),
                                    registry.ContainsGroupClass(category, group, clsid));
            return met;
        });
    state += Told<IModifiedService>(object, [&](IModifiedService& service)
                                    { return text(service.GetModifiedCounter(&number), number); });
    state += Told<IDisposable>(object, [&](IDisposable& disposable)
                               { return text(disposable.IsDisposed()); });
    state += Told<IStack>(object, [&](IStack& stack) { return text(stack.IsEmpty()); });
    state += Told<ICommonMemoryAllocator32>(
        object,
        [&](ICommonMemoryAllocator32& allocator)
        {
            EXPECT_EQ(allocator.GetStatistics(&bytes, &count, nullptr, nullptr, nullptr), S_OK);
            return text(bytes, count);
        });
    state += Told<IDatatypesService>(
        object, [&](IDatatypesService& types)
        { return text(types.Contains(with.Key), types.Contains(DATATYPE_SINT8)); });
    for (const std::uint32_t references :
         {ReferencesOn(*with.Value), ReferencesOn(*with.Set), ReferencesOn(*with.Dependant),
          ReferencesOn(*with.Allocator)})
        state += text(references);
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
                Shortage shortage)
{
    const ObserverMaskScope everything(0xFF);
    Arguments with;
    const auto object = Furnished(clsid, iid, part, with);
    Outcome outcome = {S_OK, false, StateOf(*object, with), ""};
    const auto arguments = with.Of(row.Letters);
    {
        FailingMemory memory(which, shortage);
        outcome.Answer = Call(object.Get(), row.Slot, arguments);
        outcome.HasFailed = memory.Stop();
    }
    with.Release(row.Letters);
    outcome.After = StateOf(*object, with);
    return outcome;
}

// Each answers as it does with memory, or a failure, with everything as it was.
int Sweep(Part part, const OperationRows& operations)
{
    int points = 0;
    for (const CLSID& clsid : operations.Classes)
        for (const Row& row : operations.Rows)
            for (const Shortage shortage : {Shortage::Once, Shortage::FromThenOn})
            {
                const auto attempt = [&](std::int64_t which)
                {
                    return Attempt(clsid, operations.Iid, part, row, which, shortage);
                };
                attempt(1'000'000); // makes what is made only once
                const Outcome usual = attempt(1'000'000);
                bool hasFailed = true;
                for (std::int64_t which = 0; hasFailed && !testing::Test::HasFailure(); ++which)
                {
                    SCOPED_TRACE(testing::Message()
                                 << ModuleServer()->FindClass(clsid)->Text << ", part "
                                 << static_cast<int>(part) << ", slot " << row.Slot << ", with "
                                 << row.Letters << ": allocation " << which
                                 << (shortage == Shortage::Once ? " alone" : ""));
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
        points += Sweep(Part::Whole, operations);
    for (const auto& [part, operations] : Parts)
        points += Sweep(part, operations);
    std::printf("%d points\n", points);
    EXPECT_GT(points, 400);
}

TEST(FailureInjection, ALibraryIsAttachedAndHasItsSingletonOrIsNot)
{
    DetachLibrary(false);
    bool hasFailed = true;
    const std::int64_t allocations = LiveAllocations();
    for (std::int64_t which = 0; hasFailed && !HasFailure(); ++which)
    {
        EXPECT_EQ(LiveAllocations(), allocations) << "memory leaked";
        const DiagnosticsCapture capture;
        void* out = &hasFailed;
        FailingMemory memory(which, Shortage::FromThenOn);
        const bool isAttached = AttachLibrary();
        const Result result = isAttached
                                  ? CreateClassObject(&CLSID_GlobalSingleton, &IID_ISingleton, &out)
                                  : (out = nullptr, E_OUTOFMEMORY);
        hasFailed = memory.Stop();
        ASSERT_EQ(out == nullptr, Failed(result)) << which;
        auto singletons = ObjectPtr<ISingleton>::Adopt(static_cast<ISingleton*>(out));
        ObjectPtr<IObserverPrint> observer;
        EXPECT_EQ(GetGlobalObserver(observer.Put()), isAttached ? S_OK : E_ACCESSDENIED);
        EXPECT_EQ(static_cast<bool>(observer), isAttached);
        observer.Reset();
        EXPECT_TRUE(isAttached || ModuleServer() == nullptr);
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
