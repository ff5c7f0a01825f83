// The node lists. Every case runs on the plain, the lockable and the unsafe list.
#include "OssiraValueSetGroup.h"
#include "RandomProgram.h"
#include "TestItem.h"

#include <algorithm>
#include <ranges>
#include <span>

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

// Every item asks the list when it is asked and when it dies. The list grows to more than one of
// its blocks, and shrinks again.
class ListModel final : public RandomModel
{
public:
    explicit ListModel(const CLSID& clsid) : mClass(clsid)
    {
    }

    ~ListModel() override
    {
        Replace();
        mWalk = {};
        EXPECT_EQ(mAlive, 0u);
    }

    void Step() override
    {
        if (Below(3000) == 0)
            Replace();
        const auto size = static_cast<std::ptrdiff_t>(mItems.size());
        if (size == mGoal)
            mGoal = Below(1000) == 0 ? 4300 : Below(50);
        const ObjectPtr<TestItem> held = AnyItem();
        IUnknown* const item = held.Get();
        const auto index = static_cast<std::int32_t>(Below(mItems.size() + 3)) - 1;
        const auto at = std::ranges::find(mItems, item) - mItems.begin();
        if (Below(mItems.size() + 1) < 8) // they take long
        {
            EXPECT_EQ(mList->Contains(item), at < size ? S_OK : S_FALSE);
            EXPECT_EQ(mList->IndexOf(item), at < size ? at : E_NOT_FOUND);
        }
        constexpr std::ptrdiff_t nowhere = -2;
        struct
        {
            std::ptrdiff_t Taken, Put; // the indices at which something goes and comes
            std::function<Result()> Call;
        } const operations[] = {
            {nowhere, size,
             [&]
             {
                 return mList->Add(item);
             }},
            {nowhere, index,
             [&]
             {
                 return mList->Insert(index, item);
             }},
            {index, index,
             [&]
             {
                 return mList->SetItemAt(index, item);
             }},
            {at, nowhere,
             [&]
             {
                 return mList->Remove(item);
             }},
            {index, nowhere,
             [&]
             {
                 return mList->RemoveAt(index);
             }},
        };
        const char* const dice = size < mGoal ? "000011124" : "133444442";
        const auto& [taken, put, call] = operations[dice[Below(9)] - '0'];
        const bool isRight =
            taken == nowhere ? put >= 0 && put <= size : taken >= 0 && taken < size;
        EXPECT_EQ(Answer(call), isRight ? S_OK : E_INVALIDARG);
        if (isRight && taken != nowhere)
            mItems.erase(mItems.begin() + taken);
        if (isRight && put != nowhere)
            mItems.insert(mItems.begin() + put, item);
        if (isRight && taken != put)
            mWalk.End();
        if (Below(4) == 0)
            mWalk.Begin(Walk<IEnumerator>(*mList));
        for (std::uint32_t count = Below(8); count > 0; --count)
            StepWalk(Below(5));
    }

    void Check() override
    {
        EXPECT_EQ(mList->GetCount(), static_cast<Result>(mItems.size()));
        if (Below(mItems.size() + 1) > 8)
            return;
        const std::size_t first = Below(mItems.size() + 1),
                          count = Below(mItems.size() - first + 1);
        std::vector<ObjectPtr<IUnknown>> copies(count);
        std::vector<void**> targets(count + 1);
        std::ranges::transform(copies, targets.begin(), [](auto& copy) { return copy.PutVoid(); });
        EXPECT_EQ(mList->CopyTo(static_cast<std::int32_t>(first), static_cast<std::int32_t>(count),
                                IID_IUnknown, targets.data()),
                  S_OK);
        EXPECT_TRUE(std::ranges::equal(copies, std::span(mItems).subspan(first, count), {},
                                       &ObjectPtr<IUnknown>::Get));
        copies.clear();
        for (std::size_t at = 0; at < mItems.size(); ++at)
        {
            ObjectPtr<IUnknown> item;
            const auto index = static_cast<std::int32_t>(at);
            EXPECT_EQ(mList->GetItemAt(index, IID_IUnknown, item.PutVoid()), S_OK);
            EXPECT_EQ(item.Get(), mItems[at]) << at;
        }
    }

private:
    ObjectPtr<TestItem> AnyItem()
    {
        if (!mItems.empty() && Below(2) == 0)
            return ObjectPtr(static_cast<TestItem*>(mItems[Below(mItems.size())]));
        const auto askList = [this]
        {
            EXPECT_TRUE(Below(mItems.size() + 1) > 8 || mList->Contains(mList.Get()) == S_FALSE);
        };
        auto item = TestItem::New([=, this] { --mAlive, askList(); });
        item->OnQuery = askList;
        ++mAlive;
        return item;
    }

