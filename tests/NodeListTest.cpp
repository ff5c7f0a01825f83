// The node lists. Every case runs on the plain, the lockable and the unsafe list.
#include "OssiraValueSetGroup.h"
#include "ServiceTools.h"
#include "TestItem.h"

#include <algorithm>
#include <set>

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

using Values = ObjectPtr<IValueSet>;

class NodeList : public testing::TestWithParam<CLSID>
{
protected:
    ObjectPtr<IList> List = Make<IList>(GetParam());
};

INSTANTIATE_TEST_SUITE_P(Each, NodeList,
                         testing::Values(CLSID_NodeList, CLSID_LockableNodeList,
                                         CLSID_UnsafeNodeList));

// Every item asks the list when it is asked and when it dies; every structural change ends the
// enumerator before it.
TEST_P(NodeList, KeepsFindsAndGivesBackItemsLikeAVector)
{
    std::mt19937 random(20);
    std::vector<IUnknown*> model;
    std::size_t alive = 0;
    const auto onDeath = [&]
    {
        --alive;
        EXPECT_EQ(List->Contains(List.Get()), S_FALSE);
    };
    for (int round = 0; round < 1000; ++round)
    {
        auto item = TestItem::New(onDeath);
        item->OnQuery = [&]
        {
            EXPECT_NE(List->IndexOf(List.Get()), S_OK);
        };
        ++alive;
        if (!model.empty() && Below(random, 2) == 0)
            item = ObjectPtr(static_cast<TestItem*>(model[Below(random, model.size())]));
        const auto index = static_cast<std::int32_t>(Below(random, model.size() + 1));
        const auto place = model.begin() + index;
        const auto found = std::find(model.begin(), model.end(), item.Get());
        const bool isHeld = found != model.end();
        ASSERT_EQ(List->Contains(item.Get()), isHeld ? S_OK : S_FALSE);
        ASSERT_EQ(List->IndexOf(item.Get()), isHeld ? found - model.begin() : E_NOT_FOUND);
        const auto enumerator = Walk<IEnumerator>(*List);
        const auto check = [&](Result answer, auto change, bool ends = true)
        {
            ASSERT_EQ(answer, S_OK);
            change();
            if (ends)
                ExpectDead(*enumerator);
        };
        IUnknown* const i = item.Get();
        const std::uint32_t die = Below(random, 26);
        if (die == 25)
            check(List->Clear(), [&] { model.clear(); });
        else if (die < 5)
            check(List->Add(i), [&] { model.push_back(i); });
        else if (die < 10)
            check(List->Insert(index, i), [&] { model.insert(place, i); });
        else if (die < 15 && isHeld)
            check(List->Remove(i), [&] { model.erase(found); });
        else if (die < 20 && place != model.end())
            check(List->RemoveAt(index), [&] { model.erase(place); });
        else if (place != model.end())
            check(
                List->SetItemAt(index, i), [&] { *place = i; }, false);
        item.Reset();
        ASSERT_EQ(List->GetCount(), static_cast<Result>(model.size()));
        ASSERT_EQ(alive, std::set(model.begin(), model.end()).size());
        // What a walk meets, and what a copy yields.
        const auto walk = Walk<IEnumerator>(*List);
        std::vector<ObjectPtr<IUnknown>> copies(model.size());
        std::vector<void**> targets = {nullptr};
        for (std::size_t at = copies.size(); at-- > 0;)
            targets.insert(targets.begin(), copies[at].PutVoid());
        ASSERT_EQ(List->CopyTo(0, List->GetCount(), IID_IUnknown, targets.data()), S_OK);
        for (std::size_t at = 0; at < model.size(); ++at)
        {
            ObjectPtr<IUnknown> current;
            ASSERT_EQ(walk->MoveNext(), S_OK);
            ASSERT_EQ(at % 2 == 0 ? walk->GetCurrent(IID_IUnknown, current.PutVoid())
                                  : List->GetItemAt(static_cast<std::int32_t>(at), IID_IUnknown,
                                                    current.PutVoid()),
                      S_OK);
            ASSERT_TRUE(current.Get() == model[at] && copies[at].Get() == model[at]) << at;
        }
        ASSERT_EQ(walk->MoveNext(), S_FALSE);
    }
    EXPECT_EQ(List->Clear(), S_OK);
    EXPECT_EQ(alive, 0u);
}

