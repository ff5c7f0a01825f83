// Identity and death of an object whose interfaces extend one another, and its name.
#include "SampleObject.h"
#include "TestTools.h"

namespace Tavrik::Ossira::tTest
{

namespace
{

constexpr IID InterfacesOfSample[] = {IID_IUnknown, ISampleBase::Iid, ISample::Iid,
                                      ISecond::Iid, IID_IObjectName,  IID_IObjectIdentity};

ObjectPtr<IUnknown> Ask(IUnknown* object, const IID& iid)
{
    ObjectPtr<IUnknown> answer;
    EXPECT_EQ(object->QueryInterface(iid, answer.PutVoid()), S_OK);
    return answer;
}

TEST(ObjectBase, AnObjectHasOneIdentityAndDiesWithTheLastReferenceThroughAnyInterface)
{
    for (const IID& iid : InterfacesOfSample)
    {
        T_Sample::Deaths = 0;
        auto sample = MakeObject<T_Sample>();
        IUnknown* const asked = Ask(static_cast<ISample*>(sample.Get()), iid).Detach();
        for (const IID& other : InterfacesOfSample)
            EXPECT_EQ(Ask(asked, other).Get(),
                      Ask(static_cast<ISample*>(sample.Get()), other).Get());
        sample.Reset();
        EXPECT_EQ(T_Sample::Deaths, 0);
        EXPECT_EQ(asked->Release(), 0u);
        EXPECT_EQ(T_Sample::Deaths, 1);
    }
}

TEST(ObjectBase, APointerMayAskItsObjectAndTakeTheAnswerItself)
{
    T_Sample::Deaths = 0;
    auto pointer = ObjectPtr<ISample>(MakeObject<T_Sample>().Detach());
    pointer->Release();
    EXPECT_EQ(pointer.QueryTo(pointer), S_OK);
    EXPECT_EQ(T_Sample::Deaths, 0);
    EXPECT_EQ(ReferencesOn(*pointer), 1u);
}

TEST(ObjectBase, ANameIsCutToTheBuffer)
{
    const auto sample = MakeObject<T_Sample>();
    std::string name = "thing";
    EXPECT_EQ(sample->SetObjectName(name.c_str()), S_OK);
    name = "other";
    char buffer[8] = "#######";
    EXPECT_EQ(sample->GetObjectName(nullptr, -1), 5);
    EXPECT_EQ(sample->GetObjectName(buffer, -1), E_INVALIDARG);
    EXPECT_EQ(sample->GetObjectName(buffer, 5), 5);
    EXPECT_STREQ(buffer, "thing##");
    EXPECT_EQ(sample->GetObjectName(buffer, 6), 5);
    EXPECT_STREQ(buffer, "thing");
}

} // namespace

} // namespace Tavrik::Ossira::tTest
