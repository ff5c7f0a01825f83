// Reference counts, identity, aggregation and the small interfaces beside the unknown.
#include "SampleObject.h"
#include "TestTools.h"

#include <cstring>
#include <stdexcept>

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

constexpr IID InterfacesOfSample[] = {IID_IUnknown,   ISampleBase::Iid, ISample::Iid,
                                      IID_IBootstrap, IID_IObjectName,  IID_IObjectIdentity};

// A new sample with no reference on it.
COssiraUnknown* NewSample(IUnknown* outer = nullptr)
{
    COssiraUnknown* object = nullptr;
    EXPECT_EQ(CreateInstance<T_Sample>(outer, &object), S_OK);
    return object;
}

ObjectPtr<IUnknown> Ask(IUnknown& object, const IID& iid)
{
    ObjectPtr<IUnknown> answer;
    EXPECT_EQ(object.QueryInterface(iid, answer.PutVoid()), S_OK);
    return answer;
}

TEST(ObjectBase, AnObjectHasOneIdentityWhateverInterfaceIsAsked)
{
    const auto sample = MakeObject<T_Sample>();
    IUnknown* const identity = Ask(*static_cast<ISample*>(sample.Get()), IID_IUnknown).Get();
    for (const IID& iid : InterfacesOfSample)
    {
        const ObjectPtr<IUnknown> asked = Ask(*identity, iid);
        EXPECT_EQ(Ask(*asked, IID_IUnknown).Get(), identity);
        for (const IID& other : InterfacesOfSample)
            EXPECT_EQ(Ask(*asked, other).Get(), Ask(*identity, other).Get());
    }
    EXPECT_EQ(ReferencesOn(*identity), 1u);
    ObjectPtr<IBootstrap> bootstrap;
    EXPECT_EQ(sample.QueryTo(bootstrap), S_OK);
    EXPECT_EQ(bootstrap->Cleanup(nullptr), 4);
}

TEST(ObjectBase, TheLastReleaseThroughAnyInterfaceDestroysOnce)
{
    for (const IID& iid : InterfacesOfSample)
    {
        T_Sample::Deaths = 0;
        auto sample = MakeObject<T_Sample>();
        IUnknown* const last = Ask(*static_cast<ISample*>(sample.Get()), iid).Detach();
        sample.Reset();
        EXPECT_EQ(T_Sample::Deaths, 0);
        EXPECT_EQ(last->Release(), 0u);
        EXPECT_EQ(T_Sample::Deaths, 1);
    }
}

// Owns a sample inside and hands out its interface as its own.
class T_Outer : public IComparable, public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = IID_IComparable;

    T_Outer() : mInner(NewSample(AsUnknown())->PrivateUnknown())
    {
    }

    Result InternalQueryInterface(const IID& iid, void** out) override
    {
        if (SameGuid(iid, IID_IBootstrap))
            return mInner->QueryInterface(iid, out);
        return AnswerInterfaces<IComparable>(this, iid, out);
    }

    Result Compare(IUnknown*, std::int32_t*) override
    {
        return E_NOTIMPL;
    }

    // As the owner of an inner object sees it.
    [[nodiscard]] IUnknown* Inner() const
    {
        return mInner.Get();
    }

private:
    IUnknown* AsUnknown()
    {
        return static_cast<IComparable*>(this);
    }

    ObjectPtr<IUnknown> mInner;
};

TEST(ObjectBase, AnAggregatedObjectCountsAndAnswersThroughItsOwner)
{
    T_Sample::Deaths = 0;
    auto outer = MakeObject<T_Outer>();
    IUnknown* const identity = Ask(*outer, IID_IUnknown).Get();

    ObjectPtr<IBootstrap> inner;
    ASSERT_EQ(outer.QueryTo(inner), S_OK);
    EXPECT_EQ(inner->Startup(nullptr), 3);
    EXPECT_EQ(ReferencesOn(*identity), 2u) << "the inner interface holds the outer object";
    EXPECT_EQ(Ask(*inner, IID_IUnknown).Get(), identity);
    EXPECT_EQ(Ask(*inner, IID_IComparable).Get(), Ask(*identity, IID_IComparable).Get());
    EXPECT_EQ(ReferencesOn(*outer->Inner()), 1u) << "only the owner holds the inner object";

    // The owner's own way in: the inner object itself, with its own interfaces.
    ObjectPtr<IUnknown> own;
    EXPECT_EQ(outer->Inner()->QueryInterface(IID_IUnknown, own.PutVoid()), S_OK);
    EXPECT_EQ(own.Get(), outer->Inner());
    EXPECT_EQ(outer->Inner()->QueryInterface(IID_IComparable, own.PutVoid()), E_NOINTERFACE);

    own.Reset();
    outer.Reset();
    EXPECT_EQ(T_Sample::Deaths, 0);
    inner.Reset();
    EXPECT_EQ(T_Sample::Deaths, 1);
}

TEST(ObjectBase, ANameIsCopiedAndCutToTheBuffer)
{
    const auto sample = MakeObject<T_Sample>();
    char buffer[8] = "#######";
    EXPECT_EQ(sample->GetObjectName(buffer, 8), 0);
    EXPECT_STREQ(buffer, "");

    std::string name = "thing";
    EXPECT_EQ(sample->SetObjectName(name.c_str()), S_OK);
    name = "other";
    EXPECT_EQ(sample->GetObjectName(nullptr, 0), 5);
    EXPECT_EQ(sample->GetObjectName(nullptr, -1), 5);

    struct
    {
        std::int32_t Size;
        Result Answer;
        const char* Buffer;
    } const cases[] = {{8, 5, "thing"},   {6, 5, "thing"},   {5, 5, "thing##"},
                       {3, 3, "thi####"}, {0, 0, "#######"}, {-1, E_INVALIDARG, "#######"}};
    for (const auto& [size, answer, content] : cases)
    {
        std::strcpy(buffer, "#######");
        EXPECT_EQ(sample->GetObjectName(buffer, size), answer) << size;
        EXPECT_STREQ(buffer, content) << size;
    }
    EXPECT_EQ(sample->SetObjectName(nullptr), S_OK);
    EXPECT_EQ(sample->GetObjectName(nullptr, 0), 0);
}

} // namespace

} // namespace Tavrik::Ossira
