// What modules and hosts of other compilers count on: the order of the slots, the size of what
// crosses, the one odd slot, and the runtime's exports.
#include "DiagnosticsCapture.h"
#include "OssiraCacheStack.h"
#include "OssiraDatatypes.h"
#include "OssiraMemory.h"
#include "OssiraModified.h"
#include "OssiraObject.h"
#include "OssiraThreads.h"
#include "OssiraValueSetGroup.h"
#include "TestTools.h"

#include <cstring>
#include <set>

using Tavrik::Ossira::Result;

// The module exports of the runtime; no public header declares them, callers look them up.
OSSIRA_API Result DllGetClassObject(const CLSID* clsid, const IID* iid, void** out);
OSSIRA_API Result DllCanUnloadNow();
OSSIRA_API Result DLLGetOpenObjectCount();
OSSIRA_API Result DLLGetClassCount();
OSSIRA_API Result DLLGetClassObjectID(std::uint32_t first, std::uint32_t count, CLSID* out);
OSSIRA_API Result DLLGetClassObjectInfo(std::uint32_t index, char* buffer, std::uint32_t size);
OSSIRA_API Result DLLRegisterBootstrap(Tavrik::Ossira::IUnknown* registry,
                                       Tavrik::Ossira::IUnknown* argument);

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

// The place of an operation among its interface's, from the pointer to it: the compilers that these
// tests are built with keep the distance in the table of operations there, plus one.
template <class Operation>
std::ptrdiff_t SlotOf(Operation operation)
{
    std::ptrdiff_t words[2] = {};
    static_assert(sizeof operation == sizeof words);
    std::memcpy(words, &operation, sizeof words);
    return (words[0] - 1) / static_cast<std::ptrdiff_t>(sizeof(void*));
}

// Checks that the operations take the slots from `first` on, in this order and without a gap.
template <class... Operations>
void ExpectSlots(std::ptrdiff_t first, Operations... operations)
{
    std::ptrdiff_t expected = first;
    for (const std::ptrdiff_t slot : {SlotOf(operations)...})
        EXPECT_EQ(slot, expected++);
}

TEST(BinaryContract, EveryOperationHasItsSlot)
{
    ExpectSlots(0, &IUnknown::QueryInterface, &IUnknown::AddRef, &IUnknown::Release);
    ExpectSlots(0, &IException::DeletingDestructor, &IException::Release, &IException::GetCode,
                &IException::GetLocation, &IException::GetExpression, &IException::GetDescription);
    ExpectSlots(3, &IObserverPrint::GetLevelMask, &IObserverPrint::SetLevelMask,
                &IObserverPrint::Print);
    ExpectSlots(3, &IObjectName::SetObjectName, &IObjectName::GetObjectName);
    ExpectSlots(3, &IObjectIdentity::GetObjectClassID, &IObjectIdentity::GetObjectClassName);
    ExpectSlots(3, &IObjectLock::Lock, &IObjectLock::Unlock);
    ExpectSlots(3, &ICriticalSection::Lock, &ICriticalSection::Unlock);
    ExpectSlots(3, &IComparable::Compare);
    ExpectSlots(3, &ICloneable::Clone);
    ExpectSlots(3, &IValue::GetValue, &IValue::SetValue, &IValue::GetType);
    ExpectSlots(3, &IEnumerator::Reset, &IEnumerator::MoveNext, &IEnumerator::GetCurrent);
    ExpectSlots(3, &IEnumeratorGUID::Reset, &IEnumeratorGUID::MoveNext,
                &IEnumeratorGUID::GetCurrentGUID);
    ExpectSlots(3, &IList::GetEnumerator, &IList::GetCount, &IList::Clear, &IList::IsReadOnly,
                &IList::Add, &IList::Remove, &IList::Contains, &IList::CopyTo, &IList::IndexOf,
                &IList::Insert, &IList::RemoveAt, &IList::GetItemAt, &IList::SetItemAt);
    ExpectSlots(3, &IValueSet::GetEnumerator, &IValueSet::GetCount, &IValueSet::Clear,
                &IValueSet::IsReadOnly, &IValueSet::AddGUID, &IValueSet::RemoveGUID,
                &IValueSet::ContainsGUID, &IValueSet::GetValueGUID, &IValueSet::SetValueGUID,
                &IValueSet::GetValues, &IValueSet::GetKeys, &IValueSet::GetValueData,
                &IValueSet::SetValueData, &IValueSet::GetDataType);
    ExpectSlots(3, &ISingleton::GetClassObject, &ISingleton::RegisterObject,
                &ISingleton::UnregisterObject, &ISingleton::ClearObjects);
    ExpectSlots(3, &IObjectFactory::GetClassObject, &IObjectFactory::RegisterClass,
                &IObjectFactory::UnregisterClass, &IObjectFactory::GetClassValue,
                &IObjectFactory::FlushModules, &IObjectFactory::GetModuleValue,
                &IObjectFactory::GetClasses, &IObjectFactory::GetModules);
    ExpectSlots(3, &IClsidRegistry::RegisterClass, &IClsidRegistry::RegisterGroupClass,
                &IClsidRegistry::UnregisterClass, &IClsidRegistry::UnregisterGroupClass,
                &IClsidRegistry::ContainsCategory, &IClsidRegistry::ContainsGroup,
                &IClsidRegistry::ContainsClass, &IClsidRegistry::ContainsGroupClass,
                &IClsidRegistry::GetClasses, &IClsidRegistry::GetGroupClasses,
                &IClsidRegistry::GetCategories);
    ExpectSlots(3, &IClassRegisterService::SetFactory, &IClassRegisterService::GetFactory,
                &IClassRegisterService::RegisterModule, &IClassRegisterService::RegisterFolder);
    ExpectSlots(3, &IDirectoryService::GetDirectoryCollection);
    ExpectSlots(3, &IBootstrap::Startup, &IBootstrap::Cleanup);
    ExpectSlots(3, &IMasterBootstrap::Startup, &IMasterBootstrap::Cleanup,
                &IMasterBootstrap::SetFactory, &IMasterBootstrap::GetFactory,
                &IMasterBootstrap::SetClsidRegistry, &IMasterBootstrap::GetClsidRegistry,
                &IMasterBootstrap::GetModuleFolders);
}

