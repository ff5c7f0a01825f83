// GUID dictionaries and value sets. What they share is tested on all six classes, through the
// dictionary's interface and with values as items, which both take.
#include "AnswerCheck.h"
#include "TestItem.h"
#include "TestTools.h"

#include <cstring>
#include <map>
#include <random>

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

struct Variant
{
    const char* Name;
    CLSID Clsid;
    const char* AddText;
};

constexpr Variant Variants[] = {
    {"DictionaryGUID", CLSID_DictionaryGUID, "AddGUID not supported by IDictionaryGUID"},
    {"LockableDictionaryGUID", CLSID_LockableDictionaryGUID,
     "AddGUID not supported by IDictionaryGUID"},
    {"UnsafeDictionaryGUID", CLSID_UnsafeDictionaryGUID,
     "AddGUID not supported by IDictionaryGUID"},
    {"ValueSet", CLSID_ValueSet, "AddGUID not supported by IValueSet"},
    {"LockableValueSet", CLSID_LockableValueSet, "AddGUID not supported by IValeSet"},
    {"UnsafeValueSet", CLSID_UnsafeValueSet, "AddGUID not supported by IValueSet"},
};

constexpr GUID KeyA = {0x00000100, 0, 0, {}};
constexpr GUID KeyB = {0x00000100, 0, 0, {0, 0, 0, 0, 0, 0, 0, 1}};
constexpr GUID KeyC = {0x00000001, 0, 0, {}}; // a greater first byte in memory
constexpr GUID Absent = {0x00000002, 0, 0, {}};

struct KeyOrder
{
    bool operator()(const GUID& a, const GUID& b) const
    {
        return std::memcmp(&a, &b, sizeof(GUID)) < 0;
    }
};

class Dictionary : public testing::TestWithParam<Variant>
{
protected:
    void Fill()
    {
        for (const GUID& key : {KeyB, KeyC, KeyA})
            EXPECT_EQ(Map->SetValueGUID(key, Item.Get()), S_OK);
    }

    template <class Interface>
    [[nodiscard]] ObjectPtr<Interface> Enumerate() const
    {
        ObjectPtr<Interface> enumerator;
        EXPECT_EQ(Map->GetEnumerator(Interface::Iid, enumerator.PutVoid()), S_OK);
        return enumerator;
    }

    ObjectPtr<IDictionaryGUID> Map = Make<IDictionaryGUID>(GetParam().Clsid);
    ObjectPtr<IValue> Item = Make<IValue>(CLSID_Value);
};

INSTANTIATE_TEST_SUITE_P(Each, Dictionary, testing::ValuesIn(Variants),
                         [](const auto& variant) { return variant.param.Name; });

// Random operations beside an ordered map, over keys that are made by counting in different fields
// and that grow to thousands and shrink again.
TEST_P(Dictionary, FindsReplacesRemovesAndOrdersKeysLikeAnOrderedMap)
{
    std::mt19937 random(33);
    const auto below = [&](std::uint32_t bound)
    {
        return static_cast<std::uint32_t>(random() % bound);
    };
    std::vector<ObjectPtr<IValue>> items;
    for (int i = 0; i < 4; ++i)
        items.push_back(Make<IValue>(CLSID_Value));
    std::map<GUID, IValue*, KeyOrder> model;
    const auto randomKey = [&](std::uint32_t span)
    {
        const std::uint32_t number = below(span);
        switch (below(3))
        {
        case 0:
            return GUID{number, 1, 0, {}};
        case 1:
            return GUID{0,
                        2,
                        0,
                        {0, 0, 0, 0, 0, 0, static_cast<std::uint8_t>(number >> 8),
                         static_cast<std::uint8_t>(number)}};
        default:
            return GUID{number * 2654435761u, static_cast<std::uint16_t>(number), 3, {}};
        }
    };
    for (int round = 0; round < 20000; ++round)
    {
        const GUID key = randomKey(round < 2000 ? 6 : 2000);
        const auto found = model.find(key);
        IValue* const item = items[below(4)].Get();
        // More is entered in the first half, more is removed in the second, nothing is entered in
        // the end, so that walks meet an order with holes.
        const std::uint32_t die = below(10);
        if (die < (round < 10000 ? 5u : round < 18000 ? 2u : 0u))
        {
            EXPECT_EQ(Map->SetValueGUID(key, item), S_OK);
            model[key] = item;
        }
        else if (die < 8)
        {
            ObjectPtr<IValue> got;
            EXPECT_EQ(Map->GetValueGUID(key, IID_IValue, got.PutVoid()),
                      found != model.end() ? S_OK : E_NOT_FOUND);
            EXPECT_EQ(got.Get(), found != model.end() ? found->second : nullptr);
            EXPECT_EQ(Map->ContainsGUID(key), found != model.end() ? S_OK : S_FALSE);
            if (round >= 10000)
            {
                EXPECT_EQ(Map->RemoveGUID(key), S_OK);
                model.erase(key);
            }
        }
        else
        {
            EXPECT_EQ(Map->RemoveGUID(key), S_OK);
            model.erase(key);
        }
        ASSERT_EQ(Map->GetCount(), static_cast<Result>(model.size()));
        if (round % 1000 != 0)
            continue;
        const auto enumerator = Enumerate<IEnumeratorGUID>();
        for (const auto& [expected, value] : model)
        {
            GUID walked = GUID_Null;
            ASSERT_EQ(enumerator->MoveNext(), S_OK);
            ASSERT_EQ(enumerator->GetCurrentGUID(&walked), S_OK);
            ASSERT_TRUE(SameGuid(walked, expected));
        }
        EXPECT_EQ(enumerator->MoveNext(), S_FALSE);
    }
    for (const auto& item : items)
    {
        const auto held =
            std::count_if(model.begin(), model.end(),
                          [&](const auto& entry) { return entry.second == item.Get(); });
        EXPECT_EQ(ReferencesOn(*item), static_cast<std::uint32_t>(1 + held));
    }
}

