// Memory runs out at every point of every operation: the first allocation fails, then the second,
// and so on until the operation succeeds; once with only that one failing, once with all after it.
// Each time the answer must be `E_OUTOFMEMORY`, what a caller can see must be as before, and
// nothing may leak.
#include "DiagnosticsCapture.h"
#include "FailingMemory.h"
#include "Library.h"
#include "Ossira.h"
#include "TestModules.h"
#include "TestTools.h"

#include <functional>
#include <numeric>

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

// An operation on objects that were made for it.
struct Attempt
{
    std::function<Result()> Run;
    // What a caller sees of the objects, as text; null where a failure may leave a part done.
    std::function<std::string()> State = nullptr;
    Result Success = S_OK;
};

struct Operation
{
    const char* Name;
    Attempt (*Prepare)();
};

class FailureInjection : public testing::TestWithParam<Operation>
{
protected:
    // Runs the operation with that allocation failing; whether one failed.
    static bool Try(std::int64_t which, Shortage shortage)
    {
        const Attempt attempt = GetParam().Prepare();
        const std::string before = attempt.State ? attempt.State() : "";
        const std::uint32_t objects = GetObjectOpenCount();
        Result result = S_OK;
        bool hasFailed = false;
        {
            const ObserverMaskScope everything(0xFF);
            const DiagnosticsCapture capture;
            FailingMemory memory(which, shortage);
            result = attempt.Run();
            hasFailed = memory.Stop();
        }
        EXPECT_EQ(GetExceptionOpenCount(), 0);
        if (!hasFailed)
        {
            EXPECT_EQ(result, attempt.Success);
        }
        else if (result == E_OUTOFMEMORY)
        {
            EXPECT_EQ(attempt.State ? attempt.State() : "", before);
            EXPECT_TRUE(!attempt.State || GetObjectOpenCount() == objects);
        }
        else
        {
            // Only a failing call that was made again, or memory that was not really needed.
            EXPECT_EQ(result, attempt.Success);
        }
        return hasFailed;
    }

    // A library as it is when it was just loaded.
    static void StartAfresh()
    {
        DetachLibrary(false);
        ASSERT_TRUE(AttachLibrary(nullptr));
        (void)SingletonRegistry();
    }

    // The same from and to the same ground; what is left then has leaked.
    static bool TryAndCompare(std::int64_t which, Shortage shortage)
    {
        const std::int64_t allocations = LiveAllocations();
        const bool hasFailed = Try(which, shortage);
        StartAfresh();
        EXPECT_EQ(LiveAllocations(), allocations) << "memory leaked";
        return hasFailed;
    }
};

TEST_P(FailureInjection, LeavesEverythingAsItWas)
{
    ASSERT_FALSE(Try(1'000'000, Shortage::Once)); // makes what is made once in a process
    StartAfresh();
    for (const Shortage shortage : {Shortage::Once, Shortage::FromThenOn})
    {
        bool hasFailed = true;
        for (std::int64_t which = 0; hasFailed && !HasFailure(); ++which)
        {
            SCOPED_TRACE(testing::Message() << "allocation " << which << " fails"
                                            << (shortage == Shortage::Once ? " once" : ""));
            ASSERT_LT(which, 2000);
            hasFailed = TryAndCompare(which, shortage);
        }
    }
}

// --- What the attempts are made of
// ------------------------------------------------------------------

constexpr GUID Key(std::uint8_t number)
{
    return {0xFA17, 0, 0, {number}};
}

ObjectPtr<IValue> ValueOf(std::int32_t number)
{
    ObjectPtr<IValue> value;
    EXPECT_EQ(CreateValue(value.Put()), S_OK);
    EXPECT_EQ(SetValueSINT32(value.Get(), number), S_OK);
    return value;
}

ObjectPtr<IList> ListOf(std::int32_t count)
{
    auto list = Make<IList>(CLSID_NodeList);
    for (std::int32_t number = 0; number < count; ++number)
        EXPECT_EQ(list->Add(ValueOf(number).Get()), S_OK);
    return list;
}

