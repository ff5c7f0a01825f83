// Value set groups: their layers, the merged view beside a simple model, rings, layers that fail.
#include "OssiraValueSetGroup.h"
#include "RandomProgram.h"

#include <algorithm>
#include <map>

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

using Values = ObjectPtr<IValueSet>;

Values ViewOf(IValueSetGroup& group)
{
    Values view;
    EXPECT_EQ(group.GetValueSet(view.Put()), S_OK);
    return view;
}

// A layer that is none of the runtime's value sets: it hands every call on to one, after the test
// had its turn.
class ForeignLayer final : public Uncounted<IValueSet>
{
public:
    Result GetEnumerator(const IID& riid, void** ppv) override
    {
        const Result result = Inner ? Inner->GetEnumerator(riid, ppv) : S_OK;
        OnCall(); // what is changed now ends the enumerator
        return result;
    }

    // clang-format off
    Result GetCount() override { return Call().GetCount(); }
    Result Clear() override { return Call().Clear(); }
    Result IsReadOnly() override { return Call().IsReadOnly(); }
    Result AddGUID(const GUID& key) override { return Call().AddGUID(key); }
    Result RemoveGUID(const GUID& key) override { return Call().RemoveGUID(key); }
    Result ContainsGUID(const GUID& key) override { return Call().ContainsGUID(key); }
    Result GetValueGUID(const GUID& key, const IID& riid, void** ppv) override
    { return Call().GetValueGUID(key, riid, ppv); }
    Result SetValueGUID(const GUID& key, IUnknown* value) override
    { return Call().SetValueGUID(key, value); }
    Result GetValues(void** ppv) override { return Call().GetValues(ppv); }
    Result GetKeys(void** ppv) override { return Call().GetKeys(ppv); }
    Result GetValueData(const GUID& key, const GUID& type, void* data, std::int32_t size) override
    { return Call().GetValueData(key, type, data, size); }
    Result SetValueData(const GUID& key, const GUID& type, const void* data,
                        std::int32_t size) override
    { return Call().SetValueData(key, type, data, size) == S_OK ? S_FALSE : E_FAIL; }
    Result GetDataType(const GUID& key, GUID* type) override
    { return Call().GetDataType(key, type); }
    // clang-format on

    IValueSet& Call()
    {
        OnCall();
        return *Inner;
    }

    Values Inner = Make<IValueSet>(CLSID_ValueSet);
};

struct ValueSetGroup : testing::Test
{
    // A new value set that holds a number under the key, which is its own as well.
    void Insert(const GUID& key, std::uint32_t flags)
    {
        const auto layer = Make<IValueSet>(CLSID_ValueSet);
        EXPECT_EQ(SetValueSINT32(layer.Get(), key, 1), S_OK);
        EXPECT_EQ(Group->InsertValueSet(0, layer.Get(), &key, flags), S_OK);
    }

    ObjectPtr<IValueSetGroup> Group = Make<IValueSetGroup>(CLSID_ValueSetGroup);
    Values View = ViewOf(*Group);
};

// Layers come and go, some of them more than once, and are written directly and through the view.
class GroupModel final : public RandomModel
{
public:
    GroupModel()
    {
        mWalk.Begin(*mView);
        mForeign.OnCall = [this]
        {
            std::int32_t datum = 0;
            IValueSet& inner = *mForeign.Inner;
            EXPECT_EQ(mGroup->GetCount(), static_cast<Result>(mLayers.size()));
            if (mVanishes > 0 && --mVanishes == 0)
                mSources[3].Model.erase(inner.RemoveGUID(Numbered(mNumber)) == S_OK ? mNumber : 0);
            const bool ends = Below(4) == 0; // its enumerators
            if (ends && GetValueSINT32(&inner, Numbered(1), &datum) == S_OK)
                (void)SetValueSINT32(&inner, Numbered(1), datum);
        };
        const auto inner = Make<IValueSetGroup>(CLSID_ValueSetGroup);
        EXPECT_EQ(inner->InsertValueSet(0, mSources[2].Set.Get(), nullptr, 0), S_OK);
        mSources[2].Shown = ViewOf(*inner);
        mSources[3].Set = mForeign.Inner;
        mSources[3].Shown = Values(&mForeign);
    }

    ~GroupModel() override
    {
        mLayers.clear();
        EXPECT_EQ(mGroup->Clear(), S_OK);
        EXPECT_EQ(ReferencesOn(*mSources[0].Set), 2u);
    }

