// The object factory, the class register service, the CLSID registry, the singleton registry and
// the process-wide lock, as a host sees them.
#include "ModuleExports.h"
#include "RandomProgram.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

using Numbers = std::vector<std::uint32_t>; // of identifiers made by `Numbered`

// The group of number 0 is that of no group.
class RegistryModel final : public RandomModel
{
public:
    void Step() override
    {
        mEntry = {1 + Below(3), Below(3), 1 + Below(4)};
        const GUID category = Numbered(mEntry[0]), clsid = Numbered(mEntry[2]);
        const GUID group = GroupOf(mEntry[1]);
        const bool isBrief = mEntry[1] == 0 && Below(2) == 0;
        if (Below(16) < 9)
        {
            const auto add = [&]
            {
                return isBrief ? mRegistry->RegisterClass(category, clsid)
                               : mRegistry->RegisterGroupClass(category, group, clsid);
            };
            const bool isThere = mModel.contains(mEntry);
            Expect(add, isThere ? S_FALSE : S_OK);
            mModel.insert(mEntry);
            return;
        }
        const bool isGone = mModel.erase(mEntry) != 0;
        EXPECT_EQ(isBrief ? mRegistry->UnregisterClass(category, clsid)
                          : mRegistry->UnregisterGroupClass(category, group, clsid),
                  isGone ? S_OK : S_FALSE);
    }

    void Check() override
    {
        const GUID category = Numbered(mEntry[0]), clsid = Numbered(mEntry[2]);
        const GUID group = GroupOf(mEntry[1]);
        const auto classes = TextsBehind(2);
        ObjectPtr<IEnumeratorGUID> keys, same;
        EXPECT_EQ(mRegistry->ContainsCategory(category), TextsBehind(1).empty() ? S_FALSE : S_OK);
        EXPECT_EQ(mRegistry->ContainsGroup(category, group), classes.empty() ? S_FALSE : S_OK);
        EXPECT_EQ(mRegistry->ContainsGroupClass(category, group, clsid),
                  mModel.contains(mEntry) ? S_OK : S_FALSE);
        const Result found = classes.empty() ? E_NOT_FOUND : S_OK;
        EXPECT_EQ(mRegistry->GetGroupClasses(category, group, IID_IEnumeratorGUID, keys.PutVoid()),
                  found);
        EXPECT_EQ(keys ? KeysIn(*keys) : classes, classes);
        EXPECT_EQ(mRegistry->GetCategories(IID_IEnumeratorGUID, keys.PutVoid()), S_OK);
        EXPECT_EQ(KeysIn(*keys), TextsBehind(0));
        if (mEntry[1] != 0)
            return;
        EXPECT_EQ(mRegistry->ContainsClass(category, clsid),
                  mModel.contains(mEntry) ? S_OK : S_FALSE);
        EXPECT_EQ(mRegistry->GetClasses(category, IID_IEnumeratorGUID, same.PutVoid()), found);
        EXPECT_EQ(same ? KeysIn(*same) : classes, classes);
    }

private:
    using Entry = std::array<std::uint32_t, 3>; // category, group, class

    static GUID GroupOf(std::uint32_t number)
    {
        return number == 0 ? GUID_Null : Numbered(number);
    }

    // What entries that begin like this one go on with.
    std::vector<std::string> TextsBehind(std::size_t depth)
    {
        std::set<std::string> texts;
        for (const Entry& each : mModel)
            if (std::equal(each.begin(), each.begin() + depth, mEntry.begin()))
                texts.insert(Text(Numbered(each[depth])));
        return {texts.begin(), texts.end()};
    }

    const ObjectPtr<IClsidRegistry> mRegistry = Make<IClsidRegistry>(CLSID_ClsidRegistry);
    std::set<Entry> mModel;
    Entry mEntry = {};
};

TEST(ClsidRegistry, FilesAndTakesOutLikeAMapOfMaps)
{
    RunProgram<RegistryModel>(4000);
}

// Classes of a module, of a file that is none, of no file and of a module that makes no objects.
class FactoryModel final : public RandomModel
{
public:
    FactoryModel()
    {
        mWalk.Begin(*mFactory);
    }