ObjectPtr<IDictionaryGUID> DictionaryOf(std::uint8_t count, const CLSID& clsid)
{
    auto dictionary = Make<IDictionaryGUID>(clsid);
    for (std::uint8_t number = 0; number < count; ++number)
        EXPECT_EQ(dictionary->SetValueGUID(Key(number), ValueOf(number).Get()), S_OK);
    return dictionary;
}

// The values of a list, or the keys of a dictionary, as bytes.
std::string ContentOf(IEnumerable& collection)
{
    std::string content;
    ObjectPtr<IEnumerator> items;
    EXPECT_EQ(collection.GetEnumerator(IID_IEnumerator, items.PutVoid()), S_OK);
    while (items->MoveNext() == S_OK)
    {
        ObjectPtr<IValue> value;
        GUID type = {};
        EXPECT_EQ(items->GetCurrent(IID_IValue, value.PutVoid()), S_OK);
        EXPECT_EQ(value->GetType(&type), S_OK);
        std::string bytes(static_cast<std::size_t>(value->GetValue(type, nullptr, 0)), '\0');
        value->GetValue(type, bytes.data(), static_cast<std::int32_t>(bytes.size()));
        content += bytes + ",";
    }
    return content;
}

// The content, and whether an enumerator that was there before may go on.
template <class Collection>
std::function<std::string()> ContentAndEnumerator(const ObjectPtr<Collection>& collection)
{
    ObjectPtr<IEnumerator> earlier;
    EXPECT_EQ(collection->GetEnumerator(IID_IEnumerator, earlier.PutVoid()), S_OK);
    return [=]
    {
        return ContentOf(*collection) + std::to_string(earlier->Reset());
    };
}

// For operations that answer a new object: it is released again.
template <class Call>
auto Releasing(Call call)
{
    return [=]
    {
        ObjectPtr<IUnknown> object;
        const Result result = call(object.PutVoid());
        EXPECT_EQ(static_cast<bool>(object), Succeeded(result));
        return result;
    };
}

const std::string& LongText()
{
    static const std::string text(300, 't');
    return text;
}

Attempt ListAttempt(std::int32_t count)
{
    const auto list = ListOf(count);
    const auto value = ValueOf(-1);
    return {[=] { return list->Add(value.Get()); }, ContentAndEnumerator(list)};
}

Attempt DictionaryAttempt(const CLSID& clsid, std::uint8_t count, const GUID& key)
{
    const auto dictionary = DictionaryOf(count, clsid);
    const auto value = ValueOf(-1);
    return {[=] { return dictionary->SetValueGUID(key, value.Get()); },
            ContentAndEnumerator(dictionary)};
}

Attempt ValueSetAttempt(const GUID& key)
{
    ObjectPtr<IValueSet> set;
    EXPECT_EQ(DictionaryOf(4, CLSID_ValueSet).QueryTo(set), S_OK);
    const auto content = ContentAndEnumerator(set);
    return {[=] { return SetValueCharString(set.Get(), key, LongText()); },
            [=]
            {
                GUID type = {};
                const Result known = set->GetDataType(key, &type);
                return content() + std::to_string(known) + std::to_string(type.Data1);
            }};
}

// Two categories with a class each; attempts to file another one.
Attempt RegistryAttempt(const GUID& category, const GUID& group)
{
    const auto registry = Make<IClsidRegistry>(CLSID_ClsidRegistry);
    EXPECT_EQ(registry->RegisterClass(Key(1), Key(10)), S_OK);
    EXPECT_EQ(registry->RegisterGroupClass(Key(2), Key(3), Key(10)), S_OK);
    return {
        [=] { return registry->RegisterGroupClass(category, group, Key(11)); },
        [=]
        {
            std::string state;
            for (const std::uint8_t number : {std::uint8_t{1}, std::uint8_t{2}, std::uint8_t{4}})
            {
                state += std::to_string(registry->ContainsCategory(Key(number)));
                for (const GUID& one : {GUID_Null, Key(3), Key(5)})
                {
                    state += std::to_string(registry->ContainsGroup(Key(number), one));
                    state +=
                        std::to_string(registry->ContainsGroupClass(Key(number), one, Key(11)));
                }
            }
            return state;
        }};
}

std::wstring RawModule()
{
    return ModuleFile("raw", "Decent").wstring();
}

