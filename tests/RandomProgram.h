// Random programs: a model does something to an object step after step, does the same to a few
// lines of map or vector, and compares. A program is its seed, so that a failing one can be run
// again:
//   OSSIRA_TEST_SEED=SEED OSSIRA_TEST_STEPS=COUNT ossira_tests --gtest_filter=NAME
// Without the variables there is one short program of each model.
#pragma once

#include "FailingMemory.h"
#include "ServiceTools.h"

#include <cstdlib>

namespace Tavrik::Ossira::tTest
{

// What the environment says, or else the number.
[[nodiscard]] inline std::uint32_t Setting(const char* name, std::uint32_t otherwise)
{
    const char* const text = std::getenv(name);
    return text == nullptr ? otherwise : static_cast<std::uint32_t>(std::atoll(text));
}

class RandomModel
{
public:
    RandomModel(const RandomModel&) = delete;
    virtual ~RandomModel() = default;

    virtual void Step() = 0;
    virtual void Check() = 0;

    // Many small steps, or few large ones: the models say how many are worth while.
    void Run(std::uint32_t seed, std::uint32_t steps)
    {
        const ObserverMaskScope silence(0);
        mRandom.seed(seed);
        for (std::uint32_t step = 0; step < steps && !testing::Test::HasFailure(); ++step)
        {
            Step();
            Check();
            if (testing::Test::HasFailure())
                ADD_FAILURE() << "OSSIRA_TEST_SEED=" << seed << " OSSIRA_TEST_STEPS=" << step + 1;
        }
    }

protected:
    RandomModel() = default;

    [[nodiscard]] std::uint32_t Below(std::size_t bound)
    {
        return tTest::Below(mRandom, bound);
    }

    // What a call answers. At times memory is short: a call that fails for it must leave everything
    // as it is, and do when it is made again what it would have done.
    template <class Call>
    [[nodiscard]] Result Answer(Call call)
    {
        if (mMayRunShort && Below(8) == 0)
        {
            FailingMemory memory(Below(4), Below(2) != 0);
            const Result answer = call();
            if (!memory.Stop() || answer != E_OUTOFMEMORY)
                return answer;
            Check();
        }
        return call();
    }

    // Checks an answer; at times also the one line that is written then, or that none is.
    template <class Call>
    void Expect(Call call, Result answer, const std::string& text = "")
    {
        if (Below(text.empty() ? 128 : 16) != 0)
        {
            EXPECT_EQ(Answer(call), answer) << text;
            return;
        }
        const ObserverMaskScope errors(PRINT_ERROR);
        FAILS(call(), answer, text);
    }

    bool mMayRunShort = true;

private:
    std::mt19937 mRandom;
};

template <class Model, class... Arguments>
void RunProgram(std::uint32_t steps, const Arguments&... arguments)
{
    Model(arguments...).Run(Setting("OSSIRA_TEST_SEED", 1), Setting("OSSIRA_TEST_STEPS", steps));
}

// A collection that grows to many items and shrinks again, beside what it should hold; and an
// enumerator, which every change ends.
template <class Collection>
class CollectionModel : public RandomModel
{
protected:
    CollectionModel(const CLSID& clsid, std::size_t most) : mClass(clsid), mMost(most), mGoal(most)
    {
    }

    [[nodiscard]] virtual std::size_t Size() const = 0;
    [[nodiscard]] virtual bool IsAt(std::size_t at, IUnknown& item) const = 0;

    [[nodiscard]] bool Grows()
    {
        if (Size() == mGoal)
            mGoal = Below(1000) == 0 ? mMost : Below(40);
        return Size() < mGoal;
    }

    // The enumerator outlives its collection, and holds what is in there alone.
    void Replace()
    {
        BeginWalk();
        mItems = Make<Collection>(mClass);
        mMayRunShort = false; // since the model is not that of the new one
        for (std::uint32_t step = 0; step < 100; ++step)
            StepWalk(1 + step % 2 * 2);
        mMayRunShort = true;
    }

    void BeginWalk()
    {
        mWalk = Walk<IEnumerator>(*mItems);
        mAt = -1;
        mIsDead = false;
    }

