// What modules and hosts of other compilers count on: the order of the slots, the layout of what
// crosses, the one odd slot, and the runtime's class table.
#include "DiagnosticsCapture.h"
#include "ModuleExports.h"
#include "OssiraCacheStack.h"
#include "OssiraDatatypes.h"
#include "OssiraMemory.h"
#include "OssiraModified.h"
#include "OssiraThreads.h"
#include "OssiraValueSetGroup.h"
#include "TestTools.h"

#include <array>
#include <cstdio>
#include <cstring>

namespace Tavrik::Ossira::tTest
{

namespace
{

// Checks that the operations take the slots from `first` on, in this order and without a gap. The
// compilers that these tests are built with keep, in the pointer to an operation, its distance in
// the table of operations plus one.
template <class... Operations>
void ExpectSlots(std::size_t first, Operations... operations)
{
    for (const auto& words : {std::bit_cast<std::array<std::size_t, 2>>(operations)...})
        EXPECT_EQ(words[0], first++ * sizeof(void*) + 1);
}

// SLOTS(3, IValue, GetValue, SetValue) is ExpectSlots(3, &IValue::GetValue, &IValue::SetValue).
// Each name is replaced by itself and the macro's name for the rest, which is scanned once more.
#define SCAN_MORE(...) SCAN(SCAN(SCAN(SCAN(SCAN(__VA_ARGS__)))))
#define SCAN(...) SCAN_ONCE(SCAN_ONCE(SCAN_ONCE(SCAN_ONCE(__VA_ARGS__))))
#define SCAN_ONCE(...) __VA_ARGS__
#define NOTHING
#define POINTERS(type, name, ...) &type::name __VA_OPT__(, REST NOTHING()(type, __VA_ARGS__))
#define REST() POINTERS
#define SLOTS(first, type, ...) ExpectSlots(first, SCAN_MORE(POINTERS(type, __VA_ARGS__)))

TEST(BinaryContract, EveryOperationHasItsSlot)
{
    SLOTS(0, IUnknown, QueryInterface, AddRef, Release);
    SLOTS(0, IException, DeletingDestructor, Release, GetCode, GetLocation, GetExpression,
          GetDescription);
    SLOTS(3, IObserverPrint, GetLevelMask, SetLevelMask, Print);
    SLOTS(3, IObjectName, SetObjectName, GetObjectName);
    SLOTS(3, IObjectIdentity, GetObjectClassID, GetObjectClassName);
    SLOTS(3, IObjectLock, Lock, Unlock);
    SLOTS(3, ICriticalSection, Lock, Unlock);
    SLOTS(3, IValue, GetValue, SetValue, GetType);
    SLOTS(3, IEnumerator, Reset, MoveNext, GetCurrent);
    SLOTS(3, IEnumeratorGUID, Reset, MoveNext, GetCurrentGUID);
    SLOTS(3, IList, GetEnumerator, GetCount, Clear, IsReadOnly, Add, Remove, Contains, CopyTo,
          IndexOf, Insert, RemoveAt, GetItemAt, SetItemAt);
    SLOTS(3, IValueSet, GetEnumerator, GetCount, Clear, IsReadOnly, AddGUID, RemoveGUID,
          ContainsGUID, GetValueGUID, SetValueGUID, GetValues, GetKeys, GetValueData, SetValueData,
          GetDataType);
    SLOTS(14, IValueSetGroup, GetValueSet, InsertValueSet, SetValueSetAccessFlagsAt, GetValueSetAt,
          GetValueSetIDAt, GetValueSetAccessFlagsAt, IndexOfValueSet);
    SLOTS(3, ISingleton, GetClassObject, RegisterObject, UnregisterObject, ClearObjects);
    SLOTS(3, IObjectFactory, GetClassObject, RegisterClass, UnregisterClass, GetClassValue,
          FlushModules, GetModuleValue, GetClasses, GetModules);
    SLOTS(3, IClsidRegistry, RegisterClass, RegisterGroupClass, UnregisterClass,
          UnregisterGroupClass, ContainsCategory, ContainsGroup, ContainsClass, ContainsGroupClass,
          GetClasses, GetGroupClasses, GetCategories);
    SLOTS(3, IClassRegisterService, SetFactory, GetFactory, RegisterModule, RegisterFolder);
    SLOTS(3, IBootstrap, Startup, Cleanup);
    SLOTS(3, IMasterBootstrap, Startup, Cleanup, SetFactory, GetFactory, SetClsidRegistry,
          GetClsidRegistry, GetModuleFolders);
    SLOTS(3, IDatatypesService, GetEnumerator, Contains, GetCharacteristics, ValueCompare,
          ValueLerp, RegisterDatatype, RegisterDatatypes, UnregisterDatatype, UnregisterDatatypes,
          ClearDatatypes, GetDatatype);
    SLOTS(3, IDisposable, Dispose, IsDisposed);
    SLOTS(3, IModifiedService, GetModifiedCounter, TouchModified, AddTouchModified,
          RemoveTouchModified);
    SLOTS(3, ICommonMemoryAllocator32, GetStatistics, FreeBlock, AllocMemoryBlock,
          AllocMemorySegment32);
    SLOTS(3, IMemorySegment32, Attach32, GetAllocator32, GetAddress, GetSize);
    SLOTS(3, IClsidObjectCacheStack, IsEmpty, Clear, Pop, Push, Create);
    SLOTS(3, ICommonThreadPoolBox, Create, GetThreadPool, SetStatistics);
    using namespace tSystem::tThreads;
    SLOTS(0, IThreadFunction, DeletingDestructor, Run, RequestStop);
    SLOTS(0, IThread, DeletingDestructor, Release, Start, Stop, GetState, Suspend, Resume, Wait,
          GetThreadId);
    SLOTS(0, IThreadPool, DeletingDestructor, Release, Run, GetThreadCount);
}

TEST(BinaryContract, AStructureIsLaidOutAlikeEverywhere)
{
    EXPECT_EQ(offsetof(SourceLocation, Function), 16u);
    EXPECT_EQ(sizeof(SourceLocation), 24u);
    EXPECT_EQ(offsetof(DatatypeCharacteristics, CanLerp), 54u);
}

// The shape is that of the other compiler's deleting destructor: without bit 0 the memory stays.
TEST(BinaryContract, SlotZeroOfAnExceptionDestroysAndFreesOnDemand)
{
    using Destructor = void* (*)(void* exception, std::uint32_t flags);
    const SourceLocation place = {"file", 1, "function"};
    for (const std::uint32_t flags : {0u, 1u})
    {
        IException* const exception = NewException(1, &place, "text");
        EXPECT_EQ(GetExceptionOpenCount(), 1);
        Destructor* table = nullptr;
        std::memcpy(&table, static_cast<void*>(exception), sizeof table);
        void* const memory = table[0](exception, flags);
        EXPECT_EQ(memory, exception);
        EXPECT_EQ(GetExceptionOpenCount(), 0);
        if (flags == 0)
            ::operator delete(memory);
    }
}

// Of each class the ends of its identifier and its text. A registry cannot be a singleton of
// itself, and the factory is one under another identifier.
TEST(BinaryContract, TheClassTableSaysWhatTheRuntimeHasAndEveryWayLeadsThere)
{
    const ObserverMaskScope silence(0);
    const auto factory = GlobalFactory();
    const auto singletons = SingletonRegistry();
    std::string table;
    for (std::uint32_t index = 0; index < static_cast<std::uint32_t>(DLLGetClassCount()); ++index)
    {
        CLSID clsid = {};
        char text[64];
        ASSERT_EQ(DLLGetClassObjectID(index, 1, &clsid), S_OK);
        ASSERT_EQ(DLLGetClassObjectInfo(index, text, sizeof text), S_OK);
        ObjectPtr<IUnknown> object;
        EXPECT_EQ(CreateClassObject(&clsid, &IID_IUnknown, object.PutVoid()), S_OK) << text;
        const bool isRegistry = SameGuid(clsid, CLSID_GlobalSingleton);
        EXPECT_EQ(factory->RegisterClass(clsid, nullptr, text), isRegistry ? E_INVALIDARG : S_OK);
        EXPECT_EQ(factory->GetClassObject(clsid, IID_IUnknown, object.PutVoid()),
                  isRegistry ? E_INVALIDARG : S_OK)
            << text;
        EXPECT_EQ(singletons->GetClassObject(clsid, IID_IUnknown, object.PutVoid()),
                  isRegistry || SameGuid(clsid, CLSID_ObjectFactory) ? E_INVALIDARG : S_OK)
            << text;
        char line[128];
        std::snprintf(line, sizeof line, "%08X..%02X %s, ", static_cast<unsigned>(clsid.Data1),
                      clsid.Data4[7], text);
        table += line;
    }
    EXPECT_EQ(table, "4B462101..5F UnsafeDictionaryGUID, 8CB67C0D..BA DatatypesService, "
                     "D08B871B..A0 DictionaryGUID, ED419C1D..4C ModifiedService, "
                     "FDBC992D..3F ClsidRegistry, F295B23A..F7 LockableDictionaryGUID, "
                     "0C02733F..83 DebugSingleton, 28BF0045..A4 GlobalCriticalSection - via gbCS, "
                     "D0BCC845..B4 UnsafeValueSet, 86B24C4B..0F DebugOutputObserverPrint, "
                     "2D00EE57..A0 UnsafeNodeList, 5A758B5D..7A CommonMemoryAllocator32, "
                     "8DFE7961..57 Read-Only Value, BDDA5768..7E ClsidObjectCacheStack, "
                     "EF048D6C..77 MasterBootstrap, 60D9D76D..C6 IntrinsicDatatypes, "
                     "AAE91A72..BD LockableValueSet, EB745675..25 Value, CAB670AA..32 NodeList, "
                     "B0097FAB..56 GlobalSingleton, 7D6F80B1..A0 DirectoryService, "
                     "101D80BB..03 CommonMemorySegment32, 72C63FBC..F0 ValueSetGroup, "
                     "9BF700C9..46 LockableNodeList, 31192AD0..C2 CommonThreadPoolBox, "
                     "7CE8E2D9..93 ClassRegisterService, 1B51CDE4..13 ObjectFactory, "
                     "B3500CEC..21 ValueSet, ");
    EXPECT_EQ(DllCanUnloadNow(), S_FALSE) << "the observer is alive";
}

} // namespace

} // namespace Tavrik::Ossira::tTest
