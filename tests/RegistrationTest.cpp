// The object factory, the CLSID registry, the singleton registry and the process-wide lock, as a
// host sees them.
#include "RandomProgram.h"
#include "TestItem.h"

#include <algorithm>
#include <future>
#include <map>
#include <set>

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

using Numbers = std::vector<std::uint32_t>; // of identifiers made by `Numbered`

TEST(ObjectFactory, EveryFailureHasItsCodeAndItsOneLine)
{
    const auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
    const auto failing = ModuleFile("raw", "CreatorFails").wstring();
    EXPECT_EQ(factory->RegisterClass(Numbered(1), failing.c_str(), nullptr), S_OK);
    EXPECT_EQ(factory->RegisterClass(Numbered(1), nullptr, nullptr), S_FALSE);
    EXPECT_EQ(factory->RegisterClass(Numbered(2), L"no such file", nullptr), S_OK);
    EXPECT_EQ(factory->RegisterClass(CLSID_Value, L"", nullptr), S_OK);
    void* out = nullptr;
    const auto create = [&](const CLSID& clsid)
    {
        return factory->GetClassObject(clsid, IID_ICounter, &out);
    };
    FAILS(factory->GetClassObject(CLSID_Value, IID_IValue, nullptr), E_POINTER, "ppv");
    FAILS(create(CLSID_GlobalSingleton), E_INVALIDARG,
          "CLSID_GlobalSingleton - cannot create singleton from singleton");
    FAILS(create(Numbered(1)), E_ABORT, "DynLib.GetClassObject()");
    FAILS(create(Numbered(2)), E_FAIL, "DynLib.Open()");
    FAILS(create(CLSID_Value), E_NOINTERFACE, "CreateClassObject()");
    FAILS(factory->RegisterClass(CLSID_GlobalSingleton, nullptr, nullptr), E_INVALIDARG,
          "CLSID_GlobalSingleton - cannot use singleton from singleton");
    FAILS(factory->GetClassValue(Numbered(0), IID_IUnknown, &out), E_FAIL, "not exists");
    REPORTS(create(Numbered(0)), E_FAIL,
            "-ERROR- Unknwon class-id " + Text(Numbered(0)) + " - Cannot create class");
    EXPECT_EQ(out, nullptr);
}

TEST(ClassEnumerators, DieAtAnAdditionAndOutliveARemoval)
{
    const auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
    const auto singletons = Make<ISingleton>(CLSID_DebugSingleton);
    for (const bool ofFactory : {true, false})
    {
        const auto add = [&](std::uint32_t number)
        {
            return ofFactory ? factory->RegisterClass(Numbered(number), L"", "")
                             : singletons->RegisterObject(Numbered(number), factory.Get());
        };
        const auto remove = [&](std::uint32_t number)
        {
            return ofFactory ? factory->UnregisterClass(Numbered(number))
                             : singletons->UnregisterObject(Numbered(number));
        };
        for (const std::uint32_t number : {3u, 1u, 4u, 2u})
            EXPECT_EQ(add(number), S_OK);
        ObjectPtr<IEnumerable> owner;
        ObjectPtr<IEnumerator> keys;
        EXPECT_EQ(ofFactory ? factory.QueryTo(owner) : singletons.QueryTo(owner), S_OK);
        EXPECT_EQ(owner->GetEnumerator(IID_IEnumerator, keys.PutVoid()), S_OK);
        const auto step = [&]
        {
            ObjectPtr<IValue> value;
            GUID key = GUID_Null;
            if (keys->MoveNext() == S_OK && keys->GetCurrent(IID_IValue, value.PutVoid()) == S_OK)
                (void)GetValueGUID(value.Get(), &key);
            return static_cast<std::uint32_t>(key.Data1);
        };
        EXPECT_EQ((Numbers{step(), step()}), (Numbers{1, 2}));
        EXPECT_EQ(remove(2), S_OK);
        EXPECT_EQ(remove(3), S_OK);
        EXPECT_EQ((Numbers{step(), step()}), (Numbers{4, 0}));
        EXPECT_EQ(add(4), S_FALSE);
        EXPECT_EQ(keys->Reset(), S_OK);
        EXPECT_EQ(add(5), S_OK);
        const std::string text = "List was modified, the enumerator is invalid now";
        FAILS(keys->Reset(), E_ACCESSDENIED, text);
        FAILS(keys->MoveNext(), E_ACCESSDENIED, text);
        FAILS(keys->GetCurrent(IID_IValue, nullptr), E_ACCESSDENIED, text);
    }
}