    void Step() override
    {
        mNumber = Below(Below(2) == 0 ? 6 : 200);
        mDatum = static_cast<std::int32_t>(Below(1000));
        const std::uint32_t die = Below(8);
        if (Below(500) == 0)
            StartAnew();
        else if (die == 0)
            StepGroup();
        else if (die < 4)
            StepView();
        else if (die < 6)
            StepLayer(mSources[Below(std::size(mSources))]);
        else
        {
            if (Below(20) == 0)
                mWalk.Begin(*mView);
            // What is done to layers directly, and their flags, change what it meets.
            for (std::uint32_t count = Below(20); count > 0; --count)
                mWalk.Step(200, [this](std::uint32_t number) { return Holder(number) >= 0; });
        }
        mVanishes = Below(4);
    }

    void Check() override
    {
        std::int32_t datum = -1;
        const Result read = GetValueSINT32(mView.Get(), Numbered(mNumber), &datum);
        mVanishes = 0;
        const int holder = Holder(mNumber);
        EXPECT_EQ(read, holder < 0 ? E_NOT_FOUND : S_OK);
        EXPECT_EQ(datum, holder < 0 ? -1 : At(holder).From->Model.at(mNumber));
        EXPECT_EQ(mView->ContainsGUID(Numbered(mNumber)), holder < 0 ? S_FALSE : S_OK);
        EXPECT_EQ(mGroup->GetCount(), static_cast<Result>(mLayers.size()));
        if (Below(8) != 0)
            return;
        std::vector<std::string> keys;
        for (std::uint32_t number = 0; number < 200; ++number)
            if (Holder(number) >= 0)
                keys.push_back(Text(Numbered(number)));
        EXPECT_EQ(mView->GetCount(), static_cast<Result>(keys.size()));
        EXPECT_EQ(KeysOf(*mView), keys);
        for (const Source& source : mSources)
        {
            const auto last =
                std::ranges::find(mLayers.rbegin(), mLayers.rend(), &source, &Layer::From);
            EXPECT_EQ(mGroup->IndexOfValueSet(source.Shown.Get()),
                      last == mLayers.rend() ? E_NOT_FOUND : mLayers.rend() - last - 1);
        }
        EXPECT_EQ(KeysOf(*mGroup).size(), mLayers.size());
    }

private:
    struct Source
    {
        Values Set = Make<IValueSet>(CLSID_ValueSet); // what is written directly
        Values Shown = Set;                           // what is a layer
        std::map<std::uint32_t, std::int32_t> Model = {};
    };

    struct Layer
    {
        Source* From;
        GUID Id;
        std::uint32_t Flags;

        [[nodiscard]] bool Holds(std::uint32_t number) const
        {
            return (Flags & LAYER_HIDDEN) == 0 && From->Model.contains(number);
        }
    };

    Layer& At(int index)
    {
        return mLayers[static_cast<std::size_t>(index)];
    }

    // The topmost layer that shows a key.
    int Holder(std::uint32_t number)
    {
        int at = static_cast<int>(mLayers.size()) - 1;
        while (at >= 0 && !At(at).Holds(number))
            --at;
        return at;
    }

    // A value goes into the topmost layer that shows it, or the next above that may be written; a
    // new one into the topmost visible layer, unless the topmost of all is read-only.
    int Target()
    {
        const int count = static_cast<int>(mLayers.size());
        int target = Holder(mNumber);
        if (target < 0 && count > 0 && (At(count - 1).Flags & LAYER_READONLY) == 0)
            for (target = count - 1; target >= 0 && (At(target).Flags & LAYER_HIDDEN) != 0;)
                --target;
        else
            while (target >= 0 && target < count && At(target).Flags != 0)
                ++target;
        return target < count ? target : -1;
    }

    // With layers of all kinds, or with value sets alone, whose keys are read in pieces.
    void StartAnew()
    {
        EXPECT_EQ(mGroup->Clear(), S_OK);
        mLayers.clear();
        mWalk.IsDead = true;
        mKinds = std::size(mSources) / 2 * (1 + Below(2));
    }

