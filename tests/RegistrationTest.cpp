// The object factory, the CLSID registry, the singleton registry and the process-wide lock, as a
// host sees them.
#include "ServiceTools.h"
#include "TestItem.h"

#include <atomic>
#include <optional>
#include <thread>

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

const std::filesystem::path CounterFile = ModuleFile("good", "Counter");
const std::filesystem::path MissingFile = ModuleFile("good", "Missing");

using Numbers = std::vector<std::uint32_t>; // of identifiers made by `Numbered`

Result Register(IObjectFactory& factory, const CLSID& clsid, const std::filesystem::path& file)
{
    return factory.RegisterClass(clsid, file.wstring().c_str(), "Info");
}

ObjectPtr<IObjectFactory> FactoryWithCounter()
{
    auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
    EXPECT_EQ(Register(*factory, CLSID_Counter, CounterFile), S_OK);
    return factory;
}

// A number of a module's description, if it is there.
std::optional<std::int32_t> ModuleNumber(IObjectFactory& factory, const std::filesystem::path& file,
                                         const GUID& key)
{
    ObjectPtr<IValueSet> values;
    EXPECT_EQ(factory.GetModuleValue(file.wstring().c_str(), IID_IValueSet, values.PutVoid()),
              S_OK);
    std::int32_t number = 0;
    if (Failed(GetValueSINT32(values.Get(), key, &number)))
        return std::nullopt;
    return number;
}

// --- Object factory -----------------------------------------------------------------------------

TEST(ObjectFactory, EveryFailureHasItsCodeAndItsOneLine)
{
    const auto factory = FactoryWithCounter();
    EXPECT_EQ(Register(*factory, Numbered(1), ModuleFile("raw", "CreatorFails")), S_OK);
    EXPECT_EQ(Register(*factory, Numbered(2), MissingFile), S_OK);
    EXPECT_EQ(factory->RegisterClass(Numbered(3), nullptr, nullptr), S_OK);

    void* out = nullptr;
    const auto create = [&](const CLSID& clsid, const IID& iid = IID_IUnknown)
    {
        return factory->GetClassObject(clsid, iid, &out);
    };
    FAILS(factory->GetClassObject(CLSID_Counter, IID_IUnknown, nullptr), E_POINTER, "ppv");
    FAILS(create(CLSID_GlobalSingleton), E_INVALIDARG,
          "CLSID_GlobalSingleton - cannot create singleton from singleton");
    FAILS(create(Numbered(1)), E_ABORT, "DynLib.GetClassObject()");
    FAILS(create(Numbered(2)), E_FAIL, "DynLib.Open()");
    FAILS(create(Numbered(3)), E_NOINTERFACE, "CreateClassObject()");
    FAILS(create(CLSID_Counter, IID_IValue), E_NOINTERFACE, "DynLib.GetClassObject()");
    FAILS(factory->RegisterClass(CLSID_GlobalSingleton, nullptr, nullptr), E_INVALIDARG,
          "CLSID_GlobalSingleton - cannot use singleton from singleton");
    FAILS(factory->GetClassValue(CLSID_Counter, IID_IUnknown, nullptr), E_POINTER, "ppv");
    FAILS(factory->GetClassValue(Numbered(0), IID_IUnknown, &out), E_FAIL, "not exists");
    FAILS(factory->GetModuleValue(L"", IID_IUnknown, nullptr), E_POINTER, "ppv");
    FAILS(factory->GetModuleValue(nullptr, IID_IUnknown, &out), E_POINTER, "fileName");
    FAILS(factory->GetModuleValue(L"", IID_IUnknown, &out), E_FAIL, "not exists");
    FAILS(factory->GetModules(IID_IUnknown, nullptr), E_POINTER, "ppv");
    FAILS(factory->GetModules(IID_ICounter, &out), E_NOINTERFACE, "QueryInterface()");
    FAILS(factory->GetClasses(IID_IEnumerator, nullptr), E_POINTER, "ppv");
    const DiagnosticsCapture capture;
    EXPECT_EQ(create(Numbered(0)), E_FAIL);
    EXPECT_EQ(Messages(capture), std::vector<std::string>{"Unknwon class-id " + Text(Numbered(0)) +
                                                          " - Cannot create class"});
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(ModuleNumber(*factory, CounterFile, ObjectFactoryItem_OpenObjectCount), 0);
}

// --- Enumerators of the factory and of the singleton registry -----------------------------------