// The group of number 0 is that of no group.
TEST(ClsidRegistry, FilesAndTakesOutLikeAMapOfMaps)
{
    const ObserverMaskScope silence(0);
    const auto registry = Make<IClsidRegistry>(CLSID_ClsidRegistry);
    std::map<std::uint32_t, std::map<std::uint32_t, std::set<std::uint32_t>>> model;
    const auto textsOf = [](const auto& numbers, auto numberOf)
    {
        std::vector<std::string> texts;
        for (const auto& each : numbers)
            texts.push_back(Text(numberOf(each) == 0 ? GUID_Null : Numbered(numberOf(each))));
        return texts;
    };
    std::mt19937 random(Setting("OSSIRA_TEST_SEED", 77));
    for (int round = 0; round < 4000; ++round)
    {
        SCOPED_TRACE(round);
        const std::uint32_t c = 1 + Below(random, 3), g = Below(random, 3),
                            k = 1 + Below(random, 4);
        const GUID category = Numbered(c), clsid = Numbered(k);
        const GUID group = g == 0 ? GUID_Null : Numbered(g);
        const bool brief = g == 0 && round % 2 == 0;
        if (Below(random, 16) < 9)
        {
            const bool isNew = model[c][g].insert(k).second;
            ASSERT_EQ(brief ? registry->RegisterClass(category, clsid)
                            : registry->RegisterGroupClass(category, group, clsid),
                      isNew ? S_OK : S_FALSE);
        }
        else
        {
            const bool wasThere = model[c][g].erase(k) != 0;
            if (model[c][g].empty())
                model[c].erase(g);
            if (model[c].empty())
                model.erase(c);
            ASSERT_EQ(brief ? registry->UnregisterClass(category, clsid)
                            : registry->UnregisterGroupClass(category, group, clsid),
                      wasThere ? S_OK : S_FALSE);
        }
        const bool hasCategory = model.contains(c), hasGroup = hasCategory && model[c].contains(g);
        const bool hasClass = hasGroup && model[c][g].contains(k);
        ASSERT_EQ(registry->ContainsCategory(category), hasCategory ? S_OK : S_FALSE);
        ASSERT_EQ(registry->ContainsGroup(category, group), hasGroup ? S_OK : S_FALSE);
        ASSERT_EQ(brief ? registry->ContainsClass(category, clsid)
                        : registry->ContainsGroupClass(category, group, clsid),
                  hasClass ? S_OK : S_FALSE);
        ObjectPtr<IEnumeratorGUID> keys;
        ASSERT_EQ(
            brief ? registry->GetClasses(category, IID_IEnumeratorGUID, keys.PutVoid())
                  : registry->GetGroupClasses(category, group, IID_IEnumeratorGUID, keys.PutVoid()),
            hasGroup ? S_OK : E_NOT_FOUND);
        if (hasGroup)
        {
            ASSERT_EQ(KeysIn(*keys), textsOf(model[c][g], [](std::uint32_t each) { return each; }));
        }
        ASSERT_EQ(registry->GetCategories(IID_IEnumeratorGUID, keys.PutVoid()), S_OK);
        ASSERT_EQ(KeysIn(*keys), textsOf(model, [](const auto& each) { return each.first; }));
    }
}