TEST(BinaryContract, StructuresAreLaidOutAlikeEverywhere)
{
    EXPECT_EQ(offsetof(SourceLocation, File), 0u);
    EXPECT_EQ(offsetof(SourceLocation, Line), 8u);
    EXPECT_EQ(offsetof(SourceLocation, Function), 16u);
    EXPECT_EQ(sizeof(SourceLocation), 24u);
    const CLSID& clsid = CLSID_GlobalSingleton;
    constexpr std::uint8_t bytes[] = {0xAB, 0x7F, 0x09, 0xB0, 0x89, 0x7B, 0x96, 0x44,
                                      0xB5, 0x09, 0x28, 0x1F, 0xBC, 0x40, 0x2B, 0x56};
    EXPECT_EQ(std::memcmp(&clsid, bytes, sizeof clsid), 0);
}

TEST(BinaryContract, SlotZeroOfAnExceptionIsADeletingDestructorOfTheOtherCompilersShape)
{
    using Destructor = void* (*)(void* exception, std::uint32_t flags);
    const SourceLocation place = {"file", 1, "function"};
    const auto slotZero = [](IException* exception)
    {
        Destructor* table = nullptr;
        std::memcpy(&table, static_cast<void*>(exception), sizeof table);
        return table[0];
    };

    IException* const freed = NewException(1, &place, "text");
    EXPECT_EQ(GetExceptionOpenCount(), 1);
    EXPECT_EQ(slotZero(freed)(freed, 1), freed);
    EXPECT_EQ(GetExceptionOpenCount(), 0);

    IException* const destroyed = NewException(1, &place, "text");
    void* const memory = slotZero(destroyed)(destroyed, 0);
    EXPECT_EQ(memory, destroyed);
    EXPECT_EQ(GetExceptionOpenCount(), 0);
    ::operator delete(memory); // without bit 0 the memory is still there to be freed
}

// --- The class table
// -------------------------------------------------------------------------------

struct ClassOfTheTable
{
    const char* Identifier;
    const char* Text;
    std::vector<IID> Interfaces;
};

const std::vector<IID> ListInterfaces = {IID_IList,       IID_ICollection,     IID_IEnumerable,
                                         IID_IObjectName, IID_IObjectIdentity, IID_IValue};
