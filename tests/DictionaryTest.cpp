// GUID dictionaries and value sets. What they share is tested on all six classes, through the
// dictionary's interface and with values as items, which both take.
#include "RandomProgram.h"

#include <algorithm>
#include <array>
#include <map>
#include <ranges>
#include <span>

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

using Dictionary = testing::TestWithParam<CLSID>;

INSTANTIATE_TEST_SUITE_P(Dictionaries, Dictionary, testing::ValuesIn(Dictionaries));
INSTANTIATE_TEST_SUITE_P(ValueSets, Dictionary, testing::ValuesIn(ValueSets));

using KeyBytes = std::array<unsigned char, sizeof(GUID)>;

// The keys are made by counting in different fields. A change that changes nothing ends the
// enumerator as well. One of the values is none of the runtime's, and asks the dictionary.
class DictionaryModel final : public CollectionModel<IDictionaryGUID>
{
public:
    explicit DictionaryModel(const CLSID& clsid) : CollectionModel(clsid, 3000)
    {
        mForeign.OnCall = [this]
        {
            EXPECT_EQ(mItems->ContainsGUID(Absent), S_FALSE);
        };
        Begin();
    }

    ~DictionaryModel() override
    {
        Renew();
        mWalk.Reset();
    }

    void Step() override
    {
        if (Below(3000) == 0)
            Renew();
        const bool grows = Grows();
        const std::uint32_t number = Below(grows && mModel.size() < 40 ? 80 : 6000);
        const auto low = static_cast<std::uint8_t>(number);
        const auto high = static_cast<std::uint8_t>(number >> 8);
        mKey = Below(2) == 0 ? GUID{number, 1, 0, {}} : GUID{0, 2, 0, {high, low}};
        if (const auto near = mModel.lower_bound(std::bit_cast<KeyBytes>(mKey));
            !grows && Below(4) != 0 && near != mModel.end())
            mKey = std::bit_cast<GUID>(near->first);
        const auto bytes = std::bit_cast<KeyBytes>(mKey);
        const char die = (grows ? "-=+++sss" : "-----=+s")[Below(8)];
        if (die == '-')
        {
            Expect([&] { return mItems->RemoveGUID(mKey); }, S_OK);
            mModel.erase(bytes);
        }
        else if (die == 's' && mSet) // into the value that is there, or into a new one
        {
            const auto datum = static_cast<std::int32_t>(Below(1000));
            ObjectPtr<IValue> written;
            Expect([&] { return SetValueSINT32(mSet.Get(), mKey, datum); }, S_OK);
            EXPECT_EQ(mSet->GetValueGUID(mKey, IID_IValue, written.PutVoid()), S_OK);
            mNumbers[mModel.try_emplace(bytes, written.Get()).first->second] = datum;
        }
        else if (die != '=')
        {
            const auto& item = mValues[Below(std::size(mValues))];
            Expect([&] { return mItems->SetValueGUID(mKey, item.Get()); }, S_OK);
            mModel[bytes] = item.Get();
        }
        GoOn(die != '=');
    }

    void Check() override
    {
        const auto found = mModel.find(std::bit_cast<KeyBytes>(mKey));
        const bool isHeld = found != mModel.end();
        ObjectPtr<IValue> got;
        EXPECT_EQ(mItems->GetValueGUID(mKey, IID_IValue, got.PutVoid()),
                  isHeld ? S_OK : E_NOT_FOUND);
        EXPECT_EQ(got.Get(), isHeld ? found->second : nullptr);
        EXPECT_EQ(mItems->ContainsGUID(mKey), isHeld ? S_OK : S_FALSE);
        EXPECT_EQ(mItems->GetCount(), static_cast<Result>(mModel.size()));
        if (mSet)
        {
            std::int32_t number = -1;
            GUID type = GUID_Null;
            EXPECT_EQ(GetValueSINT32(mSet.Get(), mKey, &number), isHeld ? S_OK : E_NOT_FOUND);
            EXPECT_EQ(number, isHeld ? mNumbers[found->second] : -1);
            EXPECT_EQ(mSet->GetDataType(mKey, &type), isHeld ? S_OK : E_NOT_FOUND);
            EXPECT_TRUE(SameGuid(type, isHeld ? DATATYPE_SINT32 : GUID_Null));
        }
        if (Below(mModel.size() + 1) > 4)
            return;
        std::vector<std::string> texts;
        for (const auto& entry : mModel)
            texts.push_back(Text(std::bit_cast<GUID>(entry.first)));
        EXPECT_EQ(KeysOf(*mItems), texts);
        EXPECT_EQ(mKeys ? KeysOf(*mKeys) : texts, texts);
        EXPECT_EQ(mShown ? mShown->GetCount() : mItems->GetCount(), mItems->GetCount());
    }

private:
    std::size_t Size() const override
    {
        return mModel.size();
    }

