// The node lists. Every case runs on the plain, the lockable and the unsafe list.
#include "OssiraValueSetGroup.h"
#include "RandomProgram.h"

#include <algorithm>
#include <array>
#include <ranges>

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

using NodeList = testing::TestWithParam<CLSID>;

INSTANTIATE_TEST_SUITE_P(Each, NodeList,
                         testing::Values(CLSID_NodeList, CLSID_LockableNodeList,
                                         CLSID_UnsafeNodeList));

// Every item asks the list when it is asked and when it dies. The list grows to more than one of
// its blocks.
class ListModel final : public CollectionModel<IList>
{
public:
    explicit ListModel(const CLSID& clsid) : CollectionModel(clsid, 4300)
    {
        BeginWalk();
    }

    ~ListModel() override
    {
        Renew();
        mWalk.Reset();
        EXPECT_EQ(mAlive, 0u);
    }

    void Step() override
    {
        if (Below(3000) == 0)
            Renew();
        const std::ptrdiff_t size = std::ssize(mModel);
        const bool grows = Grows();
        const ObjectPtr<TestItem> held = AnyItem();
        IUnknown* const item = held.Get();
        const std::int32_t index = AnyIndex();
        const auto at = std::ranges::find(mModel, item) - mModel.begin();
        if (Below(mModel.size() + 1) < 8) // they take long
        {
            EXPECT_EQ(mItems->Contains(item), at < size ? S_OK : S_FALSE);
            EXPECT_EQ(mItems->IndexOf(item), at < size ? at : E_NOT_FOUND);
        }
        const char die = (grows ? "aaaaiirsx" : "irsssxxxx")[Below(9)];
        const auto call = [&]
        {
            return die == 'a'   ? mItems->Add(item)
                   : die == 'i' ? mItems->Insert(index, item)
                   : die == 's' ? mItems->SetItemAt(index, item)
                   : die == 'r' ? mItems->Remove(item)
                                : mItems->RemoveAt(index);
        };
        const bool takes = die == 's' || die == 'r' || die == 'x', puts = die < 'r' || die == 's';
        const std::ptrdiff_t place = die == 'a' ? size : die == 'r' ? at : index;
        const bool isRight = place >= 0 && place < size + (takes ? 0 : 1);
        Expect(call, isRight ? S_OK : E_INVALIDARG,
               isRight      ? ""
               : die == 'r' ? "item not member of this list"
                            : "Invalid Index param");
        if (isRight && takes)
            mModel.erase(mModel.begin() + place);
        if (isRight && puts)
            mModel.insert(mModel.begin() + place, item);
        GoOn(isRight && takes != puts);
    }

    void Check() override
    {
        EXPECT_EQ(mItems->GetCount(), static_cast<Result>(mModel.size()));
        if (Below(mModel.size() + 1) > 8)
            return;
        const auto size = static_cast<std::int32_t>(mModel.size());
        const std::int32_t first = AnyIndex(), count = AnyIndex();
        const bool isRight = first >= 0 && count >= 0 && first <= size && count <= size - first;
        std::vector<ObjectPtr<IUnknown>> copies(isRight ? static_cast<std::size_t>(count) : 0);
        std::vector<void**> targets(copies.size() + 1);
        std::ranges::transform(copies, targets.begin(), [](auto& copy) { return copy.PutVoid(); });
        Expect([&] { return mItems->CopyTo(first, count, IID_IUnknown, targets.data()); },
               isRight ? S_OK : E_INVALIDARG, isRight ? "" : "Invalid Index or Count param");
        const auto shown =
            std::span(mModel).subspan(isRight ? std::size_t(first) : 0, copies.size());
        EXPECT_TRUE(std::ranges::equal(copies, shown, {}, &ObjectPtr<IUnknown>::Get));
        copies.clear();
        for (std::size_t at = 0; at < mModel.size(); ++at)
        {
            ObjectPtr<IUnknown> item;
            const auto index = static_cast<std::int32_t>(at);
            EXPECT_EQ(mItems->GetItemAt(index, IID_IUnknown, item.PutVoid()), S_OK);
            EXPECT_EQ(item.Get(), mModel[at]) << at;
        }
        const bool isThere = first >= 0 && first < size;
        void* none = nullptr;
        Expect([&] { return mItems->GetItemAt(first, IID_IValue, &none); },
               isThere ? E_NOINTERFACE : E_INVALIDARG,
               isThere ? "Item->QueryInterface(riid, ppv)" : "Invalid Index param");
    }

private:
    std::int32_t AnyIndex()
    {
        return Below(20) == 0 ? std::array{-1, INT32_MIN, INT32_MAX}[Below(3)]
                              : static_cast<std::int32_t>(Below(mModel.size() + 2));
    }