TEST(ClassEnumerators, DieAtAnAdditionAndOutliveARemoval)
{
    const auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
    const auto singletons = Make<ISingleton>(CLSID_DebugSingleton);
    const auto item = TestItem::New();
    const struct
    {
        ObjectPtr<IUnknown> Owner;
        std::function<Result(const CLSID&)> Add;
        std::function<Result(const CLSID&)> Remove;
    } cases[] = {{ObjectPtr<IUnknown>(factory.Get()),
                  [&](const CLSID& clsid)
                  { return factory->RegisterClass(clsid, nullptr, nullptr); },
                  [&](const CLSID& clsid)
                  {
                      return factory->UnregisterClass(clsid);
                  }},
                 {ObjectPtr<IUnknown>(singletons.Get()),
                  [&](const CLSID& clsid) { return singletons->RegisterObject(clsid, item.Get()); },
                  [&](const CLSID& clsid)
                  {
                      return singletons->UnregisterObject(clsid);
                  }}};
    for (const auto& one : cases)
    {
        for (const std::uint32_t number : {3u, 1u, 4u, 2u})
            EXPECT_EQ(one.Add(Numbered(number)), S_OK);
        ObjectPtr<IEnumerable> enumerable;
        ObjectPtr<IEnumerator> keys;
        EXPECT_EQ(one.Owner.QueryTo(enumerable), S_OK);
        EXPECT_EQ(enumerable->GetEnumerator(IID_IEnumerator, keys.PutVoid()), S_OK);
        const auto current = [&]
        {
            ObjectPtr<IValue> value;
            GUID key = GUID_Null;
            EXPECT_EQ(keys->GetCurrent(IID_IValue, value.PutVoid()), S_OK);
            EXPECT_EQ(GetValueGUID(value.Get(), &key), S_OK);
            return static_cast<std::uint32_t>(key.Data1);
        };
        Numbers walked;
        while (keys->MoveNext() == S_OK)
            walked.push_back(current());
        EXPECT_EQ(walked, (Numbers{1, 2, 3, 4}));

        EXPECT_EQ(keys->Reset(), S_OK);
        EXPECT_EQ(keys->MoveNext(), S_OK);
        EXPECT_EQ(keys->MoveNext(), S_OK);
        EXPECT_EQ(one.Remove(Numbered(2)), S_OK);
        EXPECT_EQ(one.Remove(Numbered(3)), S_OK);
        EXPECT_EQ(keys->MoveNext(), S_OK);
        EXPECT_EQ(current(), 4u);
        EXPECT_EQ(keys->MoveNext(), S_FALSE);
        EXPECT_EQ(keys->MoveNext(), E_FAIL);

        EXPECT_EQ(one.Add(Numbered(5)), S_OK);
        EXPECT_EQ(one.Add(Numbered(5)), S_FALSE);
        ObjectPtr<IValue> value;
        const std::string text = "List was modified, the enumerator is invalid now";
        FAILS(keys->Reset(), E_ACCESSDENIED, text);
        FAILS(keys->MoveNext(), E_ACCESSDENIED, text);
        FAILS(keys->GetCurrent(IID_IValue, value.PutVoid()), E_ACCESSDENIED, text);
        FAILS(enumerable->GetEnumerator(IID_IEnumerator, nullptr), E_POINTER, "ppv");
    }
}

// --- CLSID registry -----------------------------------------------------------------------------

constexpr GUID Category = Numbered(100);
constexpr GUID Group = Numbered(101);

TEST(ClsidRegistry, SaysWhatItFilesAndLeavesNothingEmptyBehind)
{
    const auto registry = Make<IClsidRegistry>(CLSID_ClsidRegistry);
    const GUID one = Numbered(1);
    const ObserverMaskScope mask(PRINT_TRACE | PRINT_WARN);
    const DiagnosticsCapture capture;
    EXPECT_EQ(registry->RegisterGroupClass(Category, Group, one), S_OK);
    EXPECT_EQ(registry->RegisterGroupClass(Category, Group, one), S_FALSE);
    EXPECT_EQ(registry->UnregisterGroupClass(Category, Group, Numbered(2)), S_FALSE);
    EXPECT_EQ(registry->UnregisterGroupClass(Category, Numbered(2), one), S_FALSE);
    EXPECT_EQ(registry->UnregisterGroupClass(Category, Group, one), S_OK);
    EXPECT_EQ(registry->UnregisterGroupClass(Category, Group, one), S_FALSE);
    const auto line = [](const char* what, const GUID& group, const GUID& clsid)
    {
        return what + (" Category:" + Text(Category)) + "  Group:" + Text(group) +
               "  Class:" + Text(clsid);
    };
    EXPECT_EQ(
        Messages(capture),
        (std::vector<std::string>{
            line("Register", Group, one), "    New Category created: " + Text(Category),
            "    New Class created: " + Text(one), line("Register", Group, one),
            "    Class:" + Text(one) + " - already exists", line("Unregister", Group, Numbered(2)),
            "    Class not member of the group", line("Unregister", Numbered(2), one),
            "    Category has no such group", line("Unregister", Group, one),
            "    Remove classes-object from group", "    Remove groups-object from category",
            line("Unregister", Group, one), "    Unknown category"}));
    EXPECT_EQ(registry->ContainsCategory(Category), S_FALSE);
}