// Classes of a module, of a file that is none and of no file, by the numbers of the files.
TEST(ObjectFactory, TellsOfItsClassesAndFilesLikeAMap)
{
    const ObserverMaskScope silence(0);
    const auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
    const std::wstring files[] = {ModuleFile("raw", "Decent").wstring(), L"no file", L""};
    std::map<std::uint32_t, std::pair<std::size_t, std::string>> model;
    std::vector<ObjectPtr<IUnknown>> objects; // of the module
    bool isLoaded = false;
    std::int32_t counts[3] = {-1, -1, -1}; // of the classes ever registered; -1: unknown
    std::mt19937 random(Setting("OSSIRA_TEST_SEED", 78));
    for (int round = 0; round < 400; ++round)
    {
        SCOPED_TRACE(round);
        const std::uint32_t number = 1 + Below(random, 8);
        const CLSID clsid = Numbered(number);
        const std::size_t at = Below(random, 3);
        const std::string info = round % 7 == 0 ? "" : "class " + std::to_string(round);
        const std::uint32_t die = Below(random, 8);
        const auto known = model.find(number);
        if (die < 3)
        {
            isLoaded |= at == 0 && counts[0] < 0; // by its first class
            const bool isNew = model.try_emplace(number, at, info).second;
            counts[at] = std::max(counts[at], 0) + (isNew ? 1 : 0);
            ASSERT_EQ(factory->RegisterClass(clsid, files[at].c_str(), info.c_str()),
                      isNew ? S_OK : S_FALSE);
        }
        else if (die < 5)
        {
            ASSERT_EQ(factory->UnregisterClass(clsid), model.erase(number) != 0 ? S_OK : S_FALSE);
        }
        else if (die < 7)
        {
            constexpr Result answers[] = {S_OK, E_FAIL, E_NOINTERFACE};
            ObjectPtr<IUnknown> object;
            const Result expected = known == model.end() ? E_FAIL : answers[known->second.first];
            ASSERT_EQ(factory->GetClassObject(clsid, IID_IUnknown, object.PutVoid()), expected);
            isLoaded |= expected == S_OK;
            if (object)
                objects.push_back(object);
        }
        else
        {
            objects.resize(Below(random, objects.size() + 1) / 2);
            ASSERT_EQ(factory->FlushModules(), S_OK);
            isLoaded &= !objects.empty();
        }
        ASSERT_EQ(IsMapped(ModuleFile("raw", "Decent")), isLoaded);
        ObjectPtr<IValueSet> values;
        std::wstring file;
        std::int32_t count = -1;
        const bool isKnown = model.contains(number);
        ASSERT_EQ(CountClasses(*factory), model.size());
        ASSERT_EQ(factory->GetClassValue(clsid, IID_IValueSet, values.PutVoid()),
                  isKnown ? S_OK : E_FAIL);
        if (isKnown)
        {
            ASSERT_EQ(GetValueUniString(values.Get(), ObjectFactoryItem_FileName, &file), S_OK);
            ASSERT_EQ(file, files[model[number].first]);
            ASSERT_EQ(TextOf(*values, ObjectFactoryItem_InfoText), model[number].second);
        }
        const bool isListed = at < 2 && counts[at] >= 0;
        ASSERT_EQ(factory->GetModuleValue(files[at].c_str(), IID_IValueSet, values.PutVoid()),
                  isListed ? S_OK : E_FAIL);
        if (isListed)
        {
            ASSERT_EQ(GetValueUniString(values.Get(), ObjectFactoryItem_FileName, &file), S_OK);
            ASSERT_EQ(file, files[at]);
            ASSERT_EQ(GetValueSINT32(values.Get(), ObjectFactoryItem_ClassCount, &count), S_OK);
            ASSERT_EQ(count, counts[at]);
            const bool isOpen = at == 0 && isLoaded;
            ASSERT_EQ(GetValueSINT32(values.Get(), ObjectFactoryItem_OpenObjectCount, &count),
                      isOpen ? S_OK : E_NOT_FOUND);
            ASSERT_EQ(count, isOpen ? static_cast<std::int32_t>(objects.size()) : counts[at]);
        }
        std::vector<std::wstring> listed;
        for (std::size_t each = 0; each < 2; ++each)
        {
            if (counts[each] >= 0)
                listed.push_back(files[each]);
        }
        std::sort(listed.begin(), listed.end());
        ASSERT_EQ(ModulesOf(*factory), listed);
    }
}