ObjectPtr<IObjectFactory> FactoryWithModule()
{
    const auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
    EXPECT_EQ(factory->RegisterClass(CLSID_RawFirst, RawModule().c_str(), "first"), S_OK);
    EXPECT_EQ(factory->RegisterClass(CLSID_Value, L"", LongText().c_str()), S_OK);
    return factory;
}

std::string FactoryState(IObjectFactory& factory)
{
    ObjectPtr<IEnumerable> classes;
    EXPECT_EQ(factory.QueryInterface(IID_IEnumerable, classes.PutVoid()), S_OK);
    ObjectPtr<IList> modules;
    EXPECT_EQ(factory.GetModules(IID_IList, modules.PutVoid()), S_OK);
    std::string state = ContentOf(*classes) + ContentOf(*modules);
    ObjectPtr<IValueSet> module;
    if (Succeeded(factory.GetModuleValue(RawModule().c_str(), IID_IValueSet, module.PutVoid())))
    {
        std::int32_t count = 0;
        module->GetValueData(ObjectFactoryItem_ClassCount, DATATYPE_SINT32, &count, 4);
        state += std::to_string(count) +
                 std::to_string(module->ContainsGUID(ObjectFactoryItem_OpenObjectCount));
    }
    return state;
}

template <class Call>
Attempt FactoryAttempt(Call call)
{
    const auto factory = FactoryWithModule();
    return {[=] { return call(*factory); },
            [=]
            {
                return FactoryState(*factory);
            }};
}

template <class Call>
Attempt SingletonAttempt(Call call)
{
    const auto singletons = Make<ISingleton>(CLSID_DebugSingleton);
    EXPECT_EQ(singletons->RegisterObject(Key(1), ValueOf(1).Get()), S_OK);
    ObjectPtr<IEnumerable> keys;
    EXPECT_EQ(singletons.QueryTo(keys), S_OK);
    return {[=] { return call(*singletons); }, ContentAndEnumerator(keys)};
}

// --- The operations
// --------------------------------------------------------------------------------

constexpr CLSID CreatableClasses[] = {CLSID_Value,
                                      CLSID_ReadOnlyValue,
                                      CLSID_NodeList,
                                      CLSID_UnsafeNodeList,
                                      CLSID_LockableNodeList,
                                      CLSID_DictionaryGUID,
                                      CLSID_UnsafeDictionaryGUID,
                                      CLSID_LockableDictionaryGUID,
                                      CLSID_ValueSet,
                                      CLSID_UnsafeValueSet,
                                      CLSID_LockableValueSet,
                                      CLSID_ObjectFactory,
                                      CLSID_ClsidRegistry,
                                      CLSID_ClassRegisterService,
                                      CLSID_DirectoryService,
                                      CLSID_MasterBootstrap,
                                      CLSID_GlobalCriticalSection,
                                      CLSID_DebugSingleton,
                                      CLSID_DebugOutputObserverPrint};

