// What all classes of the runtime have in common, by one driver: what they offer, say of themselves
// and answer for; and tables of the refusals that every operation has.
#include "ComServer.h"
#include "EveryOperation.h"
#include "FailingMemory.h"
#include "Library.h"
#include "SampleObject.h"
#include "ServiceTools.h"

namespace Tavrik::Ossira::tTest
{

namespace
{

#define KNOWN(name) std::pair(I##name::Iid, #name)

// clang-format off
constexpr std::pair<IID, const char*> Interfaces[] = {
    KNOWN(Bootstrap), KNOWN(ClassRegisterService), KNOWN(Cloneable), KNOWN(ClsidObjectCacheStack),
    KNOWN(ClsidRegistry), KNOWN(Collection), KNOWN(CollectionGUID),
    KNOWN(CommonMemoryAllocator32), KNOWN(CommonThreadPoolBox), KNOWN(Comparable),
    KNOWN(CriticalSection), KNOWN(Datatypes), KNOWN(DatatypesService), KNOWN(DictionaryGUID),
    KNOWN(DirectoryService), KNOWN(Disposable), KNOWN(Enumerable), KNOWN(Enumerator),
    KNOWN(EnumeratorGUID), KNOWN(List), KNOWN(MasterBootstrap), KNOWN(MemorySegment32),
    KNOWN(ModifiedService), KNOWN(ObjectCacheStack), KNOWN(ObjectFactory),
    KNOWN(ObjectLock), KNOWN(ObjectName), KNOWN(ObserverPrint), KNOWN(Singleton),
    KNOWN(SingletonRegistry), KNOWN(Stack), KNOWN(TouchModifiedChain), KNOWN(Value),
    KNOWN(ValueSet), KNOWN(ValueSetGroup), KNOWN(ObjectIdentity)
};
// clang-format on

// What else a class offers besides the unknown.
std::string OfferedBy(IUnknown& object)
{
    std::string names;
    for (const auto& [iid, name] : Interfaces)
    {
        ObjectPtr<IUnknown> answer;
        if (object.QueryInterface(iid, answer.PutVoid()) == S_OK && answer)
            names += std::string(names.empty() ? "" : " ") + name;
    }
    return names;
}

struct ClassCase
{
    CLSID Clsid;
    std::string_view Name;  // what its objects say; empty where they say nothing
    const char* Offers;     // beside who it is
    CLSID Identity = Clsid; // what its objects say
};

// clang-format off
#define CLASS(name, ...) {CLSID_##name, #name, __VA_ARGS__}
constexpr const char* OfDictionary = "CollectionGUID DictionaryGUID Enumerable ObjectName";
constexpr const char* OfList = "Collection Enumerable List ObjectName Value";
constexpr const char* OfValueSet =
    "CollectionGUID DictionaryGUID Enumerable ObjectName Value ValueSet";
constexpr const char* OfRegistry = "Enumerable Singleton SingletonRegistry";
constexpr ClassCase Classes[] = {
    CLASS(ClassRegisterService, "ClassRegisterService"),
    CLASS(ClsidObjectCacheStack, "ClsidObjectCacheStack Disposable ObjectCacheStack ObjectLock "
                                 "ObjectName Stack"),
    CLASS(ClsidRegistry, "ClsidRegistry"),
    CLASS(CommonMemoryAllocator32, "CommonMemoryAllocator32 ObjectName"),
    CLASS(CommonMemorySegment32, "MemorySegment32 ObjectName"),
    CLASS(CommonThreadPoolBox, "CommonThreadPoolBox ObjectName"),
    CLASS(DatatypesService, "Datatypes DatatypesService"),
    CLASS(DebugOutputObserverPrint, "ObserverPrint"),
    {CLSID_DebugSingleton, "GlobalSingleton", OfRegistry, CLSID_GlobalSingleton},
    CLASS(DictionaryGUID, OfDictionary),
    CLASS(DirectoryService, "DirectoryService"),
    {CLSID_GlobalCriticalSection, "", "CriticalSection"},
    CLASS(GlobalSingleton, OfRegistry),
    CLASS(IntrinsicDatatypes, "Datatypes"),
    CLASS(LockableDictionaryGUID, "CollectionGUID DictionaryGUID Enumerable ObjectLock ObjectName"),
    CLASS(LockableNodeList, "Collection Enumerable List ObjectLock ObjectName Value"),
    CLASS(LockableValueSet, "CollectionGUID DictionaryGUID Enumerable ObjectLock ObjectName Value "
                            "ValueSet"),
    CLASS(MasterBootstrap, "Bootstrap MasterBootstrap ObjectName"),
    CLASS(ModifiedService, "Disposable ModifiedService ObjectName TouchModifiedChain"),
    CLASS(NodeList, OfList),
    CLASS(ObjectFactory, "Enumerable ObjectFactory"),
    CLASS(ReadOnlyValue, "Cloneable Comparable ObjectName Value"),
    CLASS(UnsafeDictionaryGUID, OfDictionary),
    CLASS(UnsafeNodeList, OfList),
    CLASS(UnsafeValueSet, OfValueSet),
    CLASS(Value, "Cloneable Comparable ObjectName Value"),
    CLASS(ValueSet, OfValueSet),
    CLASS(ValueSetGroup, "CollectionGUID DictionaryGUID Enumerable ObjectName ValueSetGroup"),
};
// clang-format on

ObjectPtr<IUnknown> New(const CLSID& clsid, const IID& iid = IID_IUnknown)
{
    ObjectPtr<IUnknown> object; // past the front door, which has but one registry of singletons
    EXPECT_EQ(ModuleServer()->GetClassObject(clsid, iid, object.PutVoid()), S_OK);
    return object;
}

// Any of its interfaces leads to any other, and to the one identity, and is refused what is not.
void ExpectOneIdentity(const CLSID& clsid)
{
    const auto object = New(clsid);
    for (const auto& [iid, text] : Interfaces)
    {
        ObjectPtr<IUnknown> one;
        if (object->QueryInterface(iid, one.PutVoid()) != S_OK)
        {
            void* none = &none;
            EXPECT_EQ(ModuleServer()->GetClassObject(clsid, iid, &none), E_NOINTERFACE);
            EXPECT_EQ(none, nullptr);
            continue;
        }
        EXPECT_EQ(OfferedBy(*one), OfferedBy(*object));
        EXPECT_EQ(As<IUnknown>(*one).Get(), object.Get());
        EXPECT_EQ(OfferedBy(*New(clsid, iid)), OfferedBy(*object));
        void* none = &none;
        EXPECT_EQ(one->QueryInterface(Numbered(1), &none), E_NOINTERFACE);
        EXPECT_EQ(none, nullptr);
        EXPECT_EQ(one->QueryInterface(iid, nullptr), E_POINTER);
        none = &none;
        EXPECT_EQ(CallSlot<Result>(one.Get(), 0, nullptr, &none), E_POINTER);
        EXPECT_EQ(none, nullptr);
        EXPECT_EQ(ReferencesOn(*one), 2u);
    }
    EXPECT_EQ(ReferencesOn(*object), 1u);
}

// Asks for a text with room for just the text, and for the zero behind it as well.
template <class Interface>
void ExpectText(Interface& object, Result (Interface::*get)(char*, std::int32_t),
                const std::string& expected)
{
    const auto size = static_cast<std::int32_t>(expected.size());
    std::string text(expected.size() + 2, '#');
    EXPECT_EQ((object.*get)(nullptr, -1), size);
    EXPECT_EQ((object.*get)(text.data(), -1), E_INVALIDARG);
    EXPECT_EQ((object.*get)(text.data(), size), size);
    EXPECT_EQ(text, expected + "##");
    EXPECT_EQ((object.*get)(text.data(), size + 1), size);
    EXPECT_EQ(text, expected + '\0' + '#');
}

void ExpectNames(const CLSID& clsid, const CLSID& identity, std::string_view name)
{
    const auto object = New(clsid);
    ObjectPtr<IObjectIdentity> told;
    EXPECT_EQ(object.QueryTo(told), name.empty() ? E_NOINTERFACE : S_OK);
    CLSID own = {};
    if (told)
    {
        EXPECT_EQ(told->GetObjectClassID(&own), S_OK);
        EXPECT_TRUE(SameGuid(own, identity));
        EXPECT_EQ(told->GetObjectClassID(nullptr), E_POINTER);
        ExpectText(*told, &IObjectIdentity::GetObjectClassName, std::string(name));
        EXPECT_EQ(told->GetObjectClassName(std::string(name).data(),
                                           static_cast<std::int32_t>(name.size()) - 1),
                  E_INVALIDARG);
    }
    ObjectPtr<IObjectName> named;
    if (object.QueryTo(named) != S_OK)
        return;
    for (const std::string each : {"thing", "", "a name that is longer than most of them", "x"})
    {
        EXPECT_EQ(named->SetObjectName(std::string(each).c_str()), S_OK);
        ExpectText(*named, &IObjectName::GetObjectName, each);
    }
    EXPECT_EQ(named->SetObjectName(nullptr), S_OK);
    EXPECT_EQ(named->GetObjectName(nullptr, 0), 0);
}

// Of the object inside.
struct Owner final : Uncounted<IUnknown>
{
};

void ExpectAggregation(const CLSID& clsid)
{
    Owner owner;
    owner.AddRef();
    COssiraUnknown* made = nullptr;
    ASSERT_EQ(ModuleServer()->FindClass(clsid)->Creator(&owner, &made), S_OK);
    const ObjectPtr<IUnknown> inner(made->PrivateUnknown());
    EXPECT_EQ(As<IUnknown>(*inner).Get(), inner.Get());
    EXPECT_EQ(OfferedBy(*inner), OfferedBy(*New(clsid)));
    for (const auto& [iid, text] : Interfaces)
    {
        ObjectPtr<IUnknown> one;
        if (inner->QueryInterface(iid, one.PutVoid()) != S_OK)
            continue;
        EXPECT_EQ(owner.References, 2u) << "a reference on the owner";
        EXPECT_EQ(As<IUnknown>(*one).Get(), &owner);
        EXPECT_EQ(one->AddRef(), 3u);
        EXPECT_EQ(one->Release(), 2u);
    }
    EXPECT_EQ(owner.References, 1u);
    EXPECT_EQ(ReferencesOn(*inner), 1u);
}

// Of those that have a lock: twice by this thread, and another has to wait until it is left twice.
// The lock that every instance of its class shares is left by another one.
void ExpectLock(const CLSID& clsid)
{
    const bool isShared = SameGuid(clsid, CLSID_GlobalCriticalSection);
    const auto object = New(clsid), other = isShared ? New(clsid) : object;
    ObjectPtr<IClsidObjectCacheStack> cache;
    EXPECT_EQ(object.QueryTo(cache) == S_OK ? cache->Create(clsid, IID_IUnknown, 0, 0) : S_OK,
              S_OK);
    ObjectPtr<IUnknown> lock, same;
    const IID& iid = isShared ? IID_ICriticalSection : IID_IObjectLock;
    if (object->QueryInterface(iid, lock.PutVoid()) != S_OK)
        return;
    EXPECT_EQ(other->QueryInterface(iid, same.PutVoid()), S_OK);
    const auto call = [](const ObjectPtr<IUnknown>& which, std::size_t slot)
    {
        EXPECT_EQ(CallSlot<Result>(which.Get(), slot, 0), S_OK);
    };
    call(lock, 3);
    call(same, 3);
    std::atomic<bool> isIn = false;
    std::jthread waiting(
        [&]
        {
            call(lock, 3);
            isIn = true;
            call(same, 4);
        });
    for (const auto& held : {lock, same})
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        EXPECT_FALSE(isIn);
        call(held, 4);
    }
    waiting.join();
    EXPECT_TRUE(isIn);
}

TEST(EveryClass, IsOneObjectWithItsNamesThatCanBeAggregatedAndLeavesNothing)
{
    const ObserverMaskScope silence(0);
    (void)GlobalFactory();
    for (const ClassCase& each : Classes)
    {
        SCOPED_TRACE(ModuleServer()->FindClass(each.Clsid)->Text);
        const std::uint32_t before = GetObjectOpenCount();
        const char* const who = each.Name.empty() ? "" : " ObjectIdentity";
        EXPECT_EQ(OfferedBy(*New(each.Clsid)), std::string(each.Offers) + who);
        ExpectOneIdentity(each.Clsid);
        ExpectNames(each.Clsid, each.Identity, each.Name);
        ExpectAggregation(each.Clsid);
        ExpectLock(each.Clsid);
        EXPECT_EQ(GetObjectOpenCount(), before);
    }
}

TEST(EveryClass, ConcurrentCreationLosesNothing)
{
    for (const ClassCase& each : Classes)
    {
        const std::uint32_t before = GetObjectOpenCount();
        InThreads(4,
                  [&](std::uint32_t)
                  {
                      for (int round = 0; round < 100; ++round)
                          EXPECT_EQ(ReferencesOn(*New(each.Clsid)), 1u);
                  });
        EXPECT_EQ(GetObjectOpenCount(), before) << ModuleServer()->FindClass(each.Clsid)->Text;
    }
}

// --- Refusals ------------------------------------------------------------------------------------

// Null in the place of one argument after the other, all others being right.
TEST(EveryClass, RefusesNullInThePlaceOfEveryArgument)
{
    Arguments with;
    for (const auto& [classes, iid, rows, part] : EveryOperation)
        for (const CLSID& clsid : classes)
            for (const auto& [slot, letters, texts] : rows)
            {
                const auto object = PartOf(*New(clsid), iid, part);
                std::istringstream stream{std::string(texts)};
                std::string text;
                for (std::size_t at = 0; stream >> text; ++at)
                {
                    if (text == "-")
                        continue;
                    SCOPED_TRACE(testing::Message() << ModuleServer()->FindClass(clsid)->Text
                                                    << ", slot " << slot << ", argument " << at);
                    std::replace(text.begin(), text.end(), '_', text.front() == '_' ? '_' : ' ');
                    auto a = with.Of(letters);
                    a[at] = 0;
                    const auto call = slot;
                    const bool isReset = letters.find("gio") < 9 && slot != 10; // a set's
                    with.Out[0] = &with;
                    FAILS(Call(object.Get(), call, a), E_POINTER, text);
                    EXPECT_TRUE(!isReset || letters[at] == 'o' || with.Out[0] == nullptr);
                }
                EXPECT_EQ(ReferencesOn(*object), 1u);
            }
}

// Before a cache was created, and once an object was disposed of.
TEST(EveryClass, RefusesEveryOperationAfterItsDisposal)
{
    // clang-format off
    const OperationRows cases[] = {
        {{CLSID_ModifiedService}, IID_IModifiedService, {{3, "o", "GetModifiedCounter"},
         {4, "", "TouchModified"}, {5, "c", "AddTouchModified"}, {6, "c", "RemoveTouchModified"}}},
        {{CLSID_ModifiedService}, IID_ITouchModifiedChain, {{3, "", "TouchModified"}}},
        {{CLSID_ClsidObjectCacheStack}, IID_IClsidObjectCacheStack, {{3, "", "IsEmpty"},
         {4, "", "Clear"}, {5, "io", "Pop"}, {6, "v", "Push"}, {7, "gi", "Create"}}},
        {{CLSID_ClsidObjectCacheStack}, IID_IObjectLock, {{3, "0", "LockObject"},
         {4, "", "UnlockObject"}}},
        {{CLSID_ClsidObjectCacheStack}, IID_IDisposable, {{3, "", "Dispose"}}}};
    // clang-format on
    Arguments with;
    for (const auto& [classes, iid, rows, part] : cases)
    {
        const CLSID& clsid = classes.front();
        const auto object = New(clsid, iid);
        const auto disposable = As<IDisposable>(*object);
        const auto call = [&](const Row& row)
        {
            return Call(object.Get(), row.Slot, with.Of(row.Letters));
        };
        for (const Row& row : rows)
        {
            if (SameGuid(clsid, CLSID_ClsidObjectCacheStack) && row.Slot != 7 &&
                !SameGuid(iid, IID_IDisposable))
                FAILS(call(row), E_ACCESSDENIED,
                      "ClsidObjectCacheStack-Object not created - see Create()");
        }
        EXPECT_EQ(disposable->IsDisposed(), S_FALSE);
        EXPECT_EQ(disposable->Dispose(), S_OK);
        EXPECT_EQ(disposable->IsDisposed(), S_OK);
        for (const Row& row : rows)
            FAILS(call(row), E_DISPOSED, std::string(row.Texts));
    }
}

// Says that it has every interface, and has nothing to show for it.
struct Hollow final : TestProvider
{
    Result QueryInterface(const IID& iid, void** out) override
    {
        *out = nullptr;
        return Honest-- > 0 ? TestProvider::QueryInterface(iid, out) : S_OK;
    }