    void StepWalk(std::uint32_t which)
    {
        mWalk.Step(which, mItems.size(),
                   [this](std::size_t at, IUnknown& item) { return &item == mItems[at]; });
    }

    // An enumerator outlives its list. The items are held by the list, and by nobody else.
    void Replace()
    {
        mWalk.Begin(Walk<IEnumerator>(*mList));
        mList = Make<IList>(mClass);
        for (std::uint32_t step = 0; step < 100; ++step)
            StepWalk(1 + step % 2 * 2);
        for (IUnknown* const item : mItems | std::views::take(100))
            EXPECT_EQ(ReferencesOn(*item),
                      static_cast<std::uint32_t>(std::ranges::count(mItems, item)));
        mItems.clear();
        mWalk.Begin(Walk<IEnumerator>(*mList));
    }

    const CLSID mClass;
    ObjectPtr<IList> mList = Make<IList>(mClass);
    std::vector<IUnknown*> mItems;
    WalkModel mWalk;
    std::ptrdiff_t mGoal = 4300;
    std::size_t mAlive = 0;
};

TEST_P(NodeList, KeepsFindsAndGivesBackItemsLikeAVector)
{
    RunProgram<ListModel>(15000, GetParam());
}

TEST_P(NodeList, RefusesMistakesWithTheirTextAndStandsWhereAValueIsExpected)
{
    IList& l = *List;
    const auto item = TestItem::New();
    EXPECT_EQ(l.Add(item.Get()), S_OK);
    ObjectPtr<IUnknown> out;
    void** targets[] = {out.PutVoid(), nullptr};
    FAILS(l.Insert(2, item.Get()), E_INVALIDARG, "Invalid Index param");
    for (const std::int32_t index : {-1, 1, INT32_MIN, INT32_MAX})
    {
        const char* const range = "Invalid Index or Count param";
        FAILS(l.GetItemAt(index, IID_IUnknown, out.PutVoid()), E_INVALIDARG, "Invalid Index param");
        FAILS(l.SetItemAt(index, item.Get()), E_INVALIDARG, "Invalid Index param");
        FAILS(l.RemoveAt(index), E_INVALIDARG, "Invalid Index param");
        FAILS(l.CopyTo(index, 1, IID_IUnknown, targets), E_INVALIDARG, range);
        FAILS(l.CopyTo(1, index, IID_IUnknown, targets), E_INVALIDARG, range);
    }
    FAILS(l.GetItemAt(0, IID_IValue, out.PutVoid()), E_NOINTERFACE,
          "Item->QueryInterface(riid, ppv)");
    FAILS(l.Remove(&l), E_INVALIDARG, "item not member of this list");
    FAILS(Walk<IEnumerator>(*Make<IList>(GetParam()))->GetCurrent(IID_IUnknown, out.PutVoid()),
          E_FAIL, "Enumerator at End");
    const auto walk = Walk<IEnumerator>(l);
    EXPECT_EQ(walk->MoveNext(), S_OK);
    ExpectEnd(*walk);

    // It can stand where a value is expected; an item is known by its identity.
    const auto value = As<IValue>(l);
    FAILS(value->SetValue(GUID_Null, nullptr, 0), E_NOT_SUPPORTED,
          "Call of NodeList::IValue-Methode not supported");
    const auto other = Make<IList>(GetParam());
    EXPECT_EQ(other->Add(value.Get()), S_OK);
    EXPECT_EQ(other->IndexOf(&l), 0);
    EXPECT_EQ(l.Add(value.Get()) + l.Clear(), S_OK);
    ExpectDead(*walk);
}

// A copy clears every target before it fills one, keeps what it filled, and touches none beyond.
TEST_P(NodeList, CopiesItsItemsAndGivesBackWhatItNoLongerNeeds)
{
    const auto value = Make<IValue>(CLSID_Value);
    EXPECT_EQ(List->Add(value.Get()) + List->Add(TestItem::New().Get()), S_OK);
    void* const former = this;
    void* copies[] = {former, former, former};
    void** targets[] = {&copies[0], &copies[1], &copies[2]};
    FAILS(List->CopyTo(0, 2, IID_IValue, targets), E_NOINTERFACE, "QueryInterface(riid, pppv[i])");
    EXPECT_EQ(ReferencesOn(*ObjectPtr<IValue>::Adopt(static_cast<IValue*>(copies[0]))), 3u);
    EXPECT_TRUE(copies[1] == nullptr && copies[2] == former);

    const std::int64_t before = LiveAllocations();
    while (List->GetCount() < 20000)
        EXPECT_EQ(List->Add(value.Get()), S_OK);
    while (List->GetCount() > 10)
        EXPECT_EQ(List->RemoveAt(List->GetCount() / 3), S_OK);
    EXPECT_LE(LiveAllocations() - before, 2);
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

} // namespace
} // namespace Tavrik::Ossira
