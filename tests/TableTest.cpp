// What the collections are made of, beside the standard library's containers: long random programs
// of operations, at sizes on both sides of every step in which the structures grow and shrink, and
// with every allocation failing once.
#include "FailingMemory.h"
#include "GuidTable.h"
#include "ItemSequence.h"

#include <array>
#include <chrono>
#include <gtest/gtest.h>
#include <map>
#include <random>

using namespace Tavrik::Ossira;
using namespace Tavrik::Ossira::tTest;

namespace
{

using Random = std::mt19937_64;

// --- The table -----------------------------------------------------------------------------------

using Number = std::unique_ptr<std::uint64_t>; // an allocation, so that a lost one shows
using NumberTable = CGuidTable<Number>;

struct BytesPrecede
{
    bool operator()(const GUID& a, const GUID& b) const
    {
        return std::memcmp(&a, &b, sizeof(GUID)) < 0;
    }
};

using NumberMap = std::map<GUID, std::uint64_t, BytesPrecede>;

GUID KeyOf(std::uint64_t high, std::uint64_t low)
{
    return std::bit_cast<GUID>(std::array{high, low});
}

// Key after key against the model, by a walk and by look-up.
void ExpectSame(const NumberTable& table, const NumberMap& model)
{
    ASSERT_EQ(table.Size(), model.size());
    CGuidPosition at;
    bool more = table.First(at);
    for (const auto& [key, number] : model)
    {
        ASSERT_TRUE(more);
        ASSERT_TRUE(SameGuid(at.Key, key));
        const Number* const found = table.Find(key);
        ASSERT_NE(found, nullptr);
        ASSERT_EQ(**found, number);
        more = table.Next(at);
    }
    ASSERT_FALSE(more);
}

// A table and its model, to which the same is done.
struct Pair
{
    void Insert(const GUID& key, std::uint64_t number)
    {
        if (!Model.try_emplace(key, number).second)
            return;
        ASSERT_EQ(*Table.Insert(key, std::make_unique<std::uint64_t>(number)), number);
    }

    void Take(const GUID& key)
    {
        const auto taken = Table.Take(key);
        const auto expected = Model.find(key);
        ASSERT_EQ(taken.has_value(), expected != Model.end());
        if (!taken)
            return;
        ASSERT_EQ(**taken, expected->second);
        Model.erase(expected);
        ASSERT_EQ(Table.Find(key), nullptr);
    }

    // One step of a walk that goes on whatever happens in between, and begins again at the end.
    void Step()
    {
        const auto next = IsWalking ? Model.upper_bound(At.Key) : Model.begin();
        const GUID before = At.Key;
        ASSERT_EQ(IsWalking ? Table.Next(At) : Table.First(At), next != Model.end());
        IsWalking = next != Model.end();
        ASSERT_TRUE(SameGuid(At.Key, IsWalking ? next->first : before));
    }

