// Value set groups: their layers as a dictionary and by index, the merged view beside a simple
// model, rings, and layers that fail.
#include "OssiraValueSetGroup.h"
#include "ServiceTools.h"
#include "TestItem.h"

#include <barrier>
#include <random>
#include <set>
#include <thread>

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

using Group = ObjectPtr<IValueSetGroup>;
using Values = ObjectPtr<IValueSet>;

Group NewGroup()
{
    return Make<IValueSetGroup>(CLSID_ValueSetGroup);
}

Values NewValues()
{
    return Make<IValueSet>(CLSID_ValueSet);
}

Values ViewOf(IValueSetGroup& group)
{
    Values view;
    EXPECT_EQ(group.GetValueSet(view.Put()), S_OK);
    return view;
}

// A new value set that holds a number under a key, on top of the group.
Values AddLayer(IValueSetGroup& group, std::uint32_t flags, const GUID& key, std::int32_t number)
{
    Values layer = NewValues();
    EXPECT_EQ(SetValueSINT32(layer.Get(), key, number), S_OK);
    EXPECT_EQ(group.InsertValueSet(-1, layer.Get(), nullptr, flags), S_OK);
    return layer;
}

GUID IdAt(IValueSetGroup& group, std::int32_t index)
{
    GUID id = GUID_Null;
    EXPECT_EQ(group.GetValueSetIDAt(index, &id), S_OK);
    return id;
}

std::int32_t NumberIn(IValueSet& values, const GUID& key)
{
    std::int32_t number = -1;
    const Result result = GetValueSINT32(&values, key, &number);
    EXPECT_TRUE(result == S_OK || result == E_NOT_FOUND) << result;
    return number;
}

std::vector<std::string> KeysOf(IEnumerable& collection)
{
    ObjectPtr<IEnumeratorGUID> keys;
    EXPECT_EQ(collection.GetEnumerator(IID_IEnumeratorGUID, keys.PutVoid()), S_OK);
    std::vector<std::string> texts;
    GUID key = GUID_Null;
    while (keys->MoveNext() == S_OK && keys->GetCurrentGUID(&key) == S_OK)
        texts.push_back(Text(key));
    return texts;
}

std::vector<std::string> Texts(std::initializer_list<int> numbers)
{
    std::vector<std::string> texts;
    for (const int number : numbers)
        texts.push_back(Text(Numbered(static_cast<std::uint8_t>(number))));
    return texts;
}

// --- Layers -------------------------------------------------------------------------------------

