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

// In the order of the identifiers.
TEST(BinaryContract, TheClassTableSaysWhatTheRuntimeHas)
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

} // namespace Tavrik::Ossira::tTest