    void StepGroup()
    {
        const auto count = static_cast<std::int32_t>(mLayers.size());
        const std::int32_t index = Below(40) == 0
                                       ? (Below(2) == 0 ? INT32_MIN : INT32_MAX)
                                       : static_cast<std::int32_t>(Below(mLayers.size() + 3)) - 2;
        const std::uint32_t flags = Below(4), die = Below(8);
        const GUID id = Below(10) == 0 ? GUID_Null : Numbered(Below(20));
        const auto same = std::ranges::find_if(mLayers, [&](const Layer& layer)
                                               { return SameGuid(layer.Id, id); });
        if (die < 5)
        {
            Source& source = mSources[Below(mKinds)];
            const bool isNamed = die > 0;
            const std::string fault = index < -1 || index > count          ? "Index out of Range"
                                      : isNamed && same != mLayers.end()   ? "id already exists"
                                      : isNamed && SameGuid(id, GUID_Null) ? "id == GUID_Null"
                                      : count == 8 ? "too many - item maximum"
                                                   : "";
            const auto insert = [&]
            {
                return mGroup->InsertValueSet(index, source.Shown.Get(), isNamed ? &id : nullptr,
                                              flags);
            };
            Expect(insert,
                   fault.empty()     ? S_OK
                   : fault[0] == 't' ? E_OUTOFMEMORY
                                     : E_INVALIDARG,
                   fault);
            if (!fault.empty())
                return;
            const std::int32_t at = index < 0 ? count : index;
            const auto added = mLayers.insert(mLayers.begin() + at, {&source, id, flags});
            EXPECT_EQ(isNamed ? S_OK : mGroup->GetValueSetIDAt(at, &added->Id), S_OK);
            mWalk.IsDead = true;
        }
        else if (die < 6)
        {
            EXPECT_EQ(mGroup->RemoveGUID(id), S_OK);
            if (same != mLayers.end())
                mLayers.erase(same);
            mWalk.IsDead = true;
        }
        else
        {
            const bool isInside = index >= 0 && index < count;
            const auto expect = [&](auto call)
            {
                Expect(call, isInside ? S_OK : E_INVALIDARG, isInside ? "" : "Index out of Range");
            };
            Values set;
            Layer told = {};
            expect([&] { return mGroup->SetValueSetAccessFlagsAt(index, flags); });
            expect([&] { return mGroup->GetValueSetAccessFlagsAt(index, &told.Flags); });
            expect([&] { return mGroup->GetValueSetIDAt(index, &told.Id); });
            expect([&] { return mGroup->GetValueSetAt(index, IID_IValueSet, set.PutVoid()); });
            if (isInside)
                At(index).Flags = flags;
            const Layer expected = isInside ? At(index) : Layer{};
            EXPECT_TRUE(told.Flags == expected.Flags && SameGuid(told.Id, expected.Id));
            EXPECT_EQ(set.Get(), isInside ? expected.From->Shown.Get() : nullptr);
        }
    }

    void StepView()
    {
        const std::uint32_t die = Below(200);
        const bool clears = die > 196;
        const int target = Target();
        const GUID key = Numbered(mNumber);
        if (die < 120)
        {
            Expect([&] { return SetValueSINT32(mView.Get(), key, mDatum); },
                   target < 0                        ? E_ACCESSDENIED
                   : At(target).From == &mSources[3] ? S_FALSE
                                                     : S_OK,
                   target < 0 ? "ValueSetGroup without writeable ValueSets" : "");
            mWalk.IsDead |= target >= 0;
            if (target >= 0)
                At(target).From->Model[mNumber] = mDatum;
            return;
        }
        const auto isMeant = [&](const Layer& layer)
        {
            return clears ? (layer.Flags & LAYER_HIDDEN) == 0 : layer.Holds(mNumber);
        };
        const bool isGuarded = std::ranges::any_of(mLayers, [&](const Layer& layer)
                                                   { return isMeant(layer) && layer.Flags != 0; });
        EXPECT_EQ(clears ? mView->Clear() : mView->RemoveGUID(key),
                  isGuarded ? E_ACCESSDENIED : S_OK);
        mWalk.IsDead |= !isGuarded;
        for (const Layer& layer : mLayers)
        {
            if (!isGuarded && isMeant(layer))
                clears ? layer.From->Model.clear() : void(layer.From->Model.erase(mNumber));
        }
    }

    void StepLayer(Source& source)
    {
        const bool isWhole = Below(40) == 0; // more keys than are read of a layer at a time
        if (Below(2) == 0)
        {
            EXPECT_EQ(isWhole ? source.Set->Clear() : source.Set->RemoveGUID(Numbered(mNumber)),
                      S_OK);
            isWhole ? source.Model.clear() : void(source.Model.erase(mNumber));
            return;
        }
        for (std::uint32_t number = isWhole ? 0 : mNumber;
             isWhole ? number < 200 : number == mNumber; ++number)
        {
            EXPECT_EQ(SetValueSINT32(source.Set.Get(), Numbered(number), mDatum), S_OK);
            source.Model[number] = mDatum;
        }
        const auto isSilent = [this](const Layer& layer)
        {
            return layer.From > &mSources[1];
        };
        if (std::ranges::any_of(mLayers, isSilent)) // a walk may miss new keys
            mWalk.Begin(*mView);
    }

    ForeignLayer mForeign;
    Source mSources[4];
    std::size_t mKinds = std::size(mSources);
    std::vector<Layer> mLayers;
    const ObjectPtr<IValueSetGroup> mGroup = Make<IValueSetGroup>(CLSID_ValueSetGroup);
    const Values mView = ViewOf(*mGroup);
    std::uint32_t mNumber = 0;
    std::int32_t mDatum = 0;
    KeyWalk mWalk;
    std::uint32_t mVanishes = 0; // the number, at which of the calls while it is read
};