const Operation Operations[] = {
    {"EveryClassIsCreated",
     []() -> Attempt
     {
         return {[]
                 {
                     for (const CLSID& clsid : CreatableClasses)
                     {
                         ObjectPtr<IUnknown> object;
                         if (const Result result = CreateObject(clsid, object); Failed(result))
                             return result;
                     }
                     return S_OK;
                 },
                 []
                 {
                     return std::string();
                 }};
     }},
    {"AFailingCheckIsReported",
     []() -> Attempt
     {
         const auto value = ValueOf(1);
         return {[=] { return value->GetType(nullptr); }, [] { return std::string(); }, E_POINTER};
     }},
    {"AValueIsSetToMoreBytes",
     []() -> Attempt
     {
         const auto list = ListOf(0);
         const auto value = ValueOf(7);
         EXPECT_EQ(list->Add(value.Get()), S_OK);
         return {[=] { return SetValueCharString(value.Get(), LongText()); },
                 [=]
                 {
                     return ContentOf(*list);
                 }};
     }},
    {"AValueIsCloned",
     []() -> Attempt
     {
         const auto value = ValueOf(7);
         EXPECT_EQ(SetValueCharString(value.Get(), LongText()), S_OK);
         ObjectPtr<ICloneable> original;
         EXPECT_EQ(value.QueryTo(original), S_OK);
         return {Releasing([=](void** ppv) { return original->Clone(IID_IValue, ppv); }), []
                 {
                     return std::string();
                 }};
     }},
    {"AnObjectIsNamed",
     []() -> Attempt
     {
         const auto named = Make<IObjectName>(CLSID_Value);
         EXPECT_EQ(named->SetObjectName("former"), S_OK);
         return {[=] { return named->SetObjectName(LongText().c_str()); },
                 [=]
                 {
                     char name[400] = {};
                     named->GetObjectName(name, sizeof name);
                     return std::string(name);
                 }};
     }},
    {"AFullListIsAppendedTo",
     []
     {
         return ListAttempt(64);
     }},
    {"ADictionaryGrows",
     []
     {
         return DictionaryAttempt(CLSID_LockableDictionaryGUID, 64, Key(99));
     }},
    {"AValueSetMakesAValue",
     []
     {
         return ValueSetAttempt(Key(99));
     }},
    {"AClassIsFiledInANewCategory",
     []
     {
         return RegistryAttempt(Key(4), GUID_Null);
     }},
    {"AFactoryTakesAClassOfANewModule",
     []
     {
         return FactoryAttempt(
             [file = ModuleFile("raw", "CreatorFails").wstring()](IObjectFactory& factory)
             { return factory.RegisterClass(Key(1), file.c_str(), "info"); });
     }},
    {"AFactoryLoadsAModuleForAnObject",
     []() -> Attempt
     {
         const auto factory = FactoryWithModule();
         EXPECT_EQ(factory->FlushModules(), S_OK);
         return {Releasing([=](void** ppv)
                           { return factory->GetClassObject(CLSID_RawFirst, IID_IUnknown, ppv); })};
     }},
    {"ASingletonIsCreated",
     []
     {
         return SingletonAttempt(
             [](ISingleton& singletons)
             {
                 return Releasing(
                     [&](void** ppv)
                     { return singletons.GetClassObject(CLSID_ValueSet, IID_IValueSet, ppv); })();
             });
     }},
    {"AFolderIsListed",
     []() -> Attempt
     {
         const auto folder = std::make_shared<TempFolder>();
         folder->Write("a file.dll", "");
         folder->Write("another file.dll", "");
         const auto service = Make<IDirectoryService>(CLSID_DirectoryService);
         const auto param = Make<IValueSet>(CLSID_ValueSet);
         EXPECT_EQ(
             SetValueUniString(param.Get(), DirectoryServiceParam_Path, folder->Path().wstring()),
             S_OK);
         return {
             Releasing([=, keep = folder](void** ppv)
                       { return service->GetDirectoryCollection(param.Get(), IID_IList, ppv); }),
             []
             {
                 return std::string();
             }};
     }},
    {"AHostStartsAndCleansUp",
     []() -> Attempt
     {
         const auto folder = std::make_shared<TempFolder>();
         folder->Write("a module.dll", ReadFile(ModuleFile("raw", "Decent")));
         const auto bootstrap = Make<IMasterBootstrap>(CLSID_MasterBootstrap);
         ObjectPtr<IList> folders;
         EXPECT_EQ(bootstrap->GetModuleFolders(folders.PutVoid()), S_OK);
         EXPECT_EQ(folders->Clear(), S_OK);
         ObjectPtr<IValue> path;
         EXPECT_EQ(CreateValue(path.Put()), S_OK);
         EXPECT_EQ(SetValueUniString(path.Get(), folder->Path().wstring()), S_OK);
         EXPECT_EQ(folders->Add(path.Get()), S_OK);
         return {[=, keep = folder]
                 {
                     const Result started = bootstrap->Startup(nullptr);
                     const Result cleaned = bootstrap->Cleanup(nullptr);
                     EXPECT_TRUE(cleaned == S_OK || cleaned == E_OUTOFMEMORY) << cleaned;
                     return Failed(started) ? started : cleaned;
                 }};
     }},
};

INSTANTIATE_TEST_SUITE_P(Operation, FailureInjection, testing::ValuesIn(Operations),
                         [](const auto& tested) { return std::string(tested.param.Name); });

} // namespace

} // namespace Tavrik::Ossira
