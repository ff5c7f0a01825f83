// Memory runs out at every point of every operation: the first allocation fails, then the second,
// and so on until the operation succeeds; once with only that one failing, once with all after it.
// Each time the answer must be `E_OUTOFMEMORY`, what a caller can see must be as before, and
// nothing may leak.
#include "ComServer.h"
#include "DiagnosticsCapture.h"
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

// A folder with a module in it, of which a class is enrolled that cannot be started.
const std::filesystem::path& Folder()
{
    static const TempFolder folder;
    static const auto file = folder.Write("module.dll", ReadFile(ModuleFile("raw", "Enrols")));
    return folder.Path();
}

// The values of a collection, or the keys of a dictionary, as bytes, if the enumerator may go on.
std::string ContentOf(IEnumerator* items)
{
    std::string content = std::to_string(items->Reset());
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

// An object of each kind with something in it, for the operations to work on.
struct World
{
    World()
    {
        EXPECT_EQ(SetValueUniString(Value.Get(), Folder().wstring()), S_OK);
        EXPECT_EQ(Name->SetObjectName("former"), S_OK);
        for (std::uint32_t number = 0; number < 64; ++number)
        {
            EXPECT_EQ(List->Add(Value.Get()), S_OK);
            EXPECT_EQ(Full->SetValueGUID(Numbered(number), Value.Get()), S_OK);
        }
        EXPECT_EQ(SetValueUniString(Set.Get(), DirectoryServiceParam_Path, Folder().wstring()),
                  S_OK);
        EXPECT_EQ(Registry->RegisterClass(Numbered(1), Numbered(10)), S_OK);
        EXPECT_EQ(Registry->RegisterGroupClass(Numbered(2), Numbered(3), Numbered(10)), S_OK);
        EXPECT_EQ(Factory->RegisterClass(CLSID_RawFirst, Module.c_str(), "first"), S_OK);
        EXPECT_EQ(Factory->RegisterClass(CLSID_Value, L"", LongText.c_str()), S_OK);
        EXPECT_EQ(Singletons->RegisterObject(Numbered(1), Value.Get()), S_OK);
        EXPECT_EQ(Modified->AddTouchModified(Chain.Get()), S_OK);
        EXPECT_EQ(Stack->Create(CLSID_Value, IID_IUnknown, 0, 1), S_OK);
        EXPECT_EQ(Stack->Push(Chain.Get()), S_OK);
        ObjectPtr<IList> folders;
        EXPECT_EQ(Host->GetModuleFolders(folders.PutVoid()), S_OK);
        EXPECT_EQ(folders->SetItemAt(0, Value.Get()), S_OK);
        for (IUnknown* const object :
             std::initializer_list<IUnknown*>{List.Get(), Empty.Get(), Full.Get(), Set.Get(),
                                              Group.Get(), Factory.Get(), Singletons.Get()})
        {
            ObjectPtr<IEnumerable> collection;
            EXPECT_EQ(ObjectPtr(object).QueryTo(collection), S_OK);
            EXPECT_EQ(
                collection->GetEnumerator(IID_IEnumerator, Collections.emplace_back().PutVoid()),
                S_OK);
        }
    }

    // What a caller sees of them.
    [[nodiscard]] std::string State() const
    {
        std::string state(400, ' ');
        Name->GetObjectName(state.data(), 400);
        for (const ObjectPtr<IEnumerator>& items : Collections)
            state += ContentOf(items.Get());
        GUID type = {};
        std::uint32_t touches = 1;
        std::int32_t blocks = 1;
        EXPECT_EQ(Modified->GetModifiedCounter(&touches), S_OK);
        EXPECT_EQ(Allocator->GetStatistics(nullptr, &blocks, nullptr, nullptr, nullptr), S_OK);
        ObjectPtr<IList> modules;
        EXPECT_EQ(Factory->GetModules(IID_IList, modules.PutVoid()), S_OK);
        for (const Result answer :
             {modules->GetCount(), Stack->IsEmpty(), blocks, static_cast<Result>(touches),
              Set->GetDataType(DirectoryServiceParam_Path, &type),
              Registry->ContainsCategory(Numbered(4)),
              Registry->ContainsGroup(Numbered(2), Numbered(5)),
              Registry->ContainsGroupClass(Numbered(2), Numbered(3), Numbered(11))})
            state += std::to_string(answer);
        return state + std::to_string(type.Data1);
    }

    const std::wstring Module = ModuleFile("raw", "Decent").wstring();
    const std::wstring NewModule = ModuleFile("raw", "CreatorFails").wstring();
    ObjectPtr<IValue> Value = Make<IValue>(CLSID_Value);
    ObjectPtr<ICloneable> Cloneable = Make<ICloneable>(CLSID_Value);
    ObjectPtr<IObjectName> Name = Make<IObjectName>(CLSID_Value);
    ObjectPtr<IList> List = Make<IList>(CLSID_NodeList);
    ObjectPtr<IDictionaryGUID> Empty = Make<IDictionaryGUID>(CLSID_DictionaryGUID);
    ObjectPtr<IDictionaryGUID> Full = Make<IDictionaryGUID>(CLSID_LockableDictionaryGUID);
    ObjectPtr<IValueSet> Set = Make<IValueSet>(CLSID_ValueSet);
    ObjectPtr<IValueSetGroup> Group = Make<IValueSetGroup>(CLSID_ValueSetGroup);
    ObjectPtr<IClsidRegistry> Registry = Make<IClsidRegistry>(CLSID_ClsidRegistry);
    ObjectPtr<IObjectFactory> Factory = Make<IObjectFactory>(CLSID_ObjectFactory);
    ObjectPtr<IClassRegisterService> Reader = RegisterService(Factory.Get());
    ObjectPtr<ISingleton> Singletons = Make<ISingleton>(CLSID_DebugSingleton);
    ObjectPtr<IDirectoryService> Directory = Make<IDirectoryService>(CLSID_DirectoryService);
    ObjectPtr<IMasterBootstrap> Host = Make<IMasterBootstrap>(CLSID_MasterBootstrap);
    ObjectPtr<ICommonMemoryAllocator32> Allocator =
        Make<ICommonMemoryAllocator32>(CLSID_CommonMemoryAllocator32);
    ObjectPtr<IModifiedService> Modified = Make<IModifiedService>(CLSID_ModifiedService);
    ObjectPtr<ITouchModifiedChain> Chain = Make<ITouchModifiedChain>(CLSID_ModifiedService);
    ObjectPtr<IClsidObjectCacheStack> Stack =
        Make<IClsidObjectCacheStack>(CLSID_ClsidObjectCacheStack);
    std::vector<ObjectPtr<IEnumerator>> Collections;
};

// --- The operations ----------------------------------------------------------------------------

Result CreateEveryClass(const World&)
{
    for (std::int32_t index = 0; index < ModuleServer()->GetClassCount(); ++index)
    {
        CLSID clsid = {};
        ObjectPtr<IUnknown> object;
        (void)ModuleServer()->GetClassObjectID(static_cast<std::uint32_t>(index), 1, &clsid);
        const Result result = ModuleServer()->GetClassObject(clsid, IID_IUnknown, object.PutVoid());
        if (Failed(result))
            return result;
    }
    return S_OK;
}

Result StartAndCleanUp(const World& w)
{
    const Result started = w.Host->Startup(nullptr);
    const Result cleaned = w.Host->Cleanup(nullptr);
    return Failed(started) ? started : cleaned;
}

using Any = ObjectPtr<IUnknown>; // takes an object and gives it back

const GUID NewKey = Numbered(99);

struct Operation
{
    const char* Text;
    Result (*Call)(World& w);
    bool LeavesNothing = true; // of a failure no part is left done
    Result Success = S_OK;
};

#define CALL(call, ...)                                                                            \
    Operation(#call,                                                                               \
              [](World& w) -> Result                                                               \
              {                                                                                    \
                  return call;                                                                     \
              } __VA_OPT__(, ) __VA_ARGS__)

const Operation Operations[] = {
    CALL(CreateEveryClass(w)),
    CALL(w.Value->GetType(nullptr), true, E_POINTER),
    CALL(SetValueCharString(w.Value.Get(), LongText)),
    CALL(w.Cloneable->Clone(IID_IValue, Any().PutVoid())),
    CALL(w.Name->SetObjectName(LongText.c_str())),
    CALL(w.List->Add(w.Host.Get())),
    CALL(w.List->Insert(3, w.Host.Get())),
    CALL(w.List->SetItemAt(3, w.Host.Get())),
    CALL(w.List->GetEnumerator(IID_IEnumerator, Any().PutVoid())),
    CALL(w.Empty->SetValueGUID(NewKey, w.Value.Get())),
    CALL(w.Full->SetValueGUID(NewKey, w.Value.Get())),
    CALL(w.Full->GetKeys(Any().PutVoid())),
    CALL(w.Full->GetValues(Any().PutVoid())),
    CALL(SetValueCharString(w.Set.Get(), NewKey, LongText)),
    CALL(SetValueCharString(w.Set.Get(), DirectoryServiceParam_Path, LongText)),
    CALL(w.Group->InsertValueSet(0, w.Set.Get(), nullptr, 0)),
    CALL(w.Registry->RegisterClass(Numbered(4), Numbered(11))),
    CALL(w.Registry->RegisterGroupClass(Numbered(2), Numbered(5), Numbered(11))),
    CALL(w.Registry->RegisterGroupClass(Numbered(2), Numbered(3), Numbered(11))),
    CALL(w.Factory->RegisterClass(NewKey, nullptr, LongText.c_str())),
    CALL(w.Factory->RegisterClass(NewKey, w.NewModule.c_str(), "info")),
    CALL(w.Factory->UnregisterClass(CLSID_Value)),
    CALL(w.Factory->FlushModules()),
    CALL((w.Factory->FlushModules(),
          w.Factory->GetClassObject(CLSID_RawFirst, IID_IUnknown, Any().PutVoid())),
         false),
    CALL(w.Factory->GetClassObject(CLSID_Value, IID_IValue, Any().PutVoid())),
    CALL(w.Factory->GetClassValue(CLSID_Value, IID_IValueSet, Any().PutVoid())),
    CALL(w.Factory->GetModuleValue(w.Module.c_str(), IID_IValueSet, Any().PutVoid())),
    CALL(w.Factory->GetModules(IID_IList, Any().PutVoid())),
    CALL(w.Reader->RegisterModule(w.NewModule.c_str(), nullptr, nullptr), false),
    CALL(w.Singletons->GetClassObject(CLSID_ValueSet, IID_IValueSet, Any().PutVoid())),
    CALL(w.Singletons->RegisterObject(NewKey, w.Value.Get())),
    CALL(w.Singletons->UnregisterObject(Numbered(1))),
    CALL(w.Directory->GetDirectoryCollection(w.Set.Get(), IID_IList, Any().PutVoid())),
    CALL(w.Allocator->AllocMemorySegment32(1, 1, 0, IID_IMemorySegment32, Any().PutVoid())),
    CALL(w.Modified->AddTouchModified(w.Chain.Get())),
    CALL(w.Modified->TouchModified()),
    CALL(w.Stack->Push(w.Value.Get())),
    CALL(w.Stack->Clear()),
    CALL(StartAndCleanUp(w), false, E_NOINTERFACE), // only then it met the class of the module
};

// Runs the operation with that allocation failing; whether one failed.
bool Try(const Operation& operation, std::int64_t which, Shortage shortage)
{
    World world;
    const std::string before = world.State();
    const std::uint32_t objects = GetObjectOpenCount();
    const ObserverMaskScope everything(0xFF);
    const DiagnosticsCapture capture;
    FailingMemory memory(which, shortage);
    const Result result = operation.Call(world);
    const bool hasFailed = memory.Stop();
    EXPECT_EQ(GetExceptionOpenCount(), 0);
    // A failing call may have been made again, and not all memory is really needed.
    const bool isRefused = hasFailed && result == E_OUTOFMEMORY;
    EXPECT_TRUE(isRefused || result == operation.Success) << result;
    EXPECT_TRUE(!isRefused || !operation.LeavesNothing ||
                (world.State() == before && GetObjectOpenCount() == objects));
    return hasFailed;
}

// A library as it is when it was just loaded, and the memory that it has.
std::int64_t StartAfresh()
{
    DetachLibrary(false);
    EXPECT_TRUE(AttachLibrary() && SingletonRegistry());
    return LiveAllocations();
}

TEST(FailureInjection, LeavesEverythingAsItWas)
{
    for (const Operation& operation : Operations)
    {
        EXPECT_FALSE(Try(operation, 1'000'000, Shortage::Once)); // makes what is made only once
        for (const Shortage shortage : {Shortage::Once, Shortage::FromThenOn})
        {
            bool hasFailed = true;
            for (std::int64_t which = 0; hasFailed && !HasFailure(); ++which)
            {
                SCOPED_TRACE(testing::Message() << operation.Text << ": allocation " << which
                                                << (shortage == Shortage::Once ? " alone" : ""));
                const std::int64_t allocations = StartAfresh();
                hasFailed = Try(operation, which, shortage);
                EXPECT_EQ(StartAfresh(), allocations) << "memory leaked";
            }
        }
    }
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