const std::vector<IID> DictionaryInterfaces = {IID_IDictionaryGUID, IID_ICollectionGUID,
                                               IID_IEnumerable, IID_IObjectName,
                                               IID_IObjectIdentity};
const std::vector<IID> ValueSetInterfaces = {
    IID_IValueSet,   IID_IDictionaryGUID, IID_ICollectionGUID, IID_IEnumerable,
    IID_IObjectName, IID_IObjectIdentity, IID_IValue};
const std::vector<IID> ValueInterfaces = {IID_IValue, IID_IObjectName, IID_IObjectIdentity,
                                          IID_IComparable, IID_ICloneable};
const std::vector<IID> SingletonInterfaces = {IID_ISingleton, IID_IEnumerable, IID_IObjectIdentity,
                                              IID_ISingletonRegistry};

const ClassOfTheTable ClassTable[] = {
    {"BDDA5768-7FFA-4D68-AD89-35E008CFCD7E",
     "ClsidObjectCacheStack",
     {IID_IClsidObjectCacheStack, IID_IObjectIdentity}},
    {"5A758B5D-A34D-4D8C-A897-086D640D167A",
     "CommonMemoryAllocator32",
     {IID_ICommonMemoryAllocator32, IID_IObjectIdentity}},
    {"101D80BB-26BF-4C6A-A6F0-DEA612C18F03",
     "CommonMemorySegment32",
     {IID_IMemorySegment32, IID_IObjectIdentity}},
    {"31192AD0-59D9-4E1B-84D1-C094FB3F24C2", "CommonThreadPoolBox", {IID_ICommonThreadPoolBox}},
    {"8CB67C0D-FD27-4363-8D90-11012805F1BA", "DatatypesService", {IID_IDatatypesService}},
    {"60D9D76D-797C-4D54-A448-CCA169A682C6", "IntrinsicDatatypes", {IID_IDatatypes}},
    {"ED419C1D-41A8-407B-A1E7-131E6FB2034C", "ModifiedService", {IID_IModifiedService}},
    {"72C63FBC-8B21-4F9D-A5EB-192500F322F0", "ValueSetGroup", {IID_IValueSetGroup}},
    {"7CE8E2D9-922C-4109-B932-94E255D71A93",
     "ClassRegisterService",
     {IID_IClassRegisterService, IID_IObjectIdentity}},
    {"FDBC992D-2B9E-4D05-8201-A67D16218A3F",
     "ClsidRegistry",
     {IID_IClsidRegistry, IID_IObjectIdentity}},
    {"86B24C4B-FE4D-4361-9986-E40DCAAA0D0F", "DebugOutputObserverPrint", {IID_IObserverPrint}},
    {"D08B871B-86AE-4609-92EE-EFC90BC1FCA0", "DictionaryGUID", DictionaryInterfaces},
    {"4B462101-383B-4835-BB8C-7DDEF8C9185F", "UnsafeDictionaryGUID", DictionaryInterfaces},
    {"F295B23A-EBCE-4E92-9EC0-B44C46C373F7", "LockableDictionaryGUID", DictionaryInterfaces},
    {"7D6F80B1-A062-4E8B-96D2-3EF574CAD1A0", "DirectoryService", {IID_IDirectoryService}},
    {"28BF0045-6C93-40D6-AF9E-F318B6DE27A4",
     "GlobalCriticalSection - via gbCS",
     {IID_ICriticalSection}},
    {"B0097FAB-7B89-4496-B509-281FBC402B56", "GlobalSingleton", SingletonInterfaces},
    {"0C02733F-1451-4FFF-9D66-91EC92E99083", "DebugSingleton", SingletonInterfaces},
    {"EF048D6C-43FD-42C2-90C4-5FC282BD8B77",
     "MasterBootstrap",
     {IID_IMasterBootstrap, IID_IBootstrap, IID_IObjectName, IID_IObjectIdentity}},
    {"CAB670AA-F607-4FDB-9A90-80AD4965A732", "NodeList", ListInterfaces},
    {"2D00EE57-BC30-44AA-B83D-01A7255475A0", "UnsafeNodeList", ListInterfaces},
    {"9BF700C9-168B-495D-A422-531344BE1C46", "LockableNodeList", ListInterfaces},
    {"1B51CDE4-D34F-4B43-9A8A-366ACC84A313",
     "ObjectFactory",
     {IID_IObjectFactory, IID_IEnumerable, IID_IObjectIdentity}},
    {"EB745675-051D-4863-BBAB-A0EC187CF425", "Value", ValueInterfaces},
    {"8DFE7961-F0BA-4A8A-9202-A0AF7B9B0A57", "Read-Only Value", ValueInterfaces},
    {"B3500CEC-E7AB-443C-A3BE-18564ADF9221", "ValueSet", ValueSetInterfaces},
    {"D0BCC845-0012-428E-BD6D-E00BD14A95B4", "UnsafeValueSet", ValueSetInterfaces},
    {"AAE91A72-35F8-4691-9566-0BD4E4E7B0BD", "LockableValueSet", ValueSetInterfaces},
};