    void Step() override
    {
        mNumber = 1 + Below(8);
        mFile = Below(std::size(mFiles));
        const CLSID clsid = Numbered(mNumber);
        const std::string info = Below(7) == 0 ? "" : "class " + std::to_string(Below(1000));
        const std::uint32_t die = Below(8);
        const auto known = mModel.find(mNumber);
        const bool isKnown = known != mModel.end();
        if (die < 3)
        {
            mIsLoaded |= mFile == 0 && mCounts[0] < 0; // by its first class
            EXPECT_EQ(mFactory->RegisterClass(clsid, mFiles[mFile].c_str(), info.c_str()),
                      isKnown ? S_FALSE : S_OK);
            mCounts[mFile] = std::max(mCounts[mFile], 0) + (isKnown ? 0 : 1);
            mModel.try_emplace(mNumber, mFile, info);
            mWalk.IsDead |= !isKnown;
        }
        else if (die < 4)
            EXPECT_EQ(mFactory->UnregisterClass(clsid),
                      mModel.erase(mNumber) != 0 ? S_OK : S_FALSE);
        else if (die < 5)
        {
            if (Below(4) == 0)
                mWalk.Begin(*mFactory);
            mWalk.Step(9, [this](std::uint32_t number) { return mModel.contains(number); });
        }
        else if (die < 7)
        {
            constexpr std::pair<Result, const char*> answers[] = {
                {S_OK, ""},
                {E_FAIL, "DynLib.Open()"},
                {E_NOINTERFACE, "CreateClassObject()"},
                {E_ABORT, "DynLib.GetClassObject()"}};
            const ObserverMaskScope errors(PRINT_ERROR);
            ObjectPtr<IUnknown> object;
            const auto& [answer, text] = answers[isKnown ? known->second.first : 1];
            REPORTS(mFactory->GetClassObject(clsid, IID_IUnknown, object.PutVoid()), answer,
                    isKnown ? InReport(text) : "-ERROR- Unknwon class-id " + Text(clsid));
            mIsLoaded |= static_cast<bool>(object);
            if (object)
                mObjects.push_back(object);
        }
        else
        {
            mObjects.resize(Below(mObjects.size() + 1) / 2);
            EXPECT_EQ(mFactory->FlushModules(), S_OK);
            mIsLoaded &= !mObjects.empty();
        }
    }

    void Check() override
    {
        const CLSID clsid = Numbered(mNumber);
        EXPECT_EQ(IsMapped(ModuleFile("raw", "Decent")), mIsLoaded);
        ObjectPtr<IValueSet> values;
        std::wstring file;
        std::int32_t count = -1;
        const auto known = mModel.find(mNumber);
        const bool isKnown = known != mModel.end();
        EXPECT_EQ(CountClasses(*mFactory), mModel.size());
        Expect([&] { return mFactory->GetClassValue(clsid, IID_IValueSet, values.PutVoid()); },
               isKnown ? S_OK : E_FAIL, isKnown ? "" : "not exists");
        if (isKnown)
        {
            EXPECT_EQ(GetValueUniString(values.Get(), ObjectFactoryItem_FileName, &file), S_OK);
            EXPECT_EQ(file, mFiles[known->second.first]);
            EXPECT_EQ(TextOf(*values, ObjectFactoryItem_InfoText), known->second.second);
        }
        const bool isListed = !mFiles[mFile].empty() && mCounts[mFile] >= 0;
        EXPECT_EQ(mFactory->GetModuleValue(mFiles[mFile].c_str(), IID_IValueSet, values.PutVoid()),
                  isListed ? S_OK : E_FAIL);
        if (isListed)
        {
            EXPECT_EQ(GetValueUniString(values.Get(), ObjectFactoryItem_FileName, &file), S_OK);
            EXPECT_EQ(file, mFiles[mFile]);
            EXPECT_EQ(GetValueSINT32(values.Get(), ObjectFactoryItem_ClassCount, &count), S_OK);
            EXPECT_EQ(count, mCounts[mFile]);
        }
        if (isListed && mFile == 0)
        {
            EXPECT_EQ(GetValueSINT32(values.Get(), ObjectFactoryItem_OpenObjectCount, &count),
                      mIsLoaded ? S_OK : E_NOT_FOUND);
            EXPECT_EQ(count, mIsLoaded ? std::ssize(mObjects) : mCounts[0]);
        }
        std::vector<std::wstring> listed;
        for (std::size_t each = 0; each < std::size(mFiles); ++each)
            if (mCounts[each] >= 0 && !mFiles[each].empty())
                listed.push_back(mFiles[each]);
        std::ranges::sort(listed);
        EXPECT_EQ(ModulesOf(*mFactory), listed);
    }

private:
    const ObjectPtr<IObjectFactory> mFactory = Make<IObjectFactory>(CLSID_ObjectFactory);
    const std::wstring mFiles[4] = {ModuleFile("raw", "Decent").wstring(), L"no file", L"",
                                    ModuleFile("raw", "CreatorFails").wstring()};
    std::map<std::uint32_t, std::pair<std::size_t, std::string>> mModel;
    std::vector<ObjectPtr<IUnknown>> mObjects; // of the module
    KeyWalk mWalk;
    bool mIsLoaded = false;
    std::int32_t mCounts[4] = {-1, -1, -1, -1}; // of the classes ever registered; -1: unknown
    std::uint32_t mNumber = 0;
    std::size_t mFile = 0;
};