TEST_P(NodeList, RefusesMistakesWithTheirTextAndStandsWhereAValueIsExpected)
{
    IList& l = *List;
    const auto item = TestItem::New();
    EXPECT_EQ(l.Add(item.Get()), S_OK);
    ObjectPtr<IUnknown> out;
    void** targets[] = {out.PutVoid(), nullptr};
    const char* const range = "Invalid Index or Count param";
    FAILS(l.GetItemAt(0, IID_IUnknown, out.PutVoid()), S_OK, "");
    EXPECT_EQ(out.Get(), item.Get());
    FAILS(l.Insert(2, item.Get()), E_INVALIDARG, "Invalid Index param");
    for (const std::int32_t index : {-1, 1, INT32_MIN, INT32_MAX})
    {
        FAILS(l.SetItemAt(index, item.Get()), E_INVALIDARG, "Invalid Index param");
        FAILS(l.RemoveAt(index), E_INVALIDARG, "Invalid Index param");
        FAILS(l.CopyTo(index, 1, IID_IUnknown, targets), E_INVALIDARG, range);
        FAILS(l.CopyTo(1, index, IID_IUnknown, targets), E_INVALIDARG, range);
    }
    FAILS(l.GetItemAt(0, IID_IValue, out.PutVoid()), E_NOINTERFACE,
          "Item->QueryInterface(riid, ppv)");
    FAILS(l.Remove(&l), E_INVALIDARG, "item not member of this list");

    // It can stand where a value is expected; an item is known by its identity.
    const auto value = As<IValue>(l);
    FAILS(value->SetValue(GUID_Null, nullptr, 0), E_NOT_SUPPORTED,
          "Call of NodeList::IValue-Methode not supported");
    const auto other = Make<IList>(GetParam());
    EXPECT_EQ(other->Add(value.Get()), S_OK);
    EXPECT_EQ(other->IndexOf(&l), 0);
}

TEST_P(NodeList, ACopyClearsEveryTargetBeforeItFillsOneAndKeepsWhatItFilled)
{
    const auto value = Make<IValue>(CLSID_Value);
    EXPECT_EQ(List->Add(value.Get()) + List->Add(TestItem::New().Get()), S_OK);
    void* const former = this;
    void* copies[] = {former, former, former};
    void** targets[] = {&copies[0], &copies[1], &copies[2]};
    FAILS(List->CopyTo(0, 2, IID_IValue, targets), E_NOINTERFACE, "QueryInterface(riid, pppv[i])");
    EXPECT_EQ(ReferencesOn(*ObjectPtr<IValue>::Adopt(static_cast<IValue*>(copies[0]))), 3u);
    EXPECT_TRUE(copies[1] == nullptr && copies[2] == former) << "nothing beyond the range";
}

// Each holds the one before. Released by nested calls, far fewer use up a thread's stack.
TEST(Collections, NestedToAnyDepthAreReleasedOneAfterAnother)
{
    int alive = 1;
    ObjectPtr<IUnknown> nest(TestItem::New([&] { --alive; }).Get());
    for (std::uint32_t depth = 0; depth < 30000; ++depth)
    {
        const auto list = Make<IList>(depth % 2 == 0 ? CLSID_NodeList : CLSID_LockableNodeList);
        const auto map = Make<IDictionaryGUID>(CLSID_DictionaryGUID);
        const auto set = Make<IValueSet>(CLSID_ValueSet);
        const auto group = Make<IValueSetGroup>(CLSID_ValueSetGroup);
        Values view;
        EXPECT_EQ(map->SetValueGUID(Numbered(1), nest.Get()), S_OK);
        EXPECT_EQ(list->Add(map.Get()), S_OK);
        EXPECT_EQ(set->SetValueGUID(Numbered(1), list.Get()), S_OK);
        EXPECT_EQ(group->InsertValueSet(-1, set.Get(), nullptr, 0), S_OK);
        EXPECT_EQ(group->GetValueSet(view.Put()), S_OK);
        nest = ObjectPtr<IUnknown>(view.Get());
    }
    nest.Reset();
    EXPECT_EQ(alive, 0) << "before the outermost release returns";
}

TEST_P(NodeList, AnEnumeratorOutlivesItsListAndMeetsReplacedItems)
{
    void* out = nullptr;
    FAILS(Walk<IEnumerator>(*List)->GetCurrent(IID_IUnknown, &out), E_FAIL, "Enumerator at End");
    const auto value = Make<IValue>(CLSID_Value);
    EXPECT_EQ(List->Add(TestItem::New().Get()), S_OK);
    const auto enumerator = Walk<IEnumerator>(*List);
    EXPECT_EQ(List->SetItemAt(0, value.Get()), S_OK);
    List.Reset();
    ObjectPtr<IValue> current;
    EXPECT_EQ(enumerator->GetCurrent(IID_IValue, current.PutVoid()), S_OK);
    EXPECT_EQ(current.Get(), value.Get()) << "before the first step";
    EXPECT_EQ(enumerator->MoveNext(), S_OK);
    FAILS(enumerator->GetCurrent(IID_IList, &out), E_NOINTERFACE, "");
    ExpectEnd(*enumerator);
}

} // namespace
} // namespace Tavrik::Ossira