TEST(ValueSetGroup, LayersLieWhereTheyAreInserted)
{
    const auto group = NewGroup();
    const Values a = NewValues();
    const Values b = NewValues();
    const Values c = NewValues();
    const GUID id8 = Numbered(8);
    const GUID id9 = Numbered(9);
    EXPECT_EQ(group->InsertValueSet(-1, a.Get(), &id9, 5), S_OK);
    EXPECT_EQ(group->SetValueGUID(Numbered(7), b.Get()), S_OK);
    EXPECT_EQ(group->InsertValueSet(1, c.Get(), &id8, 0xFFFFFFFF), S_OK);
    EXPECT_EQ(group->InsertValueSet(3, a.Get(), nullptr, 0), S_OK);
    EXPECT_EQ(group->GetCount(), 4);
    EXPECT_EQ(group->IndexOfValueSet(b.Get()), 2);
    EXPECT_EQ(group->IndexOfValueSet(a.Get()), 3) << "the topmost";
    EXPECT_EQ(group->IndexOfValueSet(NewValues().Get()), E_NOT_FOUND);
    std::uint32_t flags = 0;
    EXPECT_EQ(group->GetValueSetAccessFlagsAt(1, &flags), S_OK);
    EXPECT_EQ(flags, 0xFFFFFFFF);
    EXPECT_EQ(group->SetValueSetAccessFlagsAt(1, 6), S_OK);
    EXPECT_EQ(group->GetValueSetAccessFlagsAt(1, &flags), S_OK);
    EXPECT_EQ(flags, 6u);
    Values layer;
    EXPECT_EQ(group->GetValueSetAt(1, IID_IValueSet, layer.PutVoid()), S_OK);
    EXPECT_EQ(layer.Get(), c.Get());

    // As a dictionary: by identifier, in the order of the bytes.
    const GUID madeUp = IdAt(*group, 3);
    EXPECT_EQ(group->RemoveGUID(madeUp), S_OK);
    EXPECT_EQ(KeysOf(*group), Texts({7, 8, 9}));
    ObjectPtr<ICollectionGUID> keys;
    EXPECT_EQ(group->GetKeys(keys.PutVoid()), S_OK);
    EXPECT_EQ(KeysOf(*keys), Texts({7, 8, 9}));
    ObjectPtr<ICollection> sets;
    ObjectPtr<IEnumerator> walk;
    EXPECT_EQ(group->GetValues(sets.PutVoid()), S_OK);
    EXPECT_EQ(sets->GetEnumerator(IID_IEnumerator, walk.PutVoid()), S_OK);
    for (const Values* expected : {&b, &c, &a})
    {
        EXPECT_EQ(walk->MoveNext(), S_OK);
        EXPECT_EQ(walk->GetCurrent(IID_IValueSet, layer.PutVoid()), S_OK);
        EXPECT_EQ(layer.Get(), expected->Get());
    }
    EXPECT_EQ(group->GetValueGUID(Numbered(8), IID_IValueSet, layer.PutVoid()), S_OK);
    EXPECT_EQ(layer.Get(), c.Get());
    EXPECT_EQ(group->ContainsGUID(madeUp), S_FALSE);
    EXPECT_EQ(group->GetValueGUID(madeUp, IID_IValueSet, layer.PutVoid()), E_NOT_FOUND);
    EXPECT_EQ(group->SetValueSetAccessFlagsAt(0, 0), S_OK);
    EXPECT_EQ(walk->MoveNext(), S_FALSE) << "flags do not end it";
    EXPECT_EQ(group->RemoveGUID(madeUp), S_OK) << "absent";
    EXPECT_EQ(walk->MoveNext(), E_ACCESSDENIED);

    EXPECT_EQ(group->RemoveGUID(Numbered(8)), S_OK);
    EXPECT_EQ(group->IndexOfValueSet(b.Get()), 1) << "the gap is closed";
    layer.Reset();
    EXPECT_EQ(ReferencesOn(*c), 1u);
    EXPECT_EQ(group->Clear(), S_OK);
    EXPECT_EQ(group->GetCount(), 0);
    EXPECT_EQ(ReferencesOn(*a), 1u);
}

TEST(ValueSetGroup, RefusesWhatIsNoLayer)
{
    const auto group = NewGroup();
    IValueSetGroup& g = *group;
    const Values values = NewValues();
    IValueSet* const v = values.Get();
    const auto list = Make<IUnknown>(CLSID_UnsafeDictionaryGUID);
    const GUID ids[] = {Numbered(1), Numbered(2), Numbered(3)};
    for (const GUID& id : ids)
        EXPECT_EQ(g.InsertValueSet(-1, v, &id, 0), S_OK);
    GUID out16;
    std::uint32_t flags;
    void* out;
    const char* const outside = "Index out of Range";
    const char* const tooMany = "too many - item maximum";
    FAILS(g.InsertValueSet(9, nullptr, nullptr, 0), E_POINTER, "valueSet");
    FAILS(g.InsertValueSet(9, v, &GUID_Null, 0), E_INVALIDARG, outside);
    FAILS(g.InsertValueSet(4, v, nullptr, 0), E_INVALIDARG, outside);
    FAILS(g.InsertValueSet(-2, v, nullptr, 0), E_INVALIDARG, outside);
    FAILS(g.InsertValueSet(0, v, &ids[1], 0), E_INVALIDARG, "id already exists");
    FAILS(g.InsertValueSet(0, v, &GUID_Null, 0), E_INVALIDARG, "id == GUID_Null");
    FAILS(g.SetValueGUID(Numbered(2), v), E_INVALIDARG, "id already exists");
    FAILS(g.SetValueGUID(Numbered(9), nullptr), E_POINTER, "value");
    FAILS(g.SetValueGUID(Numbered(9), list.Get()), E_NOINTERFACE, "value must be IValueSet");
    FAILS(g.AddGUID(Numbered(9)), E_NOTIMPL, "AddGUID not supported by IValueSetGroup");
    FAILS(g.SetValueSetAccessFlagsAt(3, 0), E_INVALIDARG, outside);
    FAILS(g.GetValueSetAt(-1, IID_IValueSet, &out), E_INVALIDARG, outside);
    FAILS(g.GetValueSetIDAt(3, &out16), E_INVALIDARG, outside);
    FAILS(g.GetValueSetAccessFlagsAt(-1, &flags), E_INVALIDARG, outside);
    FAILS(g.GetValueSet(nullptr), E_POINTER, "pValueSet");
    FAILS(g.GetValueSetAt(0, IID_IValueSet, nullptr), E_POINTER, "pValueSet");
    FAILS(g.GetValueSetIDAt(0, nullptr), E_POINTER, "pID");
    FAILS(g.GetValueSetAccessFlagsAt(0, nullptr), E_POINTER, "pAccessFlags");
    FAILS(g.IndexOfValueSet(nullptr), E_POINTER, "valueSet");
    for (int count = 3; count < 8; ++count)
        EXPECT_EQ(g.InsertValueSet(0, v, nullptr, 0), S_OK);
    for (const std::int32_t index : {-1, 0, 7, 8})
        FAILS(g.InsertValueSet(index, v, nullptr, 0), E_OUTOFMEMORY, tooMany);
    FAILS(g.InsertValueSet(9, v, nullptr, 0), E_INVALIDARG, outside);
    FAILS(g.SetValueGUID(Numbered(2), v), E_INVALIDARG, "id already exists");
    EXPECT_EQ(g.GetCount(), 8);
}