    int Honest = 0; // so many times it is not
};

// Can be created, and is hollow then.
class T_Shell : public IMark<IUnknown, 9>, public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = Numbered(9, 4);

    Result InternalQueryInterface(const IID& iid, void** out) override
    {
        *out = nullptr;
        return SameGuid(iid, IID_IUnknown) ? AnswerInterfaces<IMark>(this, iid, out) : S_OK;
    }
};

OSSIRA_CLASS(T_Shell, "Shell")

TEST(EveryClass, TheHeadersReadWhatTheyWroteAndRefuseNoPlaceAndNoDatum)
{
    const auto value = Make<IValue>(CLSID_Value);
    const auto values = Make<IValueSet>(CLSID_ValueSet);
    IValue* const noValue = nullptr;
    IValueSet* const noValues = nullptr;
    const auto expect = [&](Result expected, auto use)
    {
        EXPECT_EQ(std::min(use(value.Get()), S_OK), expected);
        EXPECT_EQ(std::min(use(values.Get(), Numbered(1)), S_OK), expected);
        EXPECT_EQ(use(noValue), E_POINTER);
        EXPECT_EQ(use(noValues, Numbered(1)), E_POINTER);
    };
    std::wstring wide;
    std::string narrow;
    std::int32_t number = 0;
    GUID guid = {};
    expect(S_OK, [](auto... place) { return SetValueUniString(place..., L"\u20ac"); });
    expect(S_OK, [&](auto... place) { return GetValueUniString(place..., &wide); });
    expect(S_OK, [](auto... place) { return SetValueCharString(place..., "text"); });
    expect(S_OK, [&](auto... place) { return GetValueCharString(place..., &narrow); });
    expect(S_OK, [](auto... place) { return SetValueSINT32(place..., -7); });
    expect(S_OK, [&](auto... place) { return GetValueSINT32(place..., &number); });
    expect(S_OK, [](auto... place) { return SetValueGUID(place..., Numbered(9)); });
    expect(S_OK, [&](auto... place) { return GetValueGUID(place..., &guid); });
    EXPECT_TRUE(wide == L"\u20ac" && narrow == "text" && number == -7 &&
                SameGuid(guid, Numbered(9)));
    const wchar_t* const noWide = nullptr;
    const char* const noNarrow = nullptr;
    expect(E_POINTER, [=](auto... place) { return SetValueUniString(place..., noWide); });
    expect(E_POINTER, [=](auto... place) { return SetValueCharString(place..., noNarrow); });
    expect(E_POINTER, [](auto... place) { return GetValueUniString(place..., nullptr); });
    expect(E_POINTER, [](auto... place) { return GetValueCharString(place..., nullptr); });
    expect(E_POINTER, [](auto... place) { return GetValueSINT32(place..., nullptr); });
    const std::string_view endless(narrow.data(), std::size_t{1} << 31);
    expect(E_OUTOFMEMORY, [&](auto... place) { return SetValueCharString(place..., endless); });
    EXPECT_EQ(value->SetValue(DATATYPE_UniString, "odd", 3), S_OK);
    EXPECT_EQ(GetValueUniString(value.Get(), &wide), E_INVALIDARG);

    CStackBuffer buffer;
    const void* const onStack = buffer.Data();
    constexpr std::int32_t room = CStackBuffer::StackSize;
    EXPECT_TRUE(buffer.Alloc(-1) == E_INVALIDARG && buffer.Alloc(room) == S_OK &&
                buffer.Data() == onStack);
    EXPECT_TRUE(buffer.Alloc(room + 1) == S_OK && buffer.Data() != onStack);
    CValueDataBuffer full;
    EXPECT_TRUE(full.SetValue(DATATYPE_GUID, &guid, sizeof guid) == S_OK && !full.IsEmpty() &&
                full.AllocBuffer(sizeof guid) == S_OK && full.Assign({}) == S_OK && full.IsEmpty());
}