    ObjectPtr<TestItem> AnyItem()
    {
        if (!mModel.empty() && Below(2) == 0)
            return ObjectPtr(static_cast<TestItem*>(mModel[Below(mModel.size())]));
        const auto askList = [this]
        {
            EXPECT_TRUE(Below(mModel.size() + 1) > 8 || mItems->Contains(mItems.Get()) == S_FALSE);
        };
        auto item = TestItem::New([=, this] { --mAlive, askList(); });
        item->OnQuery = askList;
        ++mAlive;
        return item;
    }

    std::size_t Size() const override
    {
        return mModel.size();
    }

    bool IsAt(std::size_t at, IUnknown& item) const override
    {
        return &item == mModel[at];
    }

    void Renew()
    {
        Replace();
        for (IUnknown* const item :
             std::span(mModel).first(std::min(mModel.size(), std::size_t{100})))
            EXPECT_EQ(ReferencesOn(*item),
                      static_cast<std::uint32_t>(std::ranges::count(mModel, item)));
        mModel.clear();
        BeginWalk();
    }

    std::vector<IUnknown*> mModel;
    std::size_t mAlive = 0;
};

TEST_P(NodeList, KeepsFindsAndGivesBackItemsLikeAVector)
{
    RunProgram<ListModel>(15000, GetParam());
}

TEST_P(NodeList, StandsWhereAValueIsExpectedAndKnowsItsItemsByTheirIdentity)
{
    const auto list = Make<IList>(GetParam());
    const auto value = As<IValue>(*list);
    FAILS(value->SetValue(GUID_Null, nullptr, 0), E_NOT_SUPPORTED,
          "Call of NodeList::IValue-Methode not supported");
    GUID type = CLSID_Value;
    EXPECT_TRUE(value->GetType(&type) == S_OK && SameGuid(type, GUID_Null));
    const auto other = Make<IList>(GetParam());
    EXPECT_TRUE(other->Add(value.Get()) == S_OK && other->IndexOf(list.Get()) == 0);
    EXPECT_EQ(list->Add(value.Get()) + list->Clear(), S_OK);
}

// A copy clears every target before it fills one, keeps what it filled, and touches none beyond.
TEST_P(NodeList, CopiesItsItemsAndGivesBackWhatItNoLongerNeeds)
{
    const auto list = Make<IList>(GetParam());
    const auto value = Make<IValue>(CLSID_Value);
    EXPECT_EQ(list->Add(value.Get()) + list->Add(TestItem::New().Get()), S_OK);
    void* const former = this;
    void* copies[] = {former, former, former};
    void** targets[] = {&copies[0], &copies[1], &copies[2]};
    FAILS(list->CopyTo(0, 2, IID_IValue, targets), E_NOINTERFACE, "QueryInterface(riid, pppv[i])");
    EXPECT_EQ(ReferencesOn(*ObjectPtr<IValue>::Adopt(static_cast<IValue*>(copies[0]))), 3u);
    EXPECT_TRUE(copies[1] == nullptr && copies[2] == former);

    const std::int64_t before = LiveAllocations();
    while (list->GetCount() < 20000)
        EXPECT_EQ(list->Add(value.Get()), S_OK);
    while (list->GetCount() > 10)
        EXPECT_EQ(list->RemoveAt(list->GetCount() / 3), S_OK);
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
        ObjectPtr<IValueSet> view;
        EXPECT_EQ(map->SetValueGUID(Numbered(1), nest.Get()) + list->Add(map.Get()), S_OK);
        EXPECT_EQ(set->SetValueGUID(Numbered(1), list.Get()) +
                      group->InsertValueSet(-1, set.Get(), nullptr, 0) +
                      group->GetValueSet(view.Put()),
                  S_OK);
        nest = ObjectPtr<IUnknown>(view.Get());
    }
    nest.Reset();
    EXPECT_EQ(alive, 0) << "before the outermost release returns";
}

} // namespace
} // namespace Tavrik::Ossira