// --- The merged view ----------------------------------------------------------------------------

constexpr int KeyCount = 5;

struct ModelLayer
{
    std::uint32_t Flags;
    Values Set;
    int Numbers[KeyCount]; // 0: the key is not there
};

using Model = std::vector<ModelLayer>; // from the bottom

// The layer in which a key is found, or null.
ModelLayer* Holder(Model& model, int key)
{
    for (auto layer = model.rbegin(); layer != model.rend(); ++layer)
        if ((layer->Flags & LAYER_HIDDEN) == 0 && layer->Numbers[key] != 0)
            return &*layer;
    return nullptr;
}

// The layer that takes a write, or null.
ModelLayer* Target(Model& model, int key)
{
    ModelLayer* const end = model.data() + model.size();
    if (ModelLayer* layer = Holder(model, key); layer != nullptr)
    {
        layer = std::find_if(layer, end, [](const auto& above) { return (above.Flags & 3) == 0; });
        return layer != end ? layer : nullptr;
    }
    if (model.empty() || (model.back().Flags & LAYER_READONLY) != 0)
        return nullptr;
    ModelLayer* layer = end;
    while (layer != model.data())
        if (((--layer)->Flags & LAYER_HIDDEN) == 0)
            return layer;
    return nullptr;
}

TEST(ValueSetGroup, TheMergedViewReadsAndWritesLikeItsModel)
{
    const ObserverMaskScope quiet(0);
    const auto group = NewGroup();
    const Values view = ViewOf(*group);
    Model model;
    std::mt19937 random(35);
    const auto below = [&random](std::size_t bound)
    {
        return static_cast<int>(random() % bound);
    };
    for (int round = 1; round < 20000; ++round)
    {
        const int key = below(KeyCount);
        const GUID guid = Numbered(static_cast<std::uint32_t>(key));
        const int index = below(model.size() + 1);
        const auto at = model.begin() + index;
        const auto flags = static_cast<std::uint32_t>(below(4));
        const int die = below(40);
        if (die < 4 && model.size() < 8)
        {
            const auto layer = model.insert(at, {flags, NewValues(), {}});
            ASSERT_EQ(group->InsertValueSet(index, layer->Set.Get(), nullptr, flags), S_OK);
        }
        else if (die < 16 && at != model.end())
        {
            if (die < 6)
            {
                ASSERT_EQ(group->RemoveGUID(IdAt(*group, index)), S_OK);
                model.erase(at);
            }
            else if (die < 11)
            {
                ASSERT_EQ(group->SetValueSetAccessFlagsAt(index, flags), S_OK);
                at->Flags = flags;
            }
            else
            {
                ASSERT_EQ(SetValueSINT32(at->Set.Get(), guid, round), S_OK);
                at->Numbers[key] = round;
            }
        }
        else if (die < 36)
        {
            const auto value = Make<IValue>(CLSID_Value);
            ASSERT_EQ(SetValueSINT32(value.Get(), round), S_OK);
            ModelLayer* const target = Target(model, key);
            ASSERT_EQ(die < 26 ? SetValueSINT32(view.Get(), guid, round)
                               : view->SetValueGUID(guid, value.Get()),
                      target != nullptr ? S_OK : E_ACCESSDENIED);
            if (target != nullptr)
                target->Numbers[key] = round;
        }
        else
        {
            const bool clears = die == 39;
            const auto isGuarded = [=](const ModelLayer& layer)
            {
                return (layer.Flags & 3) == LAYER_READONLY && (clears || layer.Numbers[key] != 0);
            };
            const bool isRefused = std::any_of(model.begin(), model.end(), isGuarded);
            ASSERT_EQ(clears ? view->Clear() : view->RemoveGUID(guid),
                      isRefused ? E_ACCESSDENIED : S_OK);
            for (ModelLayer& layer : model)
                for (int lost = 0; lost < KeyCount; ++lost)
                    if (!isRefused && (layer.Flags & LAYER_HIDDEN) == 0 && (clears || lost == key))
                        layer.Numbers[lost] = 0;
        }

        std::vector<std::string> keys;
        for (int asked = 0; asked < KeyCount; ++asked)
        {
            const GUID askedGuid = Numbered(static_cast<std::uint32_t>(asked));
            const ModelLayer* const holder = Holder(model, asked);
            GUID type = GUID_Null;
            ASSERT_EQ(NumberIn(*view, askedGuid), holder != nullptr ? holder->Numbers[asked] : -1);
            ASSERT_EQ(view->ContainsGUID(askedGuid), holder != nullptr ? S_OK : S_FALSE);
            ASSERT_EQ(view->GetDataType(askedGuid, &type), holder != nullptr ? S_OK : E_NOT_FOUND);
            if (holder != nullptr)
                keys.push_back(Text(askedGuid));
        }
        ASSERT_EQ(KeysOf(*view), keys);
        ASSERT_EQ(view->GetCount(), static_cast<Result>(keys.size()));
    }
}