    bool IsAt(std::size_t at, IUnknown& item) const override
    {
        GUID key = GUID_Null;
        const auto value = As<IValue>(item);
        EXPECT_EQ(SetValueGUID(value.Get(), Absent), E_ACCESSDENIED);
        return GetValueGUID(value.Get(), &key) == S_OK &&
               std::bit_cast<KeyBytes>(key) ==
                   std::next(mModel.begin(), static_cast<std::ptrdiff_t>(at))->first;
    }

    void Begin()
    {
        BeginWalk();
        (void)mItems.QueryTo(mSet);
        EXPECT_EQ(mSet ? S_OK : mItems->GetKeys(mKeys.PutVoid()), S_OK);
        EXPECT_EQ(mSet ? S_OK : mItems->GetValues(mShown.PutVoid()), S_OK);
        for (const auto& value : mValues)
            EXPECT_EQ(SetValueSINT32(value.Get(), mNumbers[value.Get()] = 7), S_OK);
    }

    void Renew()
    {
        mKeys.Reset();
        mShown.Reset();
        mSet.Reset();
        Replace();
        for (std::size_t at = 1; at < std::size(mValues); ++at)
        {
            const auto isIt = [&](const auto& entry)
            {
                return entry.second == mValues[at].Get();
            };
            EXPECT_EQ(std::ranges::count_if(mModel, isIt) + 1, ReferencesOn(*mValues[at]));
        }
        mModel.clear();
        Begin();
    }

    ObjectPtr<IValueSet> mSet; // the same, where it is one
    ObjectPtr<ICollectionGUID> mKeys;
    ObjectPtr<ICollection> mShown;
    TestValue mForeign;
    const ObjectPtr<IValue> mValues[3] = {ObjectPtr<IValue>(&mForeign), Make<IValue>(CLSID_Value),
                                          Make<IValue>(CLSID_Value)};
    std::map<KeyBytes, IValue*> mModel;
    std::map<IValue*, std::int32_t> mNumbers;
    GUID mKey = GUID_Null;
};

TEST_P(Dictionary, FindsReplacesRemovesAndOrdersKeysLikeAMap)
{
    RunProgram<DictionaryModel>(15000, GetParam());
}

