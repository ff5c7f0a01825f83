// The platform's header renames operations by macro. Calls must reach the right slots all the same,
// and its result codes and types must go with ours.
#include <windows.h>

#include "Ossira.h"

#include <gtest/gtest.h>

namespace
{

using Tavrik::Ossira::ObjectPtr;

TEST(WindowsHeader, RenamedOperationsReachTheirSlots)
{
    ObjectPtr<Tavrik::Ossira::IObjectFactory> factory;
    ASSERT_EQ(CreateObject(Tavrik::Ossira::CLSID_ObjectFactory, factory), S_OK);
    const GUID own = Tavrik::Ossira::CLSID_Value;
    EXPECT_EQ(factory->RegisterClass(own, nullptr, "Value"), S_OK);
    EXPECT_EQ(factory->RegisterClass(own, nullptr, "Value"), S_FALSE);
    ObjectPtr<Tavrik::Ossira::IValue> value;
    EXPECT_EQ(factory->GetClassObject(own, Tavrik::Ossira::IID_IValue, value.PutVoid()), S_OK);
    EXPECT_EQ(factory->UnregisterClass(own), S_OK);
    EXPECT_EQ(factory->UnregisterClass(own), S_FALSE);

    ObjectPtr<Tavrik::Ossira::IClsidRegistry> registry;
    ASSERT_EQ(CreateObject(Tavrik::Ossira::CLSID_ClsidRegistry, registry), S_OK);
    EXPECT_EQ(registry->RegisterClass(own, own), S_OK);
    EXPECT_EQ(registry->ContainsClass(own, own), S_OK);
    EXPECT_EQ(registry->UnregisterClass(own, own), S_OK);
    EXPECT_EQ(registry->UnregisterClass(own, own), S_FALSE);
}

} // namespace