TEST(ValueSetGroup, AnEnumerationEndsWhenTheViewIsWrittenOrLayersComeAndGo)
{
    const auto group = NewGroup();
    const Values view = ViewOf(*group);
    const Values bottom = AddLayer(*group, LAYER_READONLY, Numbered(1), 1);
    const Values top = AddLayer(*group, 0, Numbered(2), 2);
    EXPECT_EQ(SetValueSINT32(bottom.Get(), Numbered(3), 3), S_OK);
    const std::function<void()> endings[] = {
        [&] { EXPECT_EQ(SetValueSINT32(view.Get(), Numbered(2), 7), S_OK); },
        [&] { EXPECT_EQ(SetValueSINT32(ViewOf(*group).Get(), Numbered(2), 7), S_OK); },
        [&] { EXPECT_EQ(view->RemoveGUID(Numbered(8)), S_OK); },
        [&] { AddLayer(*group, 0, Numbered(5), 0); },
        [&]
        {
            EXPECT_EQ(group->RemoveGUID(IdAt(*group, 2)), S_OK);
        }};
    for (const auto& end : endings)
    {
        ObjectPtr<IEnumeratorGUID> keys;
        EXPECT_EQ(view->GetEnumerator(IID_IEnumeratorGUID, keys.PutVoid()), S_OK);
        EXPECT_EQ(keys->MoveNext(), S_OK);
        end();
        FAILS(keys->MoveNext(), E_ACCESSDENIED, "List was modified, the enumerator is invalid now");
    }

    // Flags and what is done to a layer directly leave it alone; what is no longer found, and what
    // was not there at the beginning, is not listed.
    ObjectPtr<IEnumeratorGUID> keys;
    EXPECT_EQ(view->GetEnumerator(IID_IEnumeratorGUID, keys.PutVoid()), S_OK);
    EXPECT_EQ(keys->MoveNext(), S_OK);
    EXPECT_EQ(group->SetValueSetAccessFlagsAt(1, LAYER_HIDDEN), S_OK);
    EXPECT_EQ(SetValueSINT32(bottom.Get(), Numbered(4), 4), S_OK);
    EXPECT_EQ(keys->MoveNext(), S_OK);
    GUID key = GUID_Null;
    EXPECT_EQ(keys->GetCurrentGUID(&key), S_OK);
    EXPECT_TRUE(SameGuid(key, Numbered(3)));
    EXPECT_EQ(keys->MoveNext(), S_FALSE);
    EXPECT_EQ(keys->Reset(), S_OK);
    EXPECT_EQ(keys->MoveNext(), S_OK);
    EXPECT_EQ(KeysOf(*view), Texts({1, 3, 4}));
}

// --- Rings and bad layers -----------------------------------------------------------------------

#define ANSWERS(operation, parameters, answer)                                                     \
    Result operation parameters override                                                           \
    {                                                                                              \
        return answer;                                                                             \
    }

#undef ANSWERS

// --- Threads ------------------------------------------------------------------------------------

} // namespace

} // namespace Tavrik::Ossira
