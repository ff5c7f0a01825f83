// GUID dictionaries and value sets. What they share is tested on all six classes, through the
// dictionary's interface and with values as items, which both take.
#include "ServiceTools.h"
#include "TestItem.h"

#include <array>
#include <map>

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

constexpr CLSID Dictionaries[] = {CLSID_DictionaryGUID, CLSID_LockableDictionaryGUID,
                                  CLSID_UnsafeDictionaryGUID};
constexpr CLSID ValueSets[] = {CLSID_ValueSet, CLSID_LockableValueSet, CLSID_UnsafeValueSet};
constexpr GUID KeyA = Numbered(1);
constexpr GUID KeyB = Numbered(2);
constexpr GUID Absent = Numbered(3);

class Dictionary : public testing::TestWithParam<CLSID>
{
protected:
    ObjectPtr<IDictionaryGUID> Map = Make<IDictionaryGUID>(GetParam());
};

INSTANTIATE_TEST_SUITE_P(Dictionaries, Dictionary, testing::ValuesIn(Dictionaries));
INSTANTIATE_TEST_SUITE_P(ValueSets, Dictionary, testing::ValuesIn(ValueSets));

// The keys are made by counting in different fields, grow to thousands and shrink again. Every
// change ends the enumerator before it, also one that changes nothing.
TEST_P(Dictionary, FindsReplacesRemovesAndOrdersKeysLikeAMap)
{
    std::mt19937 random(33);
    std::vector<ObjectPtr<IValue>> items;
    for (int i = 0; i < 4; ++i)
        items.push_back(Make<IValue>(CLSID_Value));
    std::map<std::array<unsigned char, 16>, IValue*> model;
    for (int round = 0; round < 20000; ++round)
    {
        const std::uint32_t number = Below(random, round < 2000 ? 6 : 2000);
        const auto low = static_cast<std::uint8_t>(number);
        const auto high = static_cast<std::uint8_t>(number >> 8);
        const GUID key = round % 2 == 0 ? GUID{number, 1, 0, {}} : GUID{0, 2, 0, {high, low}};
        const auto bytes = std::bit_cast<std::array<unsigned char, 16>>(key);
        const auto found = model.find(bytes);
        const bool isHeld = found != model.end();
        ObjectPtr<IValue> got;
        ASSERT_EQ(Map->GetValueGUID(key, IID_IValue, got.PutVoid()), isHeld ? S_OK : E_NOT_FOUND);
        ASSERT_EQ(got.Get(), isHeld ? found->second : nullptr);
        ASSERT_EQ(Map->ContainsGUID(key), isHeld ? S_OK : S_FALSE);
        const auto enumerator = Walk<IEnumerator>(*Map);
        // Nothing is entered in the end, so that walks meet an order with holes.
        if (Below(random, 10) < (round < 10000 ? 7u : round < 18000 ? 2u : 0u))
        {
            model[bytes] = items[Below(random, 4)].Get();
            ASSERT_EQ(Map->SetValueGUID(key, model[bytes]), S_OK);
        }
        else
        {
            ASSERT_EQ(Map->RemoveGUID(key), S_OK);
            model.erase(bytes);
        }
        ASSERT_EQ(Map->GetCount(), static_cast<Result>(model.size()));
        if (round < 100)
            ExpectDead(*enumerator);
        if (round % 1000 != 0)
            continue;
        std::vector<std::string> texts;
        for (const auto& entry : model)
            texts.push_back(Text(std::bit_cast<GUID>(entry.first)));
        ASSERT_EQ(KeysOf(*Map), texts);
    }
    EXPECT_EQ(Map->Clear(), S_OK);
    for (const auto& item : items)
        EXPECT_EQ(ReferencesOn(*item), 1u);
}

TEST_P(Dictionary, AnEnumeratorYieldsKeysAsReadOnlyValuesAndOutlivesItsDictionary)
{
    GUID key = GUID_Null;
    const auto item = Make<IValue>(CLSID_Value);
    FAILS(Walk<IEnumeratorGUID>(*Map)->GetCurrentGUID(&key), E_FAIL, "Enumerator at End");
    EXPECT_EQ(Map->SetValueGUID(KeyA, item.Get()), S_OK);
    FAILS(Map->GetValueGUID(Absent, IID_IValue, ObjectPtr<IValue>().PutVoid()), E_NOT_FOUND, "");
    const auto enumerator = Walk<IEnumerator>(*Map);
    const auto keys = As<IEnumeratorGUID>(*enumerator); // one position, whichever steps
    Map.Reset();
    ObjectPtr<IValue> value;
    EXPECT_EQ(keys->GetCurrentGUID(&key), S_OK);
    EXPECT_TRUE(SameGuid(key, KeyA)) << "before the first step";
    EXPECT_EQ(keys->MoveNext(), S_OK);
    EXPECT_EQ(enumerator->GetCurrent(IID_IValue, value.PutVoid()), S_OK);
    EXPECT_EQ(GetValueGUID(value.Get(), &key), S_OK);
    EXPECT_TRUE(SameGuid(key, KeyA));
    FAILS(SetValueGUID(value.Get(), Absent), E_ACCESSDENIED, "Value is Readonly");
    FAILS(keys->GetCurrentGUID(nullptr), E_POINTER, "pguid");
    ExpectEnd(*enumerator);
    FAILS(keys->GetCurrentGUID(&key), E_FAIL, "");
    EXPECT_EQ(ReferencesOn(*item), 2u) << "the enumerator keeps the entries";
}