TEST(ObjectFactory, TellsOfItsClassesAndFilesLikeAMap)
{
    RunProgram<FactoryModel>(400);
}

// Reads files into two factories: a module and its double, one with bootstrap classes, one that is
// none, and one of the runtime's name.
class ReaderModel final : public RandomModel
{
public:
    ReaderModel()
    {
        mMayRunShort = false; // a folder may have been read in part
        const std::string outer = ReadFile(ModuleFile("bootstrap", "BootstrapOuter"));
        for (std::size_t at = 0; at < std::size(Names); ++at)
            mFolder.Write(Names[at], at == 1   ? outer
                                     : at == 2 ? "none"
                                               : ReadFile(ModuleFile("good", "Counter")));
    }

    void Step() override
    {
        IClassRegisterService& service = *mService;
        const bool enrols = Below(2) != 0;
        IClsidRegistry* const registry = enrols ? mRegistry.Get() : nullptr;
        const std::wstring ending = std::array{L"", L"/", L"\\"}[Below(3)];
        const std::wstring folder = mFolder.Path().wstring() + ending;
        const wchar_t separator = std::filesystem::path::preferred_separator;
        const auto nameOf = [&](std::size_t at)
        {
            return folder + (ending.empty() ? std::wstring{separator} : L"") + Names[at];
        };
        const auto note = [&](std::size_t at)
        {
            for (const CLSID& clsid : ClassesOf(at))
                mKnown[mAt].try_emplace(Text(clsid), clsid, nameOf(at));
            if (at != 2)
                mRead[mAt].insert(nameOf(at));
            mHasEnrolled |= enrols && at == 1;
        };
        const std::uint32_t die = Below(16);
        if (die < 3)
        {
            mAt = Below(2);
            IObjectFactory* lent = mFactories[0].Get();
            for (IObjectFactory* const set :
                 std::initializer_list<IObjectFactory*>{nullptr, mFactories[mAt].Get()})
            {
                EXPECT_EQ(service.SetFactory(set), S_OK);
                EXPECT_EQ(service.GetFactory(&lent), S_OK);
                EXPECT_EQ(lent, set);
            }
            EXPECT_EQ(ReferencesOn(*lent), 2u) << "the service's and this model's";
        }
        else if (die < 5)
        {
            const CLSID clsid = ClassesOf(Below(2)).back();
            EXPECT_EQ(mFactories[mAt]->UnregisterClass(clsid),
                      mKnown[mAt].erase(Text(clsid)) != 0 ? S_OK : S_FALSE);
            EXPECT_EQ(mRegistry->UnregisterClass(BootstrapRegistryCleanup_Level2, Numbered('D', 1)),
                      std::exchange(mHasEnrolled, false) ? S_OK : S_FALSE);
        }
        else if (die < 6)
        {
            const auto read = [&]
            {
                return service.RegisterModule(L"TAVRIKossira.dLL", registry, nullptr);
            };
            Expect(read, E_INVALIDARG, "Cannot register base-dll");
        }
        else if (die < 11)
        {
            const std::size_t at = Below(std::size(Names));
            const std::wstring file = nameOf(at);
            Expect([&] { return service.RegisterModule(file.c_str(), registry, nullptr); },
                   at == 2 ? E_FAIL : S_OK);
            note(at);
        }
        else
        {
            const std::pair<const wchar_t*, std::vector<std::size_t>> patterns[] = {
                {nullptr, {0, 2, 3}}, {L"", {0, 1, 2, 3}}, {L"*.MOD", {1}}, {L"*.x", {}}};
            const auto& [pattern, found] = patterns[Below(4)];
            const auto read = [&, pattern = pattern]
            {
                return service.RegisterFolder(folder.c_str(), pattern, registry, nullptr);
            };
            Expect(read, found.empty() ? E_FAIL : S_OK,
                   found.empty() ? "Directory.ScanDirectory()" : "");
            std::ranges::for_each(found, note);
        }
    }

