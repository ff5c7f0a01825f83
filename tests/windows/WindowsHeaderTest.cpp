// The platform's header renames operations by macro. Calls must reach the right slots all the same,
// and its result codes and types must go with ours.
#include <windows.h>

#include "Ossira.h"

#include <gtest/gtest.h>

TEST(WindowsHeader, RenamedOperationsReachTheirSlots)
{
    using namespace Tavrik;
    const GUID own = Ossira::CLSID_Value;
    Ossira::ObjectPtr<Ossira::IObjectFactory> factory;
    ASSERT_EQ(CreateObject(Ossira::CLSID_ObjectFactory, factory), S_OK);
    EXPECT_EQ(factory->RegisterClass(own, nullptr, "Value"), S_OK);
    EXPECT_EQ(factory->RegisterClass(own, nullptr, "Value"), S_FALSE);
    EXPECT_EQ(factory->UnregisterClass(own), S_OK);
    EXPECT_EQ(factory->UnregisterClass(own), S_FALSE);
}