TEST_P(Dictionary, AnswersAbsentKeysQuietlyAndReportsMistakes)
{
    Fill();
    ObjectPtr<IUnknown> out;
    const auto enumerator = Enumerate<IEnumerator>();
    AnswerCheck check;
    check(Map->GetValueGUID(Absent, IID_IValue, out.PutVoid()), E_NOT_FOUND);
    check(Map->GetValueGUID(KeyA, IID_IList, out.PutVoid()), E_NOINTERFACE);
    check(Map->ContainsGUID(Absent), S_FALSE);
    check(Map->IsReadOnly(), 0);
    check(Map->GetValueGUID(KeyA, IID_IValue, nullptr), E_POINTER, " ppv:");
    check(Map->GetEnumerator(IID_IEnumerator, nullptr), E_POINTER, " ppv:");
    check(Map->SetValueGUID(KeyA, nullptr), E_POINTER, " value:");
    check(Map->AddGUID(Absent), E_NOTIMPL, GetParam().AddText);
    check(enumerator->Reset(), S_OK);
    EXPECT_EQ(Map->GetCount(), 3);
}

TEST_P(Dictionary, AnEnumeratorDiesAtEveryChangeEvenOneThatChangesNothing)
{
    Fill();
    const auto expectDeath = [&](const std::function<Result()>& change)
    {
        constexpr const char* text = "List was modified, the enumerator is invalid now";
        const auto objects = Enumerate<IEnumerator>();
        const auto keys = Enumerate<IEnumeratorGUID>();
        ASSERT_EQ(change(), S_OK);
        AnswerCheck check;
        check(objects->MoveNext(), E_ACCESSDENIED, text);
        check(objects->GetCurrent(IID_IValue, nullptr), E_ACCESSDENIED, text);
        check(keys->Reset(), E_ACCESSDENIED, text);
        check(keys->GetCurrentGUID(nullptr), E_ACCESSDENIED, text);
    };
    expectDeath([&] { return Map->SetValueGUID(KeyA, Item.Get()); }); // the same object again
    expectDeath([&] { return Map->SetValueGUID(Absent, Item.Get()); });
    expectDeath([&] { return Map->RemoveGUID(KeyA); });
    expectDeath([&] { return Map->RemoveGUID(KeyA); }); // absent by now
    expectDeath([&] { return Map->Clear(); });
    expectDeath([&] { return Map->Clear(); }); // of nothing
}

TEST_P(Dictionary, AnEnumeratorYieldsKeysInTheOrderOfTheirBytesAndOutlivesItsDictionary)
{
    Fill();
    const auto enumerator = Enumerate<IEnumerator>();
    ObjectPtr<IEnumeratorGUID> keys;
    ASSERT_EQ(enumerator.QueryTo(keys), S_OK);
    Map.Reset();
    GUID key = GUID_Null;
    ObjectPtr<IValue> value;
    AnswerCheck check;
    check(keys->GetCurrentGUID(&key), S_OK); // before the first step
    EXPECT_TRUE(SameGuid(key, KeyA));
    for (int walk = 0; walk < 2; ++walk)
    {
        for (const GUID& expected : {KeyA, KeyB, KeyC})
        {
            // One position, whichever interface steps.
            check(walk == 0 ? enumerator->MoveNext() : keys->MoveNext(), S_OK);
            check(keys->GetCurrentGUID(&key), S_OK);
            EXPECT_TRUE(SameGuid(key, expected));
            check(enumerator->GetCurrent(IID_IValue, value.PutVoid()), S_OK);
            check(GetValueGUID(value.Get(), &key), S_OK);
            EXPECT_TRUE(SameGuid(key, expected));
            check(SetValueGUID(value.Get(), Absent), E_ACCESSDENIED, "Value is Readonly");
            check(enumerator->GetCurrent(IID_IList, value.PutVoid()), E_NOINTERFACE);
        }
        check(keys->GetCurrentGUID(nullptr), E_POINTER, "pguid");
        check(keys->MoveNext(), S_FALSE);
        check(enumerator->MoveNext(), E_FAIL);
        check(keys->GetCurrentGUID(&key), E_FAIL);
        check(enumerator->GetCurrent(IID_IValue, value.PutVoid()), E_FAIL);
        check(enumerator->Reset(), S_OK);
    }
    EXPECT_EQ(ReferencesOn(*Item), 4u) << "the enumerator keeps the entries";
}

