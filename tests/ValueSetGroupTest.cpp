// Value set groups: their layers, the merged view beside a simple model, rings, layers that fail.
#include "OssiraValueSetGroup.h"
#include "ServiceTools.h"
#include "TestItem.h"

#include <algorithm>
#include <atomic>
#include <set>
#include <thread>

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
        const Result result = Inner->GetEnumerator(riid, ppv);
        OnCall(); // what is changed now ends the enumerator
        return result;
    }
    Result GetCount() override
    {
        return Call().GetCount();
    }
    Result Clear() override
    {
        return Call().Clear();
    }
    Result IsReadOnly() override
    {
        return Call().IsReadOnly();
    }
    Result AddGUID(const GUID& key) override
    {
        return Call().AddGUID(key);
    }
    Result RemoveGUID(const GUID& key) override
    {
        return Call().RemoveGUID(key);
    }
    Result ContainsGUID(const GUID& key) override
    {
        return Call().ContainsGUID(key);
    }
    Result GetValueGUID(const GUID& key, const IID& riid, void** ppv) override
    {
        return Call().GetValueGUID(key, riid, ppv);
    }
    Result SetValueGUID(const GUID& key, IUnknown* value) override
    {
        return Call().SetValueGUID(key, value);
    }
    Result GetValues(void** ppv) override
    {
        return Call().GetValues(ppv);
    }
    Result GetKeys(void** ppv) override
    {
        return Call().GetKeys(ppv);
    }
    Result GetValueData(const GUID& key, const GUID& type, void* data, std::int32_t size) override
    {
        return Call().GetValueData(key, type, data, size);
    }
    Result SetValueData(const GUID& key, const GUID& type, const void* data,
                        std::int32_t size) override
    {
        return Call().SetValueData(key, type, data, size);
    }
    Result GetDataType(const GUID& key, GUID* type) override
    {
        return Call().GetDataType(key, type);
    }

    IValueSet& Call()
    {
        OnCall();
        return *Inner;
    }

    Values Inner = Make<IValueSet>(CLSID_ValueSet);
    std::function<void()> OnCall = [] {
    };
};

struct ValueSetGroup : testing::Test
{
    // A new value set that holds a number under a key.
    Values Insert(std::int32_t index, const GUID& id, std::uint32_t flags, const GUID& key)
    {
        auto layer = Make<IValueSet>(CLSID_ValueSet);
        EXPECT_EQ(SetValueSINT32(layer.Get(), key, 1), S_OK);
        EXPECT_EQ(Group->InsertValueSet(index, layer.Get(), &id, flags), S_OK);
        return layer;
    }

    ObjectPtr<IValueSetGroup> Group = Make<IValueSetGroup>(CLSID_ValueSetGroup);
    Values View = ViewOf(*Group);
};

TEST_F(ValueSetGroup, IsADictionaryOfItsLayersByIdentifier)
{
    std::vector<Values> sets;
    for (const std::uint32_t number : {7u, 9u, 8u}) // each under the former
        sets.push_back(Insert(0, Numbered(number), 0, Numbered(1)));
    EXPECT_EQ(Group->SetValueGUID(Numbered(6), sets[2].Get()), S_OK);
    EXPECT_EQ(Group->IndexOfValueSet(sets[2].Get()), 3) << "the topmost";
    EXPECT_EQ(Group->RemoveGUID(Numbered(8)), S_OK);
    EXPECT_EQ(Group->IndexOfValueSet(sets[0].Get()), 1) << "the gap is closed";
    ObjectPtr<ICollection> values;
    Values first;
    EXPECT_EQ(Group->GetValues(values.PutVoid()), S_OK);
    const auto walk = Walk<IEnumerator>(*values);
    EXPECT_EQ(walk->GetCurrent(IID_IValueSet, first.PutVoid()), S_OK);
    EXPECT_EQ(first.Get(), sets[2].Get());
    EXPECT_EQ(Group->Clear(), S_OK);
    ExpectDead(*walk);
    EXPECT_EQ(ReferencesOn(*sets[0]), 1u);
}