// Any object is an item of a dictionary, and may call it when it is asked and when it dies.
TEST(Dictionaries, ShowLiveViewsThatRefuseEveryChange)
{
    for (const CLSID& clsid : Dictionaries)
    {
        const auto map = Make<IDictionaryGUID>(clsid);
        ObjectPtr<ICollectionGUID> keys;
        ObjectPtr<ICollection> values;
        EXPECT_EQ(map->GetKeys(keys.PutVoid()), S_OK);
        EXPECT_EQ(map->GetValues(values.PutVoid()), S_OK);
        int deaths = 0;
        int queries = 0;
        for (const GUID& key : {KeyA, KeyB, KeyB})
        {
            auto item = TestItem::New([&] { deaths += map->ContainsGUID(Absent) == S_FALSE; });
            item->OnQuery = [&]
            {
                queries += map->ContainsGUID(Absent) == S_FALSE;
            };
            EXPECT_EQ(map->SetValueGUID(key, item.Get()), S_OK);
        }
        EXPECT_EQ(KeysOf(*keys), (std::vector{Text(KeyA), Text(KeyB)}));
        FAILS(map->AddGUID(Absent), E_NOTIMPL, "AddGUID not supported by IDictionaryGUID");
        FAILS(keys->AddGUID(Absent), E_ACCESSDENIED, "Add() - Readonly collection");
        FAILS(keys->RemoveGUID(KeyA), E_ACCESSDENIED, "Remove() - Readonly collection");
        FAILS(values->Clear(), E_ACCESSDENIED, "Clear() - Readonly collection");
        FAILS(values->Contains(map.Get()), E_NOTIMPL, "Contains");
        FAILS(values->CopyTo(0, 0, IID_IUnknown, nullptr), E_NOTIMPL, "CopyTo");
        EXPECT_TRUE(values->GetCount() == 2 && keys->IsReadOnly() == 0);

        const auto dead = Walk<IEnumerator>(*values);
        void* out = nullptr;
        EXPECT_EQ(dead->GetCurrent(IID_IValue, &out), E_NOINTERFACE);
        EXPECT_EQ(map->GetValueGUID(KeyA, IID_IValue, &out), E_NOINTERFACE);
        EXPECT_EQ(queries, 2) << "each asked the dictionary";
        EXPECT_EQ(map->RemoveGUID(KeyA), S_OK);
        EXPECT_EQ(map->Clear(), S_OK);
        EXPECT_EQ(deaths, 3) << "each asked the dictionary";
        ExpectDead(*dead);
    }
}

TEST(ValueSets, CallTheirValuesWhileNobodyWaits)
{
    for (const CLSID& clsid : ValueSets)
    {
        TestValue value; // outlives the set
        const auto set = Make<IValueSet>(clsid);
        int calls = 0;
        value.OnCall = [&]
        {
            calls += set->RemoveGUID(Absent) == S_OK;
        };
        EXPECT_EQ(set->SetValueGUID(KeyA, &value), S_OK);
        GUID type = GUID_Null;
        EXPECT_EQ(set->GetDataType(KeyA, &type), S_OK);
        EXPECT_EQ(set->GetValueData(KeyA, type, nullptr, 0), 4);
        EXPECT_EQ(set->SetValueData(KeyA, type, &type, 4), S_OK);
        EXPECT_EQ(calls, 3);
    }
}

TEST(ValueSets, WriteInPlaceAndAFailedWriteLeavesNoTrace)
{
    for (const CLSID& clsid : ValueSets)
    {
        const auto set = Make<IValueSet>(clsid);
        GUID type = GUID_Null;
        std::int32_t number = 0;
        ObjectPtr<IValue> held;
        EXPECT_EQ(SetValueSINT32(set.Get(), KeyA, 7), S_OK);
        EXPECT_EQ(set->GetValueGUID(KeyA, IID_IValue, held.PutVoid()), S_OK);
        EXPECT_EQ(SetValueCharString(set.Get(), KeyA, "a longer text of some size"), S_OK);
        EXPECT_EQ(set->GetDataType(KeyA, &type), S_OK);
        EXPECT_TRUE(SameGuid(type, DATATYPE_CharString));
        EXPECT_EQ(SetValueSINT32(held.Get(), 8), S_OK);

        const auto enumerator = Walk<IEnumerator>(*set);
        for (const GUID& key : {KeyA, Absent})
            FAILS(set->SetValueData(key, type, &type, -4), E_INVALIDARG, "AllocBuffer(size)");
        FAILS(set->SetValueGUID(KeyA, TestItem::New().Get()), E_NOINTERFACE,
              "item-object must be IValue");
        FAILS(set->GetKeys(nullptr), E_NOTIMPL, "GetKeyCollection");
        FAILS(set->GetValues(nullptr), E_NOTIMPL, "GetValueCollection");
        const bool isLockable = SameGuid(clsid, CLSID_LockableValueSet);
        FAILS(set->AddGUID(KeyA), E_NOTIMPL,
              isLockable ? "AddGUID not supported by IValeSet"
                         : "AddGUID not supported by IValueSet");
        FAILS(As<IValue>(*set)->SetValue(type, &type, 4), E_NOT_SUPPORTED,
              "Call of IValueSet::IValue-Methode not supported");
        EXPECT_EQ(GetValueSINT32(set.Get(), KeyA, &number), S_OK);
        EXPECT_TRUE(number == 8 && set->GetCount() == 1);
        EXPECT_EQ(enumerator->MoveNext(), S_OK);
        EXPECT_EQ(SetValueSINT32(set.Get(), KeyA, 8), S_OK);
        ExpectDead(*enumerator);
    }
}

} // namespace
} // namespace Tavrik::Ossira