class ValueSet : public testing::TestWithParam<CLSID>
{
protected:
    // Data of one number, read back by datatype.
    [[nodiscard]] Result Write(const GUID& key, std::int32_t number)
    {
        return Set->SetValueData(key, DATATYPE_SINT32, &number, 4);
    }

    [[nodiscard]] std::int32_t Read(const GUID& key)
    {
        std::int32_t number = 0;
        EXPECT_EQ(Set->GetValueData(key, DATATYPE_SINT32, &number, 4), 4);
        return number;
    }

    ObjectPtr<IValueSet> Set = Make<IValueSet>(GetParam());
};

INSTANTIATE_TEST_SUITE_P(Each, ValueSet,
                         testing::Values(CLSID_ValueSet, CLSID_LockableValueSet,
                                         CLSID_UnsafeValueSet),
                         [](const auto& variant) { return std::to_string(variant.index); });

TEST_P(ValueSet, WritesInPlaceSoThatWhoeverHoldsTheValueSeesIt)
{
    EXPECT_EQ(Write(KeyA, 7), S_OK);
    EXPECT_EQ(Read(KeyA), 7);
    EXPECT_EQ(Set->GetValueData(KeyA, DATATYPE_SINT32, nullptr, 0), 4);
    ObjectPtr<IValue> held;
    ASSERT_EQ(Set->GetValueGUID(KeyA, IID_IValue, held.PutVoid()), S_OK);
    EXPECT_EQ(Set->SetValueData(KeyA, DATATYPE_CharString, "a longer text of some size", 26), S_OK);
    std::string text;
    EXPECT_EQ(GetValueCharString(held.Get(), &text), S_OK);
    EXPECT_EQ(text, "a longer text of some size");
    GUID type = GUID_Null;
    EXPECT_EQ(Set->GetDataType(KeyA, &type), S_OK);
    EXPECT_TRUE(SameGuid(type, DATATYPE_CharString));

    EXPECT_EQ(SetValueSINT32(held.Get(), 8), S_OK);
    EXPECT_EQ(Read(KeyA), 8);
    EXPECT_EQ(Set->GetCount(), 1);
}

TEST_P(ValueSet, AFailedWriteLeavesNoKeyBehindAndEnumeratorsAlive)
{
    EXPECT_EQ(Write(KeyA, 7), S_OK);
    ObjectPtr<IEnumerator> enumerator;
    ASSERT_EQ(Set->GetEnumerator(IID_IEnumerator, enumerator.PutVoid()), S_OK);
    for (const GUID& key : {KeyA, Absent})
    {
        EXPECT_EQ(Set->SetValueData(key, DATATYPE_SINT32, "xxxx", -4), E_INVALIDARG);
        EXPECT_EQ(Set->SetValueData(key, DATATYPE_SINT32, nullptr, 4), E_POINTER);
    }
    EXPECT_EQ(Set->GetCount(), 1);
    EXPECT_EQ(Read(KeyA), 7);
    EXPECT_EQ(enumerator->MoveNext(), S_OK);
    EXPECT_EQ(Write(KeyA, 7), S_OK);
    EXPECT_EQ(enumerator->MoveNext(), E_ACCESSDENIED) << "a write that succeeds ends them";
}

TEST_P(ValueSet, TakesOnlyWhatIsAValueAndOffersNoViews)
{
    const auto item = TestItem::New();
    void* out = nullptr;
    std::int32_t number = 0;
    ObjectPtr<IValue> value;
    AnswerCheck check;
    check(Set->GetValueData(Absent, DATATYPE_SINT32, &number, 4), E_NOT_FOUND);
    check(Set->GetDataType(Absent, nullptr), E_NOT_FOUND);
    check(Write(KeyA, 7), S_OK);
    check(Set->GetValueData(KeyA, DATATYPE_GUID, nullptr, 0), E_INVALIDARG);
    check(Set->SetValueGUID(KeyA, item.Get()), E_NOINTERFACE, "item-object must be IValue");
    check(Set->GetKeys(&out), E_NOTIMPL, "GetKeyCollection");
    check(Set->GetValues(&out), E_NOTIMPL, "GetValueCollection");
    check(Set.QueryTo(value), S_OK);
    check(value->SetValue(DATATYPE_SINT32, &number, 4), E_NOT_SUPPORTED,
          "Call of IValueSet::IValue-Methode not supported");
    EXPECT_EQ(Read(KeyA), 7);
}

} // namespace
} // namespace Tavrik::Ossira
