// What modules and hosts of other compilers count on beside the slots and layouts that contract/
// describes: the one odd slot, and the runtime's class table.
#include "ModuleExports.h"
#include "ServiceTools.h"

#include <cstring>

namespace Tavrik::Ossira::tTest
{

namespace
{

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

// Of each class the ends of its identifier and its text.
TEST(BinaryContract, TheClassTableSaysWhatTheRuntimeHas)
{
    std::string table;
    for (std::uint32_t index = 0; index < static_cast<std::uint32_t>(DLLGetClassCount()); ++index)
    {
        CLSID clsid = {};
        char text[64];
        ASSERT_EQ(DLLGetClassObjectID(index, 1, &clsid), S_OK);
        ASSERT_EQ(DLLGetClassObjectInfo(index, text, sizeof text), S_OK);
        EXPECT_TRUE(Make<IUnknown>(clsid)) << text;
        const std::string id = Text(clsid);
        table += id.substr(0, 8) + ".." + id.substr(id.size() - 2) + " " + text + ", ";
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