    void GoOn(bool hasChanged)
    {
        mIsDead |= hasChanged;
        if (Below(4) == 0)
            BeginWalk();
        for (std::uint32_t count = Below(8); count > 0; --count)
            StepWalk(Below(5));
    }

    const CLSID mClass;
    ObjectPtr<Collection> mItems = Make<Collection>(mClass);
    ObjectPtr<IEnumerator> mWalk;

private:
    void StepWalk(std::uint32_t which)
    {
        const auto count = static_cast<std::ptrdiff_t>(Size());
        const bool isPast = mAt == count;
        const auto expect = [this](auto call, Result answer, const char* text)
        {
            Expect(call, mIsDead ? E_ACCESSDENIED : answer,
                   mIsDead ? "List was modified, the enumerator is invalid now" : text);
        };
        if (which == 0)
        {
            expect([this] { return mWalk->Reset(); }, S_OK, "");
            mAt = -1;
        }
        else if (which < 3)
        {
            mAt += isPast || mIsDead ? 0 : 1;
            expect([this] { return mWalk->MoveNext(); },
                   isPast        ? E_FAIL
                   : mAt < count ? S_OK
                                 : S_FALSE,
                   "");
        }
        else
        {
            const Result answer = isPast || count == 0 ? E_FAIL : S_OK;
            const char* const text = isPast || count > 0 ? "" : "Enumerator at End";
            const auto at = static_cast<std::size_t>(std::max<std::ptrdiff_t>(mAt, 0));
            ObjectPtr<IUnknown> item;
            ObjectPtr<IEnumeratorGUID> keys;
            GUID key = GUID_Null, same = GUID_Null;
            expect([&] { return mWalk->GetCurrent(IID_IUnknown, item.PutVoid()); }, answer, text);
            EXPECT_EQ(item && IsAt(at, *item), answer == S_OK && !mIsDead);
            if (Below(16) == 0)
                expect([this] { return mWalk->GetCurrent(IID_IUnknown, nullptr); }, E_POINTER,
                       "ppv");
            if (mWalk.QueryTo(keys) != S_OK)
                return;
            if (Below(16) == 0)
                expect([&] { return keys->GetCurrentGUID(nullptr); }, E_POINTER, "pguid");
            expect([&] { return keys->GetCurrentGUID(&key); }, answer, text);
            (void)(item ? GetValueGUID(As<IValue>(*item).Get(), &same) : E_FAIL);
            EXPECT_TRUE(SameGuid(key, same));
        }
    }

    const std::size_t mMost;
    std::size_t mGoal;
    std::ptrdiff_t mAt = -1; // before the first; as many as there are: behind the last
    bool mIsDead = false;
};

// An enumerator of numbered keys that goes on when keys go and when its owner lets it.
class KeyWalk
{
public:
    void Begin(IUnknown& owner)
    {
        mWalk = Walk<IEnumerator>(*As<IEnumerable>(owner));
        IsDead = false;
        mPassed = 0;
    }

    template <class IsThere>
    void Step(std::uint32_t bound, IsThere isThere)
    {
        std::uint32_t next = mPassed;
        while (next < bound && !isThere(next))
            ++next;
        GUID key = GUID_Null;
        EXPECT_EQ(mWalk->MoveNext(), IsDead            ? E_ACCESSDENIED
                                     : mPassed > bound ? E_FAIL
                                     : next < bound    ? S_OK
                                                       : S_FALSE);
        mPassed = next + 1;
        ObjectPtr<IValue> value;
        EXPECT_EQ(mWalk->GetCurrent(IID_IValue, value.PutVoid()), IsDead         ? E_ACCESSDENIED
                                                                  : next < bound ? S_OK
                                                                                 : E_FAIL);
        EXPECT_TRUE(!value ||
                    (GetValueGUID(value.Get(), &key) == S_OK && SameGuid(key, Numbered(next))));
    }

    bool IsDead = false;

private:
    ObjectPtr<IEnumerator> mWalk;
    std::uint32_t mPassed = 0; // keys below are behind the walk
};

} // namespace Tavrik::Ossira::tTest