// --- Singleton registry -------------------------------------------------------------------------

TEST(SingletonRegistry, ReleasesInOrderAndTheFactoryLast)
{
    constexpr std::uint32_t factoryNumber = 999;
    const Numbers descending = {0xF0, 3, 2, 1, factoryNumber};
    const Numbers ascending = {1, 2, 3, 0xF0, factoryNumber};
    const struct
    {
        std::uint32_t Mask;
        bool ByItsEnd;
        Numbers Order;
    } cases[] = {{0, false, descending},
                 {PRINT_PROGRESS, false, ascending},
                 {0, true, descending},
                 {PRINT_PROGRESS, true, ascending}};
    for (const auto& one : cases)
    {
        Numbers released;
        const auto item = [&](std::uint32_t number)
        {
            return TestItem::New([&released, number] { released.push_back(number); });
        };
        auto registry = Make<ISingleton>(CLSID_DebugSingleton);
        for (const std::uint32_t number : {2u, 0xF0u, 1u, 3u})
            EXPECT_EQ(registry->RegisterObject(Numbered(number), item(number).Get()), S_OK);
        EXPECT_EQ(registry->RegisterObject(CLSID_GlobalObjectFactory, item(factoryNumber).Get()),
                  S_OK);
        const ObserverMaskScope mask(one.Mask);
        if (one.ByItsEnd)
            registry.Reset();
        else
            EXPECT_EQ(registry->ClearObjects(), S_OK);
        EXPECT_EQ(released, one.Order);
    }
}

TEST(SingletonRegistry, ObjectsMayUseItWhileTheyAreReleased)
{
    const auto registry = Make<ISingleton>(CLSID_DebugSingleton);
    Numbers released;
    const auto released_ = [&](std::uint32_t number)
    {
        released.push_back(number);
    };
    const auto factory = TestItem::New([&] { released_(999); });
    EXPECT_EQ(registry->RegisterObject(CLSID_GlobalObjectFactory, factory.Get()), S_OK);
    EXPECT_EQ(registry->RegisterObject(Numbered(1), TestItem::New([&] { released_(1); }).Get()),
              S_OK);
    EXPECT_EQ(registry->RegisterObject(Numbered(3), TestItem::New([&] { released_(3); }).Get()),
              S_OK);
    const auto findFactory = [&]
    {
        ObjectPtr<IUnknown> found;
        EXPECT_EQ(
            registry->GetClassObject(CLSID_GlobalObjectFactory, IID_IUnknown, found.PutVoid()),
            S_OK);
        EXPECT_EQ(found.Get(), factory.Get());
    };
    const auto last = [&]
    {
        released_(4);
        findFactory();
    };
    const auto callBack = [&]
    {
        released_(2);
        findFactory();
        EXPECT_EQ(registry->UnregisterObject(Numbered(1)), S_OK);
        EXPECT_EQ(registry->RegisterObject(Numbered(4), TestItem::New(last).Get()), S_OK);
    };
    EXPECT_EQ(registry->RegisterObject(Numbered(2), TestItem::New(callBack).Get()), S_OK);
    EXPECT_EQ(registry->ClearObjects(), S_OK);
    EXPECT_EQ(released, (Numbers{3, 2, 1, 4}));
    EXPECT_EQ(ReferencesOn(*factory), 1u);
    EXPECT_EQ(registry->UnregisterObject(Numbered(4)), S_FALSE);
}

TEST(GlobalCriticalSection, EveryInstanceIsTheOneReentrantLock)
{
    const auto mine = Make<ICriticalSection>(CLSID_GlobalCriticalSection);
    const auto theirs = Make<ICriticalSection>(CLSID_GlobalCriticalSection);
    std::atomic<bool> entered = false;
    EXPECT_EQ(mine->Lock(), S_OK);
    EXPECT_EQ(theirs->Lock(), S_OK);
    std::thread other(
        [&]
        {
            theirs->Lock();
            entered = true;
            theirs->Unlock();
        });
    EXPECT_TRUE(Singleton<IList>(CLSID_NodeList)) << "the owner may create singletons";
    EXPECT_EQ(mine->Unlock(), S_OK);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(entered);
    EXPECT_EQ(mine->Unlock(), S_OK);
    other.join();
    EXPECT_TRUE(entered);
}

} // namespace

} // namespace Tavrik::Ossira