TEST_F(ValueSetGroup, RefusesWhatIsNoLayer)
{
    IValueSetGroup& g = *Group;
    const GUID id = Numbered(1);
    const Values set = Insert(-1, id, 0, id);
    FAILS(g.InsertValueSet(0, set.Get(), &GUID_Null, 0), E_INVALIDARG, "id == GUID_Null");
    FAILS(g.SetValueGUID(id, &g), E_NOINTERFACE, "value must be IValueSet");
    FAILS(g.AddGUID(id), E_NOTIMPL, "AddGUID not supported by IValueSetGroup");
    while (g.GetCount() < 8)
        ASSERT_EQ(g.InsertValueSet(0, set.Get(), nullptr, 0), S_OK) << "an identifier is made up";
    FAILS(g.InsertValueSet(8, set.Get(), nullptr, 0), E_OUTOFMEMORY, "too many - item maximum");
    FAILS(g.InsertValueSet(9, set.Get(), &id, 0), E_INVALIDARG, "Index out of Range");
    FAILS(g.InsertValueSet(8, set.Get(), &id, 0), E_INVALIDARG, "id already exists");
}

// Layers with random flags and keys, and what must come of one of the keys.
TEST_F(ValueSetGroup, ReadsWritesAndRemovesThroughItsLayersAsTheirFlagsSay)
{
    const ObserverMaskScope quiet(0);
    const GUID key = Numbered(0);
    std::mt19937 random(35);
    for (int round = 0; round < 4000; ++round)
    {
        std::pair<Values, std::uint32_t> layers[8];
        ForeignLayer foreign[8];
        const int count = static_cast<int>(Below(random, 9));
        int holder = -1; // the topmost visible one
        bool isGuarded = false;
        std::set<std::string> keys;
        ASSERT_EQ(Group->Clear(), S_OK);
        for (int at = 0; at < count; ++at)
        {
            auto& [set, flags] = layers[at];
            set = Make<IValueSet>(CLSID_ValueSet);
            flags = Below(random, 4);
            for (std::uint32_t other = Below(random, 8); other < 12; other += 1 + Below(random, 8))
                ASSERT_EQ(SetValueSINT32(set.Get(), Numbered(other % 4), at), S_OK);
            // Some are foreign, some are views of other groups.
            Values layer = set;
            if (const std::uint32_t kind = Below(random, 8); kind == 0)
            {
                foreign[at].Inner = set;
                layer = Values(&foreign[at]);
            }
            else if (kind == 1)
            {
                const auto inner = Make<IValueSetGroup>(CLSID_ValueSetGroup);
                ASSERT_EQ(inner->InsertValueSet(0, set.Get(), nullptr, 0), S_OK);
                layer = ViewOf(*inner);
            }
            ASSERT_EQ(Group->InsertValueSet(at, layer.Get(), nullptr, flags), S_OK);
            if ((flags & LAYER_HIDDEN) != 0)
                continue;
            const bool holds = set->ContainsGUID(key) == S_OK;
            holder = holds ? at : holder;
            isGuarded |= holds && flags == LAYER_READONLY;
            for (const std::string& text : KeysOf(*set))
                keys.insert(text);
        }
        std::int32_t number = -1;
        ASSERT_EQ(GetValueSINT32(View.Get(), key, &number), holder < 0 ? E_NOT_FOUND : S_OK);
        ASSERT_EQ(number, holder);
        ASSERT_EQ(View->GetCount(), static_cast<Result>(keys.size()));
        ASSERT_EQ(KeysOf(*View), std::vector(keys.begin(), keys.end()));

        int target = holder;
        while (holder >= 0 && target < count && layers[target].second != 0)
            ++target;
        if (holder < 0 && count > 0 && (layers[count - 1].second & LAYER_READONLY) == 0)
            for (target = count - 1; target >= 0 && (layers[target].second & LAYER_HIDDEN) != 0;)
                --target;
        const bool isTaken = target >= 0 && target < count;
        ASSERT_EQ(SetValueSINT32(View.Get(), key, 100), isTaken ? S_OK : E_ACCESSDENIED);
        for (int at = 0; at < count; ++at)
        {
            (void)GetValueSINT32(layers[at].first.Get(), key, &number);
            ASSERT_EQ(std::exchange(number, 0) == 100, at == target);
        }
        isGuarded |= isTaken && layers[target].second == LAYER_READONLY;
        ASSERT_EQ(View->RemoveGUID(key), isGuarded ? E_ACCESSDENIED : S_OK);
        ASSERT_EQ(View->ContainsGUID(key), isGuarded ? S_OK : S_FALSE);
        ASSERT_EQ(Group->Clear(), S_OK);
    }
}