TEST_F(ValueSetGroup, ShowsReadsAndWritesItsLayersAsTheirFlagsSay)
{
    RunProgram<GroupModel>(6000);
}

// A view without a writeable layer is a layer that fails.
TEST_F(ValueSetGroup, TheViewIsAValueSetButNoValueAndReportsWhatALayerFailsWith)
{
    const GUID key = Numbered(1);
    Insert(key, LAYER_READONLY);
    Group = Make<IValueSetGroup>(CLSID_ValueSetGroup); // the view keeps the former one
    const auto walk = Walk<IEnumerator>(*Group);
    EXPECT_EQ(Group->SetValueGUID(key, View.Get()), S_OK);
    EXPECT_EQ(walk->MoveNext(), E_ACCESSDENIED);
    FAILS(Group->SetValueGUID(key, Group.Get()), E_NOINTERFACE, "value must be IValueSet");
    FAILS(Group->AddGUID(key), E_NOTIMPL, "AddGUID not supported by IValueSetGroup");
    const Values outer = ViewOf(*Group);
    ObjectPtr<IValue> value;
    EXPECT_EQ(outer->GetValueGUID(key, IID_IValue, value.PutVoid()), S_OK);
    EXPECT_EQ(ReferencesOn(*value), 2u) << "it is the layer's own value";
    FAILS(View->SetValueGUID(key, value.Get()), E_ACCESSDENIED,
          "ValueSetGroup without writeable ValueSets");
    EXPECT_EQ(outer.QueryTo(value), E_NOINTERFACE);
    FAILS(outer->AddGUID(key), E_NOTIMPL, "AddGUID not supported by IValueSet");
    GUID madeUp[2] = {};
    for (GUID& id : madeUp)
    {
        const auto group = Make<IValueSetGroup>(CLSID_ValueSetGroup);
        EXPECT_EQ(group->InsertValueSet(0, outer.Get(), nullptr, 0), S_OK);
        (void)group->GetValueSetIDAt(0, &id);
    }
    EXPECT_FALSE(SameGuid(madeUp[0], madeUp[1]));
    EXPECT_EQ(outer->IsReadOnly(), 0);
    const std::string text = "{ValueSet of Group}->";
    FAILS(SetValueSINT32(outer.Get(), key, 1), E_ACCESSDENIED, text + "SetValueData");
    FAILS(outer->RemoveGUID(key), E_ACCESSDENIED, text + "RemoveGUID");
    ForeignLayer restless;
    restless.OnCall = [&]
    {
        (void)SetValueSINT32(restless.Inner.Get(), key, 1);
    };
    EXPECT_EQ(Group->InsertValueSet(0, &restless, nullptr, 0), S_OK);
    FAILS(Walk<IEnumerator>(*outer)->MoveNext(), E_ACCESSDENIED, "EA->MoveNext");
    restless.Inner.Reset();
    FAILS(Walk<IEnumerator>(*outer)->MoveNext(), E_NOINTERFACE, "Values->GetEnumerator");
    EXPECT_EQ(Group->Clear(), S_OK);
}

// What leads back through many groups takes long to find, and gives two threads time to meet.
TEST_F(ValueSetGroup, NeverLiesAmongItsOwnLayersNorDoConcurrentInsertionsBringItThere)
{
    Values chain = View;
    for (int length = 0; length < 50; ++length)
    {
        const auto next = Make<IValueSetGroup>(CLSID_ValueSetGroup);
        for (int time = 0; time < 2; ++time)
            EXPECT_EQ(next->InsertValueSet(-1, chain.Get(), nullptr, 0), S_OK) << "no ring";
        chain = ViewOf(*next);
    }
    FAILS(Group->InsertValueSet(-1, chain.Get(), nullptr, 0), E_INVALIDARG,
          "valueSet leads back to this group");

    const ObserverMaskScope quiet(0);
    const auto other = Make<IValueSetGroup>(CLSID_ValueSetGroup);
    const Values otherView = ViewOf(*other);
    const GUID key = Numbered(1);
    for (int round = 0; round < 1000; ++round)
    {
        EXPECT_EQ(Group->Clear() + other->Clear(), S_OK);
        Insert(key, 0);
        std::atomic<int> missing = 2;
        std::atomic<int> refused = 0;
        const auto work = [&](IValueSetGroup& into, IValueSet& from)
        {
            Meet(missing);
            refused += into.InsertValueSet(-1, &from, nullptr, 0) == E_INVALIDARG;
            EXPECT_EQ(SetValueSINT32(View.Get(), key, round), S_OK);
            EXPECT_EQ(View->GetCount(), 1);
        };
        std::jthread rival([&] { work(*other, *chain); });
        work(*Group, *otherView);
        rival.join();
        EXPECT_EQ(refused, 1);
    }
}

} // namespace

} // namespace Tavrik::Ossira