    void Check() override
    {
        EXPECT_EQ(mRegistry->ContainsClass(BootstrapRegistryCleanup_Level2, Numbered('D', 1)),
                  mHasEnrolled ? S_OK : S_FALSE);
        IObjectFactory& factory = *mFactories[mAt];
        EXPECT_EQ(CountClasses(factory), mKnown[mAt].size());
        for (const auto& [text, told] : mKnown[mAt])
        {
            const auto& [clsid, file] = told;
            ObjectPtr<IValueSet> values;
            std::wstring name;
            EXPECT_EQ(factory.GetClassValue(clsid, IID_IValueSet, values.PutVoid()), S_OK);
            EXPECT_EQ(GetValueUniString(values.Get(), ObjectFactoryItem_FileName, &name), S_OK);
            EXPECT_EQ(name, file);
        }
        const auto& read = mRead[mAt];
        EXPECT_EQ(ModulesOf(factory), std::vector<std::wstring>(read.begin(), read.end()));
    }

private:
    static constexpr const wchar_t* Names[] = {L"a.dll", L"b.mod", L"c.dll", L"u.dll",
                                               L"tavrikOSSIRA.dll"};

    static std::vector<CLSID> ClassesOf(std::size_t at)
    {
        if (at == 1)
            return {Numbered('A', 1), Numbered('C', 1), Numbered('D', 1)};
        return at == 2 ? std::vector<CLSID>() : std::vector{CLSID_Counter};
    }

    const TempFolder mFolder;
    const ObjectPtr<IClsidRegistry> mRegistry = Make<IClsidRegistry>(CLSID_ClsidRegistry);
    const ObjectPtr<IObjectFactory> mFactories[2] = {Make<IObjectFactory>(CLSID_ObjectFactory),
                                                     Make<IObjectFactory>(CLSID_ObjectFactory)};
    const ObjectPtr<IClassRegisterService> mService = RegisterService(mFactories[0].Get());
    std::map<std::string, std::pair<CLSID, std::wstring>> mKnown[2];
    std::set<std::wstring> mRead[2];
    std::uint32_t mAt = 0; // the factory that is set
    bool mHasEnrolled = false;
};

TEST(ClassRegisterService, ReadsModulesIntoTheFactoryThatIsSetLikeAMap)
{
    RunProgram<ReaderModel>(300);
}

TEST(SingletonRegistry, RefusesWhatCannotBeASingletonAndKeepsWhatItCreated)
{
    const auto registry = SingletonRegistry();
    const auto factory = GlobalFactory();
    void* out = nullptr;
    const auto create = [&](const CLSID& clsid)
    {
        return registry->GetClassObject(clsid, IID_ICounter, &out);
    };
    FAILS(create(CLSID_GlobalSingleton), E_INVALIDARG,
          "CLSID_GlobalSingleton - cannot create singleton from singleton");
    FAILS(create(CLSID_ObjectFactory), E_INVALIDARG,
          "CLSID_ObjectFactory is not allowd by singleton, use CLSID_GlobalObjectFactory");
    FAILS(create(Numbered(1)), E_NOINTERFACE, "CreateClassObject()");
    FAILS(create(CLSID_Value), E_NOINTERFACE, "QueryInterface()");
    FAILS(registry->RegisterObject(CLSID_GlobalSingleton, registry.Get()), E_INVALIDARG,
          "CLSID_GlobalSingleton - cannot use singleton from singleton");
    EXPECT_EQ(registry->UnregisterObject(CLSID_Value), S_OK) << "it only lacked the interface";
    FAILS(factory->GetClassObject(CLSID_GlobalSingleton, IID_IUnknown, &out), E_INVALIDARG,
          "CLSID_GlobalSingleton - cannot create singleton from singleton");
    FAILS(factory->RegisterClass(CLSID_GlobalSingleton, nullptr, nullptr), E_INVALIDARG,
          "CLSID_GlobalSingleton - cannot use singleton from singleton");
}

