// The node lists. Every case runs on the plain, the lockable and the unsafe list.
#include "AnswerCheck.h"
#include "TestItem.h"
#include "TestTools.h"

#include <algorithm>
#include <random>

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

class NodeList : public testing::TestWithParam<CLSID>
{
protected:
    // A list of new items, each of which the test holds as well.
    void Fill(std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i)
        {
            Items.push_back(TestItem::New());
            EXPECT_EQ(List->Add(Items.back().Get()), S_OK);
        }
    }

    [[nodiscard]] ObjectPtr<IEnumerator> Enumerate() const
    {
        ObjectPtr<IEnumerator> enumerator;
        EXPECT_EQ(List->GetEnumerator(IID_IEnumerator, enumerator.PutVoid()), S_OK);
        return enumerator;
    }

    [[nodiscard]] std::vector<IUnknown*> Walk() const
    {
        std::vector<IUnknown*> walked;
        const auto enumerator = Enumerate();
        Result step;
        for (step = enumerator->MoveNext(); step == S_OK; step = enumerator->MoveNext())
        {
            ObjectPtr<IUnknown> item;
            EXPECT_EQ(enumerator->GetCurrent(IID_IUnknown, item.PutVoid()), S_OK);
            walked.push_back(item.Get());
        }
        EXPECT_EQ(step, S_FALSE);
        return walked;
    }

    ObjectPtr<IList> List = Make<IList>(GetParam());
    std::vector<ObjectPtr<TestItem>> Items;
};

INSTANTIATE_TEST_SUITE_P(Each, NodeList,
                         testing::Values(CLSID_NodeList, CLSID_LockableNodeList,
                                         CLSID_UnsafeNodeList),
                         [](const auto& variant) { return std::to_string(variant.index); });

// Some thousand random operations, beside a vector that says what must come of them.
TEST_P(NodeList, KeepsItemsInTheirPlacesAndCountsReferences)
{
    const ObserverMaskScope quiet(0);
    std::mt19937 random(20);
    const auto below = [&](std::size_t bound) -> std::size_t
    {
        return random() % bound;
    };
    for (int i = 0; i < 5; ++i)
        Items.push_back(TestItem::New());
    std::vector<IUnknown*> model;
    for (int round = 0; round < 3000; ++round)
    {
        const std::size_t at = below(model.size() + 1);
        const auto index = static_cast<std::int32_t>(at);
        const auto place = model.begin() + index;
        const bool inside = at < model.size();
        IUnknown* const item = Items[below(Items.size())].Get();
        const auto found = std::find(model.begin(), model.end(), item);
        const Result expected = inside ? S_OK : E_INVALIDARG;
        switch (below(8))
        {
        case 0:
            EXPECT_EQ(List->Add(item), S_OK);
            model.push_back(item);
            break;
        case 1:
        case 2:
            EXPECT_EQ(List->Insert(index, item), S_OK);
            model.insert(place, item);
            break;
        case 3:
            EXPECT_EQ(List->RemoveAt(index), expected);
            if (inside)
                model.erase(place);
            break;
        case 4:
            EXPECT_EQ(List->Remove(item), found != model.end() ? S_OK : E_INVALIDARG);
            if (found != model.end())
                model.erase(found);
            break;
        case 5:
            EXPECT_EQ(List->SetItemAt(index, item), expected);
            if (inside)
                *place = item;
            break;
        case 6:
            EXPECT_EQ(List->Contains(item), found != model.end() ? S_OK : S_FALSE);
            EXPECT_EQ(List->IndexOf(item), found != model.end()
                                               ? static_cast<Result>(found - model.begin())
                                               : E_NOT_FOUND);
            break;
        default:
            ObjectPtr<IUnknown> got;
            EXPECT_EQ(List->GetItemAt(index, IID_IUnknown, got.PutVoid()), expected);
            EXPECT_EQ(got.Get(), inside ? *place : nullptr);
        }
        ASSERT_EQ(List->GetCount(), static_cast<Result>(model.size()));
        if (round % 100 == 0)
        {
            ASSERT_EQ(Walk(), model);
            for (const auto& held : Items)
                ASSERT_EQ(ReferencesOn(*held),
                          1 + std::count(model.begin(), model.end(), held.Get()));
        }
    }
    EXPECT_EQ(List->Clear(), S_OK);
    EXPECT_EQ(List->GetCount(), 0);
    for (const auto& held : Items)
        EXPECT_EQ(ReferencesOn(*held), 1u);
}