TEST(EveryClass, AGroupThatKnowsItsKeysCountsAndWalksThemWithoutMemory)
{
    const auto group = Make<IValueSetGroup>(CLSID_ValueSetGroup);
    for (const std::uint32_t key : {1u, 2u})
    {
        const auto layer = Make<IValueSet>(CLSID_ValueSet);
        EXPECT_EQ(SetValueSINT32(layer.Get(), Numbered(key), 0) +
                      SetValueSINT32(layer.Get(), Numbered(key + 1), 0) +
                      group->InsertValueSet(-1, layer.Get(), nullptr, 0),
                  S_OK);
    }
    ObjectPtr<IValueSet> view;
    EXPECT_EQ(group->GetValueSet(view.Put()), S_OK);
    const auto walk = Walk<IEnumeratorGUID>(*view);
    EXPECT_EQ(view->GetCount() + walk->MoveNext(), 3);
    const FailingMemory none(0);
    EXPECT_EQ(view->GetCount() + walk->MoveNext(), 3);
}

TEST(EveryClass, AnObjectThatAnswersSuccessAndNothingIsRefusedWhereItIsAsked)
{
    Hollow itself;
    IDatatypes* const hollow = &itself;
    std::int32_t order = 0;
    ObjectPtr<IUnknown> out;
    for (const CLSID& clsid : {CLSID_NodeList, CLSID_LockableNodeList, CLSID_UnsafeNodeList})
    {
        const auto list = Make<IList>(clsid);
        FAILS(list->Remove(hollow), E_POINTER, "item");
        EXPECT_EQ(list->Contains(hollow), S_FALSE);
        EXPECT_EQ(list->IndexOf(hollow), E_NOT_FOUND);
        EXPECT_EQ(list->Add(hollow), S_OK);
        void** targets[] = {out.PutVoid()};
        FAILS(list->CopyTo(0, 1, IID_IUnknown, targets), E_NOINTERFACE,
              "QueryInterface(riid, pppv[i])");
    }
    for (const CLSID& clsid : {CLSID_ValueSet, CLSID_LockableValueSet, CLSID_UnsafeValueSet})
        FAILS(Make<IValueSet>(clsid)->SetValueGUID(Numbered(1), hollow), E_NOINTERFACE,
              "item-object must be IValue");
    FAILS(Make<IValueSetGroup>(CLSID_ValueSetGroup)->SetValueGUID(Numbered(1), hollow),
          E_NOINTERFACE, "value must be IValueSet");
    const auto cache = Make<IClsidObjectCacheStack>(CLSID_ClsidObjectCacheStack);
    EXPECT_EQ(cache->Create(CLSID_Value, IID_IDatatypes, 0, 0), S_OK);
    for (const int times : {0, 1})
    {
        itself.Honest = times;
        FAILS(cache->Push(hollow), E_POINTER, "Add");
    }
    FAILS(Library_BootstrapRegisterChain(hollow), E_NOINTERFACE, "clsidRegistry->QueryInterface()");
    REPORTS((ObserverMaskScope(PRINT_ERROR), Library_BootstrapRegisterChain(cache.Get())),
            E_NOINTERFACE, "clsidRegistry->QueryInterface(IID_IClsidRegistry, ) failed");
    FAILS(Make<IComparable>(CLSID_Value)->Compare(hollow, &order), E_NOINTERFACE,
          "pv->QueryInterface(IID_IValue, (void**)&BValue)");
    const auto singletons = Make<ISingleton>(CLSID_DebugSingleton);
    REPORTS((ObserverMaskScope(PRINT_TRACE), singletons->RegisterObject(Numbered(1), hollow)), S_OK,
            "Singleton register 0x");
    FAILS(singletons->GetClassObject(Numbered(1), IID_IUnknown, out.PutVoid()), E_NOINTERFACE,
          "QueryInterface()");
    const auto types = Make<IDatatypesService>(CLSID_DatatypesService);
    EXPECT_EQ(types->RegisterDatatype(Numbered(1), hollow), S_OK);
    FAILS(types->RegisterDatatypes(hollow), E_NOINTERFACE, "GetEnumerator");
    FAILS(types->ValueCompare(Numbered(1), &order, 4, &order, 4, &order), E_NOINTERFACE,
          "GetValueGUID( dataType )");

    const auto bootstrap = NewBootstrap({});
    const auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
    const auto registry = Make<IClsidRegistry>(CLSID_ClsidRegistry);
    EXPECT_EQ(bootstrap->SetFactory(factory.Get()), S_OK);
    EXPECT_EQ(bootstrap->SetClsidRegistry(registry.Get()), S_OK);
    EXPECT_EQ(factory->RegisterClass(T_Shell::ClassId, nullptr, ""), S_OK);
    EXPECT_EQ(registry->RegisterClass(BootstrapRegistryStartup_Level0, T_Shell::ClassId), S_OK);
    FAILS(bootstrap->Startup(nullptr), E_NOINTERFACE, "BootstrapRegistryStartup_Level0");
}

} // namespace

} // namespace Tavrik::Ossira::tTest