std::string TextOf(const GUID& guid)
{
    char text[40];
    std::snprintf(text, sizeof text, "%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X",
                  static_cast<unsigned>(guid.Data1), guid.Data2, guid.Data3, guid.Data4[0],
                  guid.Data4[1], guid.Data4[2], guid.Data4[3], guid.Data4[4], guid.Data4[5],
                  guid.Data4[6], guid.Data4[7]);
    return text;
}

TEST(BinaryContract, TheClassTableSaysWhatTheRuntimeHas)
{
    std::set<std::string> expected;
    for (const ClassOfTheTable& one : ClassTable)
        expected.insert(std::string(one.Identifier) + " " + one.Text);
    std::set<std::string> found;
    for (std::int32_t index = 0; index < DLLGetClassCount(); ++index)
    {
        CLSID clsid = {};
        char text[64];
        EXPECT_EQ(DLLGetClassObjectID(static_cast<std::uint32_t>(index), 1, &clsid), S_OK);
        EXPECT_EQ(DLLGetClassObjectInfo(static_cast<std::uint32_t>(index), text, sizeof text),
                  S_OK);
        found.insert(TextOf(clsid) + " " + text);
    }
    EXPECT_EQ(found, expected);
    EXPECT_EQ(DLLRegisterBootstrap(Make<IClsidRegistry>(CLSID_ClsidRegistry).Get(), nullptr), S_OK)
        << "the runtime has no bootstrap classes of its own";
    EXPECT_EQ(DllCanUnloadNow(), S_FALSE) << "the observer is alive";
}

TEST(BinaryContract, EveryClassCanBeCreatedAndHasItsInterfaces)
{
    for (std::uint32_t index = 0; index < std::size(ClassTable); ++index)
    {
        CLSID clsid = {};
        ASSERT_EQ(DLLGetClassObjectID(index, 1, &clsid), S_OK);
        const ClassOfTheTable* entry = nullptr;
        for (const ClassOfTheTable& one : ClassTable)
            entry = one.Identifier == TextOf(clsid) ? &one : entry;
        ASSERT_NE(entry, nullptr) << TextOf(clsid);
        SCOPED_TRACE(entry->Text);

        const auto before = static_cast<std::uint32_t>(DLLGetOpenObjectCount());
        ObjectPtr<IUnknown> object;
        ASSERT_EQ(DllGetClassObject(&clsid, &IID_IUnknown, object.PutVoid()), S_OK);
        EXPECT_GT(GetObjectOpenCount(), before);
        for (const IID& iid : entry->Interfaces)
        {
            ObjectPtr<IUnknown> answer;
            EXPECT_EQ(object->QueryInterface(iid, answer.PutVoid()), S_OK) << TextOf(iid);
            ObjectPtr<IUnknown> identity;
            ASSERT_TRUE(answer);
            EXPECT_EQ(answer->QueryInterface(IID_IUnknown, identity.PutVoid()), S_OK);
            EXPECT_EQ(identity.Get(), object.Get());
            EXPECT_EQ(CreateClassObject(&clsid, &iid, answer.PutVoid()), S_OK);
        }
        ObjectPtr<IUnknown> none;
        EXPECT_EQ(object->QueryInterface(clsid, none.PutVoid()), E_NOINTERFACE);
        EXPECT_EQ(object->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
        object.Reset();
        EXPECT_EQ(GetObjectOpenCount(), before);
    }
}

} // namespace

} // namespace Tavrik::Ossira