// Keys that count in some bits only, and keys that a sum of multiples of their halves cannot tell
// apart.
TEST(Dictionaries, TakeChosenKeysAsTheyTakeRandomOnesAndGiveBackWhatTheyNoLongerNeed)
{
    const auto map = Make<IDictionaryGUID>(CLSID_UnsafeDictionaryGUID);
    const auto item = Make<IValue>(CLSID_Value);
    const auto fill = [&](auto keyOf)
    {
        std::vector<GUID> keys;
        for (std::uint64_t at = 0; at < 10000; ++at)
            keys.push_back(std::bit_cast<GUID>(keyOf(at)));
        const std::int64_t before = LiveAllocations();
        for (const GUID& key : keys)
            EXPECT_EQ(map->SetValueGUID(key, item.Get()), S_OK);
        const std::int64_t taken = LiveAllocations() - before; // more where many keys meet
        for (const GUID& key : std::span(keys).subspan(3))
            EXPECT_EQ((FailingMemory(map->GetCount() % 2 * 9), map->RemoveGUID(key)), S_OK);
        EXPECT_LE(LiveAllocations() - before, 1);
        EXPECT_EQ(map->Clear(), S_OK);
        return taken;
    };
    std::mt19937_64 chance(3);
    const auto most = 2 * fill([&](std::uint64_t) { return std::array{chance(), chance()}; });
    std::vector<std::array<std::uint64_t, 2>> factors = {{1, 0 - 0x9E3779B97F4A7C15U},
                                                         {1, 0 - 0x94D049BB133111EBU}};
    for (const int shift : {0, 11, 32, 48})
        factors.insert(factors.end(),
                       {{std::uint64_t{1} << shift, 0}, {0, std::uint64_t{1} << shift}});
    for (const auto& f : factors)
        EXPECT_LE(fill([&](std::uint64_t at) { return std::array{at * f[0], at * f[1]}; }), most);
}

// Any object is an item of a dictionary, and may call it when it is asked and when it dies.
TEST(Dictionaries, ShowViewsThatRefuseEveryChangeAndCallTheirItemsWhileNobodyWaits)
{
    for (const CLSID& clsid : Dictionaries)
    {
        const auto map = Make<IDictionaryGUID>(clsid);
        ObjectPtr<ICollectionGUID> keys;
        ObjectPtr<ICollection> values;
        EXPECT_EQ(map->GetKeys(keys.PutVoid()) + map->GetValues(values.PutVoid()), S_OK);
        int calls = 0;
        const auto call = [&]
        {
            calls += map->ContainsGUID(Absent) == S_FALSE;
        };
        for (const GUID& key : {KeyA, KeyB, KeyB, Numbered(4), Numbered(5)})
        {
            const auto item = TestItem::New(call);
            item->OnQuery = [&, key]
            {
                const int before = calls;
                EXPECT_EQ(map->RemoveGUID(key), S_OK);
                EXPECT_EQ(calls, before) << "it lives while it is asked";
                call();
            };
            EXPECT_EQ(map->SetValueGUID(key, item.Get()), S_OK);
        }
        FAILS(map->AddGUID(Absent), E_NOTIMPL, "AddGUID not supported by IDictionaryGUID");
        FAILS(keys->AddGUID(Absent), E_ACCESSDENIED, "Add() - Readonly collection");
        FAILS(keys->RemoveGUID(KeyA), E_ACCESSDENIED, "Remove() - Readonly collection");
        FAILS(values->Clear(), E_ACCESSDENIED, "Clear() - Readonly collection");
        FAILS(values->Contains(map.Get()), E_NOTIMPL, "Contains");
        FAILS(values->CopyTo(0, 0, IID_IUnknown, nullptr), E_NOTIMPL, "CopyTo");
        EXPECT_EQ(keys->IsReadOnly() + map->IsReadOnly(), 0);

        const auto walk = Walk<IEnumerator>(*values);
        void* out = nullptr;
        EXPECT_EQ(walk->GetCurrent(IID_IValue, &out), E_NOINTERFACE);
        EXPECT_EQ(map->GetValueGUID(KeyB, IID_IValue, &out), E_NOINTERFACE);
        EXPECT_EQ(map->RemoveGUID(Numbered(4)) + map->Clear(), S_OK);
        EXPECT_EQ(calls, 7) << "one died early, two were asked, four died";
    }
}

TEST(ValueSets, AFailedWriteLeavesNoTrace)
{
    for (const CLSID& clsid : ValueSets)
    {
        const auto set = Make<IValueSet>(clsid);
        const GUID type = DATATYPE_SINT32;
        EXPECT_EQ(SetValueSINT32(set.Get(), KeyA, 7), S_OK);
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
        EXPECT_TRUE(set->GetValueData(KeyA, type, nullptr, 0) == 4 && set->GetCount() == 1 &&
                    enumerator->MoveNext() == S_OK);
    }
}

} // namespace
} // namespace Tavrik::Ossira