TEST_F(ValueSetGroup, AForeignLayerMayCallItsGroupAndIsAskedAgainWhenItChanges)
{
    ForeignLayer layer;
    int calls = 0;
    layer.OnCall = [&]
    {
        calls += Group->IndexOfValueSet(&layer) == 0;
        if (calls < 10)
        {
            // Ends the layer's enumerators.
            EXPECT_EQ(SetValueSINT32(layer.Inner.Get(), Numbered(9), calls), S_OK);
        }
    };
    EXPECT_EQ(Group->InsertValueSet(0, &layer, nullptr, 0), S_OK);
    Insert(1, Numbered(1), LAYER_READONLY, Numbered(2));
    std::int32_t number = 0;
    EXPECT_EQ(KeysOf(*View), (std::vector{Text(Numbered(2)), Text(Numbered(9))}));
    EXPECT_EQ(View->GetCount(), 2);
    EXPECT_EQ(GetValueSINT32(View.Get(), Numbered(9), &number), S_OK);
    EXPECT_EQ(View->SetValueGUID(Numbered(9), Make<IValue>(CLSID_Value).Get()), S_OK);
    EXPECT_EQ(View->RemoveGUID(Numbered(9)), S_OK);
    EXPECT_GT(calls, 10);
    EXPECT_EQ(Group->Clear(), S_OK);
}

TEST_F(ValueSetGroup, AKeyThatGoesWhileItIsReadIsFoundInALayerBelow)
{
    const GUID key = Numbered(1);
    Insert(0, key, 0, key);
    ForeignLayer layer;
    EXPECT_EQ(SetValueSINT32(layer.Inner.Get(), key, 2), S_OK);
    EXPECT_EQ(Group->InsertValueSet(1, &layer, nullptr, 0), S_OK);
    int calls = 0;
    layer.OnCall = [&]
    {
        (void)(++calls == 2 ? layer.Inner->Clear() : S_OK);
    };
    std::int32_t number = 0;
    EXPECT_EQ(GetValueSINT32(View.Get(), key, &number), S_OK);
    EXPECT_EQ(number, 1);
    EXPECT_EQ(Group->Clear(), S_OK);
}