    NumberTable Table;
    NumberMap Model;
    CGuidPosition At;
    bool IsWalking = false;
};

// Most keys differ in few bits, so that each of them comes again; the others do not.
GUID AnyKey(Random& random, std::uint64_t range)
{
    return KeyOf(random() % 3 == 0 ? random() % range * 0x0101 : 7, random() % range);
}

TEST(GuidTable, DoesWhatAMapDoes)
{
    Random random(4711);
    Pair pair;
    for (const std::size_t goal :
         {6U, 12U, 3U, 40U, 9U, 0U, 800U, 30U, 6000U, 500U, 40000U, 12U, 0U, 1500U, 0U})
    {
        const bool isGrowing = goal > pair.Model.size();
        while (isGrowing ? pair.Model.size() < goal : pair.Model.size() > goal)
        {
            const GUID key = AnyKey(random, 60000);
            const std::uint64_t dice = random() % 8;
            if (dice < (isGrowing ? 5U : 1U))
                pair.Insert(key, random());
            else if (dice < 6 && !pair.Model.empty())
                pair.Take(dice == 5 ? key : (pair.Step(), pair.At.Key)); // the current one
            else
                pair.Step();
            if (HasFatalFailure())
                return;
        }
        ExpectSame(pair.Table, pair.Model);
        Pair other;
        other.Insert(KeyOf(1, 2), 3);
        other.Table.Swap(pair.Table);
        ExpectSame(other.Table, pair.Model);
        pair.Table.Swap(other.Table);
    }
}

TEST(GuidTable, GivesBackWhatItNoLongerNeeds)
{
    Random random(1);
    const std::int64_t before = LiveAllocations();
    {
        NumberTable table;
        for (std::size_t count = 0; count < 200000; ++count)
            table.Insert(KeyOf(random(), random()), {});
        CGuidPosition at;
        while (table.Size() > 10)
        {
            at = {.Key = KeyOf(random(), 0)}; // from anywhere, then from the least one on
            ASSERT_TRUE((table.Size() > 1000 && table.Next(at)) || table.First(at));
            ASSERT_TRUE(table.Take(at.Key).has_value());
        }
        EXPECT_LE(LiveAllocations() - before, 8);
    }
    EXPECT_EQ(LiveAllocations(), before);
}

TEST(GuidTable, IsAsItWasWhenMemoryRunsOut)
{
    Random random(2);
    const std::int64_t before = LiveAllocations();
    {
        Pair pair;
        for (std::uint64_t count = 0; count < 3000; ++count)
        {
            const GUID key = KeyOf(random(), count);
            Number number = std::make_unique<std::uint64_t>(count);
            for (std::int64_t which = 0;; ++which)
            {
                FailingMemory shortage(which, Shortage::Once);
                try
                {
                    pair.Table.Insert(key, std::move(number));
                    break;
                }
                catch (const std::bad_alloc&)
                {
                    shortage.Stop();
                    ASSERT_NE(number, nullptr);
                    ASSERT_EQ(pair.Table.Find(key), nullptr);
                    ASSERT_EQ(pair.Table.Size(), count);
                    if (count % 64 < 40)
                        ExpectSame(pair.Table, pair.Model);
                }
            }
            pair.Model.emplace(key, count);
        }
        ExpectSame(pair.Table, pair.Model);
        while (!pair.Model.empty()) // removal needs no memory, and does with what there is
        {
            const GUID key = pair.Model.begin()->first;
            pair.Model.erase(pair.Model.begin());
            FailingMemory shortage(0, Shortage::FromThenOn);
            const auto taken = pair.Table.Take(key);
            shortage.Stop();
            ASSERT_TRUE(taken.has_value());
        }
        ExpectSame(pair.Table, pair.Model);
        pair.Insert(KeyOf(1, 1), 1);
        ExpectSame(pair.Table, pair.Model);
    }
    EXPECT_EQ(LiveAllocations(), before);
}

// Keys that count in some bits only, and keys that a sum of multiples of their halves cannot tell
// apart.
TEST(GuidTable, TakesChosenKeysAsItTakesRandomOnes)
{
    constexpr std::uint64_t count = 20000;
    const auto fill = [](auto keyOf)
    {
        const auto begin = std::chrono::steady_clock::now();
        NumberTable table;
        for (std::uint64_t at = 0; at < count; ++at)
            table.Insert(keyOf(at), {});
        return std::chrono::steady_clock::now() - begin;
    };
    Random random(3);
    const auto expected = fill([&random](std::uint64_t) { return KeyOf(random(), random()); });
    for (const std::uint64_t factor : {0x9E3779B97F4A7C15U, 0x94D049BB133111EBU})
        EXPECT_LT(fill([=](std::uint64_t at) { return KeyOf(at, 0 - at * factor); }),
                  20 * expected);
    for (const int shift : {0, 11, 32, 48})
    {
        EXPECT_LT(fill([=](std::uint64_t at) { return KeyOf(at << shift, 0); }), 20 * expected);
        EXPECT_LT(fill([=](std::uint64_t at) { return KeyOf(0, at << shift); }), 20 * expected);
    }
}

// --- The sequence ------------------------------------------------------------------------------

// Owned by the test; only the counts of its references matter.
struct CountedItem final : IUnknown
{
    Result QueryInterface(const IID&, void**) override
    {
        return E_NOINTERFACE;
    }

    std::uint32_t AddRef() override
    {
        return ++Count;
    }

    std::uint32_t Release() override
    {
        return --Count;
    }

