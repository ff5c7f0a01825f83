// Reference counts, identity, aggregation and the small interfaces beside the unknown.
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
        void* none = asked;
        EXPECT_EQ(asked->QueryInterface(IID_IValue, &none), E_NOINTERFACE);
        EXPECT_EQ(none, nullptr);
        EXPECT_EQ(asked->QueryInterface(iid, nullptr), E_POINTER);
        EXPECT_EQ(ReferencesOn(*asked), 2u);
        sample.Reset();
        EXPECT_EQ(T_Sample::Deaths, 0);
        EXPECT_EQ(asked->Release(), 0u);
        EXPECT_EQ(T_Sample::Deaths, 1);
    }
}

// Owns a sample inside and hands out its second interface as its own.
class T_Outer : public ISample, public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = GUID_Null;

    T_Outer()
    {
        COssiraUnknown* inner = nullptr;
        EXPECT_EQ(CreateInstance<T_Sample>(static_cast<ISample*>(this), &inner), S_OK);
        Inner = ObjectPtr(inner->PrivateUnknown());
    }

    Result InternalQueryInterface(const IID& iid, void** out) override
    {
        return SameGuid(iid, ISecond::Iid) ? Inner->QueryInterface(iid, out)
                                           : AnswerInterfaces<ISample>(this, iid, out);
    }

    ObjectPtr<IUnknown> Inner; // as the owner of an inner object sees it
};

TEST(ObjectBase, AnAggregatedObjectCountsAndAnswersThroughItsOwner)
{
    T_Sample::Deaths = 0;
    auto outer = MakeObject<T_Outer>();
    IUnknown* const identity = Ask(outer.Get(), IID_IUnknown).Get();
    auto inner = Ask(outer.Get(), ISecond::Iid);
    EXPECT_EQ(ReferencesOn(*identity), 2u) << "the inner interface holds the outer object";
    EXPECT_EQ(ReferencesOn(*outer->Inner), 1u) << "only the owner holds the inner object";
    EXPECT_EQ(Ask(inner.Get(), IID_IUnknown).Get(), identity);

    // The owner's own way in: the inner object itself, with its own interfaces.
    EXPECT_EQ(Ask(outer->Inner.Get(), IID_IUnknown).Get(), outer->Inner.Get());
    EXPECT_NE(Ask(outer->Inner.Get(), ISample::Iid).Get(), Ask(identity, ISample::Iid).Get());
    outer.Reset();
    EXPECT_EQ(T_Sample::Deaths, 0);
    inner.Reset();
    EXPECT_EQ(T_Sample::Deaths, 1);
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

TEST(ObjectBase, ANameIsCutToTheBufferAndAClassNameIsNot)
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
    EXPECT_EQ(sample->GetObjectClassName(buffer, 5), E_INVALIDARG);
    EXPECT_EQ(sample->GetObjectClassName(buffer, 6), 6);
    EXPECT_STREQ(buffer, "Sample#") << "a class name of just that size has no terminator";
}

} // namespace

} // namespace Tavrik::Ossira::tTest