// In descending order of the identifiers, or in ascending order when progress is shown.
TEST(SingletonRegistry, ReleasesInOrderAndTheFactoryLastWhateverTheyDoMeanwhile)
{
    for (const bool ascends : {false, true})
    {
        const ObserverMaskScope mask(PRINT_TRACE | (ascends ? PRINT_PROGRESS : 0));
        const DiagnosticsCapture capture;
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
        KeyWalk walk;
        walk.Begin(*registry);
        EXPECT_EQ(same.UnregisterObject(Numbered(0xF0)), S_OK);
        walk.Step(4, std::identity());
        enter(Numbered(0xF0));
        walk.IsDead = true;
        walk.Step(4, std::identity());
        released.clear();
        EXPECT_EQ(registry->ClearObjects(), S_OK);
        constexpr std::uint32_t last = 0xB9C7C3DB; // of the factory's identifier
        EXPECT_EQ(released,
                  ascends ? (Numbers{1, 2, 3, 0xF0, 4, last}) : (Numbers{0xF0, 3, 2, 1, 4, last}));
        EXPECT_EQ(capture.CountLinesWith(" object "), ascends ? 8u : 0u) << "for progress";
        enter(CLSID_GlobalObjectFactory);
        enter(Numbered(5));
        walk = {};
        released.clear();
        registry.Reset();
        EXPECT_EQ(released, (Numbers{5, last}));
    }
}

TEST(KeyEnumerators, ReportWhereItIsAMistakeThatTheyAreAskedAtTheirEnd)
{
    for (const CLSID& clsid : {CLSID_ObjectFactory, CLSID_GlobalSingleton})
    {
        const auto walk = Walk<IEnumerator>(*Make<IEnumerable>(clsid));
        EXPECT_EQ(walk->MoveNext(), S_FALSE);
        ObjectPtr<IValue> value;
        FAILS(walk->GetCurrent(IID_IValue, value.PutVoid()), E_FAIL, "Enumerator at End");
    }
}

// In the order of the identifiers.
TEST(ClassTable, SaysWhatTheRuntimeHas)
{
    std::string table;
    for (std::uint32_t index = 0; index < static_cast<std::uint32_t>(DLLGetClassCount()); ++index)
    {
        char text[64];
        ASSERT_EQ(DLLGetClassObjectInfo(index, text, sizeof text), S_OK);
        table += std::string(text) + ", ";
    }
    EXPECT_EQ(table, "UnsafeDictionaryGUID, DatatypesService, DictionaryGUID, "
                     "ModifiedService, ClsidRegistry, LockableDictionaryGUID, DebugSingleton, "
                     "GlobalCriticalSection - via gbCS, UnsafeValueSet, "
                     "DebugOutputObserverPrint, UnsafeNodeList, CommonMemoryAllocator32, "
                     "Read-Only Value, ClsidObjectCacheStack, MasterBootstrap, "
                     "IntrinsicDatatypes, LockableValueSet, Value, NodeList, GlobalSingleton, "
                     "DirectoryService, CommonMemorySegment32, ValueSetGroup, "
                     "LockableNodeList, CommonThreadPoolBox, ClassRegisterService, "
                     "ObjectFactory, ValueSet, ");
    EXPECT_EQ(DllCanUnloadNow(), S_FALSE) << "the observer is alive";
}

} // namespace

} // namespace Tavrik::Ossira