TEST(SingletonRegistry, RefusesWhatCannotBeASingletonAndKeepsWhatItCreated)
{
    const auto registry = SingletonRegistry();
    const auto create = [&](const CLSID& clsid)
    {
        ObjectPtr<IUnknown> out;
        return registry->GetClassObject(clsid, IID_ICounter, out.PutVoid());
    };
    FAILS(registry->GetClassObject(CLSID_Value, IID_IValue, nullptr), E_POINTER, "ppv");
    FAILS(create(CLSID_GlobalSingleton), E_INVALIDARG,
          "CLSID_GlobalSingleton - cannot create singleton from singleton");
    FAILS(create(CLSID_ObjectFactory), E_INVALIDARG,
          "CLSID_ObjectFactory is not allowd by singleton, use CLSID_GlobalObjectFactory");
    FAILS(create(Numbered(1)), E_NOINTERFACE, "CreateClassObject()");
    FAILS(create(CLSID_Value), E_NOINTERFACE, "QueryInterface()");
    FAILS(registry->RegisterObject(Numbered(1), nullptr), E_POINTER, "obj");
    FAILS(registry->RegisterObject(CLSID_GlobalSingleton, registry.Get()), E_INVALIDARG,
          "CLSID_GlobalSingleton - cannot use singleton from singleton");
    EXPECT_EQ(registry->UnregisterObject(Numbered(1)), S_FALSE);
    EXPECT_EQ(registry->UnregisterObject(CLSID_Value), S_OK) << "it only lacked the interface";
}

// In descending order of the identifiers, or in ascending order when progress is shown.
TEST(SingletonRegistry, ReleasesInOrderAndTheFactoryLastWhateverTheyDoMeanwhile)
{
    for (const bool ascends : {false, true})
    {
        const ObserverMaskScope mask(ascends ? PRINT_PROGRESS : 0);
        auto registry = Make<ISingleton>(CLSID_DebugSingleton);
        ISingleton& same = *registry;
        Numbers released;
        const auto enter = [&](const CLSID& clsid)
        {
            const auto atItsEnd = [&, clsid]
            {
                released.push_back(static_cast<std::uint32_t>(clsid.Data1));
                if (released.back() != 2)
                    return;
                const auto late = TestItem::New([&] { released.push_back(4); });
                EXPECT_EQ(same.UnregisterObject(Numbered(ascends ? 3 : 1)), S_OK);
                EXPECT_EQ(same.RegisterObject(Numbered(4), late.Get()), S_OK);
            };
            EXPECT_EQ(same.RegisterObject(clsid, TestItem::New(atItsEnd).Get()), S_OK);
        };
        enter(CLSID_GlobalObjectFactory);
        for (const std::uint32_t number : {3u, 0xF0u, 1u, 2u})
            enter(Numbered(number));
        EXPECT_EQ(registry->ClearObjects(), S_OK);
        constexpr std::uint32_t last = 0xB9C7C3DB; // of the factory's identifier
        EXPECT_EQ(released,
                  ascends ? (Numbers{1, 2, 3, 0xF0, 4, last}) : (Numbers{0xF0, 3, 2, 1, 4, last}));
        enter(Numbered(5));
        registry.Reset();
        EXPECT_EQ(released.back(), 5u);
    }
}

TEST(GlobalCriticalSection, EveryInstanceIsTheOneReentrantLock)
{
    const auto mine = Make<ICriticalSection>(CLSID_GlobalCriticalSection);
    const auto theirs = Make<ICriticalSection>(CLSID_GlobalCriticalSection);
    EXPECT_EQ(mine->Lock() + theirs->Lock() + mine->Unlock(), S_OK);
    auto entered =
        std::async(std::launch::async, [&] { return theirs->Lock() + theirs->Unlock(); });
    EXPECT_EQ(entered.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    EXPECT_EQ(mine->Unlock(), S_OK);
    EXPECT_EQ(entered.get(), S_OK);
}

} // namespace

} // namespace Tavrik::Ossira