    std::uint32_t Count = 0;
};

void ExpectSame(const CItemSequence& sequence, const std::vector<CountedItem*>& model)
{
    ASSERT_EQ(sequence.Size(), model.size());
    for (std::size_t index = 0; index < model.size(); ++index)
        ASSERT_EQ(sequence.At(index), model[index]) << index;
}

// Both ends and the middle in turn, up and down over the sizes at which blocks come and go.
TEST(ItemSequence, DoesWhatAVectorDoes)
{
    Random random(5);
    std::vector<CountedItem> items(40);
    const std::int64_t before = LiveAllocations();
    {
        CItemSequence sequence;
        std::vector<CountedItem*> model;
        for (const std::size_t goal :
             {7U, 20U, 0U, 4095U, 4097U, 3U, 9000U, 30000U, 8191U, 900U, 30U})
        {
            const std::uint64_t way = random() % 4; // which end is preferred, or none
            while (model.size() != goal)
            {
                const std::size_t bound = model.size() + (model.size() < goal ? 1 : 0);
                std::size_t at = random() % bound;
                if (way < 2 && random() % 16 != 0)
                    at = way == 0 ? 0 : bound - 1;
                CountedItem* const item = &items[random() % items.size()];
                const auto place = model.begin() + static_cast<std::ptrdiff_t>(at);
                if (model.size() < goal)
                {
                    sequence.Insert(at, ObjectPtr<IUnknown>(item));
                    model.insert(place, item);
                    continue;
                }
                ASSERT_EQ(sequence.Take(at).Get(), *place);
                model.erase(place);
            }
            ExpectSame(sequence, model);
            for (std::size_t round = 0; round < 12000; ++round) // the ring turns round
            {
                CountedItem* const item = &items[random() % items.size()];
                const bool isForward = way % 2 == 0;
                sequence.Insert(isForward ? model.size() : 0, ObjectPtr<IUnknown>(item));
                model.insert(isForward ? model.end() : model.begin(), item);
                ASSERT_EQ(sequence.Take(isForward ? 0 : goal).Get(),
                          isForward ? model.front() : model.back());
                model.erase(isForward ? model.begin() : model.end() - 1);
            }
            ExpectSame(sequence, model);
        }
        CountedItem other;
        ObjectPtr<IUnknown> replacing(&other);
        sequence.Replace(17, replacing);
        EXPECT_EQ(replacing.Get(), model[17]);
        EXPECT_EQ(sequence.Find(&other), 17U);
        EXPECT_FALSE(sequence.Find(nullptr).has_value());
        EXPECT_LE(LiveAllocations() - before, 3); // the model's one too
        CItemSequence second;
        second.Swap(sequence);
        EXPECT_EQ(second.Size(), model.size());
        EXPECT_EQ(sequence.Size(), 0U);
        replacing.Reset();
    }
    EXPECT_EQ(LiveAllocations(), before);
    for (const CountedItem& item : items)
        EXPECT_EQ(item.Count, 0U);
}

TEST(ItemSequence, IsAsItWasWhenMemoryRunsOut)
{
    std::vector<CountedItem> items(12000);
    CItemSequence sequence;
    std::vector<CountedItem*> model;
    for (CountedItem& item : items)
    {
        ObjectPtr<IUnknown> reference(&item);
        const std::size_t at = model.size() % 3 == 0 ? model.size() : 0;
        for (std::int64_t which = 0; reference; ++which)
        {
            FailingMemory shortage(which, Shortage::Once);
            try
            {
                sequence.Insert(at, std::move(reference));
            }
            catch (const std::bad_alloc&)
            {
                shortage.Stop();
                ASSERT_TRUE(reference);
                ExpectSame(sequence, model);
            }
        }
        model.insert(model.begin() + static_cast<std::ptrdiff_t>(at), &item);
    }
    ExpectSame(sequence, model);
    FailingMemory shortage(0, Shortage::FromThenOn);
    while (sequence.Size() > 0)
        (void)sequence.Take(sequence.Size() / 3);
    EXPECT_TRUE(shortage.Stop());
    sequence.Insert(0, ObjectPtr<IUnknown>(&items[0]));
    EXPECT_EQ(sequence.Take(0).Get(), &items[0]);
    for (const CountedItem& item : items)
        EXPECT_EQ(item.Count, 0U);
}

} // namespace