// More keys than are read ahead, in layers that have some in common.
TEST_F(ValueSetGroup, AWalkGoesOnBesideOthersAndShowsTheKeysThatAreThereWhenItComesToThem)
{
    const Values bottom = Insert(0, Numbered(1), 0, Numbered(0));
    const Values top = Insert(1, Numbered(2), 0, Numbered(0));
    for (std::uint8_t number = 0; number < 200; ++number)
    {
        const GUID key = {0, 0, 0, {0, 0, 0, 0, 0, 0, 0, number}};
        IValueSet* const sets[] = {bottom.Get(), top.Get(), bottom.Get()};
        EXPECT_EQ(SetValueSINT32(sets[number % 3], key, 1), S_OK);
        EXPECT_EQ(SetValueSINT32(sets[(number + 1) % 3], key, 1), S_OK);
    }
    const Result count = View->GetCount();
    const auto keys = KeysOf(*View);
    EXPECT_EQ(static_cast<Result>(keys.size()), count);
    EXPECT_TRUE(std::is_sorted(keys.begin(), keys.end()));
    const auto walk = Walk<IEnumeratorGUID>(*View);
    std::vector<std::string> shown;
    for (GUID key = GUID_Null; walk->MoveNext() == S_OK && walk->GetCurrentGUID(&key) == S_OK;)
    {
        shown.push_back(Text(key));
        if (shown.size() == 10)
        {
            const auto other = Walk<IEnumeratorGUID>(*View);
            EXPECT_EQ(other->MoveNext(), S_OK);
            GUID next = key;
            next.Data4[7] = 12; // read ahead by now
            EXPECT_EQ(bottom->RemoveGUID(next), S_OK);
            EXPECT_EQ(top->RemoveGUID(next), S_OK);
            next.Data4[7] = 250;
            EXPECT_EQ(SetValueSINT32(bottom.Get(), next, 1), S_OK);
        }
    }
    EXPECT_EQ(shown.size(), keys.size()) << "one has gone, one has come";
    EXPECT_EQ(KeysOf(*View), shown);
    EXPECT_EQ(View->GetCount(), count);
    EXPECT_EQ(Group->SetValueSetAccessFlagsAt(1, LAYER_HIDDEN), S_OK);
    EXPECT_EQ(View->GetCount(), bottom->GetCount());
    EXPECT_EQ(KeysOf(*View), KeysOf(*bottom));
}

TEST_F(ValueSetGroup, AnEnumerationEndsWhenTheViewIsWrittenOrLayersComeAndGo)
{
    const Values bottom = Insert(0, Numbered(1), LAYER_READONLY, Numbered(1));
    Insert(1, Numbered(2), 0, Numbered(2));
    const std::function<Result()> endings[] = {
        [&] { return SetValueSINT32(ViewOf(*Group).Get(), Numbered(2), 7); },
        [&] { return View->RemoveGUID(Numbered(8)); },
        [&] { return Group->RemoveGUID(Numbered(2)); },
    };
    for (const auto& end : endings)
    {
        const auto walk = Walk<IEnumerator>(*View);
        EXPECT_EQ(Group->SetValueSetAccessFlagsAt(0, LAYER_READONLY), S_OK);
        EXPECT_EQ(SetValueSINT32(bottom.Get(), Numbered(4), 4), S_OK);
        EXPECT_EQ(walk->MoveNext(), S_OK) << "neither flags nor what is done to a layer directly";
        EXPECT_EQ(end(), S_OK);
        ExpectDead(*walk);
    }
}

// A view without a writeable layer is a layer that fails.
TEST_F(ValueSetGroup, TheViewIsAValueSetButNoValueAndReportsWhatALayerFailsWith)
{
    const GUID key = Numbered(1);
    Insert(0, key, LAYER_READONLY, key);
    Group = Make<IValueSetGroup>(CLSID_ValueSetGroup); // the view keeps the former one
    EXPECT_EQ(Group->InsertValueSet(-1, View.Get(), nullptr, 0), S_OK);
    const Values outer = ViewOf(*Group);
    IValueSet& v = *outer;
    ObjectPtr<IValue> value;
    EXPECT_EQ(outer.QueryTo(value), E_NOINTERFACE);
    EXPECT_EQ(v.GetValueGUID(key, IID_IValue, value.PutVoid()), S_OK);
    EXPECT_EQ(ReferencesOn(*value), 2u) << "it is the layer's own value";
    FAILS(View->SetValueGUID(key, value.Get()), E_ACCESSDENIED,
          "ValueSetGroup without writeable ValueSets");
    const std::string text = "{ValueSet of Group}->";
    FAILS(SetValueSINT32(&v, key, 1), E_ACCESSDENIED, text + "SetValueData");
    FAILS(v.RemoveGUID(key), E_ACCESSDENIED, text + "RemoveGUID");
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
        const Values bottom = Insert(0, key, 0, key);
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