TEST_P(NodeList, RefusesWrongArgumentsWithItsTextAndStaysAsItWas)
{
    constexpr const char* index = "Invalid Index param";
    constexpr const char* range = "Invalid Index or Count param";
    Fill(3);
    const auto stranger = TestItem::New();
    IUnknown* const item = stranger.Get();
    ObjectPtr<IUnknown> out;
    void** targets[] = {out.PutVoid(), nullptr};
    const auto before = Walk();
    const auto enumerator = Enumerate();
    AnswerCheck check;
    check(List->Add(nullptr), E_POINTER, " _item:");
    check(List->Remove(nullptr), E_POINTER, " _item:");
    check(List->Contains(nullptr), E_POINTER, " _item:");
    check(List->IndexOf(nullptr), E_POINTER, " _item:");
    check(List->Insert(0, nullptr), E_POINTER, " _item:");
    check(List->SetItemAt(0, nullptr), E_POINTER, " _item:");
    check(List->GetEnumerator(IID_IEnumerator, nullptr), E_POINTER, " ppv:");
    check(List->GetItemAt(9, IID_IUnknown, nullptr), E_POINTER, " ppv:");
    check(List->CopyTo(9, 9, IID_IUnknown, nullptr), E_POINTER, " pppv:");
    check(List->CopyTo(0, 2, IID_IUnknown, targets), E_POINTER, " pppv[i]:");
    check(List->Insert(4, item), E_INVALIDARG, index);
    check(List->Insert(-1, item), E_INVALIDARG, index);
    check(List->SetItemAt(3, item), E_INVALIDARG, index);
    check(List->SetItemAt(INT32_MIN, item), E_INVALIDARG, index);
    check(List->RemoveAt(3), E_INVALIDARG, index);
    check(List->RemoveAt(-1), E_INVALIDARG, index);
    check(List->GetItemAt(INT32_MAX, IID_IUnknown, out.PutVoid()), E_INVALIDARG, index);
    check(List->GetItemAt(0, IID_IValue, out.PutVoid()), E_NOINTERFACE,
          "Item->QueryInterface(riid, ppv)");
    check(List->CopyTo(2, 2, IID_IUnknown, targets), E_INVALIDARG, range);
    check(List->CopyTo(-1, 1, IID_IUnknown, targets), E_INVALIDARG, range);
    check(List->CopyTo(0, -1, IID_IUnknown, targets), E_INVALIDARG, range);
    check(List->CopyTo(2, INT32_MAX, IID_IUnknown, targets), E_INVALIDARG, range);
    check(List->CopyTo(INT32_MAX, 1, IID_IUnknown, targets), E_INVALIDARG, range);
    check(List->CopyTo(3, 0, IID_IUnknown, targets), S_OK);
    check(List->Remove(item), E_INVALIDARG, "item not member of this list");
    check(List->IndexOf(item), E_NOT_FOUND);
    check(enumerator->Reset(), S_OK);
    EXPECT_EQ(Walk(), before);
    EXPECT_EQ(ReferencesOn(*item), 1u);
}

TEST_P(NodeList, KnowsAnItemByItsIdentityWhateverItsInterface)
{
    const auto value = Make<IValue>(CLSID_Value);
    ObjectPtr<IComparable> comparable;
    ASSERT_EQ(value.QueryTo(comparable), S_OK);
    EXPECT_EQ(List->Add(value.Get()), S_OK);
    EXPECT_EQ(List->Contains(comparable.Get()), S_OK);
    EXPECT_EQ(List->IndexOf(comparable.Get()), 0);
    EXPECT_EQ(List->Remove(comparable.Get()), S_OK);
    EXPECT_EQ(List->GetCount(), 0);
}

TEST_P(NodeList, AnEnumeratorDiesAtTheFirstStructuralChange)
{
    Fill(3);
    const auto expectDeath = [&](const std::function<Result()>& change)
    {
        constexpr const char* text = "List was modified, the enumerator is invalid now";
        const auto enumerator = Enumerate();
        EXPECT_EQ(enumerator->MoveNext(), List->GetCount() > 0 ? S_OK : S_FALSE);
        ASSERT_EQ(change(), S_OK);
        AnswerCheck check;
        check(enumerator->MoveNext(), E_ACCESSDENIED, text);
        check(enumerator->Reset(), E_ACCESSDENIED, text);
        check(enumerator->GetCurrent(IID_IUnknown, nullptr), E_ACCESSDENIED, text);
    };
    expectDeath([&] { return List->Add(Items[0].Get()); });
    expectDeath([&] { return List->Insert(0, Items[1].Get()); });
    expectDeath([&] { return List->RemoveAt(0); });
    expectDeath([&] { return List->Remove(Items[0].Get()); });
    expectDeath([&] { return List->Clear(); });
    expectDeath([&] { return List->Clear(); }); // of an empty list
}

TEST_P(NodeList, AnEnumeratorOutlivesItsListAndMeetsReplacedItems)
{
    Fill(2);
    const auto enumerator = Enumerate();
    const auto other = TestItem::New();
    ObjectPtr<IUnknown> item;
    AnswerCheck check;
    check(enumerator->GetCurrent(IID_IUnknown, item.PutVoid()), S_OK); // before the first step
    EXPECT_EQ(item.Get(), Items[0].Get());
    check(List->SetItemAt(0, other.Get()), S_OK);
    List.Reset();
    for (int walk = 0; walk < 2; ++walk)
    {
        check(enumerator->MoveNext(), S_OK);
        check(enumerator->GetCurrent(IID_IUnknown, item.PutVoid()), S_OK);
        EXPECT_EQ(item.Get(), other.Get());
        check(enumerator->GetCurrent(IID_IValue, item.PutVoid()), E_NOINTERFACE);
        check(enumerator->GetCurrent(IID_IUnknown, nullptr), E_POINTER, "ppv");
        check(enumerator->MoveNext(), S_OK);
        check(enumerator->MoveNext(), S_FALSE);
        check(enumerator->MoveNext(), E_FAIL);
        check(enumerator->GetCurrent(IID_IUnknown, item.PutVoid()), E_FAIL);
        check(enumerator->Reset(), S_OK);
    }
}

} // namespace
} // namespace Tavrik::Ossira
